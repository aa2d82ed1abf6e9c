#include "format/RateConverter.h"
#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <random>
#include <span>
#include <stdexcept>
#include <vector>

namespace {

using tqplatform::RateConverter;

/// A source that plays one long signal into all channels and keeps count of what it is asked.
struct Source {
    std::uint64_t given = 0;
    std::uint64_t pulls = 0;
    UInt32 largest = 0;
    UInt32 last = 0;
    UInt32 channels = 1;
    std::uint64_t failAt = UINT64_MAX;  ///< the pull that would go beyond it fails
    float (*signal)(std::uint64_t frame, UInt32 channel) = [](std::uint64_t, UInt32) {
        return 1.0F;
    };

    static OSStatus pull(void* context, const tqcommon::AudioView& planes) {
        auto& self = *static_cast<Source*>(context);
        const UInt32 frames = planes.frames();
        ++self.pulls;
        self.largest = std::max(self.largest, frames);
        self.last = frames;
        if (self.given + frames > self.failAt) {
            return -1234;
        }
        for (UInt32 channel = 0; channel < self.channels; ++channel) {
            for (UInt32 frame = 0; frame < frames; ++frame) {
                planes.at(channel, frame) = self.signal(self.given + frame, channel);
            }
        }
        self.given += frames;
        return noErr;
    }
};

/// Output planes with a mark behind the end of each.
class Output {
  public:
    Output(UInt32 channels, UInt32 frames)
        : channels_(channels), frames_(frames), memory_(channels * (frames + 1), kMark) {}
    tqcommon::AudioView view(UInt32 frames) {
        return tqcommon::AudioView(memory_.data(), channels_, frames_, frames_ + 1)
            .slice(0, frames);
    }
    std::span<const float> operator[](UInt32 channel) const {
        return std::span(memory_).subspan(channel * (frames_ + 1), frames_);
    }
    bool intact() const {
        for (std::size_t mark = frames_; mark < memory_.size(); mark += frames_ + 1) {
            if (memory_[mark] != kMark) {
                return false;
            }
        }
        return true;
    }

  private:
    static constexpr float kMark = 77;
    UInt32 channels_;
    UInt32 frames_;
    std::vector<float> memory_;
};

constexpr double kRates[] = {8000,  11025,   16000, 22050, 32000,
                             44100, 44100.5, 48000, 96000, 192000};

std::uint64_t covered(std::uint64_t frames, double input, double output) {
    // Twice the rates, so that 44100.5 is whole.
    const auto above = static_cast<std::uint64_t>(2 * input);
    const auto below = static_cast<std::uint64_t>(2 * output);
    return (frames * above + below - 1) / below;
}

TEST(RateConverterCounts, EveryPairOfRatesTakesExactlyTheInputItsOutputStandsFor) {
    std::mt19937 random(1);
    for (const double input : kRates) {
        for (const double output : kRates) {
            RateConverter converter(input, output, 1, 1024);
            Source source;
            std::uint64_t made = 0;
            for (int pull = 0; pull < 60; ++pull) {
                const UInt32 frames = 1 + static_cast<UInt32>(random() % 1024);
                Output out(1, frames);
                ASSERT_EQ(converter.pull(out.view(frames), &Source::pull, &source), noErr);
                ASSERT_TRUE(out.intact());
                made += frames;
                ASSERT_EQ(source.given, covered(made, input, output))
                    << input << " to " << output << " after " << made;
            }
            EXPECT_LE(source.largest, 1024U);
        }
    }
}

/// Bursts of a tone with silence between them; the silence of one source is the bare minimum of
/// sound in another, so that it is converted like any sound.
template <int silenceExponent>
float bursts(std::uint64_t frame, UInt32 /*channel*/) {
    const std::uint64_t turn = frame / 5000;
    if (frame % 5000 < 300 + turn * 37 % 400) {
        return static_cast<float>(0.5 * std::sin(0.1 * static_cast<double>(frame)));
    }
    return silenceExponent == 0 ? 0.0F : 1e-30F;
}

TEST(RateConverterSilence, IsPassedOverWithoutMovingWhatComesAfterIt) {
    std::mt19937 random(3);
    for (const double input : kRates) {
        for (const double output : kRates) {
            RateConverter silent(input, output, 1, 1024);
            RateConverter sounding(input, output, 1, 1024);
            Source silence;
            Source sound;
            silence.signal = bursts<0>;
            sound.signal = bursts<-30>;
            double loudest = 0.0;
            for (int pull = 0; pull < 150; ++pull) {
                const UInt32 frames = 1 + static_cast<UInt32>(random() % 1024);
                Output out(1, frames);
                Output expected(1, frames);
                ASSERT_EQ(silent.pull(out.view(frames), &Source::pull, &silence), noErr);
                ASSERT_EQ(sounding.pull(expected.view(frames), &Source::pull, &sound), noErr);
                ASSERT_EQ(silence.given, sound.given);
                ASSERT_EQ(silence.pulls, sound.pulls);
                for (UInt32 frame = 0; frame < frames; ++frame) {
                    ASSERT_NEAR(out[0][frame], expected[0][frame], 1e-7)
                        << input << " to " << output << ", pull " << pull << ", " << frame;
                    loudest = std::max(loudest, std::abs(double{out[0][frame]}));
                }
            }
            EXPECT_GT(loudest, 0.4);
        }
    }
}

TEST(RateConverterSilence, InOneChannelOnlyIsNoSilence) {
    RateConverter converter(48000, 44100, 2, 512);
    Source source;
    source.channels = 2;
    source.signal = [](std::uint64_t frame, UInt32 channel) {
        return channel == 0 || frame < 4000 ? 0.0F : 1.0F;
    };
    Output out(2, 512);
    for (int pull = 0; pull < 20; ++pull) {
        ASSERT_EQ(converter.pull(out.view(512), &Source::pull, &source), noErr);
    }
    EXPECT_EQ(out[0][500], 0.0F);
    EXPECT_NEAR(out[1][500], 1.0F, 1e-3);
}

TEST(RateConverterCounts, TenMinutesOfOddBlocksLoseNothing) {
    for (const auto& [input, output] : {std::pair{48000.0, 44100.0}, {22050.0, 48000.0}}) {
        RateConverter converter(input, output, 1, 997);
        Source source;
        const auto total = static_cast<std::uint64_t>(output) * 600;
        Output out(1, 997);
        std::uint64_t made = 0;
        while (made < total) {
            const auto frames = static_cast<UInt32>(std::min<std::uint64_t>(997, total - made));
            ASSERT_EQ(converter.pull(out.view(frames), &Source::pull, &source), noErr);
            made += frames;
        }
        EXPECT_EQ(source.given, static_cast<std::uint64_t>(input) * 600);
    }
}

TEST(RateConverterCounts, EqualBlocksAskForEqualInputGiveOrTakeOneFrame) {
    for (const auto& [input, output] :
         {std::pair{48000.0, 44100.0}, {44100.0, 48000.0}, {96000.0, 44100.0}, {8000.0, 48000.0}}) {
        for (const UInt32 frames : {32U, 100U, 512U, 1024U}) {
            RateConverter converter(input, output, 1, 4096);
            Source source;
            Output out(1, frames);
            const double exact = frames * input / output;
            for (std::uint64_t pull = 1; pull <= 300; ++pull) {
                ASSERT_EQ(converter.pull(out.view(frames), &Source::pull, &source), noErr);
                ASSERT_EQ(source.pulls, pull);
                ASSERT_GE(source.last, std::floor(exact));
                ASSERT_LE(source.last, std::ceil(exact));
            }
        }
    }
}

TEST(RateConverterCounts, LargeNeedsAreSplitIntoPullsOfTheMaximum) {
    RateConverter converter(192000, 48000, 1, 256);
    Source source;
    Output out(1, 256);
    ASSERT_EQ(converter.pull(out.view(256), &Source::pull, &source), noErr);
    EXPECT_EQ(source.pulls, 4U);
    EXPECT_EQ(source.largest, 256U);
    EXPECT_EQ(source.given, 1024U);
}

TEST(RateConverterCounts, BlocksBeyondTheMaximumComeInParts) {
    RateConverter converter(44100, 48000, 1, 64);
    Source source;
    Output out(1, 1000);
    ASSERT_EQ(converter.pull(out.view(1000), &Source::pull, &source), noErr);
    EXPECT_EQ(source.given, covered(1000, 44100, 48000));
    EXPECT_LE(source.largest, 64U);
    EXPECT_TRUE(out.intact());
    EXPECT_NEAR(out[0][999], 1.0F, 1e-4F);
}

TEST(RateConverterCounts, NoFramesAskForNothing) {
    RateConverter converter(44100, 48000, 1, 64);
    Source source;
    Output out(1, 1);
    EXPECT_EQ(converter.pull(out.view(0), &Source::pull, &source), noErr);
    EXPECT_EQ(source.pulls, 0U);
}

TEST(RateConverter, EqualRatesPassTheSourcesSamplesThroughInOnePull) {
    RateConverter converter(44100, 44100, 2, 512);
    Source source;
    source.channels = 2;
    source.signal = [](std::uint64_t frame, UInt32 channel) {
        return static_cast<float>(frame) + static_cast<float>(channel) * 0.5F;
    };
    for (const UInt32 frames : {512U, 1U, 300U}) {
        Output out(2, frames);
        const auto first = static_cast<float>(source.given);
        const std::uint64_t pulls = source.pulls;
        ASSERT_EQ(converter.pull(out.view(frames), &Source::pull, &source), noErr);
        EXPECT_EQ(source.pulls, pulls + 1);
        EXPECT_EQ(source.last, frames);
        for (UInt32 frame = 0; frame < frames; ++frame) {
            ASSERT_EQ(out[0][frame], first + static_cast<float>(frame));
            ASSERT_EQ(out[1][frame], first + static_cast<float>(frame) + 0.5F);
        }
        EXPECT_TRUE(out.intact());
    }
}

TEST(RateConverter, StartsWithHalfAFilterOfSilence) {
    RateConverter converter(48000, 44100, 1, 512);
    Source source;
    source.signal = [](std::uint64_t frame, UInt32) { return frame == 0 ? 1.0F : 0.0F; };
    Output out(1, 512);
    ASSERT_EQ(converter.pull(out.view(512), &Source::pull, &source), noErr);
    const auto peak = std::max_element(out[0].begin(), out[0].begin() + 512) - out[0].begin();
    // About 55 frames of input: a little over a millisecond.
    EXPECT_GE(peak, 40);
    EXPECT_LE(peak, 60);
}

TEST(RateConverter, KeepsUpTo64ChannelsApart) {
    for (const UInt32 channels : {1U, 2U, 3U, 6U, 8U, 17U, 64U}) {
        RateConverter converter(44100, 48000, channels, 256);
        Source source;
        source.channels = channels;
        source.signal = [](std::uint64_t, UInt32 channel) {
            return static_cast<float>(channel + 1) / 64;
        };
        Output out(channels, 256);
        ASSERT_EQ(converter.pull(out.view(256), &Source::pull, &source), noErr);
        for (UInt32 channel = 0; channel < channels; ++channel) {
            EXPECT_NEAR(out[channel][255], static_cast<float>(channel + 1) / 64, 1e-4F)
                << channel << " of " << channels;
        }
    }
}

TEST(RateConverter, AFailedSourceLeavesSilenceAndItsStatus) {
    for (const double rate : {44100.0, 48000.0, 192000.0}) {
        RateConverter converter(rate, 44100, 2, 512);
        Source source;
        source.channels = 2;
        source.failAt = 0;
        Output out(2, 512);
        EXPECT_EQ(converter.pull(out.view(512), &Source::pull, &source), -1234);
        for (UInt32 frame = 0; frame < 512; ++frame) {
            ASSERT_EQ(out[0][frame], 0.0F);
            ASSERT_EQ(out[1][frame], 0.0F);
        }
        EXPECT_TRUE(out.intact());
    }
}

TEST(RateConverter, WhatCameBeforeTheFailureIsKeptAndTheRestGoesOnLater) {
    constexpr auto ramp = [](std::uint64_t frame, UInt32) {
        return static_cast<float>(frame) / 100000;
    };
    RateConverter steady(192000, 48000, 1, 256), broken(192000, 48000, 1, 256);
    Source one, other;
    one.signal = ramp;
    other.signal = ramp;
    other.failAt = 600;
    Output wanted(1, 512), first(1, 256), second(1, 256);
    ASSERT_EQ(steady.pull(wanted.view(512), &Source::pull, &one), noErr);
    ASSERT_EQ(broken.pull(first.view(256), &Source::pull, &other), -1234);
    EXPECT_EQ(other.given, 512U);
    other.failAt = UINT64_MAX;
    ASSERT_EQ(broken.pull(second.view(256), &Source::pull, &other), noErr);
    // Two pulls of 256 got through: they cover 128 frames, in which the next block goes on.
    UInt32 made = 256;
    while (made > 0 && first[0][made - 1] == 0.0F) {
        --made;
    }
    ASSERT_GE(made, 128U);
    ASSERT_LT(made, 256U);
    for (UInt32 frame = 0; frame < made; ++frame) {
        ASSERT_EQ(first[0][frame], wanted[0][frame]) << frame;
    }
    for (UInt32 frame = 0; frame < 256; ++frame) {
        ASSERT_EQ(second[0][frame], wanted[0][made + frame]) << frame;
    }
    EXPECT_EQ(other.given, covered(made + 256, 192000, 48000));
}

TEST(RateConverter, ResetMakesItLikeNew) {
    for (const auto& [input, output] :
         {std::pair{48000.0, 44100.0}, {22050.0, 48000.0}, {192000.0, 8000.0}}) {
        RateConverter fresh(input, output, 1, 512), used(input, output, 1, 512);
        std::mt19937 random(5);
        Source noise;
        noise.signal = [](std::uint64_t frame, UInt32) { return frame % 7 < 3 ? 0.9F : -0.9F; };
        Output out(1, 512);
        for (int pull = 0; pull < 20; ++pull) {
            const UInt32 frames = 1 + static_cast<UInt32>(random() % 512);
            ASSERT_EQ(used.pull(out.view(frames), &Source::pull, &noise), noErr);
        }
        used.reset();
        Source one, other;
        one.signal = other.signal = [](std::uint64_t frame, UInt32) {
            return std::sin(static_cast<float>(frame) * 0.05F);
        };
        Output expected(1, 512);
        for (int pull = 0; pull < 5; ++pull) {
            ASSERT_EQ(fresh.pull(expected.view(512), &Source::pull, &one), noErr);
            ASSERT_EQ(used.pull(out.view(512), &Source::pull, &other), noErr);
            EXPECT_EQ(one.given, other.given);
            EXPECT_TRUE(std::ranges::equal(expected[0], out[0])) << input << " to " << output;
        }
    }
}

/// What a converter gives for noise pulled in blocks of uneven size, sample for sample.
std::vector<float> convertedNoise(RateConverter& converter, std::uint32_t seed) {
    struct Noise {
        std::minstd_rand random;
        static OSStatus pull(void* context, const tqcommon::AudioView& planes) {
            auto& self = *static_cast<Noise*>(context);
            for (UInt32 frame = 0; frame < planes.frames(); ++frame) {
                for (UInt32 channel = 0; channel < planes.channels(); ++channel) {
                    planes.at(channel, frame) = static_cast<float>(self.random()) * 1e-9F - 1.0F;
                }
            }
            return noErr;
        }
    };
    Noise noise{std::minstd_rand(seed)};
    std::vector<float> made;
    for (const UInt32 frames : {441U, 17U, 512U, 1U, 300U, 256U}) {
        Output output(2, frames);
        EXPECT_EQ(converter.pull(output.view(frames), Noise::pull, &noise), noErr);
        for (UInt32 channel = 0; channel < 2; ++channel) {
            made.insert(made.end(), output[channel].begin(), output[channel].end());
        }
    }
    return made;
}

TEST(RateConverter, OneLeftByAnEarlierOneGivesTheVeryBitsOfANewOne) {
    for (const Float64 rate : {8000.0, 11025.0, 12000.0, 16000.0, 22050.0, 24000.0, 32000.0,
                               48000.0, 88200.0, 96000.0}) {
        // A size that no other test has: the first of these is new.
        std::vector<float> fresh;
        for (const UInt32 stopAfter : {0U, 1U, 440U, 1000U}) {
            RateConverter converter(rate, 44100, 2, 517);
            const std::vector<float> made = convertedNoise(converter, 5);
            if (fresh.empty()) {
                fresh = made;
            }
            ASSERT_EQ(made, fresh) << rate << " after " << stopAfter;
            // Left in the middle of its cycle, full of sound.
            Source source{.channels = 2};
            Output rest(2, stopAfter + 1);
            ASSERT_EQ(converter.pull(rest.view(stopAfter), Source::pull, &source), noErr);
        }
    }
}

TEST(RateConverter, ResetForgetsThePastAtRatesWithALongCycle) {
    RateConverter converter(44100.5, 48000, 1, 512);
    Source loud;
    Output out(1, 512);
    for (int pull = 0; pull < 5; ++pull) {
        ASSERT_EQ(converter.pull(out.view(333), &Source::pull, &loud), noErr);
    }
    converter.reset();
    Source silent;
    silent.signal = [](std::uint64_t, UInt32) { return 0.0F; };
    ASSERT_EQ(converter.pull(out.view(512), &Source::pull, &silent), noErr);
    EXPECT_EQ(silent.given, covered(512, 44100.5, 48000));
    for (UInt32 frame = 0; frame < 512; ++frame) {
        ASSERT_EQ(out[0][frame], 0.0F) << frame;
    }
}

TEST(RateConverterAllocations, CounterSeesBothLanguages) {
    const AllocationCounter allocations;
    void* volatile plain = std::malloc(10);
    EXPECT_EQ(allocations.count(), 1U);
    void* volatile object = ::operator new(10);
    EXPECT_EQ(allocations.count(), 2U);
    ::operator delete(object);
    std::free(plain);
}

TEST(RateConverterAllocations, CounterSeesTheResamplersLibrary) {
    if (!AllocationCounter::seesAligned()) {
        GTEST_SKIP() << "the thread sanitizer does not tell of aligned allocations";
    }
    const AllocationCounter allocations;
    void* volatile media = av_malloc(10);
    EXPECT_EQ(allocations.count(), 1U);
    av_free(media);
}

TEST(RateConverterAllocations, PullsAndResetsAllocateNothingFromTheFirstOn) {
    std::mt19937 random(9);
    std::vector<UInt32> blocks(400);
    std::generate(blocks.begin(), blocks.end(),
                  [&] { return 1 + static_cast<UInt32>(random() % 1024); });
    for (const auto& [input, output] : {std::pair{48000.0, 44100.0},
                                        {44100.0, 48000.0},
                                        {22050.0, 44100.0},
                                        {192000.0, 8000.0},
                                        {8000.0, 192000.0},
                                        {44100.5, 48000.0},
                                        {48000.0, 48000.0}}) {
        RateConverter converter(input, output, 2, 1024);
        Source source;
        source.channels = 2;
        Output out(2, 1024);
        const AllocationCounter allocations;
        for (std::size_t pull = 0; pull < blocks.size(); ++pull) {
            converter.pull(out.view(blocks[pull]), &Source::pull, &source);
            if (pull % 100 == 50) {
                converter.reset();
            }
        }
        EXPECT_EQ(allocations.count(), 0U) << input << " to " << output;
    }
}

TEST(RateConverterErrors, RefusesWhatItCannotConvert) {
    EXPECT_THROW(RateConverter(0, 48000, 1, 64), std::runtime_error);
    EXPECT_THROW(RateConverter(48000, -1, 1, 64), std::runtime_error);
    EXPECT_THROW(RateConverter(std::nan(""), 48000, 1, 64), std::runtime_error);
    EXPECT_THROW(RateConverter(48000, INFINITY, 1, 64), std::runtime_error);
    EXPECT_THROW(RateConverter(48000, 44100, 0, 64), std::runtime_error);
    EXPECT_THROW(RateConverter(48000, 44100, 65, 64), std::runtime_error);
    EXPECT_THROW(RateConverter(48000, 44100, 1, 0), std::runtime_error);
    EXPECT_THROW(RateConverter(1, 1e6, 1, 64), std::runtime_error);
    EXPECT_THROW(RateConverter(1e6, 1, 1, 64), std::runtime_error);
}

TEST(RateConverterErrors, TakesTheSmallestBlocks) {
    RateConverter converter(96000, 44100, 1, 1);
    Source source;
    Output out(1, 1);
    for (std::uint64_t made = 1; made <= 500; ++made) {
        ASSERT_EQ(converter.pull(out.view(1), &Source::pull, &source), noErr);
        ASSERT_EQ(source.given, covered(made, 96000, 44100));
    }
    EXPECT_EQ(source.largest, 1U);
    EXPECT_NEAR(out[0][0], 1.0F, 1e-4F);
}

}  // namespace
