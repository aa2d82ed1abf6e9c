#include "bridges/core/Pacer.h"

namespace tq::bridges {
namespace {

constexpr std::size_t kBlock = 512;
/// 80 ms.
constexpr std::size_t kWait = 3840;

/// A stream of pieces of 480 frames whose FIFO is told by the test.
class APacer : public testing::Test {
  protected:
    APacer() {
        input.frames = kBlock;
        input.largestPiece = 480;
    }
    /// Until it plays.
    void play() {
        input.late = kWait;
        EXPECT_EQ(next(9600).take, kBlock);
        input.late = 0;
    }
    PacerBlock next(std::size_t available) {
        input.available = available;
        return pacer.next(input);
    }
    Pacer pacer{48000};
    PacerInput input;
};

TEST_F(APacer, MarginIsTheLargestPieceAndTwoBlocksOrWhatIsWaitedFor) {
    EXPECT_EQ(pacer.margin(kBlock, 480), kWait);
    EXPECT_EQ(pacer.margin(kBlock, 4800), 5824u);
    EXPECT_EQ(pacer.margin(2048, 480), 8192u);
}

TEST_F(APacer, StartsSoLateHoweverMuchIsThere) {
    for (const std::size_t there : {100u, 3840u, 200000u}) {
        Pacer anew{48000};
        input.available = there;
        for (std::size_t waited = 0; waited + kBlock <= kWait; waited += kBlock) {
            EXPECT_EQ(anew.next(input).silence, kBlock);
        }
        const PacerBlock block = anew.next(input);
        EXPECT_EQ(block.wait, kWait % kBlock);
        EXPECT_EQ(block.take, std::min(there, kBlock - block.wait));
        EXPECT_EQ(block.wait + block.take + block.silence, kBlock);
    }
}

TEST_F(APacer, WhatIsLateAlreadyIsWaitedForLess) {
    input.late = kWait - 100;
    const PacerBlock block = next(9600);
    EXPECT_EQ(block.wait, 100u);
    EXPECT_EQ(block.take, kBlock - 100);
}

TEST_F(APacer, WhatIsLaterThanThatStartsAtOnce) {
    input.late = 48000;
    EXPECT_EQ(next(9600).take, kBlock);
}

TEST_F(APacer, WhatIsNotHeardYetIsWaitedForLonger) {
    input.late = -960;
    std::size_t silence = 0;
    PacerBlock block = next(9600);
    for (; block.take == 0; block = next(9600)) {
        silence += block.silence;
    }
    EXPECT_EQ(silence + block.wait, kWait + 960);
}

TEST_F(APacer, IsSilentAndWaitsAgainWhenItRanDry) {
    play();
    const PacerBlock dry = next(500);
    EXPECT_EQ(dry.take, 500u);
    EXPECT_EQ(dry.silence, 12u);
    EXPECT_EQ(next(600).take, 0u);
    input.late = kWait;
    EXPECT_EQ(next(2880).take, 0u) << "what it was late at first counts";
}

TEST_F(APacer, AClosedStreamIsPlayedAtItsTimeAndOverWhenThatIsOut) {
    input.isClosed = true;
    EXPECT_EQ(next(kBlock + 1).take, 0u);
    input.isClosed = false;
    next(0);
    input.isClosed = true;
    input.late = kWait;
    PacerBlock block = next(kBlock + 1);
    EXPECT_EQ(block.take, kBlock);
    EXPECT_FALSE(block.isOver);
    block = next(1);
    EXPECT_EQ(block.take, 1u);
    EXPECT_TRUE(block.isOver);
}

TEST_F(APacer, IsOverAtOnceWhenItIsClosedEmptyOrInAPause) {
    input.isClosed = true;
    EXPECT_TRUE(next(0).isOver);
    input.isFrozen = true;
    const PacerBlock block = next(1000);
    EXPECT_TRUE(block.isOver);
    EXPECT_EQ(block.take, 0u);
}

TEST_F(APacer, APauseLeavesTheFramesWhereTheyAre) {
    play();
    input.isFrozen = true;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(next(1000).silence, kBlock);
    }
    input.isFrozen = false;
    EXPECT_EQ(next(1000).take, kBlock);
}

TEST_F(APacer, WaitsAgainAfterAFlush) {
    play();
    ++input.flushes;
    EXPECT_EQ(next(9600).take, 0u);
    ++input.flushes;
    play();
}

}  // namespace
}  // namespace tq::bridges
