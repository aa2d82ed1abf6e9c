#include <algorithm>
#include <cmath>
#include <cstdint>

#include "BufferLists.h"
#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;

class Converting : public testing::Test {
  protected:
    OSStatus render(UInt32 frames, AudioBufferList* list) {
        const OSStatus status = AudioUnitRender(unit, nullptr, &time, 0, frames, list);
        time.mSampleTime += frames;
        return status;
    }
    const OwnedUnit unit{converter()};
    AudioTimeStamp time{};
};

TEST_F(Converting, ChangesTypeInterleavingAndChannels) {
    Callback callback;
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 count,
                       AudioBufferList* list) {
        std::fill_n(samples<std::int16_t>(list), count, std::int16_t{-8192});
        return OSStatus{noErr};
    };
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, int16Interleaved(44100, 1)), noErr);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, floatPlanar(44100, 2)), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::planar(2, 400);
    ASSERT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(list.samples<float>(0)[99], -0.25F);
    EXPECT_EQ(list.samples<float>(1)[99], -0.25F);
}

TEST_F(Converting, PullsExactlyWhatTheRateNeedsAndCountsInInputFrames) {
    UInt64 count = 0;
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp& when, UInt32,
                        UInt32 asked, AudioBufferList* list) {
        EXPECT_EQ(when.mSampleTime, static_cast<Float64>(count));
        EXPECT_LE(asked, 512U);
        for (UInt32 i = 0; i < asked; ++i, ++count) {
            samples<float>(list)[i] = static_cast<float>(
                0.5 * std::sin(2 * std::numbers::pi * 1000 * static_cast<double>(count) / 96000));
        }
        return OSStatus{noErr};
    };
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, floatPlanar(96000, 1)), noErr);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, floatPlanar(44100, 1)), noErr);
    ASSERT_EQ(set(unit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, UInt32{512}), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::planar(1, 441 * 4);
    std::vector<float> heard;
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(render(441, list.get()), noErr);
        const auto plane = list.copyOf<float>();
        heard.insert(heard.end(), plane.begin(), plane.end());
    }
    EXPECT_EQ(count, 300U * 960);
    EXPECT_NEAR(amplitude(heard, 1000, 44100, 44100), 0.5, 0.001);
}

TEST_F(Converting, TakesAnotherInputRateWhileItRuns) {
    UInt64 count = 0;
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 asked,
                        AudioBufferList*) {
        count += asked;
        return OSStatus{noErr};
    };
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::planar(2, 441 * 4);
    ASSERT_EQ(render(441, list.get()), noErr);
    EXPECT_EQ(count, 441U);
    ASSERT_EQ(set(unit, kAudioUnitProperty_SampleRate, kAudioUnitScope_Input, 0, Float64{88200}),
              noErr);
    ASSERT_EQ(render(441, list.get()), noErr);
    EXPECT_EQ(count, 3 * 441U);
}

TEST_F(Converting, AFailingSourceLeavesSilence) {
    Callback callback;
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 count,
                       AudioBufferList* list) {
        std::fill_n(samples<float>(list), count, 1.0F);
        return OSStatus{-9};
    };
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::planar(2, 400);
    list.samples<float>()[3] = 7;
    EXPECT_EQ(render(100, list.get()), -9);
    EXPECT_EQ(list.samples<float>()[3], 0.0F);
}

}  // namespace
}  // namespace platform
