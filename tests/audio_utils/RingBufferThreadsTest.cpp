#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

#include "ring_buffer.h"

namespace korva_audio_utils {
namespace {

/// Wider than a machine word, so that a torn element shows; part is its place in its block.
struct Element {
    std::uint64_t block;
    std::uint64_t part;
    std::uint64_t check;
};

/// Blocks of three in rings whose capacities are no multiples of three: no growth is filled to
/// the last slot, so nothing is lost that way.
constexpr std::size_t kParts = 3;
using Block = std::array<Element, kParts>;

Block MakeBlock(std::uint64_t number) {
    Block block;
    for (std::size_t part = 0; part < kParts; ++part) {
        block[part] = {number, part, number * 31 + part};
    }
    return block;
}

bool IsBlock(const Block& block, std::uint64_t number) {
    for (std::size_t part = 0; part < kParts; ++part) {
        if (block[part].block != number || block[part].part != part ||
            block[part].check != number * 31 + part) {
            return false;
        }
    }
    return true;
}

TEST(RingBufferThreadsTest, OneReaderGetsEveryElementOfOneWriterWhileTheRingGrows) {
    constexpr std::uint64_t kBlocks = 60000;
    RingBuffer ring;
    ASSERT_EQ(ring.Init(4, sizeof(Element), 4096), 0);
    std::thread writer([&] {
        for (std::uint64_t number = 1; number <= kBlocks;) {
            const Block block = MakeBlock(number);
            if (ring.WriteBuffer(block.data(), kParts) != 0) {
                ++number;
            } else {
                std::this_thread::yield();
            }
        }
    });
    std::uint64_t wrong = 0;
    for (std::uint64_t number = 1; number <= kBlocks;) {
        Block block{};
        void* out = nullptr;
        // Both ways of reading; a pointer into the ring may go stale with growth, so only the
        // copying way is compared.
        if (ring.ReadBuffer(nullptr, block.data(), kParts) != 0) {
            wrong += IsBlock(block, number) ? 0 : 1;
            ++number;
        } else {
            EXPECT_EQ(ring.ReadBuffer(&out, block.data(), 0), 0U);
            std::this_thread::yield();
        }
    }
    writer.join();
    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(ring.AvailableRead(), 0U);
}

TEST(RingBufferThreadsTest, CleaningWhileWritingLeavesWholeBlocksOnly) {
    constexpr std::uint64_t kCleans = 4000;
    RingBuffer ring;
    ASSERT_EQ(ring.Init(16, sizeof(Element), 64), 0);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (std::uint64_t number = 1; !done.load();) {
            const Block block = MakeBlock(number);
            if (ring.WriteBuffer(block.data(), kParts) != 0) {
                ++number;
            }
        }
    });
    std::uint64_t last = 0;
    std::uint64_t wrong = 0;
    std::uint64_t got = 0;
    for (std::uint64_t round = 0; round < kCleans || got < 100; ++round) {
        Block block{};
        for (std::uint64_t reads = 0; reads < round % 4; ++reads) {
            wrong += ring.AvailableRead() % kParts == 0 ? 0 : 1;
            if (ring.ReadBuffer(nullptr, block.data(), kParts) != 0) {
                const std::uint64_t number = block[0].block;
                wrong += number > last && IsBlock(block, number) ? 0 : 1;
                last = number;
                ++got;
            }
        }
        ring.CleanBufferOnWrite();
        wrong += ring.AvailableRead() % kParts == 0 ? 0 : 1;
    }
    done = true;
    writer.join();
    EXPECT_EQ(wrong, 0U);
}

TEST(RingBufferThreadsTest, AThirdThreadSeesOnlyWholeFillLevels) {
    constexpr std::uint64_t kBlocks = 20000;
    RingBuffer ring;
    ASSERT_EQ(ring.Init(4, sizeof(Element), 1024), 0);
    std::atomic<bool> done{false};
    std::atomic<std::uint64_t> wrong{0};
    std::thread writer([&] {
        for (std::uint64_t number = 1; number <= kBlocks;) {
            const Block block = MakeBlock(number);
            number += ring.WriteBuffer(block.data(), kParts) != 0 ? 1 : 0;
        }
    });
    std::thread observer([&] {
        while (!done.load()) {
            const std::size_t fill = ring.AvailableRead();
            wrong += fill % kParts == 0 && fill < ring.MaxCapacity() ? 0 : 1;
            // Indices are looked at one by one, so only their bounds hold.
            wrong += ring.ReadIndex() < 1024 && ring.WriteIndex() < 1024 ? 0 : 1;
            wrong += ring.Capacity() <= 1024 ? 0 : 1;
        }
    });
    for (std::uint64_t number = 1; number <= kBlocks;) {
        Block block{};
        number += ring.ReadBuffer(nullptr, block.data(), kParts) != 0 ? 1 : 0;
    }
    writer.join();
    done = true;
    observer.join();
    EXPECT_EQ(wrong.load(), 0U);
}

}  // namespace
}  // namespace korva_audio_utils
