#pragma once

#include <atomic>
#include <cstddef>
#include <limits>
#include <memory>
#include <mutex>

namespace korva_audio_utils {

/// A growable first-in first-out queue of elements of one size, between one writer thread and one
/// reader thread. It starts small and doubles up to a ceiling; a block that would not fit even at
/// the ceiling is refused whole, and a read takes all that it asks for or nothing.
///
/// One slot is kept free, so equal indices mean an empty ring.
///
/// Threads: "writer" is the one thread that calls WriteBuffer and ExpandBuffer, "reader" any
/// thread that calls ReadBuffer. The write index is published with release ordering after the
/// elements behind it are in place, the read index after they have been copied out. All counts
/// are in elements unless a name says bytes.
///
/// Each index belongs to one side alone, so that publishing one is a plain store even while another
/// thread cleans the ring. A clean cannot touch the write index then; it begins a new epoch in the
/// read index instead. A write index of another epoch counts as 0, and the writer joins the new
/// epoch with its next block.
class RingBuffer {
  public:
    RingBuffer() = default;
    ~RingBuffer() = default;
    RingBuffer(const RingBuffer&) = delete;
    RingBuffer& operator=(const RingBuffer&) = delete;

    /// [before the ring is shared] Allocates zeroed storage and empties the ring; storage of an
    /// earlier Init is freed. The ceiling is the larger of capacity and maxCapacity. Returns 0, or
    /// -1 with nothing changed when capacity or elementSize is 0 or the storage cannot be had.
    int Init(std::size_t capacity, std::size_t elementSize, std::size_t maxCapacity);

    /// [writer] [real-time safe while the block fits] Appends count elements and returns count;
    /// returns 0 with nothing written when there is no storage, no data or no room even at the
    /// ceiling. Takes no lock unless the ring has to grow. When a CleanBufferOnWrite of another
    /// thread falls into the call, the ring holds the whole block afterwards or nothing of it.
    ///
    /// Growth stops at the first capacity that is at least used + count, without the free slot:
    /// a block that fills that capacity exactly leaves an empty-looking ring.
    std::size_t WriteBuffer(const void* data, std::size_t count);

    /// [reader] [takes the ring's mutex] Removes count elements and returns count; returns 0 and
    /// consumes nothing when dst is null or fewer are there. With outPtr null the elements are
    /// copied to dst. With outPtr given they are copied only if they wrap (*outPtr is then dst);
    /// otherwise *outPtr points into the ring, valid until a write reaches that place or grows the
    /// ring, and is null for a count of 0.
    std::size_t ReadBuffer(void** outPtr, void* dst, std::size_t count);

    /// [any thread] [real-time safe] Pure computations over two indices and the capacity.
    std::size_t AvailableRead(std::size_t read, std::size_t write) const noexcept;
    std::size_t AvailableWrite(std::size_t read, std::size_t write) const noexcept;
    /// What could be written if the ring grew to its ceiling.
    std::size_t MaxAvailableWrite(std::size_t read, std::size_t write) const noexcept;
    /// The read index advanced by min(count, readable), wrapped once. Stores nothing.
    std::size_t MoveReadPtr(std::size_t read, std::size_t write, std::size_t count) const noexcept;
    /// 1 when the readable elements wrap around the end of the storage, else 0.
    int GetMode(std::size_t read, std::size_t write) const noexcept;

    /// [any thread] [takes the ring's mutex] The elements readable now: one consistent look, which
    /// the two-index form cannot give while another thread grows or cleans the ring.
    std::size_t AvailableRead() const;

    /// [reader] Describes in at most two regions where count elements from read on lie; copies and
    /// consumes nothing, does not check that they are readable. Returns count. A null out-pointer
    /// is not filled.
    std::size_t GetBufferReadRegions(std::size_t count, std::size_t read, void** first,
                                     std::size_t* firstBytes, void** second,
                                     std::size_t* secondBytes);

    /// Whether the region of index pair (a, b) has been overrun by that of (c, d).
    static bool IsReadBufferOverride(std::size_t a, std::size_t b, std::size_t c,
                                     std::size_t d) noexcept;

    /// [writer] [allocates, takes the ring's mutex] Doubles the capacity until count more elements
    /// fit or the ceiling is reached. False with nothing changed when they do not fit at the
    /// ceiling, when the ring is at its ceiling already, or when the storage cannot be had.
    bool ExpandBuffer(std::size_t count);

    /// [any thread] [takes the ring's mutex] Drops the content; storage and capacity stay.
    void CleanBufferOnWrite();

    /// [any thread] [real-time safe] Looks at the fields; each is consistent in itself.
    std::size_t ReadIndex() const noexcept { return Look(std::memory_order_acquire).read; }
    std::size_t WriteIndex() const noexcept { return Look(std::memory_order_acquire).write; }
    std::size_t Capacity() const noexcept { return capacity_.load(std::memory_order_acquire); }
    std::size_t MaxCapacity() const noexcept { return maxCapacity_; }
    std::size_t ElementSize() const noexcept { return elementSize_; }

  private:
    static constexpr std::size_t kCacheLine = 64;
    /// So that copies start aligned.
    static constexpr std::size_t kStorageAlignment = kCacheLine;
    /// About as many lines as a core can have under way; more gain nothing.
    static constexpr std::size_t kPrefetchBytes = 32 * kCacheLine;
    struct StorageDelete {
        void operator()(std::byte* bytes) const noexcept;
    };
    using Storage = std::unique_ptr<std::byte[], StorageDelete>;

    /// Which epoch an index belongs to stands in its highest bit.
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
    Indices Look(std::memory_order orderOfWrite) const noexcept;

    static Storage Allocate(std::size_t capacity, std::size_t elementSize);
    std::byte* At(std::size_t index) const noexcept {
        return storage_.get() + index * elementSize_;
    }
    void CopyIn(std::size_t write, const void* data, std::size_t count, std::size_t capacity);

    // Cache lines of their own: what no side changes while the ring is large enough, the writer's
    // index, the reader's, the reader's lock.
    alignas(kCacheLine) std::atomic<std::size_t> capacity_{0};
    std::size_t elementSize_ = 0;
    std::size_t maxCapacity_ = 0;
    Storage storage_;
    alignas(kCacheLine) std::atomic<std::size_t> write_{0};
    alignas(kCacheLine) std::atomic<std::size_t> read_{0};
    alignas(kCacheLine) mutable std::mutex mutex_;
};

}  // namespace korva_audio_utils
