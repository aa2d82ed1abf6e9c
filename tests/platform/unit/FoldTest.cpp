#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;
using Labels = std::vector<AudioChannelLabel>;

constexpr float kLower = 0.70710678F;

/// A layout that describes every channel.
std::vector<std::byte> described(const Labels& labels) {
    AudioChannelLayout head{};
    head.mChannelLayoutTag = kAudioChannelLayoutTag_UseChannelDescriptions;
    head.mNumberChannelDescriptions = static_cast<UInt32>(labels.size());
    constexpr std::size_t kHead = offsetof(AudioChannelLayout, mChannelDescriptions);
    std::vector<std::byte> bytes(kHead + labels.size() * sizeof(AudioChannelDescription));
    std::memcpy(bytes.data(), &head, kHead);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        AudioChannelDescription one{};
        one.mChannelLabel = labels[i];
        std::memcpy(bytes.data() + kHead + i * sizeof one, &one, sizeof one);
    }
    return bytes;
}

/// A mixer of one bus with many channels, of which one at a time sounds.
class FoldingMixer : public testing::Test {
  protected:
    static constexpr UInt32 kFrames = 64;
    static constexpr double kRate = 44100;

    void open(UInt32 channels) {
        callback_.body = [=, this](auto&, auto&, UInt32, UInt32 count, AudioBufferList* list) {
            for (UInt32 i = 0; i < count * channels; ++i) {
                samples<float>(list)[i] = i % channels == sounding_ ? level_ : 0.0F;
            }
            return OSStatus{noErr};
        };
        ASSERT_EQ(setFormat(unit_, kAudioUnitScope_Output, 0, floatInterleaved(kRate, 2)), noErr);
        ASSERT_EQ(setFormat(unit_, kAudioUnitScope_Input, 0, floatInterleaved(kRate, channels)),
                  noErr);
        ASSERT_EQ(setCallback(unit_, 0, callback_), noErr);
        ASSERT_EQ(AudioUnitInitialize(unit_), noErr);
    }
    OSStatus setLayout(const Labels& labels) {
        const auto bytes = described(labels);
        return AudioUnitSetProperty(unit_, kAudioUnitProperty_AudioChannelLayout,
                                    kAudioUnitScope_Input, 0, bytes.data(),
                                    static_cast<UInt32>(bytes.size()));
    }
    /// What comes left and right of a channel at full scale.
    std::array<float, 2> heard(UInt32 channel) {
        sounding_ = channel;
        std::vector<float> out(2 * kFrames);
        AudioBufferList list{1, {{2, static_cast<UInt32>(out.size() * sizeof(float)), out.data()}}};
        AudioUnitRenderActionFlags flags = 0;
        AudioTimeStamp time{};
        time.mFlags = kAudioTimeStampSampleTimeValid;
        time.mSampleTime = time_ += kFrames;
        EXPECT_EQ(AudioUnitRender(unit_, &flags, &time, 0, kFrames, &list), noErr);
        return {out[2 * kFrames - 2], out[2 * kFrames - 1]};
    }
    void expectHeard(UInt32 channel, float left, float right) {
        const auto [gotLeft, gotRight] = heard(channel);
        EXPECT_NEAR(gotLeft, left * level_, 1e-6) << "channel " << channel;
        EXPECT_NEAR(gotRight, right * level_, 1e-6) << "channel " << channel;
    }

    const OwnedUnit unit_{mixer()};
    Callback callback_;
    UInt32 sounding_ = 0;
    float level_ = 0.5F;
    double time_ = 0;
};

TEST_F(FoldingMixer, ChannelsOfFiveLoudspeakersReachTheirSides) {
    open(6);
    ASSERT_EQ(setLayout({kAudioChannelLabel_Left, kAudioChannelLabel_Right,
                         kAudioChannelLabel_Center, kAudioChannelLabel_LFEScreen,
                         kAudioChannelLabel_LeftSurround, kAudioChannelLabel_RightSurround}),
              noErr);
    expectHeard(0, 1, 0);
    expectHeard(1, 0, 1);
    expectHeard(2, kLower, kLower);
    expectHeard(3, 0, 0);
    expectHeard(4, kLower, 0);
    expectHeard(5, 0, kLower);
}

TEST_F(FoldingMixer, TheOrderIsTheLayouts) {
    open(8);
    ASSERT_EQ(setLayout({kAudioChannelLabel_RearSurroundRight, kAudioChannelLabel_LFEScreen,
                         kAudioChannelLabel_Right, kAudioChannelLabel_LeftSurroundDirect,
                         kAudioChannelLabel_Center, kAudioChannelLabel_Left,
                         kAudioChannelLabel_CenterSurround, kAudioChannelLabel_RearSurroundLeft}),
              noErr);
    expectHeard(0, 0, kLower);
    expectHeard(1, 0, 0);
    expectHeard(2, 0, 1);
    expectHeard(3, kLower, 0);
    expectHeard(4, kLower, kLower);
    expectHeard(5, 1, 0);
    expectHeard(6, 0.5F, 0.5F);
    expectHeard(7, kLower, 0);
}

TEST_F(FoldingMixer, WithoutAWordAboutLoudspeakersTheFirstTwoChannelsAreHeard) {
    open(6);
    const auto expectFirstTwo = [&] {
        expectHeard(0, 1, 0);
        expectHeard(1, 0, 1);
        for (UInt32 channel = 2; channel < 6; ++channel) {
            expectHeard(channel, 0, 0);
        }
    };
    expectFirstTwo();
    ASSERT_EQ(setLayout(Labels(6, kAudioChannelLabel_Discrete)), noErr);
    expectFirstTwo();
    ASSERT_EQ(setLayout({kAudioChannelLabel_Center, kAudioChannelLabel_Left,
                         kAudioChannelLabel_Right, kAudioChannelLabel_LeftSurround,
                         kAudioChannelLabel_RightSurround, kAudioChannelLabel_LFEScreen}),
              noErr);
    expectHeard(0, kLower, kLower);
    ASSERT_EQ(AudioUnitSetProperty(unit_, kAudioUnitProperty_AudioChannelLayout,
                                   kAudioUnitScope_Input, 0, nullptr, 0),
              noErr);
    expectFirstTwo();
}

}  // namespace
}  // namespace platform
