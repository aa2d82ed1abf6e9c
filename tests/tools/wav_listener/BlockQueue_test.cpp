#include "wav_listener/BlockQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <thread>

namespace demo {
namespace {

BlockQueue::Bytes bytesOf(const std::vector<std::uint32_t>& words) {
    return std::as_bytes(std::span(words));
}

RecordHeader numbered(std::uint64_t number) {
    RecordHeader header;
    header.microseconds = number;
    return header;
}

TEST(BlockQueue, GivesRecordsBackInOrder) {
    BlockQueue queue(4096);
    for (std::uint32_t number = 0; number < 5; ++number) {
        const std::vector<std::uint32_t> words(number, number);
        ASSERT_TRUE(queue.push(numbered(number), std::array{bytesOf(words)}));
    }
    RecordHeader header;
    std::vector<std::byte> payload;
    for (std::uint32_t number = 0; number < 5; ++number) {
        ASSERT_TRUE(queue.pop(header, payload));
        EXPECT_EQ(header.microseconds, number);
        ASSERT_EQ(payload.size(), number * sizeof(std::uint32_t));
        for (std::size_t index = 0; index < number; ++index) {
            std::uint32_t word = 0;
            std::memcpy(&word, payload.data() + index * sizeof word, sizeof word);
            EXPECT_EQ(word, number);
        }
    }
    EXPECT_FALSE(queue.pop(header, payload));
}

TEST(BlockQueue, JoinsTheBuffersOfABlock) {
    BlockQueue queue(4096);
    const std::vector<std::uint32_t> left{1, 2};
    const std::vector<std::uint32_t> right{3};
    ASSERT_TRUE(queue.push(numbered(0), std::array{bytesOf(left), bytesOf(right)}));
    RecordHeader header;
    std::vector<std::byte> payload;
    ASSERT_TRUE(queue.pop(header, payload));
    std::array<std::uint32_t, 3> words{};
    ASSERT_EQ(payload.size(), sizeof words);
    std::memcpy(words.data(), payload.data(), sizeof words);
    EXPECT_EQ(words, (std::array<std::uint32_t, 3>{1, 2, 3}));
}

TEST(BlockQueue, RefusesWholeRecordsWhenFullAndCountsThem) {
    BlockQueue queue(1024);
    const std::vector<std::uint32_t> words(64, 7);
    std::uint64_t taken = 0;
    while (queue.push(numbered(taken), std::array{bytesOf(words)})) {
        ++taken;
        ASSERT_LT(taken, 100U);
    }
    EXPECT_EQ(taken, 1024 / (sizeof(RecordHeader) + 256));
    EXPECT_EQ(queue.refused(), 1U);
    EXPECT_FALSE(queue.push(numbered(99), std::array{bytesOf(words)}));
    EXPECT_EQ(queue.refused(), 2U);
    RecordHeader header;
    std::vector<std::byte> payload;
    for (std::uint64_t number = 0; number < taken; ++number) {
        ASSERT_TRUE(queue.pop(header, payload));
        EXPECT_EQ(header.microseconds, number);
    }
    EXPECT_FALSE(queue.pop(header, payload));
    EXPECT_TRUE(queue.push(numbered(1), std::array{bytesOf(words)}));
}

TEST(BlockQueue, RefusesARecordLargerThanItself) {
    BlockQueue queue(256);
    const std::vector<std::uint32_t> words(1000);
    EXPECT_FALSE(queue.push(numbered(0), std::array{bytesOf(words)}));
    EXPECT_EQ(queue.refused(), 1U);
}

TEST(BlockQueue, CarriesRecordsAcrossItsEnd) {
    BlockQueue queue(512);
    RecordHeader header;
    std::vector<std::byte> payload;
    for (std::uint32_t round = 0; round < 200; ++round) {
        const std::vector<std::uint32_t> words(round % 50, round);
        ASSERT_TRUE(queue.push(numbered(round), std::array{bytesOf(words)}));
        ASSERT_TRUE(queue.pop(header, payload));
        ASSERT_EQ(header.microseconds, round);
        ASSERT_TRUE(std::ranges::equal(payload, bytesOf(words)));
    }
}

TEST(BlockQueue, KeepsRecordsWholeBetweenTwoThreads) {
    constexpr std::uint32_t kRecords = 20000;
    BlockQueue queue(4096);
    std::thread producer([&queue] {
        for (std::uint32_t number = 1; number <= kRecords; ++number) {
            const std::vector<std::uint32_t> words(number % 40, number);
            while (!queue.push(numbered(number), std::array{bytesOf(words)})) {
                std::this_thread::yield();
            }
        }
    });
    RecordHeader header;
    std::vector<std::byte> payload;
    std::uint32_t expected = 1;
    bool whole = true;
    while (expected <= kRecords) {
        if (!queue.pop(header, payload)) {
            std::this_thread::yield();
            continue;
        }
        const std::vector<std::uint32_t> words(expected % 40, expected);
        whole =
            whole && header.microseconds == expected && std::ranges::equal(payload, bytesOf(words));
        ++expected;
    }
    producer.join();
    EXPECT_TRUE(whole);
}

}  // namespace
}  // namespace demo
