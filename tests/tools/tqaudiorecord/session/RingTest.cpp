#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <limits>
#include <random>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ipc/SharedMemory.h"
#include "ipc/TapSettings.h"

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

struct Shared : testing::Test {
    int descriptor = -1;
    void TearDown() override { close(descriptor); }
};

TEST_F(Shared, MemoryIsSeenOnBothSides) {
    auto made = SharedMapping::make(100000, descriptor);
    ASSERT_TRUE(made);
    auto mapped = SharedMapping::map(descriptor);
    ASSERT_TRUE(mapped);
    EXPECT_TRUE(made->writer(RingId::kLog).push({.kind = RecordKind::kLog}, {}));
    RingReader reader = mapped->reader(RingId::kLog);
    RecordHeader header;
    std::span<const std::byte> payload;
    EXPECT_EQ(reader.next(header, payload), Found::kRecord);
    made->page().facts.unitsCreated = 3;
    EXPECT_EQ(mapped->page().facts.unitsCreated.load(), 3U);
}

TEST_F(Shared, MemoryOutlivesWhoMadeIt) {
    auto made = SharedMapping::make(100000, descriptor);
    ASSERT_TRUE(made);
    auto mapped = SharedMapping::map(descriptor);
    ASSERT_TRUE(mapped);
    EXPECT_TRUE(made->writer(RingId::kSound).push({.kind = RecordKind::kMix}, {}));
    made.reset();
    RingReader reader = mapped->reader(RingId::kSound);
    RecordHeader header;
    std::span<const std::byte> payload;
    EXPECT_EQ(reader.next(header, payload), Found::kRecord);
}

TEST_F(Shared, MemoryCannotBeCutShort) {
    ASSERT_TRUE(SharedMapping::make(100000, descriptor));
    EXPECT_NE(ftruncate(descriptor, 4096), 0);
}

TEST_F(Shared, MemoryThatCouldBeCutShortIsRefused) {
    descriptor = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    ASSERT_EQ(ftruncate(descriptor, 1 << 20), 0);
    EXPECT_FALSE(SharedMapping::map(descriptor));
    EXPECT_FALSE(SharedMapping::map(-1));
}

TEST_F(Shared, ALayoutThatReachesOutsideIsRefused) {
    auto made = SharedMapping::make(100000, descriptor);
    ASSERT_TRUE(made);
    SharedPage& page = made->page();
    const auto refusedWith = [&](std::uint64_t& field, std::uint64_t value) {
        const std::uint64_t before = std::exchange(field, value);
        const bool refused = !SharedMapping::map(descriptor);
        field = before;
        return refused;
    };
    EXPECT_TRUE(refusedWith(page.ringOffset[1], page.totalBytes));
    EXPECT_TRUE(refusedWith(page.ringOffset[1], 4));
    EXPECT_TRUE(refusedWith(page.ringOffset[0], std::numeric_limits<std::uint64_t>::max() - 7));
    EXPECT_TRUE(refusedWith(page.ringBytes[0], 0));
    EXPECT_TRUE(refusedWith(page.ringBytes[2], page.totalBytes));
    EXPECT_TRUE(refusedWith(page.totalBytes, page.totalBytes * 2));
    EXPECT_TRUE(refusedWith(page.magic, 1));
    EXPECT_TRUE(SharedMapping::map(descriptor));
}

TEST(TapSettings, TravelAsText) {
    TapSettings settings;
    settings.task = TapSettings::Task::kGuardArm;
    settings.socket = "name";
    settings.recorder = 4711;
    settings.soundBytes = 123456789012;
    settings.armGuard = true;
    settings.duckDecibels = -7.5F;
    const auto read = settingsFromText(toText(settings));
    ASSERT_TRUE(read);
    EXPECT_EQ(toText(*read), toText(settings));
    EXPECT_EQ(read->soundBytes, settings.soundBytes);
    EXPECT_EQ(read->duckDecibels, -7.5F);
}

TEST(TapSettings, ThatMakeNoSenseAreNone) {
    const std::string good = toText(TapSettings{.socket = "name"});
    EXPECT_TRUE(settingsFromText(good));
    EXPECT_FALSE(settingsFromText(""));
    EXPECT_FALSE(settingsFromText("tq1 name 9 1"));
    EXPECT_FALSE(settingsFromText(good.substr(0, good.size() / 2)));
    EXPECT_FALSE(settingsFromText("tq2" + good.substr(3)));
}

}  // namespace
