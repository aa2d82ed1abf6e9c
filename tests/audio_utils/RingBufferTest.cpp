#include "ring_buffer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

// Absurd sizes are answered by a null pointer under the sanitizers too.
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace korva_audio_utils {
namespace {

constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();

std::vector<std::uint32_t> Count(std::size_t count, std::uint32_t first = 1) {
    std::vector<std::uint32_t> values(count);
    std::iota(values.begin(), values.end(), first);
    return values;
}

class RingBufferTest : public testing::Test {
  protected:
    /// A ring of 32-bit elements whose indices stand at start, empty.
    void Open(std::size_t capacity, std::size_t ceiling, std::size_t start = 0) {
        ASSERT_EQ(ring_.Init(capacity, sizeof(std::uint32_t), ceiling), 0);
        for (std::size_t k = 0; k < start; ++k) {
            Write(Count(1));
            Read(1);
        }
        ASSERT_EQ(ring_.ReadIndex(), start);
        ASSERT_EQ(ring_.WriteIndex(), start);
    }
    std::size_t Write(const std::vector<std::uint32_t>& values) {
        return ring_.WriteBuffer(values.data(), values.size());
    }
    std::vector<std::uint32_t> Read(std::size_t count) {
        std::vector<std::uint32_t> values(count);
        EXPECT_EQ(ring_.ReadBuffer(nullptr, values.data(), count), count);
        return values;
    }
    void ExpectIndices(std::size_t read, std::size_t write) {
        EXPECT_EQ(ring_.ReadIndex(), read);
        EXPECT_EQ(ring_.WriteIndex(), write);
    }

    RingBuffer ring_;
};

TEST_F(RingBufferTest, DefaultConstructedRingHasNoStorageAndAllZeroFields) {
    ExpectIndices(0, 0);
    EXPECT_EQ(ring_.Capacity(), 0U);
    EXPECT_EQ(ring_.MaxCapacity(), 0U);
    EXPECT_EQ(ring_.ElementSize(), 0U);
    EXPECT_EQ(ring_.AvailableRead(), 0U);
}

TEST_F(RingBufferTest, WithoutStorageNothingIsWrittenReadOrGrown) {
    std::uint32_t value = 7;
    EXPECT_EQ(ring_.WriteBuffer(&value, 1), 0U);
    EXPECT_EQ(ring_.ReadBuffer(nullptr, &value, 1), 0U);
    EXPECT_FALSE(ring_.ExpandBuffer(1));
    ring_.CleanBufferOnWrite();
    EXPECT_EQ(value, 7U);
    ExpectIndices(0, 0);
}

TEST_F(RingBufferTest, InitRefusesZeroCapacityAndChangesNothing) {
    Open(4, 8, 2);
    EXPECT_EQ(ring_.Init(0, 4, 8), -1);
    EXPECT_EQ(ring_.Capacity(), 4U);
    ExpectIndices(2, 2);
}

TEST_F(RingBufferTest, InitRefusesZeroElementSizeAndChangesNothing) {
    Open(4, 8, 2);
    EXPECT_EQ(ring_.Init(16, 0, 32), -1);
    EXPECT_EQ(ring_.Capacity(), 4U);
    EXPECT_EQ(ring_.MaxCapacity(), 8U);
    EXPECT_EQ(ring_.ElementSize(), 4U);
    ExpectIndices(2, 2);
}

TEST_F(RingBufferTest, InitRefusesSizesWhoseProductOverflows) {
    Open(4, 8);
    EXPECT_EQ(ring_.Init(kHuge / 2, 4, kHuge), -1);
    EXPECT_EQ(ring_.Init(kHuge, kHuge, kHuge), -1);
    EXPECT_EQ(ring_.Init(kHuge, 1, kHuge), -1);
    EXPECT_EQ(ring_.Capacity(), 4U);
    EXPECT_EQ(Write(Count(3)), 3U);
}

TEST_F(RingBufferTest, InitRefusesStorageThatCannotBeAllocated) {
    Open(4, 8);
    EXPECT_EQ(ring_.Init(std::size_t{1} << 61U, 1, 0), -1);
    EXPECT_EQ(ring_.Capacity(), 4U);
}

TEST_F(RingBufferTest, CeilingBelowCapacityBecomesTheCapacity) {
    Open(4, 1);
    EXPECT_EQ(ring_.MaxCapacity(), 4U);
    EXPECT_EQ(Write(Count(4)), 0U);
    EXPECT_FALSE(ring_.ExpandBuffer(1));
    EXPECT_EQ(ring_.Capacity(), 4U);
}

TEST_F(RingBufferTest, InitAgainEmptiesTheRingAndZeroesItsStorage) {
    Open(4, 8);
    Write(Count(3));
    Read(2);
    ASSERT_EQ(ring_.Init(3, 2, 5), 0);
    ExpectIndices(0, 0);
    EXPECT_EQ(ring_.Capacity(), 3U);
    EXPECT_EQ(ring_.MaxCapacity(), 5U);
    EXPECT_EQ(ring_.ElementSize(), 2U);
    void* first = nullptr;
    ring_.GetBufferReadRegions(3, 0, &first, nullptr, nullptr, nullptr);
    for (std::size_t k = 0; k < 6; ++k) {
        EXPECT_EQ(static_cast<unsigned char*>(first)[k], 0);
    }
}

TEST_F(RingBufferTest, StorageStartsOnACacheLine) {
    Open(5, 40);
    for (int grown = 0; grown < 2; ++grown) {
        void* first = nullptr;
        ring_.GetBufferReadRegions(1, 0, &first, nullptr, nullptr, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(first) % 64, 0U);
        ASSERT_EQ(ring_.ExpandBuffer(6), grown == 0);
        ring_.Init(40, 4, 40);
    }
}

TEST_F(RingBufferTest, FreshRingTakesAllButOneSlotWithoutGrowing) {
    Open(4, 8);
    EXPECT_EQ(Write(Count(3)), 3U);
    EXPECT_EQ(ring_.Capacity(), 4U);
    EXPECT_EQ(Read(3), Count(3));
}

TEST_F(RingBufferTest, WriteOfWholeCapacityGrowsBecauseOneSlotStaysFree) {
    Open(4, 16);
    EXPECT_EQ(Write(Count(4)), 4U);
    EXPECT_EQ(ring_.Capacity(), 8U);
    EXPECT_EQ(Read(4), Count(4));
}

TEST_F(RingBufferTest, WriteThatFillsTheGrownCapacityExactlyReadsAsEmpty) {
    Open(4, 16);
    EXPECT_EQ(Write(Count(8)), 8U);
    EXPECT_EQ(ring_.Capacity(), 8U);
    ExpectIndices(0, 0);
    EXPECT_EQ(ring_.AvailableRead(ring_.ReadIndex(), ring_.WriteIndex()), 0U);
    EXPECT_EQ(ring_.AvailableRead(), 0U);
}

TEST_F(RingBufferTest, WriteOfTheWholeCeilingIsRefusedBecauseOneSlotStaysFreeThereToo) {
    Open(4, 8);
    EXPECT_EQ(Write(Count(8)), 0U);
    EXPECT_EQ(ring_.Capacity(), 4U);
    ExpectIndices(0, 0);
    EXPECT_EQ(Write(Count(7)), 7U);
    EXPECT_EQ(ring_.Capacity(), 8U);
    EXPECT_EQ(ring_.AvailableRead(), 7U);
}

TEST_F(RingBufferTest, WriteBeyondTheCeilingIsRefusedWhole) {
    Open(4, 8);
    Write(Count(2));
    EXPECT_EQ(Write(Count(6, 50)), 0U);
    EXPECT_EQ(ring_.Capacity(), 4U);
    ExpectIndices(0, 2);
    EXPECT_EQ(Read(2), Count(2));
}

TEST_F(RingBufferTest, AbsurdWriteCountIsRefused) {
    Open(4, kHuge);
    const std::uint32_t value = 1;
    EXPECT_EQ(ring_.WriteBuffer(&value, kHuge / 2), 0U);
    EXPECT_EQ(ring_.WriteBuffer(&value, kHuge), 0U);
    EXPECT_EQ(ring_.Capacity(), 4U);
    ExpectIndices(0, 0);
}

TEST_F(RingBufferTest, WriteOfNullDataOrOfNothingWritesNothing) {
    Open(4, 8, 1);
    const std::uint32_t value = 1;
    EXPECT_EQ(ring_.WriteBuffer(nullptr, 2), 0U);
    EXPECT_EQ(ring_.WriteBuffer(&value, 0), 0U);
    EXPECT_EQ(ring_.WriteBuffer(nullptr, 0), 0U);
    ExpectIndices(1, 1);
}

TEST_F(RingBufferTest, WriteUpToTheEndOfStorageWrapsTheIndexToZero) {
    Open(4, 4, 2);
    EXPECT_EQ(Write(Count(2)), 2U);
    ExpectIndices(2, 0);
    EXPECT_EQ(Read(2), Count(2));
    ExpectIndices(0, 0);
}

TEST_F(RingBufferTest, WriteAcrossTheEndOfStorageIsReadBackInOrder) {
    Open(4, 4, 3);
    EXPECT_EQ(Write(Count(3)), 3U);
    ExpectIndices(3, 2);
    EXPECT_EQ(ring_.AvailableRead(), 3U);
    EXPECT_EQ(Read(3), Count(3));
    ExpectIndices(2, 2);
}

TEST_F(RingBufferTest, ReadBeyondWhatIsThereConsumesNothing) {
    Open(8, 8);
    Write(Count(3));
    std::array<std::uint32_t, 4> target{9, 9, 9, 9};
    EXPECT_EQ(ring_.ReadBuffer(nullptr, target.data(), 4), 0U);
    EXPECT_EQ(target, (std::array<std::uint32_t, 4>{9, 9, 9, 9}));
    ExpectIndices(0, 3);
    EXPECT_EQ(ring_.ReadBuffer(nullptr, target.data(), kHuge), 0U);
    ExpectIndices(0, 3);
}

TEST_F(RingBufferTest, ReadIntoNullReturnsZeroEvenWithAnOutPointer) {
    Open(8, 8);
    Write(Count(3));
    void* out = &ring_;
    EXPECT_EQ(ring_.ReadBuffer(nullptr, nullptr, 2), 0U);
    EXPECT_EQ(ring_.ReadBuffer(&out, nullptr, 2), 0U);
    EXPECT_EQ(out, &ring_);
    ExpectIndices(0, 3);
}

TEST_F(RingBufferTest, ZeroCopyReadOfOneRunPointsIntoTheRingAndConsumes) {
    Open(8, 8, 2);
    Write(Count(4));
    std::array<std::uint32_t, 3> target{9, 9, 9};
    void* out = nullptr;
    void* first = nullptr;
    ring_.GetBufferReadRegions(3, 2, &first, nullptr, nullptr, nullptr);
    EXPECT_EQ(ring_.ReadBuffer(&out, target.data(), 3), 3U);
    EXPECT_EQ(out, first);
    EXPECT_EQ(static_cast<std::uint32_t*>(out)[2], 3U);
    EXPECT_EQ(target, (std::array<std::uint32_t, 3>{9, 9, 9}));
    ExpectIndices(5, 6);
}

TEST_F(RingBufferTest, ZeroCopyReadOfAWrappedRunIsCopiedToTheDestination) {
    Open(4, 4, 3);
    Write(Count(3));
    std::array<std::uint32_t, 3> target{};
    void* out = nullptr;
    EXPECT_EQ(ring_.ReadBuffer(&out, target.data(), 3), 3U);
    EXPECT_EQ(out, target.data());
    EXPECT_EQ(target, (std::array<std::uint32_t, 3>{1, 2, 3}));
    ExpectIndices(2, 2);
}

TEST_F(RingBufferTest, ZeroCopyReadThatEndsAtTheEndOfStorageStaysInTheRing) {
    Open(4, 4, 2);
    Write(Count(3));
    std::array<std::uint32_t, 2> target{};
    void* out = nullptr;
    EXPECT_EQ(ring_.ReadBuffer(&out, target.data(), 2), 2U);
    EXPECT_NE(out, target.data());
    EXPECT_EQ(static_cast<std::uint32_t*>(out)[1], 2U);
    ExpectIndices(0, 1);
}

TEST_F(RingBufferTest, ZeroCopyReadOfNothingGivesNull) {
    Open(4, 4);
    Write(Count(1));
    std::uint32_t target = 9;
    void* out = &target;
    EXPECT_EQ(ring_.ReadBuffer(&out, &target, 0), 0U);
    EXPECT_EQ(out, nullptr);
    ExpectIndices(0, 1);
}

TEST_F(RingBufferTest, AvailableReadCountsAcrossTheWrap) {
    Open(8, 16);
    EXPECT_EQ(ring_.AvailableRead(2, 2), 0U);
    EXPECT_EQ(ring_.AvailableRead(2, 7), 5U);
    EXPECT_EQ(ring_.AvailableRead(7, 2), 3U);
    EXPECT_EQ(ring_.AvailableRead(1, 0), 7U);
}

TEST_F(RingBufferTest, AvailableWriteLeavesOneSlotFree) {
    Open(8, 16);
    EXPECT_EQ(ring_.AvailableWrite(0, 0), 7U);
    EXPECT_EQ(ring_.AvailableWrite(2, 7), 2U);
    EXPECT_EQ(ring_.AvailableWrite(7, 2), 4U);
    EXPECT_EQ(ring_.AvailableWrite(3, 2), 0U);
}

TEST_F(RingBufferTest, MaxAvailableWriteAddsTheRoomUpToTheCeiling) {
    Open(8, 20);
    EXPECT_EQ(ring_.MaxAvailableWrite(0, 0), 19U);
    EXPECT_EQ(ring_.MaxAvailableWrite(3, 2), 12U);
}

TEST_F(RingBufferTest, MoveReadPtrAdvancesByWhatIsReadableAtMostAndStoresNothing) {
    Open(8, 8);
    EXPECT_EQ(ring_.MoveReadPtr(1, 5, 2), 3U);
    EXPECT_EQ(ring_.MoveReadPtr(1, 5, 100), 5U);
    EXPECT_EQ(ring_.MoveReadPtr(6, 3, 2), 0U);
    EXPECT_EQ(ring_.MoveReadPtr(6, 3, 4), 2U);
    EXPECT_EQ(ring_.MoveReadPtr(6, 3, kHuge), 3U);
    ExpectIndices(0, 0);
}

TEST_F(RingBufferTest, ModeTellsWrappedDataFromOneRun) {
    Open(8, 8);
    EXPECT_EQ(ring_.GetMode(3, 3), 0);
    EXPECT_EQ(ring_.GetMode(2, 3), 0);
    EXPECT_EQ(ring_.GetMode(3, 2), 1);
}

TEST_F(RingBufferTest, ReadRegionsOfOneRunHaveNoSecondRegion) {
    Open(8, 8);
    void* start = nullptr;
    void* second = &ring_;
    std::size_t firstBytes = 0;
    std::size_t secondBytes = 99;
    ring_.GetBufferReadRegions(1, 0, &start, nullptr, nullptr, nullptr);
    void* first = nullptr;
    EXPECT_EQ(ring_.GetBufferReadRegions(3, 2, &first, &firstBytes, &second, &secondBytes), 3U);
    EXPECT_EQ(first, static_cast<std::byte*>(start) + 8);
    EXPECT_EQ(firstBytes, 12U);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(secondBytes, 0U);
}

TEST_F(RingBufferTest, ReadRegionsEndingAtTheEndOfStorageHaveNoSecondRegion) {
    Open(8, 8);
    void* first = nullptr;
    void* second = &ring_;
    std::size_t firstBytes = 0;
    std::size_t secondBytes = 99;
    EXPECT_EQ(ring_.GetBufferReadRegions(3, 5, &first, &firstBytes, &second, &secondBytes), 3U);
    EXPECT_EQ(firstBytes, 12U);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(secondBytes, 0U);
}

TEST_F(RingBufferTest, ReadRegionsAcrossTheEndContinueAtTheStart) {
    Open(8, 8);
    void* start = nullptr;
    void* first = nullptr;
    void* second = nullptr;
    std::size_t firstBytes = 0;
    std::size_t secondBytes = 0;
    ring_.GetBufferReadRegions(1, 0, &start, nullptr, nullptr, nullptr);
    EXPECT_EQ(ring_.GetBufferReadRegions(5, 6, &first, &firstBytes, &second, &secondBytes), 5U);
    EXPECT_EQ(first, static_cast<std::byte*>(start) + 24);
    EXPECT_EQ(firstBytes, 8U);
    EXPECT_EQ(second, start);
    EXPECT_EQ(secondBytes, 12U);
    ExpectIndices(0, 0);
}

TEST_F(RingBufferTest, ReadRegionsOfARingWithoutStorageAreNull) {
    void* first = &ring_;
    EXPECT_EQ(ring_.GetBufferReadRegions(0, 0, &first, nullptr, nullptr, nullptr), 0U);
    EXPECT_EQ(first, nullptr);
}

TEST_F(RingBufferTest, OverrideIsFalseForEqualStarts) {
    EXPECT_FALSE(RingBuffer::IsReadBufferOverride(4, 9, 4, 0));
}

TEST_F(RingBufferTest, OverrideWithAnEarlierFirstStart) {
    // a < c, b > d: either condition is enough.
    EXPECT_TRUE(RingBuffer::IsReadBufferOverride(1, 5, 6, 0));
    EXPECT_TRUE(RingBuffer::IsReadBufferOverride(1, 5, 3, 2));
    EXPECT_FALSE(RingBuffer::IsReadBufferOverride(1, 5, 3, 1));
    // a < c, b <= d: both are needed.
    EXPECT_TRUE(RingBuffer::IsReadBufferOverride(1, 2, 3, 4));
    EXPECT_FALSE(RingBuffer::IsReadBufferOverride(1, 3, 3, 4));
    EXPECT_FALSE(RingBuffer::IsReadBufferOverride(1, 0, 3, 1));
    EXPECT_FALSE(RingBuffer::IsReadBufferOverride(5, 3, 6, 3)) << "b == d counts as not above";
}

TEST_F(RingBufferTest, OverrideWithALaterFirstStart) {
    EXPECT_TRUE(RingBuffer::IsReadBufferOverride(5, 4, 3, 2));
    EXPECT_TRUE(RingBuffer::IsReadBufferOverride(5, 2, 3, 3));
    EXPECT_TRUE(RingBuffer::IsReadBufferOverride(5, 4, 3, 6));
    EXPECT_FALSE(RingBuffer::IsReadBufferOverride(5, 4, 3, 4));
}

TEST_F(RingBufferTest, ExpandOfAWrappedRingCompactsTheDataToTheStart) {
    Open(4, 8, 3);
    Write(Count(3));
    EXPECT_TRUE(ring_.ExpandBuffer(2));
    EXPECT_EQ(ring_.Capacity(), 8U);
    ExpectIndices(0, 3);
    EXPECT_EQ(Read(3), Count(3));
}

TEST_F(RingBufferTest, ExpandOfOneRunKeepsTheIndices) {
    Open(8, 16, 2);
    Write(Count(4));
    EXPECT_TRUE(ring_.ExpandBuffer(5));
    EXPECT_EQ(ring_.Capacity(), 16U);
    ExpectIndices(2, 6);
    EXPECT_EQ(Read(4), Count(4));
}

TEST_F(RingBufferTest, ExpandDoublesUntilTheElementsFit) {
    Open(4, 100);
    EXPECT_TRUE(ring_.ExpandBuffer(20));
    EXPECT_EQ(ring_.Capacity(), 32U);
}

TEST_F(RingBufferTest, ExpandStopsAtUsedPlusCountWithoutTheFreeSlot) {
    Open(4, 64);
    Write(Count(2));
    EXPECT_TRUE(ring_.ExpandBuffer(6));
    EXPECT_EQ(ring_.Capacity(), 8U);
}

TEST_F(RingBufferTest, ExpandDoublesAtLeastOnce) {
    Open(4, 64);
    EXPECT_TRUE(ring_.ExpandBuffer(0));
    EXPECT_EQ(ring_.Capacity(), 8U);
}

TEST_F(RingBufferTest, ExpandIsClampedToACeilingThatIsNoPowerOfTwo) {
    Open(4, 11);
    EXPECT_TRUE(ring_.ExpandBuffer(9));
    EXPECT_EQ(ring_.Capacity(), 11U);
    EXPECT_FALSE(ring_.ExpandBuffer(1));
}

TEST_F(RingBufferTest, ExpandFailsAndChangesNothingWhenTheCeilingIsTooLow) {
    Open(4, 8);
    Write(Count(2));
    EXPECT_FALSE(ring_.ExpandBuffer(7));
    EXPECT_FALSE(ring_.ExpandBuffer(kHuge));
    EXPECT_EQ(ring_.Capacity(), 4U);
    ExpectIndices(0, 2);
    EXPECT_EQ(Read(2), Count(2));
}

TEST_F(RingBufferTest, ExpandFailsAndChangesNothingWhenMemoryCannotBeHad) {
    Open(4, kHuge);
    Write(Count(2));
    EXPECT_FALSE(ring_.ExpandBuffer(std::size_t{1} << 59U));
    EXPECT_FALSE(ring_.ExpandBuffer(kHuge - 2));
    EXPECT_EQ(ring_.Capacity(), 4U);
    EXPECT_EQ(Read(2), Count(2));
}

TEST_F(RingBufferTest, ExpandZeroesTheNewStorage) {
    Open(2, 8);
    Write(Count(1));
    ASSERT_TRUE(ring_.ExpandBuffer(6));
    void* first = nullptr;
    ring_.GetBufferReadRegions(8, 0, &first, nullptr, nullptr, nullptr);
    const auto* values = static_cast<const std::uint32_t*>(first);
    EXPECT_EQ(values[0], 1U);
    for (std::size_t k = 1; k < 8; ++k) {
        EXPECT_EQ(values[k], 0U);
    }
}

TEST_F(RingBufferTest, CleanEmptiesTheRingAndKeepsTheGrownCapacity) {
    Open(4, 16);
    Write(Count(10));
    ASSERT_EQ(ring_.Capacity(), 16U);
    ring_.CleanBufferOnWrite();
    EXPECT_EQ(ring_.Capacity(), 16U);
    ExpectIndices(0, 0);
    EXPECT_EQ(ring_.AvailableRead(), 0U);
    EXPECT_EQ(Write(Count(15)), 15U);
    EXPECT_EQ(Read(15), Count(15));
}

TEST_F(RingBufferTest, CapacityOneNeverHoldsAnythingAtItsCeiling) {
    Open(1, 1);
    EXPECT_EQ(Write(Count(1)), 0U);
    std::uint32_t target = 9;
    EXPECT_EQ(ring_.ReadBuffer(nullptr, &target, 1), 0U);
}

TEST_F(RingBufferTest, ByteElementsOfACaptureBusGrowFromEightToFourHundredKilobytes) {
    ASSERT_EQ(ring_.Init(8192, 1, 409600), 0);
    const std::string block(8192, 'x');
    std::size_t taken = 0;
    while (ring_.WriteBuffer(block.data(), block.size()) != 0) {
        taken += block.size();
    }
    EXPECT_EQ(ring_.Capacity(), 409600U);
    // Fifty blocks would fill every slot.
    EXPECT_EQ(taken, 409600U - 8192U);
    EXPECT_EQ(ring_.AvailableRead(), 409600U - 8192U);
}

}  // namespace
}  // namespace korva_audio_utils
