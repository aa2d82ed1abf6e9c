#include <algorithm>

#include "BufferLists.h"
#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;

class PlayingUnit : public testing::Test {
  protected:
    PlayingUnit() { EXPECT_EQ(setCallback(unit, 0, callback), noErr); }
    void play() {
        ASSERT_EQ(AudioUnitInitialize(unit), noErr);
        ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    }
    static Callback::Body constant(float value) {
        return [value](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                       AudioBufferList* list) {
            for (UInt32 i = 0; i < list->mNumberBuffers; ++i) {
                std::fill_n(samples<float>(list, i), frames, value);
            }
            return OSStatus{noErr};
        };
    }

    Player player;
    const OwnedUnit unit{remoteIO()};
    Callback callback;
};

TEST_F(PlayingUnit, GetsOneCallbackPerSliceWithTheSlicesFrames) {
    std::vector<UInt32> frames;
    std::vector<AudioTimeStamp> times;
    callback.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time, UInt32 bus,
                        UInt32 count, AudioBufferList* list) {
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(bus, 0U);
        EXPECT_EQ(list->mNumberBuffers, 2U);
        frames.push_back(count);
        times.push_back(time);
        return OSStatus{noErr};
    };
    play();
    for (const UInt32 count : {512U, 1U, 4096U, 333U}) {
        player.pump(count);
    }
    EXPECT_EQ(frames, (std::vector<UInt32>{512, 1, 4096, 333}));
    const Float64 expected[] = {0, 512, 513, 4609};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(times[i].mSampleTime, expected[i]);
        EXPECT_EQ(times[i].mHostTime, 2000 + 1000 * i);
        EXPECT_EQ(times[i].mRateScalar, 1);
        EXPECT_EQ(times[i].mFlags & 7U, 7U);
    }
}

TEST_F(PlayingUnit, SamplesArriveUnchanged) {
    float next = -1;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                        AudioBufferList* list) {
        for (UInt32 i = 0; i < frames; ++i) {
            samples<float>(list, 0)[i] = next;
            samples<float>(list, 1)[i] = -next;
            next += 1.0F / 2048;
        }
        return OSStatus{noErr};
    };
    play();
    player.pump(512, 4);
    ASSERT_EQ(player.left.size(), 2048U);
    for (std::size_t i = 0; i < player.left.size(); ++i) {
        ASSERT_EQ(player.left[i], -1.0F + static_cast<float>(i) / 2048);
        ASSERT_EQ(player.right[i], -player.left[i]);
    }
}

TEST_F(PlayingUnit, SampleTimeStartsAnewWithEachStart) {
    std::vector<Float64> times;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp& time, UInt32, UInt32,
                        AudioBufferList*) {
        times.push_back(time.mSampleTime);
        return OSStatus{noErr};
    };
    play();
    player.pump(100, 2);
    ASSERT_EQ(AudioOutputUnitStop(unit), noErr);
    player.pump(100);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(100, 2);
    EXPECT_EQ(times, (std::vector<Float64>{0, 100, 0, 100}));
}

TEST_F(PlayingUnit, SampleTimeCanFollowTheDevice) {
    Float64 first = -1;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp& time, UInt32, UInt32,
                        AudioBufferList*) {
        first = time.mSampleTime;
        return OSStatus{noErr};
    };
    EXPECT_EQ(get<UInt32>(unit, kAudioOutputUnitProperty_StartTimestampsAtZero, 0, 0), 1U);
    ASSERT_EQ(set(unit, kAudioOutputUnitProperty_StartTimestampsAtZero, 0, 0, UInt32{0}), noErr);
    play();
    player.pump(100);
    const Float64 before = first;
    ASSERT_EQ(AudioOutputUnitStop(unit), noErr);
    player.pump(100, 3);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(100);
    EXPECT_EQ(first, before + 400);
}

TEST_F(PlayingUnit, WithoutSourcePlaysSilence) {
    ASSERT_EQ(AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, nullptr, 0),
              noErr);
    play();
    player.pump(64);
    EXPECT_EQ(callback.calls, 0);
    EXPECT_EQ(player.left, std::vector<float>(64, 0));
}

TEST_F(PlayingUnit, MissingFramesAreSilence) {
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                       AudioBufferList* list) {
        std::fill_n(samples<float>(list), frames, 0.5F);
        list->mBuffers[0].mDataByteSize = 10 * sizeof(float);
        list->mBuffers[1].mDataByteSize = 10 * sizeof(float);
        return OSStatus{noErr};
    };
    play();
    player.pump(64);
    EXPECT_EQ(player.left[9], 0.5F);
    EXPECT_EQ(player.left[10], 0.0F);
}

TEST_F(PlayingUnit, SilenceIsOnlyAHint) {
    callback.body = [](AudioUnitRenderActionFlags& flags, const AudioTimeStamp&, UInt32,
                       UInt32 frames, AudioBufferList* list) {
        flags |= kAudioUnitRenderAction_OutputIsSilence;
        std::fill_n(samples<float>(list), frames, 0.5F);
        return OSStatus{noErr};
    };
    Callback notify;
    AudioUnitRenderActionFlags after = 0;
    notify.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp&, UInt32, UInt32,
                      AudioBufferList*) {
        after = flags;
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitAddRenderNotify(unit, Callback::proc, &notify), noErr);
    play();
    player.pump(64);
    EXPECT_EQ(player.left[0], 0.5F);
    EXPECT_EQ(after, static_cast<UInt32>(kAudioUnitRenderAction_PostRender) |
                         static_cast<UInt32>(kAudioUnitRenderAction_OutputIsSilence));
}

TEST_F(PlayingUnit, WithItsOutputDisabledIsNotAsked) {
    ASSERT_EQ(set(unit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, 0, UInt32{0}),
              noErr);
    callback.body = constant(0.5F);
    play();
    player.pump(64);
    EXPECT_EQ(callback.calls, 0);
    EXPECT_EQ(player.left[0], 0.0F);
}

TEST_F(PlayingUnit, IsHeardTogetherWithOthers) {
    const OwnedUnit other(remoteIO());
    Callback second;
    callback.body = constant(0.25F);
    second.body = constant(0.5F);
    ASSERT_EQ(setCallback(other, 0, second), noErr);
    ASSERT_EQ(AudioUnitInitialize(other), noErr);
    ASSERT_EQ(AudioOutputUnitStart(other), noErr);
    play();
    player.pump(64);
    EXPECT_EQ(player.left[63], 0.75F);
}

TEST_F(PlayingUnit, PlaysWhatAMixerRendersThroughAConnection) {
    const OwnedUnit source(mixer());
    Callback track;
    track.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32 bus, UInt32 frames,
                    AudioBufferList* list) {
        EXPECT_EQ(bus, 6U);
        std::fill_n(samples<float>(list), frames, 0.5F);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setFormat(source, kAudioUnitScope_Input, 6, floatPlanar(deviceRate, 2)), noErr);
    ASSERT_EQ(setFormat(source, kAudioUnitScope_Output, 0, floatPlanar(deviceRate, 2)), noErr);
    ASSERT_EQ(setCallback(source, 6, track), noErr);
    ASSERT_EQ(AudioUnitInitialize(source), noErr);
    const AudioUnitConnection connection{source, 0, 0};
    ASSERT_EQ(set(unit, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0, connection),
              noErr);
    play();
    player.pump(1024);
    EXPECT_EQ(track.calls, 1);
    EXPECT_EQ(player.left[1023], 0.5F);
    EXPECT_EQ(player.right[1023], 0.0F);
}

TEST_F(PlayingUnit, HasAVolume) {
    callback.body = constant(0.5F);
    ASSERT_EQ(
        AudioUnitSetParameter(unit, kHALOutputParam_Volume, kAudioUnitScope_Global, 0, 0.5F, 0),
        noErr);
    play();
    player.pump(64);
    EXPECT_EQ(player.left[0], 0.25F);
    Float32 volume = 0;
    EXPECT_EQ(
        AudioUnitGetParameter(unit, kHALOutputParam_Volume, kAudioUnitScope_Output, 0, &volume),
        noErr);
    EXPECT_EQ(volume, 0.5F);
    EXPECT_EQ(AudioUnitSetParameter(unit, kHALOutputParam_Volume, kAudioUnitScope_Input, 0, 1, 0),
              kAudioUnitErr_InvalidScope);
    EXPECT_EQ(AudioUnitSetParameter(unit, 3, kAudioUnitScope_Global, 0, 1, 0),
              kAudioUnitErr_InvalidParameter);
}

TEST_F(PlayingUnit, Bus0IsNotThePrograms) {
    OSStatus inside = noErr;
    OwnedBufferList list = OwnedBufferList::planar(2, 256);
    const AudioTimeStamp now{};
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) {
        inside = AudioUnitRender(unit, nullptr, &now, 0, 64, list.get());
        return OSStatus{noErr};
    };
    play();
    player.pump(64);
    EXPECT_EQ(inside, kAudioUnitErr_CannotDoInCurrentContext);
    EXPECT_EQ(AudioUnitRender(unit, nullptr, &now, 0, 64, list.get()),
              kAudioUnitErr_CannotDoInCurrentContext);
}

TEST(VoiceUnit, PlaysLikeRemoteIOAndCanBeMuted) {
    Player player;
    const OwnedUnit unit(description(kAudioUnitType_Output, kAudioUnitSubType_VoiceProcessingIO));
    Callback callback;
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                       AudioBufferList* list) {
        std::fill_n(samples<float>(list), frames, 0.5F);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    ASSERT_EQ(set(unit, kAUVoiceIOProperty_MuteOutput, kAudioUnitScope_Global, 1, UInt32{1}),
              noErr);
    player.pump(64);
    EXPECT_EQ(player.left[63], 0.5F);
    EXPECT_EQ(player.left[64], 0.0F);
    EXPECT_EQ(callback.calls, 2);
}

TEST(VoiceUnit, HasPropertiesThatRemoteIOHasNot) {
    const OwnedUnit voice(description(kAudioUnitType_Output, kAudioUnitSubType_VoiceProcessingIO));
    const OwnedUnit plain(remoteIO());
    EXPECT_EQ(get<UInt32>(voice, kAUVoiceIOProperty_BypassVoiceProcessing, 0, 0), 0U);
    EXPECT_EQ(get<UInt32>(voice, kAUVoiceIOProperty_VoiceProcessingEnableAGC, 0, 0), 1U);
    EXPECT_EQ(set(voice, kAUVoiceIOProperty_VoiceProcessingQuality, 0, 0, UInt32{50}), noErr);
    EXPECT_EQ(get<UInt32>(voice, kAUVoiceIOProperty_VoiceProcessingQuality, 0, 0), 50U);
    EXPECT_EQ(set(voice, kAUVoiceIOProperty_VoiceProcessingQuality, 0, 0, UInt32{128}),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(set(plain, kAUVoiceIOProperty_BypassVoiceProcessing, 0, 0, UInt32{1}),
              kAudioUnitErr_InvalidProperty);
}

}  // namespace
}  // namespace platform
