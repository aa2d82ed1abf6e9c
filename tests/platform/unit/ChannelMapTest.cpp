#include <algorithm>

#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;

/// A unit whose program gives 0.1 on its first channel, 0.2 on its second, and so on.
class MappedUnit : public testing::Test {
  protected:
    MappedUnit() {
        callback.body = [](auto&, auto&, UInt32, UInt32 frames, AudioBufferList* list) {
            for (UInt32 i = 0; i < list->mNumberBuffers; ++i) {
                std::fill_n(samples<float>(list, i), frames, valueOf(i));
            }
            return OSStatus{noErr};
        };
        EXPECT_EQ(setCallback(unit, 0, callback), noErr);
    }
    static float valueOf(UInt32 channel) { return 0.1F * static_cast<float>(channel + 1); }
    OSStatus setMap(const std::vector<SInt32>& map, UInt32 element = 0) {
        return AudioUnitSetProperty(unit, kAudioOutputUnitProperty_ChannelMap,
                                    kAudioUnitScope_Output, element, map.data(),
                                    static_cast<UInt32>(map.size() * sizeof(SInt32)));
    }
    std::vector<SInt32> map(UInt32 element = 0) {
        SInt32 held[8];
        UInt32 size = sizeof held;
        EXPECT_EQ(AudioUnitGetProperty(unit, kAudioOutputUnitProperty_ChannelMap,
                                       kAudioUnitScope_Output, element, held, &size),
                  noErr);
        return {held, held + size / sizeof(SInt32)};
    }
    void play(Float64 rate = deviceRate, UInt32 channels = 2) {
        ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, floatPlanar(rate, channels)), noErr);
        ASSERT_EQ(AudioUnitInitialize(unit), noErr);
        ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    }
    void expectPlayed(float left, float right) {
        player.left.clear();
        player.right.clear();
        player.pump(64);
        EXPECT_EQ(player.left, std::vector<float>(64, left));
        EXPECT_EQ(player.right, std::vector<float>(64, right));
    }

    Player player;
    const OwnedUnit unit{remoteIO()};
    Callback callback;
};

TEST_F(MappedUnit, SaysWhatHappensWithoutAMap) {
    EXPECT_EQ(map(), (std::vector<SInt32>{0, 1}));
    play(deviceRate, 1);
    EXPECT_EQ(map(), (std::vector<SInt32>{0, 0}));
    expectPlayed(0.1F, 0.1F);
}

TEST_F(MappedUnit, PlaysTheChannelsThatTheMapNames) {
    ASSERT_EQ(setMap({1, 0}), noErr);
    play();
    expectPlayed(valueOf(1), valueOf(0));
    EXPECT_EQ(map(), (std::vector<SInt32>{1, 0}));
}

TEST_F(MappedUnit, FollowsAMapWhileItPlays) {
    play();
    expectPlayed(valueOf(0), valueOf(1));
    ASSERT_EQ(setMap({-1, 0}), noErr);
    expectPlayed(0, valueOf(0));
    ASSERT_EQ(setMap({1}), noErr);
    EXPECT_EQ(map(), (std::vector<SInt32>{1, -1}));
    expectPlayed(valueOf(1), 0);
    ASSERT_EQ(AudioUnitSetProperty(unit, kAudioOutputUnitProperty_ChannelMap,
                                   kAudioUnitScope_Output, 0, nullptr, 0),
              noErr);
    expectPlayed(valueOf(0), valueOf(1));
}

TEST_F(MappedUnit, ReachesChannelsThatTheDeviceDoesNotHave) {
    ASSERT_EQ(setMap({3, 2}), noErr);
    play(deviceRate, 4);
    expectPlayed(valueOf(3), valueOf(2));
}

TEST_F(MappedUnit, ChannelsThatTheProgramDoesNotHaveAreSilent) {
    ASSERT_EQ(setMap({7, 0}), noErr);
    play();
    expectPlayed(0, valueOf(0));
}

TEST_F(MappedUnit, MapsWhatIsConvertedToo) {
    ASSERT_EQ(setMap({1, -1}), noErr);
    play(deviceRate / 2);
    player.pump(512, 4);
    EXPECT_NEAR(player.left.back(), valueOf(1), 1e-3);
    EXPECT_EQ(player.right.back(), 0);
}

TEST_F(MappedUnit, RefusesWhatIsNoMap) {
    EXPECT_EQ(setMap({-2, 0}), kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(setMap(std::vector<SInt32>(65, 0)), kAudioUnitErr_InvalidPropertyValue);
    const char odd[5] = {};
    EXPECT_EQ(AudioUnitSetProperty(unit, kAudioOutputUnitProperty_ChannelMap,
                                   kAudioUnitScope_Output, 0, odd, sizeof odd),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(map(), (std::vector<SInt32>{0, 1}));
}

TEST_F(MappedUnit, TheMicrophoneIsHeardWhereItsMapSays) {
    const auto speak = [](void*, UInt32 channels, UInt32 frames, float* const* planes) {
        for (UInt32 channel = 0; channel < channels; ++channel) {
            std::fill_n(planes[channel], frames, 0.5F);
        }
    };
    ASSERT_EQ(TQManualDeviceSetInput(speak, nullptr), noErr);
    ASSERT_EQ(set(unit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, UInt32{1}),
              noErr);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 1, floatPlanar(deviceRate, 2)), noErr);
    ASSERT_EQ(setMap({-1, 0}, 1), noErr);
    callback.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time, UInt32,
                        UInt32 frames, AudioBufferList* list) {
        return AudioUnitRender(unit, &flags, &time, 1, frames, list);
    };
    play();
    expectPlayed(0, 0.5F);
    ASSERT_EQ(setMap({0, -1}, 1), noErr);
    expectPlayed(0.5F, 0);
    TQManualDeviceSetInput(nullptr, nullptr);
}

}  // namespace
}  // namespace platform
