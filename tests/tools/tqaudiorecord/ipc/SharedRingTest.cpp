#include "ipc/SharedRing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <limits>
#include <random>
#include <span>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace tqrecorder;

using Found = RingReader::Found;

struct Ring : testing::Test {
    RingState state;
    std::vector<std::byte> memory = std::vector<std::byte>(4096);
    RingWriter writer{state, memory};
    RingReader reader{state, memory};

    static std::vector<std::byte> bytesOf(std::size_t count, std::uint64_t seed) {
        std::vector<std::byte> bytes(count);
        for (std::size_t i = 0; i < count; ++i) {
            bytes[i] = static_cast<std::byte>((seed * 31 + i * 7) & 255U);
        }
        return bytes;
    }
    bool push(std::size_t count, std::uint64_t number) const {
        RecordHeader header;
        header.kind = RecordKind::kEvent;
        header.code = number;
        const std::vector<std::byte> bytes = bytesOf(count, number);
        const std::array<RingWriter::Bytes, 2> parts{std::span(bytes).first(count / 2),
                                                     std::span(bytes).subspan(count / 2)};
        return writer.push(header, parts);
    }
    /// One record that must be the numbered one.
    void expectNext(std::size_t count, std::uint64_t number) {
        RecordHeader header;
        std::span<const std::byte> payload;
        ASSERT_EQ(reader.next(header, payload), Found::kRecord);
        EXPECT_EQ(header.code, number);
        EXPECT_EQ(std::vector<std::byte>(payload.begin(), payload.end()), bytesOf(count, number));
    }
    Found next() {
        RecordHeader header;
        std::span<const std::byte> payload;
        return reader.next(header, payload);
    }
    RecordHeader firstHeader() const {
        RecordHeader header;
        std::memcpy(&header, memory.data(), sizeof header);
        return header;
    }
    void setFirstHeader(const RecordHeader& header) {
        std::memcpy(memory.data(), &header, sizeof header);
    }
};

TEST_F(Ring, GivesBackWhatWasPutInInOrder) {
    EXPECT_EQ(next(), Found::kNothing);
    EXPECT_TRUE(push(100, 1));
    EXPECT_TRUE(push(0, 2));
    EXPECT_TRUE(push(333, 3));
    EXPECT_GT(reader.fill(), 0.1);
    expectNext(100, 1);
    expectNext(0, 2);
    expectNext(333, 3);
    EXPECT_EQ(next(), Found::kNothing);
    EXPECT_EQ(reader.fill(), 0);
}

TEST_F(Ring, GoesAroundItsEndAtEveryLength) {
    std::minstd_rand random(7);
    for (std::uint64_t number = 0; number < 5000; ++number) {
        const std::size_t count = random() % 1500;
        ASSERT_TRUE(push(count, number));
        expectNext(count, number);
        if (HasFailure()) {
            return;
        }
    }
}

TEST_F(Ring, CountsWhatFindsNoRoomAndKeepsWhatIsThere) {
    std::uint64_t kept = 0;
    while (push(500, kept)) {
        ++kept;
    }
    EXPECT_FALSE(push(500, 99));
    EXPECT_EQ(reader.takeLostRecords(), 2U);
    EXPECT_EQ(reader.takeLostBytes(), 1000U);
    EXPECT_EQ(reader.takeLostRecords(), 0U);
    for (std::uint64_t number = 0; number < kept; ++number) {
        expectNext(500, number);
    }
    EXPECT_EQ(next(), Found::kNothing);
    EXPECT_TRUE(push(500, 100));
    expectNext(500, 100);
}

TEST_F(Ring, CountsNothingOfWhatIsTriedAgain) {
    while (push(500, 0)) {
    }
    ASSERT_EQ(reader.takeLostRecords(), 1U);
    ASSERT_EQ(reader.takeLostBytes(), 500U);
    RecordHeader header;
    header.kind = RecordKind::kEvent;
    const std::vector<std::byte> bytes = bytesOf(500, 1);
    const std::array<RingWriter::Bytes, 1> parts{bytes};
    EXPECT_FALSE(writer.tryPush(header, parts));
    EXPECT_EQ(reader.takeLostRecords(), 0U);
    EXPECT_EQ(reader.takeLostBytes(), 0U);
    while (next() == Found::kRecord) {
    }
    EXPECT_TRUE(writer.tryPush(header, parts));
    EXPECT_EQ(next(), Found::kRecord);
}

TEST_F(Ring, UsesWhatMemoryThereIsAgainAndAgain) {
    state.usable = 2000;
    for (std::uint64_t number = 0; number < 100; ++number) {
        const std::size_t count = 300 + number % 7 * 50;
        ASSERT_TRUE(push(count, number)) << number;
        expectNext(count, number);
    }
    EXPECT_FALSE(push(2000, 100)) << "there is not that much";
    EXPECT_EQ(std::count(memory.begin() + 2000, memory.end(), std::byte{0}), 2096);
}

TEST_F(Ring, RefusesARecordThatNeverFits) {
    EXPECT_FALSE(push(5000, 1));
    EXPECT_EQ(reader.takeLostRecords(), 1U);
    EXPECT_EQ(next(), Found::kNothing);
}

TEST_F(Ring, IsReadWhileItIsWritten) {
    constexpr std::uint64_t kRecords = 20000;
    std::atomic<std::uint64_t> accepted{0};
    std::thread producer([&] {
        for (std::uint64_t number = 0; accepted.load() < kRecords;) {
            if (push(number % 700, number)) {
                ++number;
                accepted.store(number);
            } else {
                std::this_thread::yield();
            }
        }
    });
    RecordHeader header;
    std::span<const std::byte> payload;
    for (std::uint64_t expected = 0; expected < kRecords;) {
        const Found found = reader.next(header, payload);
        if (found != Found::kRecord) {
            ASSERT_EQ(found, Found::kNothing);
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(header.code, expected);
        ASSERT_TRUE(std::ranges::equal(payload, bytesOf(expected % 700, expected)));
        ++expected;
    }
    producer.join();
}

TEST_F(Ring, LosesNothingUncountedBetweenTwoWritersAtOnce) {
    constexpr int kEach = 5000;
    std::atomic<int> accepted{0};
    std::atomic<int> running{2};
    const auto write = [&] {
        for (int i = 0; i < kEach; ++i) {
            accepted += push(40, 1) ? 1 : 0;
        }
        --running;
    };
    std::thread one(write);
    std::thread other(write);
    int read = 0;
    for (bool isLast = false;;) {
        const Found found = next();
        ASSERT_NE(found, Found::kCorrupt);
        if (found == Found::kRecord) {
            ++read;
        } else if (isLast) {
            break;
        } else {
            isLast = running.load() == 0;
            std::this_thread::yield();
        }
    }
    one.join();
    other.join();
    EXPECT_EQ(read, accepted.load());
    EXPECT_EQ(reader.takeLostRecords(), static_cast<std::uint64_t>(2 * kEach - read));
}

TEST_F(Ring, RefusesARecordThatReachesBeyondWhatWasWritten) {
    push(100, 1);
    RecordHeader header = firstHeader();
    header.bytes += 8;
    setFirstHeader(header);
    EXPECT_EQ(next(), Found::kCorrupt);
    EXPECT_EQ(next(), Found::kCorrupt) << "and stays so";
}

TEST_F(Ring, RefusesALengthThatIsNone) {
    for (const std::uint32_t bytes : {0U, 4U, 9U, 16U, 0xFFFFFFF8U}) {
        reader = RingReader(state, memory);
        state.written = 0;
        push(100, 1);
        RecordHeader header = firstHeader();
        header.bytes = bytes;
        setFirstHeader(header);
        EXPECT_EQ(next(), Found::kCorrupt) << bytes;
        state.read = 0;
    }
}

TEST_F(Ring, RefusesAPayloadThatIsLongerThanItsRecord) {
    push(100, 1);
    RecordHeader header = firstHeader();
    header.payloadBytes = 200;
    setFirstHeader(header);
    EXPECT_EQ(next(), Found::kCorrupt);
}

TEST_F(Ring, RefusesKindsThatThereAreNot) {
    push(100, 1);
    RecordHeader header = firstHeader();
    header.kind = static_cast<RecordKind>(77);
    setFirstHeader(header);
    EXPECT_EQ(next(), Found::kCorrupt);
}

TEST_F(Ring, RefusesASkipThatIsNotAtTheEnd) {
    push(100, 1);
    RecordHeader header = firstHeader();
    header.kind = RecordKind::kSkip;
    setFirstHeader(header);
    EXPECT_EQ(next(), Found::kCorrupt);
}

TEST_F(Ring, RefusesPlacesThatCannotBe) {
    for (const std::uint64_t written :
         {std::uint64_t{4}, std::uint64_t{4104}, std::numeric_limits<std::uint64_t>::max()}) {
        reader = RingReader(state, memory);
        state.written = written;
        EXPECT_EQ(next(), Found::kCorrupt) << written;
    }
}

TEST_F(Ring, SurvivesAnyBytesAtAll) {
    std::minstd_rand random(11);
    for (int round = 0; round < 3000; ++round) {
        for (std::byte& byte : memory) {
            byte = static_cast<std::byte>(random());
        }
        // Half of the time lengths that could be.
        for (std::size_t i = 0; i < memory.size() && round % 2 == 0; i += 8) {
            const auto bytes = static_cast<std::uint32_t>(random() % 600 * 8);
            std::memcpy(memory.data() + i, &bytes, sizeof bytes);
        }
        state.written = random() % 513 * 8;
        reader = RingReader(state, memory);
        Found found = Found::kRecord;
        for (int i = 0; i < 600 && found == Found::kRecord; ++i) {
            found = next();
        }
        EXPECT_NE(found, Found::kRecord);
    }
}

}  // namespace
