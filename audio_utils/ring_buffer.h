#pragma once

#include <atomic>
#include <cstddef>
#include <limits>
#include <memory>
#include <utility>

#include "copy_mutex.h"

namespace korva_audio_utils {

/// A growable first-in first-out queue of elements of one size, between one writer thread and one
/// reader thread. It starts small and doubles up to a ceiling; a block that would not fit even at
/// the ceiling is refused whole, and a read takes all that it asks for or nothing.
///
/// Threads: the writer is the one thread at a time that calls WriteBuffer and ExpandBuffer, a
/// reader is any thread that calls ReadBuffer; readers exclude each other with the ring's mutex.
/// Both sides are render threads. All counts are in elements unless a name says bytes.
///
/// Lock-free between writer and readers:
/// - Invariant: the elements from the read index up to the write index are complete, the others
///   belong to the writer. One slot is kept free, so equal indices mean an empty ring.
/// - The write index is stored by the writer only, with release order, and publishes the elements
///   copied in before it. Readers load it with acquire order.
/// - The read index is stored under the mutex only, with release order, and gives back the elements
///   copied out before it. The writer loads it with acquire order.
/// - Each side keeps the other's index as it saw it last and looks again only when that leaves too
///   little room or too few elements, so that an index does not cross between cores with every
///   block. What was seen can only understate.
/// - A clean runs on any thread, so it must not store the write index. It stores the read
///   index with the other epoch instead, and then that epoch by itself, with release order, for the
///   writer to look at: a write index of another epoch counts as 0, and the writer takes the new
///   epoch over with its next block.
/// - Storage and capacity change under the mutex, on the writer's thread, so neither side sees a
///   change during a copy.
class RingBuffer {
  public:
    RingBuffer() = default;
    ~RingBuffer() = default;
    RingBuffer(const RingBuffer&) = delete;
    RingBuffer& operator=(const RingBuffer&) = delete;

    /// [any thread, one at a time] Before any other call. Allocates zeroed storage and empties the
    /// ring; storage of an earlier Init is freed. The ceiling is the larger of capacity and
    /// maxCapacity. Returns 0, or -1 with nothing changed when capacity or elementSize is 0 or the
    /// storage cannot be had.
    int Init(std::size_t capacity, std::size_t elementSize, std::size_t maxCapacity);

    /// [render thread] Writer only. Real-time safe while the ring need not grow: no lock, no
    /// allocation. Appends count elements and returns count; returns 0 with nothing written when
    /// there is no storage, no data or no room even at the ceiling. When a CleanBufferOnWrite of
    /// another thread falls into the call, the ring holds the whole block afterwards or nothing of
    /// it.
    ///
    /// Growth stops at the first capacity that is at least used + count, without the free slot:
    /// a block that fills that capacity exactly leaves an empty-looking ring.
    std::size_t WriteBuffer(const void* data, std::size_t count);

    /// [render thread] Writer only. Real-time safe. How many elements blocks of that kind have
    /// taken with them since the last call.
    std::size_t TakeVanished() noexcept { return std::exchange(vanished_, 0); }

    /// [render thread] Takes the ring's mutex. Removes count elements and returns count; returns 0
    /// and consumes nothing when dst is null or fewer are there. With outPtr null the elements are
    /// copied to dst. With outPtr given they are copied only if they wrap (*outPtr is then dst);
    /// otherwise *outPtr points into the ring, valid until a write reaches that place or grows the
    /// ring, and is null for a count of 0.
    std::size_t ReadBuffer(void** outPtr, void* dst, std::size_t count);

    /// [any thread] Real-time safe. Pure computations over two indices and the capacity.
    std::size_t AvailableRead(std::size_t read, std::size_t write) const noexcept;
    std::size_t AvailableWrite(std::size_t read, std::size_t write) const noexcept;
    /// What could be written if the ring grew to its ceiling.
    std::size_t MaxAvailableWrite(std::size_t read, std::size_t write) const noexcept;
    /// The read index advanced by min(count, readable), wrapped once. Stores nothing.
    std::size_t MoveReadPtr(std::size_t read, std::size_t write, std::size_t count) const noexcept;
    /// 1 when the readable elements wrap around the end of the storage, else 0.
    int GetMode(std::size_t read, std::size_t write) const noexcept;

    /// [any thread] Takes the ring's mutex. The elements readable now: one consistent look, which
    /// the two-index form cannot give while another thread grows or cleans the ring.
    std::size_t AvailableRead() const;

    /// [render thread] Reader only. Real-time safe. Describes in at most two regions where count
    /// elements from read on lie; copies and consumes nothing, does not check that they are
    /// readable. Returns count. A null out-pointer is not filled.
    std::size_t GetBufferReadRegions(std::size_t count, std::size_t read, void** first,
                                     std::size_t* firstBytes, void** second,
                                     std::size_t* secondBytes);

    /// [any thread] Real-time safe. Whether the region of index pair (a, b) has been overrun by
    /// that of (c, d).
    static bool IsReadBufferOverride(std::size_t a, std::size_t b, std::size_t c,
                                     std::size_t d) noexcept;

    /// [render thread] Writer only. Allocates, and holds the ring's mutex for long. Doubles the
    /// capacity until count more elements fit or the ceiling is reached. False with nothing changed
    /// when they do not fit at the ceiling, when the ring is at its ceiling already, or when the
    /// storage cannot be had.
    bool ExpandBuffer(std::size_t count);

    /// [any thread] Holds the ring's mutex for long. Drops the content; storage and capacity stay.
    void CleanBufferOnWrite();

    /// [any thread] Real-time safe. Looks at the fields; each is consistent in itself.
    std::size_t ReadIndex() const noexcept { return Look(std::memory_order_acquire).read; }
    std::size_t WriteIndex() const noexcept { return Look(std::memory_order_acquire).write; }
    std::size_t Capacity() const noexcept { return capacity_.load(std::memory_order_acquire); }
    std::size_t MaxCapacity() const noexcept { return maxCapacity_; }
    std::size_t ElementSize() const noexcept { return elementSize_; }

  private:
    static constexpr std::size_t kCacheLine = 64;
    /// So that copies start aligned.
    static constexpr std::size_t kStorageAlignment = kCacheLine;
    struct StorageDelete {
        void operator()(std::byte* bytes) const noexcept;
    };
    using Storage = std::unique_ptr<std::byte[], StorageDelete>;

    /// The highest bit of an index names its epoch.
    static constexpr std::size_t kIndexMask = std::numeric_limits<std::size_t>::max() >> 1;
    static constexpr std::size_t kEpochBit = kIndexMask + 1;
    struct Indices {
        std::size_t read;
        std::size_t write;
        std::size_t epoch;
    };
    static bool IsCurrent(std::size_t read, std::size_t write) noexcept {
        return ((read ^ write) & kEpochBit) == 0;
    }
    static Indices Together(std::size_t read, std::size_t write) noexcept {
        return {read & kIndexMask, IsCurrent(read, write) ? write & kIndexMask : 0,
                read & kEpochBit};
    }
    Indices Look(std::memory_order orderOfWrite) const noexcept;
    Indices LookAsWriter() noexcept;

    static Storage Allocate(std::size_t capacity, std::size_t elementSize);
    std::byte* At(std::size_t index) const noexcept {
        return storage_.get() + index * elementSize_;
    }
    void CopyIn(std::size_t write, const void* data, std::size_t count, std::size_t capacity);

    // Three cache lines, so that a store of one side does not take a line from the other: what no
    // side changes while the ring is large enough, the writer's, the readers'.
    alignas(kCacheLine) std::atomic<std::size_t> capacity_{0};
    std::atomic<std::size_t> epoch_{0};
    std::size_t elementSize_ = 0;
    std::size_t maxCapacity_ = 0;
    Storage storage_;
    alignas(kCacheLine) std::atomic<std::size_t> write_{0};
    std::size_t readSeen_ = 0;
    std::size_t vanished_ = 0;  ///< the writer's own
    alignas(kCacheLine) std::atomic<std::size_t> read_{0};
    std::size_t writeSeen_ = 0;
    mutable CopyMutex mutex_;
};

}  // namespace korva_audio_utils
