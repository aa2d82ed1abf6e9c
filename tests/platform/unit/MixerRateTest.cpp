#include <cmath>
#include <cstdint>

#include "BufferLists.h"
#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;

constexpr double outputRate = 44100;
constexpr UInt32 frames = 441;

/// One mixer bus with a tone at a rate of its own.
struct Track {
    Track(AudioUnit unit, UInt32 bus, double trackFrequency, double trackRate)
        : frequency(trackFrequency), rate(trackRate) {
        callback.body = [this](AudioUnitRenderActionFlags&, const AudioTimeStamp& time,
                               UInt32 number, UInt32 asked, AudioBufferList* list) {
            EXPECT_EQ(time.mSampleTime, static_cast<Float64>(count));
            EXPECT_LE(asked, 1024U);
            if (order != nullptr) {
                order->push_back(number);
            }
            for (UInt32 i = 0; i < asked; ++i, ++count) {
                const double value = 0.2 * std::sin(2 * std::numbers::pi * frequency *
                                                    static_cast<double>(count) / rate);
                samples<float>(list)[i] = static_cast<float>(value);
            }
            return OSStatus{noErr};
        };
        EXPECT_EQ(setFormat(unit, kAudioUnitScope_Input, bus, floatPlanar(rate, 1)), noErr);
        EXPECT_EQ(setCallback(unit, bus, callback), noErr);
    }
    double frequency;
    double rate;
    UInt64 count = 0;
    std::vector<UInt32>* order = nullptr;
    Callback callback;
};

class MixingRates : public testing::Test {
  protected:
    MixingRates() {
        EXPECT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, floatPlanar(outputRate, 2)), noErr);
    }
    void render(int times) {
        OwnedBufferList list = OwnedBufferList::planar(2, frames * 4);
        ASSERT_EQ(AudioUnitInitialize(unit), noErr);
        for (int i = 0; i < times; ++i) {
            ASSERT_EQ(AudioUnitRender(unit, nullptr, &time, 0, frames, list.get()), noErr);
            const auto plane = list.copyOf<float>();
            left.insert(left.end(), plane.begin(), plane.end());
            time.mSampleTime += frames;
        }
    }
    const OwnedUnit unit{mixer()};
    AudioTimeStamp time{};
    std::vector<float> left;
};

TEST_F(MixingRates, TonesOfDifferentRatesKeepPitchAndLevel) {
    Track a(unit, 0, 1000, 48000);
    Track b(unit, 1, 1500, 22050);
    Track c(unit, 2, 2000, 44100);
    Track d(unit, 3, 2500, 48000);
    Track e(unit, 4, 3000, 96000);
    Track f(unit, 5, 700, 8000);
    render(300);
    const std::size_t settled = 44100;
    for (const double frequency : {1000., 1500., 2000., 2500., 3000., 700.}) {
        EXPECT_NEAR(amplitude(left, frequency, outputRate, settled), 0.2, 0.0005) << frequency;
    }
    EXPECT_LT(amplitude(left, 1200, outputRate, settled), 0.0001);
    EXPECT_EQ(a.count, 300U * 480);
    EXPECT_NEAR(static_cast<double>(b.count), 300 * 220.5, 1);
    EXPECT_EQ(c.count, 300U * 441);
    EXPECT_EQ(d.count, 300U * 480);
    EXPECT_EQ(e.count, 300U * 960);
    EXPECT_EQ(f.count, 300U * 80);
}

TEST_F(MixingRates, BusesArePulledInBusOrderWhateverTheirRates) {
    std::vector<UInt32> order;
    Track a(unit, 0, 1000, 44100);
    Track b(unit, 1, 1000, 48000);
    Track c(unit, 2, 1000, 44100);
    Track d(unit, 3, 1000, 48000);
    for (Track* const track : {&a, &b, &c, &d}) {
        track->order = &order;
    }
    render(2);
    EXPECT_EQ(order, (std::vector<UInt32>{0, 1, 2, 3, 0, 1, 2, 3}));
}

TEST_F(MixingRates, APullIsNeverLargerThanTheMaximum) {
    Track a(unit, 0, 1000, 192000);  // four times the output's frames: expects up to 1024 each
    render(20);
    EXPECT_GT(a.callback.calls, 20);
}

TEST_F(MixingRates, OtherBusesComingAndGoingLeaveAToneUntouched) {
    Track a(unit, 0, 1000, 48000);
    render(150);
    Track b(unit, 1, 3000, 48000);
    b.count = a.count;  // buses of one rate share one time
    render(150);
    const AURenderCallbackStruct none{};
    ASSERT_EQ(set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 1, none),
              noErr);
    render(150);
    EXPECT_NEAR(amplitude(left, 1000, outputRate, 4410), 0.2, 0.0005);
    EXPECT_EQ(a.count, 450U * 480);
}

TEST_F(MixingRates, ResetForgetsThePast) {
    Track a(unit, 0, 1000, 48000);
    render(10);
    ASSERT_EQ(AudioUnitReset(unit, kAudioUnitScope_Global, 0), noErr);
    a.callback.body = nullptr;
    left.clear();
    render(1);
    for (const float sample : left) {
        ASSERT_EQ(sample, 0.0F);
    }
}

}  // namespace
}  // namespace platform
