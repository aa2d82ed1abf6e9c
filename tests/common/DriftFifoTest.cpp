#include "common/DriftFifo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>
#include <numeric>
#include <vector>

namespace {

using tqcommon::DriftFifo;

constexpr double kRate = 48000;
constexpr double kHertz = 1000;
constexpr std::uint32_t kHeard = 480;   ///< frames that the microphone brings at a time
constexpr std::uint32_t kPlayed = 300;  ///< frames that are asked for at a time

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
                    sample = static_cast<float>(
                        std::sin(2 * std::numbers::pi * kHertz * heard_ / kRate));
                    ++heard_;
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

/// The largest step from what the two samples before let expect of a sine: a gap is seen at once.
double roughness(const std::vector<float>& samples) {
    const double turn = 2 * std::cos(2 * std::numbers::pi * kHertz / kRate);
    double most = 0;
    for (std::size_t i = 2; i < samples.size(); ++i) {
        most = std::max(most, std::abs(samples[i] - turn * samples[i - 1] + samples[i - 2]));
    }
    return most;
}

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

TEST(DriftFifo, AMicrophoneThatIsLateOnceIsWaitedForEverAfter) {
    // It brings ten blocks, and after every second four of them late, all at once.
    DriftFifo fifo(1, kRate, 120);
    const std::vector<float> heard(480, 0.5F);
    std::vector<float> block(480);
    int late = 0;
    for (int turn = 0; turn < 2000; ++turn) {
        late = turn % 100 >= 96 ? late + 1 : 0;
        for (int pieces = turn % 100 == 0 && turn > 0 ? 5 : 1; late == 0 && pieces > 0; --pieces) {
            fifo.write(heard.data(), 480);
        }
        fifo.read(block.data(), 480);
    }
    EXPECT_LE(fifo.faults(), 5U);
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

/// A microphone that brings small pieces, some of them late, and is read by larger requests.
class LateMicrophone {
  public:
    static constexpr std::uint32_t kPiece = 74;
    static constexpr std::uint32_t kInHand = 131;
    static constexpr std::uint32_t kLeast = 75;

    explicit LateMicrophone(std::uint32_t least,
                            DriftFifo::Patience patience = DriftFifo::Patience::kForGood)
        : fifo_(1, kRate, kInHand, least, patience) {}

    /// Requests for so long; `lateAt` says how many pieces are late in that request of a second.
    template <typename LateAt>
    void read(double seconds, const LateAt& lateAt) {
        std::vector<float> block(kPlayed);
        fewest_ = kRate;
        for (const double end = now_ + seconds * kRate; now_ < end; now_ += kPlayed) {
            const auto due = static_cast<std::uint64_t>(now_ / kPiece);
            const std::uint64_t late = lateAt(requests_++);
            for (; pieces_ + late < due; ++pieces_) {
                std::vector<float> piece(kPiece);
                for (float& sample : piece) {
                    sample = static_cast<float>(count_++ % (1U << 20U));
                }
                fifo_.write(piece.data(), kPiece);
            }
            fifo_.read(block.data(), kPlayed);
            inHand_ = static_cast<double>(fifo_.written()) - fifo_.firstOf(kPlayed) - kPlayed;
            most_ = std::max(most_, inHand_);
            fewest_ = std::min(fewest_, inHand_);
            step_ = block[1] - block[0];
            isWhole_ = block[0] == std::floor(block[0]);
        }
    }
    [[nodiscard]] std::uint32_t faults() const { return fifo_.faults(); }
    [[nodiscard]] double most() const { return most_; }
    /// In hand behind the last requests.
    [[nodiscard]] double fewest() const { return fewest_; }
    [[nodiscard]] bool passesAsItIs() const { return isWhole_ && step_ == 1; }

  private:
    DriftFifo fifo_;
    double now_ = 0;  ///< frames
    double inHand_ = 0;
    double most_ = 0;
    double fewest_ = 0;
    float step_ = 0;
    bool isWhole_ = false;
    std::uint64_t requests_ = 0;
    std::uint64_t pieces_ = 0;
    std::uint64_t count_ = 1;
};

/// A piece is late each second, two each ten seconds, three and four ever more seldom.
std::uint64_t seldomLate(std::uint64_t request) {
    constexpr std::uint64_t kSecond = 160;
    const std::uint64_t second = request / kSecond;
    if (request % kSecond != 80) {
        return 0;
    }
    return second % 180 == 179 ? 4 : second % 60 == 59 ? 3 : second % 10 == 9 ? 2 : 1;
}

TEST(DriftFifo, AMicrophoneThatIsSeldomLateIsMetBeforeItRunsDry) {
    LateMicrophone one(LateMicrophone::kLeast);
    one.read(600, seldomLate);
    EXPECT_EQ(one.faults(), 0U);
    LateMicrophone without(0);
    without.read(600, seldomLate);
    EXPECT_GT(without.faults(), 0U) << "it would run dry";
}

TEST(DriftFifo, NoMoreIsKeptInHandThanTheLatestOfAMicrophone) {
    LateMicrophone never(LateMicrophone::kLeast);
    never.read(60, [](std::uint64_t) { return std::uint64_t{0}; });
    const double usual = never.most();
    LateMicrophone seldom(LateMicrophone::kLeast);
    seldom.read(600, seldomLate);
    constexpr double kLatest = 4 * LateMicrophone::kPiece;
    EXPECT_LE(seldom.most(), usual + kLatest + LateMicrophone::kPiece);
    EXPECT_LT(usual, LateMicrophone::kInHand + 3 * LateMicrophone::kPiece);
}

TEST(DriftFifo, SamplesPassAsTheyAreAgainBehindALateness) {
    LateMicrophone one(LateMicrophone::kLeast);
    one.read(30, seldomLate);
    one.read(10, [](std::uint64_t) { return std::uint64_t{0}; });
    EXPECT_TRUE(one.passesAsItIs());
    EXPECT_EQ(one.faults(), 0U);
}

std::uint64_t never(std::uint64_t /*request*/) {
    return 0;
}

constexpr auto kForAWhile = DriftFifo::Patience::kForAWhile;

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

TEST(DriftFifo, WhatWasAddedForOneWhoWasLateIsGivenUpAgain) {
    constexpr double kTolerance = 0.002 * kRate;
    const auto onceLate = [](std::uint64_t request) { return request == 1700 ? 8U : 0U; };
    const auto addedBehind = [&](LateMicrophone& one, double seconds) {
        one.read(10, never);
        const double before = one.fewest();
        one.read(2, onceLate);
        one.read(seconds, never);
        EXPECT_EQ(one.faults(), 1U) << "nothing but the lateness";
        return one.fewest() - before;
    };
    LateMicrophone soon(LateMicrophone::kLeast, kForAWhile);
    EXPECT_GE(addedBehind(soon, 2), 3 * LateMicrophone::kPiece);
    LateMicrophone later(LateMicrophone::kLeast, kForAWhile);
    static_cast<void>(addedBehind(later, 60));
    later.read(1, never);
    EXPECT_LE(later.fewest(), LateMicrophone::kLeast + 32 + kTolerance);
    EXPECT_TRUE(later.passesAsItIs());
    LateMicrophone forGood(LateMicrophone::kLeast);
    const double added = addedBehind(forGood, 2);
    LateMicrophone forGoodLater(LateMicrophone::kLeast);
    EXPECT_GE(addedBehind(forGoodLater, 62), added - LateMicrophone::kPiece);
}

TEST(DriftFifo, WhoIsLateAgainAndAgainIsWaitedForLongerEachTime) {
    constexpr int kMinutes = 10;
    LateMicrophone one(LateMicrophone::kLeast, kForAWhile);
    one.read(60.0 * kMinutes,
             [](std::uint64_t request) { return request % (160ULL * 60) == 80 ? 8U : 0U; });
    EXPECT_LE(one.faults(), kMinutes / 2U);
}

TEST(DriftFifo, AHoleIsAsLongAsTheLatenessAndNothingIsLeftOut) {
    DriftFifo fifo(1, kRate, kHeard, 0, kForAWhile);
    std::vector<float> block(kHeard);
    float next = 1;
    const auto bring = [&](int blocks) {
        for (; blocks > 0; --blocks) {
            std::generate(block.begin(), block.end(), [&next] { return next++; });
            fifo.write(block.data(), kHeard);
        }
    };
    std::vector<float> read;
    for (int turn = 0; turn < 20; ++turn) {
        constexpr int kLateBy = 3;
        bring(turn < 8 ? 1 : turn < 8 + kLateBy ? 0 : turn == 8 + kLateBy ? 1 + kLateBy : 1);
        fifo.read(block.data(), kHeard);
        read.insert(read.end(), block.begin(), block.end());
    }
    const auto first = std::find_if(read.begin(), read.end(), [](float s) { return s != 0; });
    float due = *first;
    std::size_t silent = 0;
    for (auto sample = first; sample != read.end(); ++sample) {
        silent += *sample == 0 ? 1 : 0;
        due += *sample == 0 ? 0.0F : 1.0F;
        ASSERT_TRUE(*sample == 0 || *sample == due - 1) << *sample;
    }
    EXPECT_EQ(fifo.faults(), 1U);
    EXPECT_LE(silent, kHeard + 32U) << "two blocks were in hand";
    EXPECT_GE(silent, kHeard - 32U);
}

TEST(DriftFifo, OneWhoStoodStillOnceIsHardlyWaitedFor) {
    LateMicrophone one(LateMicrophone::kLeast, kForAWhile);
    one.read(10, never);
    const double before = one.fewest();
    // For 0.16 s nothing, and then all at once.
    one.read(1, [](std::uint64_t request) { return request % 160 < 26 ? request % 160 * 4 : 0; });
    one.read(6, never);
    EXPECT_EQ(one.faults(), 1U);
    EXPECT_GT(one.fewest(), before);
    EXPECT_LE(one.fewest(), before + 0.02 * kRate);
}

}  // namespace
