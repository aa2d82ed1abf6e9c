#include "bridges/sdl/ByteQueue.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace tq::bridges {
namespace {

std::string read(ByteQueue& queue, std::size_t count) {
    std::string bytes(count, '?');
    bytes.resize(queue.read(bytes.data(), count));
    return bytes;
}

std::string someBytes(std::size_t count, std::mt19937& random) {
    std::string bytes(count, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

TEST(ByteQueueTest, GivesWhatItHoldsAndNoMore) {
    ByteQueue queue;
    EXPECT_EQ(queue.size(), 0U);
    EXPECT_EQ(read(queue, 4), "");
    ASSERT_TRUE(queue.write("sound", 5));
    EXPECT_EQ(queue.size(), 5U);
    EXPECT_EQ(read(queue, 2), "so");
    EXPECT_EQ(read(queue, 9), "und");
    EXPECT_EQ(queue.size(), 0U);
}

TEST(ByteQueueTest, PiecesOfAnySizeComeOutInOrder) {
    std::mt19937 random(7);
    ByteQueue queue;
    std::string written;
    std::string got;
    for (int i = 0; i < 2000; ++i) {
        const std::string piece = someBytes(random() % (i % 50 == 0 ? 70000 : 900), random);
        ASSERT_TRUE(queue.write(piece.data(), piece.size()));
        written += piece;
        got += read(queue, random() % 3000);
        ASSERT_EQ(queue.size(), written.size() - got.size());
    }
    got += read(queue, queue.size());
    EXPECT_TRUE(got == written);
}

TEST(ByteQueueTest, AfterItWasClearedOnlyWhatFollowsComesOut) {
    std::mt19937 random(7);
    ByteQueue queue;
    const std::string before = someBytes(100000, random);
    ASSERT_TRUE(queue.write(before.data(), before.size()));
    EXPECT_EQ(read(queue, 30000), before.substr(0, 30000));
    queue.clear();
    EXPECT_EQ(queue.size(), 0U);
    EXPECT_EQ(read(queue, 10), "");
    ASSERT_TRUE(queue.write("behind", 6));
    EXPECT_EQ(read(queue, 10), "behind");
}

TEST(ByteQueueTest, MinutesOfSoundFindRoomAndGoWithoutATrace) {
    const std::string second(48000 * 8, 'x');
    ByteQueue queue;
    for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(queue.write(second.data(), second.size()));
    }
    EXPECT_EQ(queue.size(), 300 * second.size());
    queue.clear();
    EXPECT_EQ(queue.size(), 0U);
}

}  // namespace
}  // namespace tq::bridges
