#include "bridges/core/FrameFifo.h"

#include <deque>
#include <numeric>
#include <random>

namespace tq::bridges {
namespace {

using Frames = std::vector<std::uint32_t>;

Frames counting(std::uint32_t first, std::size_t count) {
    Frames frames(count);
    std::iota(frames.begin(), frames.end(), first);
    return frames;
}

struct Planes {
    Frames pre;
    Frames post;
};

Planes readFrom(FrameFifo& fifo, std::size_t frames) {
    Planes planes{Frames(frames, 0xdeadbeef), Frames(frames, 0xdeadbeef)};
    const std::size_t count = fifo.read(planes.pre.data(), planes.post.data(), frames);
    planes.pre.resize(count);
    planes.post.resize(count);
    return planes;
}

void expectAccountingCloses(const FrameFifo& fifo) {
    const FrameCounts counts = fifo.counts();
    EXPECT_EQ(counts.written,
              counts.read + counts.cut + counts.flushed + counts.takenBack + counts.waiting);
}

TEST(FrameFifo, HoldsTenSecondsInAtMost64MiB) {
    EXPECT_EQ(FrameFifo::tryMake(8, 48000)->capacity(), 524288u);
    EXPECT_EQ(FrameFifo::tryMake(32, 768000)->capacity(), 2097152u);
    EXPECT_EQ(FrameFifo::tryMake(0, 48000), nullptr);
}

TEST(FrameFifo, GivesFramesInOrderAndPreForBothPlanesWhileThereIsNoPost) {
    auto fifo = FrameFifo::tryMake(4, 100);
    const Frames plain = counting(1, 5);
    const Frames processed = counting(101, 5);
    const Frames later = counting(11, 5);
    EXPECT_TRUE(fifo->write(plain.data(), nullptr, 5));
    EXPECT_TRUE(fifo->write(plain.data(), processed.data(), 5));
    EXPECT_TRUE(fifo->write(later.data(), nullptr, 5));
    EXPECT_EQ(fifo->available(), 15u);
    const Planes all = readFrom(*fifo, 20);
    EXPECT_EQ(all.pre, (Frames{1, 2, 3, 4, 5, 1, 2, 3, 4, 5, 11, 12, 13, 14, 15}));
    EXPECT_EQ(all.post, (Frames{1, 2, 3, 4, 5, 101, 102, 103, 104, 105, 11, 12, 13, 14, 15}));
    expectAccountingCloses(*fifo);
}

TEST(FrameFifo, WhatHasNoRoomIsSilenceOfItsLengthInItsPlace) {
    auto fifo = FrameFifo::tryMake(4, 100);
    ASSERT_EQ(fifo->capacity(), 1024u);
    const Frames block = counting(1, 3000);
    EXPECT_FALSE(fifo->write(block.data(), nullptr, 3000));
    EXPECT_EQ(fifo->counts().lost, 1976u);
    EXPECT_EQ(readFrom(*fifo, 1024).pre, counting(1, 1024));
    EXPECT_TRUE(fifo->write(block.data(), nullptr, 100));
    EXPECT_EQ(readFrom(*fifo, 1976).pre, Frames(1976, 0));
    EXPECT_EQ(readFrom(*fifo, 1000).pre, counting(1, 100));
    expectAccountingCloses(*fifo);
}

TEST(FrameFifo, TakesNothingAfterALossUntilASixteenthIsFree) {
    auto fifo = FrameFifo::tryMake(4, 100);
    const Frames block = counting(1, 1025);
    fifo->write(block.data(), nullptr, 1025);
    readFrom(*fifo, 63);
    EXPECT_FALSE(fifo->write(block.data(), nullptr, 10));
    readFrom(*fifo, 1);
    EXPECT_TRUE(fifo->write(block.data(), nullptr, 10));
}

TEST(FrameFifo, SeveralLossesKeepTheirPlaces) {
    auto fifo = FrameFifo::tryMake(4, 100);
    Frames expected;
    Frames got;
    std::uint32_t next = 1;
    for (int i = 0; i < 50; ++i) {
        const std::uint64_t lost = fifo->counts().lost;
        const Frames block = counting(next, 700);
        fifo->write(block.data(), nullptr, 700);
        next += 700;
        expected.insert(expected.end(), block.begin(), block.end());
        const auto missing = static_cast<std::ptrdiff_t>(fifo->counts().lost - lost);
        std::fill(expected.end() - missing, expected.end(), 0);
        const Frames part = readFrom(*fifo, 300).pre;
        got.insert(got.end(), part.begin(), part.end());
    }
    EXPECT_GT(fifo->counts().lost, 0u);
    const Frames rest = readFrom(*fifo, fifo->available()).pre;
    got.insert(got.end(), rest.begin(), rest.end());
    EXPECT_EQ(got, expected);
}

TEST(FrameFifo, TakesBackTheNewestFramesAndNoMoreThanWait) {
    auto fifo = FrameFifo::tryMake(4, 100);
    const Frames block = counting(1, 100);
    fifo->write(block.data(), nullptr, 100);
    EXPECT_EQ(readFrom(*fifo, 40).pre, counting(1, 40));
    EXPECT_EQ(fifo->takeBack(50), 50u);
    fifo->write(block.data(), nullptr, 5);
    EXPECT_EQ(readFrom(*fifo, 100).pre,
              (Frames{41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 1, 2, 3, 4, 5}));
    EXPECT_EQ(fifo->takeBack(1), 0u);
    expectAccountingCloses(*fifo);
}

TEST(FrameFifo, FlushDropsWhatWaitsAndGivesItsRoomBackWithoutAReader) {
    auto fifo = FrameFifo::tryMake(4, 100);
    const Frames block = counting(1, 1024);
    EXPECT_TRUE(fifo->write(block.data(), nullptr, 1024));
    EXPECT_EQ(fifo->flush(), 1024u);
    EXPECT_EQ(fifo->available(), 0u);
    EXPECT_TRUE(fifo->write(block.data(), nullptr, 1024));
    EXPECT_EQ(readFrom(*fifo, 2000).pre, block);
    expectAccountingCloses(*fifo);
}

TEST(FrameFifo, SilenceTakesNoRoomIsKnownAndCanBeCut) {
    auto fifo = FrameFifo::tryMake(4, 100);
    const Frames silence(5000, 0);
    const Frames block = counting(1, 100);
    EXPECT_TRUE(fifo->write(silence.data(), nullptr, 5000));
    EXPECT_TRUE(fifo->write(block.data(), nullptr, 100));
    EXPECT_EQ(fifo->silentFrames(), 5000u);
    EXPECT_EQ(fifo->cutSilence(4990), 4990u);
    EXPECT_EQ(fifo->cutSilence(4990), 10u);
    EXPECT_EQ(fifo->silentFrames(), 0u);
    EXPECT_EQ(readFrom(*fifo, 200).pre, block);
    EXPECT_EQ(fifo->counts().cut, 5000u);
    expectAccountingCloses(*fifo);
}

/// What the FIFO does, one frame at a time: pre and post of what waits.
struct Model {
    std::deque<std::pair<std::uint32_t, std::uint32_t>> waiting;
};

class RandomFrameFifo : public testing::TestWithParam<unsigned> {};

TEST_P(RandomFrameFifo, DoesWhatADequeDoes) {
    std::mt19937 random(GetParam());
    const auto below = [&](std::uint32_t bound) {
        return std::uniform_int_distribution<std::uint32_t>(0, bound - 1)(random);
    };
    auto fifo = FrameFifo::tryMake(4, 100);
    Model model;
    std::uint32_t next = 1;
    const bool isSlowReader = GetParam() % 2 == 1;
    for (int step = 0; step < 4000; ++step) {
        const std::uint32_t verb = below(100);
        if (verb < 45) {
            const std::size_t count = below(verb < 3 ? 3000 : 200) + 1;
            const bool isSilent = below(6) == 0;
            Frames pre = isSilent ? Frames(count, 0) : counting(next, count);
            Frames post = isSilent ? pre : counting(next + 0x80000000, count);
            const bool hasPost = below(3) == 0;
            next += static_cast<std::uint32_t>(count);
            const std::uint64_t lost = fifo->counts().lost;
            const bool isWhole = fifo->write(pre.data(), hasPost ? post.data() : nullptr, count);
            const std::size_t missing = fifo->counts().lost - lost;
            ASSERT_EQ(isWhole, missing == 0);
            for (std::size_t i = 0; i < count; ++i) {
                const bool isLost = i >= count - missing;
                model.waiting.emplace_back(isLost ? 0 : pre[i],
                                           isLost ? 0 : (hasPost ? post : pre)[i]);
            }
        } else if (verb < 90) {
            const Planes got = readFrom(*fifo, below(isSlowReader ? 150 : 300));
            for (std::size_t i = 0; i < got.pre.size(); ++i) {
                ASSERT_EQ(std::pair(got.pre[i], got.post[i]), model.waiting.front());
                model.waiting.pop_front();
            }
        } else if (verb < 95) {
            const std::size_t wanted = below(400);
            ASSERT_EQ(fifo->takeBack(wanted), std::min(wanted, model.waiting.size()));
            model.waiting.resize(model.waiting.size() - std::min(wanted, model.waiting.size()));
        } else if (verb < 99) {
            const std::size_t count = fifo->cutSilence(below(300));
            for (std::size_t i = 0; i < count; ++i) {
                ASSERT_EQ(model.waiting.front(), std::pair(0u, 0u));
                model.waiting.pop_front();
            }
        } else {
            ASSERT_EQ(fifo->flush(), model.waiting.size());
            model.waiting.clear();
        }
        ASSERT_EQ(fifo->available(), model.waiting.size());
        expectAccountingCloses(*fifo);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomFrameFifo, testing::Range(1u, 21u));

}  // namespace
}  // namespace tq::bridges
