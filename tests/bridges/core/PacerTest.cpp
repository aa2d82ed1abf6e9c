#include "bridges/core/Pacer.h"

namespace tq::bridges {
namespace {

constexpr std::size_t kBlock = 512;

/// A stream of pieces of 480 frames whose FIFO is told by the test.
class APacer : public testing::Test {
  protected:
    APacer() {
        input.frames = kBlock;
        input.largestPiece = 480;
    }
    PacerBlock next(std::size_t available) {
        input.available = available;
        return pacer.next(input);
    }
    Pacer pacer{48000};
    PacerInput input;
};

TEST_F(APacer, StartsAtTheMargin) {
    EXPECT_EQ(pacer.margin(kBlock, 480), 2880u);
    EXPECT_EQ(pacer.margin(kBlock, 4800), 5824u);
    EXPECT_EQ(pacer.margin(2048, 480), 4576u);
    EXPECT_EQ(next(2879).silence, kBlock);
    const PacerBlock block = next(2880);
    EXPECT_EQ(block.take, kBlock);
    EXPECT_EQ(block.silence, 0u);
}

TEST_F(APacer, PlaysAShortSoundAfterTheShortestWait) {
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(next(100).take, 0u);
    }
    const PacerBlock block = next(100);
    EXPECT_EQ(block.take, 100u);
    EXPECT_EQ(block.silence, kBlock - 100);
    EXPECT_FALSE(block.isOver);
}

TEST_F(APacer, DoesNotWaitForASecondLargePiece) {
    input.largestPiece = 200000;
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(next(200000).take, 0u);
    }
    EXPECT_EQ(next(200000).take, kBlock);
}

TEST_F(APacer, IsSilentAndPrimesAgainWhenItRanDry) {
    next(2880);
    const PacerBlock dry = next(500);
    EXPECT_EQ(dry.take, 500u);
    EXPECT_EQ(dry.silence, 12u);
    EXPECT_EQ(next(600).take, 0u);
    EXPECT_EQ(next(2880).take, kBlock);
}

TEST_F(APacer, DrainingPlaysWhatIsThereAtOnce) {
    EXPECT_EQ(next(100).take, 0u);
    ++input.drains;
    EXPECT_EQ(next(100).take, 100u);
    EXPECT_EQ(next(100).take, 0u);
}

TEST_F(APacer, ClosingPlaysWhatIsThereAtOnceAndIsOverWhenThatIsOut) {
    input.isClosed = true;
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
    next(2880);
    input.isFrozen = true;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(next(1000).silence, kBlock);
    }
    input.isFrozen = false;
    EXPECT_EQ(next(1000).take, kBlock);
}

TEST_F(APacer, PrimesAgainAfterAFlush) {
    next(2880);
    ++input.flushes;
    EXPECT_EQ(next(2000).take, 0u);
    EXPECT_EQ(next(2880).take, kBlock);
}

}  // namespace
}  // namespace tq::bridges
