// Of DriftFifo: a microphone or a reader that is late.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "DriftFifoScene.h"
#include "common/DriftFifo.h"

namespace {

using tqcommon::DriftFifo;
using namespace tqtest::drift;

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

/// What is read of a count whose ninth block is so many blocks late.
std::vector<float> countWithOneLate(DriftFifo& fifo, int lateBy) {
    std::vector<float> block(kHeard);
    float next = 1;
    std::vector<float> read;
    for (int turn = 0; turn < 60; ++turn) {
        const bool isLate = turn >= 8 && turn < 8 + lateBy;
        for (int blocks = isLate ? 0 : turn == 8 + lateBy ? 1 + lateBy : 1; blocks > 0; --blocks) {
            std::generate(block.begin(), block.end(), [&next] { return next++; });
            fifo.write(block.data(), kHeard);
        }
        fifo.read(block.data(), kHeard);
        read.insert(read.end(), block.begin(), block.end());
    }
    return {std::find_if(read.begin(), read.end(), [](float one) { return one != 0; }), read.end()};
}

TEST(DriftFifo, AHoleIsAsLongAsTheLatenessAndNothingIsLeftOut) {
    const auto expectWhole = [](DriftFifo fifo, int lateBy) {
        const std::vector<float> read = countWithOneLate(fifo, lateBy);
        float due = read.front();
        std::size_t silent = 0;
        for (const float sample : read) {
            silent += sample == 0 ? 1 : 0;
            ASSERT_TRUE(sample == 0 || std::abs(sample - due) < 0.5F) << sample << ", " << due;
            due = sample == 0 ? due : sample + 1;
        }
        const auto late = static_cast<std::size_t>(lateBy) * kHeard;
        EXPECT_EQ(fifo.faults(), 1U);
        EXPECT_LE(silent, late - 2 * kHeard + 32U) << "two blocks were in hand";
        EXPECT_GE(silent, late - 2 * kHeard - 32U);
    };
    for (const int lateBy : {3, 6, 20}) {
        SCOPED_TRACE(lateBy);
        expectWhole(DriftFifo(1, kRate, kHeard), lateBy);
    }
    expectWhole(DriftFifo(1, kRate, kHeard, 0, kForAWhile), 3);
}

TEST(DriftFifo, WhatWasLostIsNotWaitedForWhenAMicrophoneIsLate) {
    DriftFifo fifo(1, kRate, kHeard);
    std::vector<float> block(kHeard);
    // Eight blocks never come; later three are late, all at once.
    int late = 0;
    int silent = 0;
    for (int turn = 0; turn < 200; ++turn) {
        const bool isLost = turn >= 20 && turn < 28;
        late = turn >= 100 && turn < 103 ? late + 1 : 0;
        std::fill(block.begin(), block.end(), 0.5F);
        for (int blocks = isLost || late > 0 ? 0 : turn == 103 ? 4 : 1; blocks > 0; --blocks) {
            fifo.write(block.data(), kHeard);
        }
        fifo.read(block.data(), kHeard);
        silent += turn >= 100 ? static_cast<int>(std::count(block.begin(), block.end(), 0.0F)) : 0;
    }
    EXPECT_EQ(fifo.faults(), 2U);
    EXPECT_LE(silent, static_cast<int>(2 * kHeard)) << "one of the three was in hand";
}

TEST(DriftFifo, WhatPilesUpWhileTheReaderIsLateIsReadFasterAndNothingIsLeftOut) {
    DriftFifo fifo(1, kRate, kHeard);
    std::vector<float> all;
    int heard = 0;
    const auto pass = [&](bool isReaderLate) {
        std::vector<float> block(kHeard);
        for (float& sample : block) {
            sample = toneAt(heard++);
        }
        fifo.write(block.data(), kHeard);
        if (!isReaderLate) {
            fifo.read(block.data(), kHeard);
            all.insert(all.end(), block.begin(), block.end());
        }
    };
    const auto inHand = [&] { return static_cast<double>(fifo.written()) - fifo.firstOf(0); };
    for (int turn = 0; turn < 500; ++turn) {
        pass(false);
    }
    const double usual = inHand();
    all.clear();
    // Two tenths of a second at once, and three milliseconds of each second in half a minute.
    for (int turn = 0; turn < 3000; ++turn) {
        pass(turn < 20 || turn % 333 == 0);
    }
    for (int turn = 0; turn < 6000; ++turn) {
        pass(false);
    }
    EXPECT_LT(roughness(all), 1e-3);
    EXPECT_EQ(fifo.faults(), 0U);
    EXPECT_LT(inHand(), usual + 0.02 * kRate);
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
