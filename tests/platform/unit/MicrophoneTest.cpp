#include <algorithm>
#include <cmath>
#include <cstdint>

#include "BufferLists.h"
#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;

/// A unit whose microphone hears a tone; its input callback fetches everything.
class Microphone : public testing::Test {
  protected:
    Microphone() {
        EXPECT_EQ(TQManualDeviceSetInput(speak, &spoken), noErr);
        EXPECT_EQ(set(unit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, UInt32{1}),
                  noErr);
        input.body = [this](AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time,
                            UInt32 bus, UInt32 frames, AudioBufferList* list) {
            EXPECT_EQ(list, nullptr);
            EXPECT_EQ(bus, 1U);
            EXPECT_EQ(time.mHostTime, player.hostTime());
            times.push_back(time.mSampleTime);
            asked.push_back(frames);
            AudioBufferList heardList{1, {{1, 0, nullptr}}};
            EXPECT_EQ(AudioUnitRender(unit, &flags, &time, 1, frames, &heardList), noErr);
            EXPECT_EQ(heardList.mBuffers[0].mDataByteSize, frames * sizeof(float));
            heard.insert(heard.end(), samples<float>(&heardList),
                         samples<float>(&heardList) + frames);
            return OSStatus{noErr};
        };
        EXPECT_EQ(set(unit, kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 1,
                      input.structure()),
                  noErr);
    }
    ~Microphone() override { TQManualDeviceSetInput(nullptr, nullptr); }

    static void speak(void* refCon, UInt32 channels, UInt32 frames, float* const* planes) {
        auto& count = *static_cast<UInt64*>(refCon);
        for (UInt32 i = 0; i < frames; ++i, ++count) {
            const auto value =
                static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 1000 *
                                                  static_cast<double>(count) / deviceRate));
            for (UInt32 channel = 0; channel < channels; ++channel) {
                planes[channel][i] = value;
            }
        }
    }
    void listenAt(Float64 rate) {
        ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 1, floatPlanar(rate, 1)), noErr);
        ASSERT_EQ(AudioUnitInitialize(unit), noErr);
        ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    }

    Player player;
    UInt64 spoken = 0;
    const OwnedUnit unit{remoteIO()};
    Callback input;
    std::vector<Float64> times;
    std::vector<UInt32> asked;
    std::vector<float> heard;
};

TEST_F(Microphone, IsHeardSliceBySliceAtTheDevicesRate) {
    listenAt(deviceRate);
    player.pump(256, 3);
    EXPECT_EQ(asked, (std::vector<UInt32>{256, 256, 256}));
    EXPECT_EQ(times, (std::vector<Float64>{0, 256, 512}));
    ASSERT_EQ(heard.size(), 768U);
    for (std::size_t i = 0; i < heard.size(); ++i) {
        ASSERT_EQ(heard[i],
                  static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 1000 *
                                                    static_cast<double>(i) / deviceRate)));
    }
}

TEST_F(Microphone, IsConvertedToTheProgramsRateWithoutDrift) {
    listenAt(16000);
    player.pump(512, 200);
    EXPECT_NEAR(static_cast<double>(heard.size()), 512.0 * 200 / 3, 1);
    EXPECT_NEAR(amplitude(heard, 1000, 16000, 16000), 0.5, 0.001);
    Float64 next = 0;
    for (std::size_t i = 0; i < times.size(); ++i) {
        ASSERT_EQ(times[i], next);
        next += asked[i];
    }
}

TEST_F(Microphone, ItsTimeGoesOnWhenTheDeviceHasAnotherRate) {
    listenAt(16000);
    player.pump(512, 3);
    ASSERT_EQ(TQManualDeviceSetSampleRate(44100), noErr);
    player.pump(512, 3);
    ASSERT_EQ(TQManualDeviceSetSampleRate(deviceRate), noErr);
    player.pump(512, 3);
    EXPECT_EQ(times.size(), 9U);
    Float64 next = 0;
    for (std::size_t i = 0; i < times.size(); ++i) {
        EXPECT_EQ(times[i], next);
        next += asked[i];
    }
}

TEST_F(Microphone, ItsTimeBeginsAnewWithEveryStart) {
    listenAt(16000);
    player.pump(512, 3);
    ASSERT_EQ(AudioOutputUnitStop(unit), noErr);
    times.clear();
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(512);
    EXPECT_EQ(times, (std::vector<Float64>{0}));
}

TEST_F(Microphone, IsConvertedToAHigherRate) {
    listenAt(96000);
    player.pump(512, 100);
    EXPECT_EQ(heard.size(), 2 * 512U * 100);
    EXPECT_NEAR(amplitude(heard, 1000, 96000, 48000), 0.5, 0.001);
}

TEST_F(Microphone, CanBeFetchedFromTheOutputCallback) {
    const AURenderCallbackStruct none{};
    ASSERT_EQ(set(unit, kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 1, none),
              noErr);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 1, floatPlanar(deviceRate, 2)), noErr);
    Callback output;
    output.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time, UInt32,
                      UInt32 frames, AudioBufferList* list) {
        return AudioUnitRender(unit, &flags, &time, 1, frames, list);
    };
    ASSERT_EQ(setCallback(unit, 0, output), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(256, 2);
    EXPECT_EQ(input.calls, 0);
    for (std::size_t i = 0; i < player.left.size(); ++i) {
        ASSERT_EQ(player.left[i],
                  static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 1000 *
                                                    static_cast<double>(i) / deviceRate)));
    }
}

TEST_F(Microphone, CanBeConnectedToTheOutputOfItsOwnUnit) {
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 1, floatPlanar(deviceRate, 2)), noErr);
    const AURenderCallbackStruct none{};
    ASSERT_EQ(set(unit, kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 1, none),
              noErr);
    const AudioUnitConnection connection{unit, 1, 0};
    ASSERT_EQ(set(unit, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0, connection),
              noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(480, 4);
    EXPECT_NEAR(amplitude(player.left, 1000, deviceRate, 0), 0.5, 0.001);
}

TEST_F(Microphone, BeyondWhatWasHeardThereIsSilence) {
    OwnedBufferList list = OwnedBufferList::planar(1, 300 * sizeof(float));
    input.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time, UInt32, UInt32,
                     AudioBufferList*) {
        return AudioUnitRender(unit, &flags, &time, 1, 300, list.get());
    };
    listenAt(deviceRate);
    spoken = 12;
    player.pump(256);
    EXPECT_NE(list.samples<float>()[255], 0.0F);
    EXPECT_EQ(list.samples<float>()[256], 0.0F);
    EXPECT_EQ(list.samples<float>()[299], 0.0F);
}

TEST_F(Microphone, WrongBuffersAreRefused) {
    OSStatus small = noErr;
    OSStatus wrongCount = noErr;
    input.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time, UInt32,
                     UInt32 frames, AudioBufferList*) {
        OwnedBufferList shortList = OwnedBufferList::planar(1, (frames - 1) * 4);
        small = AudioUnitRender(unit, &flags, &time, 1, frames, shortList.get());
        OwnedBufferList two = OwnedBufferList::planar(2, frames * 4);
        wrongCount = AudioUnitRender(unit, &flags, &time, 1, frames, two.get());
        return OSStatus{noErr};
    };
    listenAt(deviceRate);
    player.pump(256);
    EXPECT_EQ(small, kAudio_ParamError);
    EXPECT_EQ(wrongCount, kAudio_ParamError);
}

TEST_F(Microphone, PullsNotifyWithBus1) {
    Callback notify;
    std::vector<UInt32> buses;
    notify.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32 bus, UInt32,
                      AudioBufferList*) {
        buses.push_back(bus);
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitAddRenderNotify(unit, Callback::proc, &notify), noErr);
    listenAt(deviceRate);
    player.pump(64);
    EXPECT_EQ(buses, (std::vector<UInt32>{1, 1, 0, 0}));
}

TEST_F(Microphone, IsThereDuringASliceOnly) {
    listenAt(deviceRate);
    player.pump(64);
    OwnedBufferList list = OwnedBufferList::planar(1, 256);
    const AudioTimeStamp time{};
    EXPECT_EQ(AudioUnitRender(unit, nullptr, &time, 1, 64, list.get()),
              kAudioUnitErr_CannotDoInCurrentContext);
}

TEST_F(Microphone, DisabledItHasNoElement) {
    ASSERT_EQ(set(unit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, UInt32{0}),
              noErr);
    OSStatus inside = noErr;
    Callback output;
    OwnedBufferList list = OwnedBufferList::planar(1, 256);
    output.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time, UInt32, UInt32,
                      AudioBufferList*) {
        inside = AudioUnitRender(unit, &flags, &time, 1, 64, list.get());
        return OSStatus{noErr};
    };
    ASSERT_EQ(setCallback(unit, 0, output), noErr);
    listenAt(deviceRate);
    player.pump(64);
    EXPECT_EQ(inside, kAudioUnitErr_InvalidElement);
    EXPECT_EQ(input.calls, 0);
}

TEST(EnableIO, HasItsPlacesAndDefaults) {
    const OwnedUnit unit(remoteIO());
    const auto enable = kAudioOutputUnitProperty_EnableIO;
    EXPECT_EQ(get<UInt32>(unit, enable, kAudioUnitScope_Output, 0), 1U);
    EXPECT_EQ(get<UInt32>(unit, enable, kAudioUnitScope_Input, 1), 0U);
    EXPECT_EQ(set(unit, enable, kAudioUnitScope_Input, 0, UInt32{1}), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(set(unit, enable, kAudioUnitScope_Output, 1, UInt32{1}),
              kAudioUnitErr_InvalidElement);
    EXPECT_EQ(set(unit, enable, kAudioUnitScope_Global, 0, UInt32{1}), kAudioUnitErr_InvalidScope);
    EXPECT_EQ(set(unit, enable, kAudioUnitScope_Input, 1, UInt32{5}), noErr);
    EXPECT_EQ(get<UInt32>(unit, enable, kAudioUnitScope_Input, 1), 1U);
    EXPECT_EQ(get<UInt32>(unit, kAudioOutputUnitProperty_HasIO, kAudioUnitScope_Input, 1), 1U);
    EXPECT_EQ(get<UInt32>(unit, kAudioOutputUnitProperty_HasIO, kAudioUnitScope_Output, 0), 1U);
    const OwnedUnit voice(description(kAudioUnitType_Output, kAudioUnitSubType_VoiceProcessingIO));
    EXPECT_EQ(get<UInt32>(voice, enable, kAudioUnitScope_Input, 1), 0U);
    const OwnedUnit generic(genericOutput());
    EXPECT_EQ(set(generic, enable, kAudioUnitScope_Input, 1, UInt32{1}),
              kAudioUnitErr_InvalidProperty);
}

}  // namespace
}  // namespace platform
