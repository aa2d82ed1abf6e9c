#include "common/DriftFifo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <numeric>
#include <vector>

#include "DriftFifoScene.h"

namespace {

using tqcommon::DriftFifo;
using namespace tqtest::drift;

/// A microphone whose clock goes `fast` times as fast as the one that plays.
class Pair {
  public:
    explicit Pair(double fast) : fast_(fast), fifo_(1, kRate, 2 * kHeard) {}

    /// What is read in that time; the microphone hears a tone.
    std::vector<float> read(double seconds) {
        std::vector<float> all;
        std::vector<float> block(kPlayed);
        while (static_cast<double>(all.size()) < seconds * kRate) {
            played_ += kPlayed;
            while (heard_ + kHeard <= played_ * fast_) {
                std::vector<float> piece(kHeard);
                for (float& sample : piece) {
                    sample = toneAt(heard_++);
                }
                fifo_.write(piece.data(), kHeard);
            }
            fifo_.read(block.data(), kPlayed);
            all.insert(all.end(), block.begin(), block.end());
        }
        return all;
    }
    DriftFifo& fifo() { return fifo_; }

  private:
    const double fast_;
    DriftFifo fifo_;
    double played_ = 0;
    double heard_ = 0;
};

TEST(DriftFifo, SamplesPassAsTheyAreWhileTheClocksAgree) {
    DriftFifo fifo(2, kRate, kHeard);
    std::vector<float> heard(2 * kHeard);
    std::vector<float> played(2 * kPlayed);
    float next = 1;
    float due = 0;
    for (std::uint32_t turn = 0; turn < 20000; ++turn) {
        for (; next <= static_cast<float>(turn * kPlayed); next += kHeard) {
            for (std::uint32_t frame = 0; frame < kHeard; ++frame) {
                heard[2 * frame] = next + static_cast<float>(frame);
                heard[2 * frame + 1] = -heard[2 * frame];
            }
            fifo.write(heard.data(), kHeard);
        }
        fifo.read(played.data(), kPlayed);
        due = due == 0 ? played[0] : due;
        for (std::uint32_t frame = 0; due > 0 && frame < kPlayed; ++frame, ++due) {
            ASSERT_EQ(played[2 * frame], due);
            ASSERT_EQ(played[2 * frame + 1], -due);
        }
    }
    EXPECT_GT(due, 19980.0F * kPlayed);
    EXPECT_EQ(fifo.faults(), 0U);
}

TEST(DriftFifo, ClocksThatDifferLoseAndRepeatNothing) {
    for (const double fast : {1 + 300e-6, 1 - 300e-6}) {
        Pair pair(fast);
        static_cast<void>(pair.read(1));
        EXPECT_LT(roughness(pair.read(60)), 1e-3) << fast;
        EXPECT_EQ(pair.fifo().faults(), 0U) << fast;
        EXPECT_NEAR(pair.fifo().ratio(), fast, 30e-6);
    }
}

TEST(DriftFifo, AMicrophoneThatStoodStillIsHeardAgainWithoutDelay) {
    DriftFifo fifo(1, kRate, 480);
    std::vector<float> block(480, 0.5F);
    for (int turn = 0; turn < 10; ++turn) {
        fifo.write(block.data(), 480);
    }
    for (int turn = 0; turn < 12; ++turn) {
        fifo.read(block.data(), 480);
    }
    EXPECT_EQ(fifo.faults(), 1U) << "it ran dry";
    EXPECT_EQ(block[0], 0.0F);
    std::vector<float> later(480, 0.25F);
    for (int turn = 0; turn < 90; ++turn) {
        fifo.write(later.data(), 480);
    }
    fifo.read(block.data(), 480);
    EXPECT_EQ(block[0], 0.25F);
}

/// Writes and reads by turns for so long; gives how many frames of sound were read.
std::size_t passOn(DriftFifo& fifo, int turns, float sample) {
    std::vector<float> block(kHeard, sample);
    std::size_t heard = 0;
    for (int turn = 0; turn < turns; ++turn) {
        if (sample != 0) {
            fifo.write(block.data(), kHeard);
        }
        std::vector<float> played(kHeard);
        fifo.read(played.data(), kHeard);
        heard += static_cast<std::size_t>(std::count(played.begin(), played.end(), 0.5F));
    }
    return heard;
}

TEST(DriftFifo, OfASoundThatEndsNothingButLessThanAKernelIsLeftOut) {
    DriftFifo fifo(1, kRate, kHeard);
    const std::size_t heard = passOn(fifo, 10, 0.5F) + passOn(fifo, 10, 0);
    EXPECT_GE(heard, 10U * kHeard - 33);
}

TEST(DriftFifo, PausesOfTheSoundDoNotMakeItLater) {
    for (const auto patience : {DriftFifo::Patience::kForGood, DriftFifo::Patience::kForAWhile}) {
        DriftFifo fifo(1, kRate, kHeard, 0, patience);
        std::vector<std::size_t> silences;
        for (int pause = 0; pause < 20; ++pause) {
            // What is not heard of a sound by its last block is what is in hand.
            silences.push_back(20U * kHeard - passOn(fifo, 20, 0.5F));
            static_cast<void>(passOn(fifo, 40, 0));
        }
        EXPECT_LE(silences.back(), silences.front() + kHeard);
    }
}

TEST(DriftFifo, WhatIsOldIsForgotten) {
    DriftFifo fifo(1, kRate, kHeard);
    static_cast<void>(passOn(fifo, 10, 0.25F));
    fifo.forget();
    EXPECT_EQ(passOn(fifo, 10, 0), 0U);
    EXPECT_GT(passOn(fifo, 10, 0.5F), 0U);
}

/// A sound in blocks that are no multiple of a request, with pauses; gives which of its frames were
/// read, in order.
std::vector<float> playedWithPauses(DriftFifo& fifo, std::uint32_t block, double pauseSeconds) {
    constexpr int kPauses = 8;
    std::vector<float> all;
    std::vector<float> played(kPlayed);
    float next = 1;
    for (int pause = 0; pause < kPauses; ++pause) {
        double due = 0;
        for (double now = 0; now < (0.5 + pauseSeconds) * kRate; now += kPlayed) {
            for (; due <= now && now < 0.5 * kRate; due += block) {
                std::vector<float> piece(block);
                std::iota(piece.begin(), piece.end(), next);
                next += static_cast<float>(block);
                fifo.write(piece.data(), block);
            }
            fifo.read(played.data(), kPlayed);
            std::copy_if(played.begin(), played.end(), std::back_inserter(all),
                         [](float sample) { return sample != 0; });
        }
    }
    return all;
}

TEST(DriftFifo, APauseOfTheSoundTearsNothingOutOfWhatFollows) {
    for (const double pause : {0.03, 0.15, 0.4}) {
        for (const std::uint32_t block : {512U, 2048U}) {
            DriftFifo fifo(1, kRate, block + 480, 192, kForAWhile);
            const std::vector<float> all = playedWithPauses(fifo, block, pause);
            int tears = 0;
            for (std::size_t i = 1; i < all.size(); ++i) {
                tears += all[i] - all[i - 1] > 40 ? 1 : 0;
            }
            EXPECT_EQ(tears, 0) << pause << " s, blocks of " << block;
            EXPECT_LE(fifo.faults(), 9U) << "one hole for each pause, and no more";
        }
    }
}

}  // namespace
