#include <algorithm>
#include <cstddef>
#include <cstring>

#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;

AudioChannelLayout tagged(AudioChannelLayoutTag tag) {
    AudioChannelLayout layout{};
    layout.mChannelLayoutTag = tag;
    return layout;
}

OSStatus setLayout(AudioUnit unit, AudioUnitScope scope, const AudioChannelLayout& layout) {
    return set(unit, kAudioUnitProperty_AudioChannelLayout, scope, 0, layout);
}

AudioChannelLayoutTag tagOf(AudioUnit unit, AudioUnitScope scope) {
    return get<AudioChannelLayout>(unit, kAudioUnitProperty_AudioChannelLayout, scope, 0)
        .mChannelLayoutTag;
}

constexpr AudioUnitScope bothSides[] = {kAudioUnitScope_Input, kAudioUnitScope_Output};

TEST(ChannelLayouts, ABusOfWhichNothingIsSaidHasTheUsualOne) {
    const OwnedUnit unit(remoteIO());
    EXPECT_EQ(tagOf(unit, kAudioUnitScope_Output),
              AudioChannelLayoutTag{kAudioChannelLayoutTag_Stereo});
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, floatPlanar(deviceRate, 1)), noErr);
    EXPECT_EQ(tagOf(unit, kAudioUnitScope_Input),
              AudioChannelLayoutTag{kAudioChannelLayoutTag_Mono});
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, floatPlanar(deviceRate, 3)), noErr);
    EXPECT_EQ(tagOf(unit, kAudioUnitScope_Input),
              AudioChannelLayoutTag{kAudioChannelLayoutTag_DiscreteInOrder} | 3);
}

TEST(ChannelLayouts, WhatIsSetIsReadBack) {
    const OwnedUnit unit(remoteIO());
    for (const AudioUnitScope scope : bothSides) {
        ASSERT_EQ(setLayout(unit, scope, tagged(kAudioChannelLayoutTag_StereoHeadphones)), noErr);
        EXPECT_EQ(tagOf(unit, scope),
                  AudioChannelLayoutTag{kAudioChannelLayoutTag_StereoHeadphones});
        ASSERT_EQ(
            AudioUnitSetProperty(unit, kAudioUnitProperty_AudioChannelLayout, scope, 0, nullptr, 0),
            noErr);
        EXPECT_EQ(tagOf(unit, scope), AudioChannelLayoutTag{kAudioChannelLayoutTag_Stereo});
    }
}

/// A layout of two described channels.
struct TwoDescribed {
    AudioChannelLayout layout = tagged(kAudioChannelLayoutTag_UseChannelDescriptions);
    AudioChannelDescription second{};
    TwoDescribed() {
        layout.mNumberChannelDescriptions = 2;
        layout.mChannelDescriptions[0].mChannelLabel = kAudioChannelLabel_Right;
        second.mChannelLabel = kAudioChannelLabel_Left;
    }
};

TEST(ChannelLayouts, DescriptionsAreKeptWhole) {
    const OwnedUnit unit(mixer());
    const TwoDescribed said;
    ASSERT_EQ(set(unit, kAudioUnitProperty_AudioChannelLayout, kAudioUnitScope_Input, 0, said),
              noErr);
    UInt32 size = 0;
    ASSERT_EQ(AudioUnitGetPropertyInfo(unit, kAudioUnitProperty_AudioChannelLayout,
                                       kAudioUnitScope_Input, 0, &size, nullptr),
              noErr);
    ASSERT_EQ(size, sizeof said);
    TwoDescribed read;
    std::memset(static_cast<void*>(&read), 0, sizeof read);
    ASSERT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_AudioChannelLayout,
                                   kAudioUnitScope_Input, 0, &read, &size),
              noErr);
    EXPECT_EQ(std::memcmp(&said, &read, sizeof said), 0);
}

TEST(ChannelLayouts, ALayoutOfOtherChannelsIsRefusedAndGoesWithTheChannels) {
    const OwnedUnit unit(remoteIO());
    constexpr auto side = kAudioUnitScope_Input;
    EXPECT_EQ(setLayout(unit, side, tagged(kAudioChannelLayoutTag_Mono)),
              kAudioUnitErr_InvalidPropertyValue);
    AudioChannelLayout bits = tagged(kAudioChannelLayoutTag_UseChannelBitmap);
    bits.mChannelBitmap = 7;
    EXPECT_EQ(setLayout(unit, side, bits), kAudioUnitErr_InvalidPropertyValue);
    bits.mChannelBitmap = 3;
    EXPECT_EQ(setLayout(unit, side, bits), noErr);
    AudioChannelLayout cut = tagged(kAudioChannelLayoutTag_UseChannelDescriptions);
    cut.mNumberChannelDescriptions = 2;
    EXPECT_EQ(setLayout(unit, side, cut), kAudioUnitErr_InvalidPropertyValue);
    ASSERT_EQ(setFormat(unit, side, 0, floatPlanar(deviceRate, 1)), noErr);
    EXPECT_EQ(tagOf(unit, side), AudioChannelLayoutTag{kAudioChannelLayoutTag_Mono});
}

TEST(ChannelLayouts, EveryTagThatIsOfferedButThoseThatNeedMoreCanBeSet) {
    const OwnedUnit unit(remoteIO());
    for (const AudioUnitScope scope : bothSides) {
        AudioChannelLayoutTag tags[8];
        UInt32 size = sizeof tags;
        ASSERT_EQ(AudioUnitGetProperty(unit, kAudioUnitProperty_SupportedChannelLayoutTags, scope,
                                       0, tags, &size),
                  noErr);
        ASSERT_EQ(size, 4 * sizeof tags[0]);
        for (const AudioChannelLayoutTag tag : {tags[0], tags[1]}) {
            EXPECT_EQ(setLayout(unit, scope, tagged(tag)), noErr) << tag;
        }
        EXPECT_EQ(tags[2], AudioChannelLayoutTag{kAudioChannelLayoutTag_UseChannelDescriptions});
        EXPECT_EQ(tags[3], AudioChannelLayoutTag{kAudioChannelLayoutTag_UseChannelBitmap});
    }
}

TEST(ChannelLayouts, MoveNoSound) {
    Player player;
    const OwnedUnit unit(remoteIO());
    Callback callback;
    callback.body = [](auto&, auto&, UInt32, UInt32 count, AudioBufferList* list) {
        std::fill_n(samples<float>(list, 0), count, 0.25F);
        std::fill_n(samples<float>(list, 1), count, 0.5F);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(
        set(unit, kAudioUnitProperty_AudioChannelLayout, kAudioUnitScope_Output, 0, TwoDescribed{}),
        noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    ASSERT_EQ(
        set(unit, kAudioUnitProperty_AudioChannelLayout, kAudioUnitScope_Input, 0, TwoDescribed{}),
        noErr);
    player.pump(64);
    EXPECT_EQ(player.left, std::vector<float>(128, 0.25F));
    EXPECT_EQ(player.right, std::vector<float>(128, 0.5F));
}

}  // namespace
}  // namespace platform
