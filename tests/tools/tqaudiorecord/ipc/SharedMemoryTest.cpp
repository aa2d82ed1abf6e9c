#include "ipc/SharedMemory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace tqrecorder;

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
    EXPECT_EQ(reader.next(header, payload), RingReader::Found::kRecord);
    made->page().facts.unitsCreated = 3;
    EXPECT_EQ(mapped->page().facts.unitsCreated.load(), 3U);
}

TEST_F(Shared, SoundIsTakenAsMemoryIsPopulatedAndNoneOfItSkipped) {
    constexpr std::size_t kRecord = std::size_t{1} << 20U;
    auto made = SharedMapping::make(8 * kRecord, descriptor);
    ASSERT_TRUE(made);
    const std::vector<std::byte> sound(kRecord - sizeof(RecordHeader));
    const RingWriter::Bytes part(sound);
    const RingWriter writer = made->writer(RingId::kSound);
    const auto push = [&] { return writer.push({.kind = RecordKind::kMix}, {&part, 1}); };
    EXPECT_TRUE(push());
    EXPECT_TRUE(push());
    EXPECT_FALSE(push()) << "that memory is not there yet";
    EXPECT_TRUE(made->writer(RingId::kLog).push({.kind = RecordKind::kLog}, {}));
    int pieces = 1;
    while (made->populateMore()) {
        ++pieces;
    }
    EXPECT_EQ(pieces, 38) << "quarters of a MiB";
    for (int record = 2; record < 8; ++record) {
        EXPECT_TRUE(push()) << record;
    }
    EXPECT_FALSE(push()) << "it is full";
    RingReader reader = made->reader(RingId::kSound);
    RecordHeader header;
    std::span<const std::byte> payload;
    for (int record = 0; record < 8; ++record) {
        ASSERT_EQ(reader.next(header, payload), RingReader::Found::kRecord);
        EXPECT_EQ(header.bytes, kRecord);
    }
    EXPECT_TRUE(push()) << "round again";
}

/// For this thread alone a kernel older than 5.14, which does not know how to populate memory.
bool becomeOldKernel() {
    std::array<sock_filter, 6> code{{
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 3, SYS_madvise},
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, args[2])},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, MADV_POPULATE_WRITE},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | EINVAL},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    }};
    const sock_fprog filter{static_cast<unsigned short>(code.size()), code.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST_F(Shared, AllOfTheMemoryIsTakenOnAnOldKernelAndNothingInItChanged) {
    constexpr std::size_t kRecord = std::size_t{1} << 20U;
    auto made = SharedMapping::make(8 * kRecord, descriptor);
    ASSERT_TRUE(made);
    const std::vector<std::byte> sound(kRecord - sizeof(RecordHeader), std::byte{5});
    const RingWriter::Bytes part(sound);
    const RingWriter writer = made->writer(RingId::kSound);
    const auto push = [&] { return writer.push({.kind = RecordKind::kMix}, {&part, 1}); };
    EXPECT_TRUE(push());
    EXPECT_TRUE(push());
    std::thread([&] {
        ASSERT_TRUE(becomeOldKernel());
        while (made->populateMore()) {
        }
    }).join();
    for (int record = 2; record < 8; ++record) {
        EXPECT_TRUE(push()) << record;
    }
    struct stat status {};
    ASSERT_EQ(fstat(descriptor, &status), 0);
    EXPECT_GE(status.st_blocks * 512, status.st_size) << "every page is there";
    RingReader reader = made->reader(RingId::kSound);
    RecordHeader header;
    std::span<const std::byte> payload;
    for (int record = 0; record < 8; ++record) {
        ASSERT_EQ(reader.next(header, payload), RingReader::Found::kRecord);
        EXPECT_TRUE(std::equal(payload.begin(), payload.end(), sound.begin(), sound.end()));
    }
}

TEST_F(Shared, LeftOutUnitsAreNotedOnceEachWithAllTheirReasons) {
    auto made = SharedMapping::make(100000, descriptor);
    ASSERT_TRUE(made);
    auto mapped = SharedMapping::map(descriptor);
    ASSERT_TRUE(mapped);
    SharedLeftOut& list = made->page().leftOut;
    list.note(6, "unit-3", 3);
    list.note(8, std::string(200, 'n'), 4);
    list.note(6, "unit-3", 5);
    const SharedLeftOut& seen = mapped->page().leftOut;
    ASSERT_EQ(seen.count.load(), 2U);
    EXPECT_EQ(seen.units[0].number.load(), 6U);
    EXPECT_EQ(seen.units[0].reasons.load(), 1U << 3U | 1U << 5U);
    EXPECT_EQ(seen.units[0].name.load(), "unit-3");
    EXPECT_EQ(seen.units[1].reasons.load(), 1U << 4U);
    EXPECT_EQ(seen.units[1].name.load(), std::string(kLongestName, 'n'));
    EXPECT_EQ(seen.reasonsOfMore.load(), 0U);
    for (std::uint32_t number = 10; number < 10 + SharedLeftOut::kMost; ++number) {
        list.note(number, "one of many", 6);
    }
    EXPECT_EQ(seen.count.load(), SharedLeftOut::kMost);
    EXPECT_EQ(seen.reasonsOfMore.load(), 1U << 6U);
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
    EXPECT_EQ(reader.next(header, payload), RingReader::Found::kRecord);
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

}  // namespace
