#include <deque>
#include <random>

#include "bridges/core/Pacer.h"

namespace tq::bridges {
namespace {

constexpr std::size_t kRunBlock = 512;
constexpr double kRate = 48000;

/// A program that writes frames 0, 1, 2 ..., and a device that plays them. Frames must come out
/// once and in order; only silent ones may be cut.
class PacedRun {
  public:
    explicit PacedRun(std::function<bool(std::uint64_t)> isSilentFrame)
        : isSilent_(std::move(isSilentFrame)) {}

    void write(std::size_t frames) {
        input.largestPiece = std::max(input.largestPiece, frames);
        for (std::size_t i = 0; i < frames; ++i) {
            fifo_.push_back(written_++);
        }
    }

    PacerBlock play() {
        input.frames = kRunBlock;
        input.available = fifo_.size();
        input.silent = 0;
        while (input.silent < std::min<std::size_t>(fifo_.size(), 20000) &&
               isSilent_(fifo_[input.silent])) {
            ++input.silent;
        }
        const bool wasPlaying = pacer_.isPlaying();
        const PacerBlock block = pacer_.next(input);
        EXPECT_LE(block.cut, input.silent);
        EXPECT_LE(block.cut + block.take, fifo_.size());
        EXPECT_EQ(block.wait + block.take + block.silence, kRunBlock);
        for (std::size_t i = 0; i < block.cut + block.take; ++i) {
            EXPECT_EQ(fifo_.front(), played_++);
            fifo_.pop_front();
        }
        cut += block.cut;
        holes += wasPlaying && !pacer_.isPlaying() ? 1 : 0;
        return block;
    }

    /// For so long, with pieces at the program's own pace.
    void run(double seconds, std::size_t piece, double partsPerMillion) {
        const double pace = 1 + partsPerMillion / 1e6;
        for (double played = 0; played < seconds * kRate; played += kRunBlock) {
            owed_ += kRunBlock * pace;
            for (; owed_ >= static_cast<double>(piece); owed_ -= static_cast<double>(piece)) {
                write(piece);
            }
            play();
        }
    }

    std::size_t lead() const { return fifo_.size(); }
    std::uint64_t written() const { return written_; }
    std::uint64_t played() const { return played_; }

    PacerInput input;
    std::size_t cut = 0;
    std::size_t holes = 0;

  private:
    std::function<bool(std::uint64_t)> isSilent_;
    Pacer pacer_{kRate};
    std::deque<std::uint64_t> fifo_;
    std::uint64_t written_ = 0;
    std::uint64_t played_ = 0;
    double owed_ = 0;
};

bool never(std::uint64_t) {
    return false;
}

/// Half a second of silence every ten seconds.
bool nowAndThen(std::uint64_t frame) {
    return frame % 480000 > 456000;
}

TEST(PacedRun, AFasterProgramIsCutBackInItsOwnSilence) {
    for (std::size_t piece : {100u, 512u, 2208u}) {
        PacedRun run(nowAndThen);
        run.run(20, piece, 1000);
        const std::size_t before = run.lead();
        run.run(300, piece, 1000);
        EXPECT_EQ(run.holes, 0u);
        EXPECT_GT(run.cut, 10000u) << piece;
        EXPECT_LE(run.lead(), before + 2880) << piece;
    }
}

TEST(PacedRun, AFasterProgramThatIsNeverSilentLosesNothing) {
    PacedRun run(never);
    run.run(300, 480, 1000);
    EXPECT_EQ(run.cut, 0u);
    EXPECT_EQ(run.holes, 0u);
    EXPECT_GE(run.lead(), 14400u);
}

TEST(PacedRun, ASlowerProgramHasFewHolesAndLosesNothing) {
    PacedRun run(nowAndThen);
    run.run(300, 480, -1000);
    EXPECT_EQ(run.cut, 0u);
    EXPECT_GE(run.holes, 1u);
    EXPECT_LE(run.holes, 8u);
    EXPECT_LE(run.lead(), 4000u);
}

TEST(PacedRun, WhatAProgramWritesAheadOnPurposeIsNotCut) {
    PacedRun run(nowAndThen);
    run.write(4800);
    run.run(1, 480, 0);
    run.write(4 * 48000);
    run.run(60, 480, 0);
    EXPECT_EQ(run.cut, 0u);
    EXPECT_EQ(run.holes, 0u);
}

TEST(PacedRun, FiftyShortStreamsComeOutWholeAndEnd) {
    for (std::size_t length = 1; length <= 50 * 997; length += 997) {
        for (bool isClosedSoon : {false, true}) {
            PacedRun run(never);
            run.write(length);
            if (!isClosedSoon) {
                run.run(2, 480000, 0);
                EXPECT_EQ(run.played(), length);
            }
            run.input.isClosed = true;
            std::size_t blocks = 1;
            while (!run.play().isOver) {
                ASSERT_LT(++blocks, length / kRunBlock + 10);
            }
            EXPECT_EQ(run.played(), length);
        }
    }
}

TEST(PacedRun, PiecesOfEveryLengthComeOutWholeAndInOrder) {
    std::mt19937 random(7);
    PacedRun run(nowAndThen);
    for (std::size_t piece : {1u, 7u, 64u, 480u, 512u, 2208u, 48000u, 200000u}) {
        run.run(12, piece, 0);
        for (int i = 0; i < 50; ++i) {
            run.write(std::uniform_int_distribution<std::size_t>(1, piece)(random));
            run.play();
        }
    }
    run.input.isClosed = true;
    while (!run.play().isOver) {
    }
    EXPECT_EQ(run.played(), run.written());
}

}  // namespace
}  // namespace tq::bridges
