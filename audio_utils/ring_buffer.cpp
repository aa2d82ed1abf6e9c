#include "ring_buffer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace korva_audio_utils {

void RingBuffer::StorageDelete::operator()(std::byte* bytes) const noexcept {
    ::operator delete[](bytes, std::align_val_t{kStorageAlignment});
}

RingBuffer::Storage RingBuffer::Allocate(std::size_t capacity, std::size_t elementSize) {
    constexpr auto kLargest = static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max());
    if (capacity > kLargest / elementSize || capacity > kIndexMask) {
        return nullptr;
    }
    const std::size_t bytes = capacity * elementSize;
    Storage storage(static_cast<std::byte*>(
        ::operator new[](bytes, std::align_val_t{kStorageAlignment}, std::nothrow)));
    if (storage) {
        std::memset(storage.get(), 0, bytes);
    }
    return storage;
}

int RingBuffer::Init(std::size_t capacity, std::size_t elementSize, std::size_t maxCapacity) {
    if (capacity == 0 || elementSize == 0) {
        return -1;
    }
    Storage storage = Allocate(capacity, elementSize);
    if (!storage) {
        return -1;
    }
    storage_ = std::move(storage);
    elementSize_ = elementSize;
    maxCapacity_ = std::max(capacity, maxCapacity);
    capacity_.store(capacity, std::memory_order_release);
    epoch_.store(0, std::memory_order_release);
    read_.store(0, std::memory_order_release);
    write_.store(0, std::memory_order_release);
    readSeen_ = 0;
    writeSeen_ = 0;
    return 0;
}

void RingBuffer::CopyIn(std::size_t write, const void* data, std::size_t count,
                        std::size_t capacity) {
    const auto* source = static_cast<const std::byte*>(data);
    const std::size_t head = std::min(count, capacity - write);
    const std::size_t headBytes = head * elementSize_;
    std::memcpy(At(write), source, headBytes);
    if (head < count) {
        std::memcpy(storage_.get(), source + headBytes, (count - head) * elementSize_);
    }
}

RingBuffer::Indices RingBuffer::Look(std::memory_order orderOfWrite) const noexcept {
    const std::size_t write = write_.load(orderOfWrite);
    return Together(read_.load(std::memory_order_acquire), write);
}

// The write index is the writer's own. Acquiring the read index orders the reader's last copy
// before this thread's next one.
RingBuffer::Indices RingBuffer::LookAsWriter() noexcept {
    readSeen_ = read_.load(std::memory_order_acquire);
    return Together(readSeen_, write_.load(std::memory_order_relaxed));
}

std::size_t RingBuffer::WriteBuffer(const void* data, std::size_t count) {
    if (!storage_ || data == nullptr || count == 0) {
        return 0;
    }
    const bool isCleaned = (readSeen_ & kEpochBit) != epoch_.load(std::memory_order_acquire);
    Indices at =
        isCleaned ? LookAsWriter() : Together(readSeen_, write_.load(std::memory_order_relaxed));
    if (AvailableWrite(at.read, at.write) < count) {
        at = LookAsWriter();
        if (AvailableWrite(at.read, at.write) < count) {
            if (MaxAvailableWrite(at.read, at.write) < count || !ExpandBuffer(count)) {
                return 0;
            }
            at = LookAsWriter();
        }
    }
    const std::size_t capacity = capacity_.load(std::memory_order_relaxed);
    CopyIn(at.write, data, count, capacity);
    const std::size_t tail = capacity - at.write;
    const std::size_t next = tail <= count ? count - tail : at.write + count;
    if (next == at.read) {
        vanished_ += capacity;
    }
    // Publishes the block. When a clean has begun a new epoch meanwhile, this index is of the old
    // one and the whole block is dropped.
    write_.store(next | at.epoch, std::memory_order_release);
    return count;
}

std::size_t RingBuffer::ReadBuffer(void** outPtr, void* dst, std::size_t count) {
    const CopyMutex::ForCopy lock(mutex_);
    if (dst == nullptr) {
        return 0;
    }
    const std::size_t read = read_.load(std::memory_order_relaxed);
    Indices at = Together(read, writeSeen_);
    if (AvailableRead(at.read, at.write) < count) {
        writeSeen_ = write_.load(std::memory_order_acquire);
        at = Together(read, writeSeen_);
        if (AvailableRead(at.read, at.write) < count) {
            return 0;
        }
    }
    const std::size_t capacity = capacity_.load(std::memory_order_relaxed);
    const std::size_t tail = capacity - at.read;
    if (tail < count) {
        std::memcpy(dst, At(at.read), tail * elementSize_);
        std::memcpy(static_cast<std::byte*>(dst) + tail * elementSize_, storage_.get(),
                    (count - tail) * elementSize_);
        if (outPtr != nullptr) {
            *outPtr = dst;
        }
    } else if (outPtr != nullptr) {
        *outPtr = count == 0 ? nullptr : At(at.read);
    } else if (count != 0) {
        std::memcpy(dst, At(at.read), count * elementSize_);
    }
    const std::size_t next = at.read + count;
    read_.store((next >= capacity ? next - capacity : next) | at.epoch, std::memory_order_release);
    return count;
}

std::size_t RingBuffer::AvailableRead(std::size_t read, std::size_t write) const noexcept {
    return write >= read ? write - read : write - read + Capacity();
}

std::size_t RingBuffer::AvailableWrite(std::size_t read, std::size_t write) const noexcept {
    return read > write ? read - write - 1 : read - write - 1 + Capacity();
}

std::size_t RingBuffer::MaxAvailableWrite(std::size_t read, std::size_t write) const noexcept {
    return AvailableWrite(read, write) + (maxCapacity_ - Capacity());
}

std::size_t RingBuffer::MoveReadPtr(std::size_t read, std::size_t write,
                                    std::size_t count) const noexcept {
    const std::size_t next = read + std::min(count, AvailableRead(read, write));
    const std::size_t capacity = Capacity();
    return next >= capacity ? next - capacity : next;
}

int RingBuffer::GetMode(std::size_t read, std::size_t write) const noexcept {
    return read > write ? 1 : 0;
}

std::size_t RingBuffer::AvailableRead() const {
    const CopyMutex::ForCopy lock(mutex_);
    const Indices at = Look(std::memory_order_acquire);
    return AvailableRead(at.read, at.write);
}

std::size_t RingBuffer::GetBufferReadRegions(std::size_t count, std::size_t read, void** first,
                                             std::size_t* firstBytes, void** second,
                                             std::size_t* secondBytes) {
    const std::size_t tail = Capacity() - read;
    const bool wraps = tail < count;
    const auto store = [](auto* target, auto value) {
        if (target != nullptr) {
            *target = value;
        }
    };
    store(first, static_cast<void*>(storage_ ? At(read) : nullptr));
    store(firstBytes, (wraps ? tail : count) * elementSize_);
    store(second, static_cast<void*>(wraps ? storage_.get() : nullptr));
    store(secondBytes, wraps ? (count - tail) * elementSize_ : 0);
    return count;
}

bool RingBuffer::IsReadBufferOverride(std::size_t a, std::size_t b, std::size_t c,
                                      std::size_t d) noexcept {
    if (a == c) {
        return false;
    }
    const bool either = c > b || a < d;
    if (a < c) {
        return b > d ? either : (c > b && a < d);
    }
    return b > d || either;
}

bool RingBuffer::ExpandBuffer(std::size_t count) {
    const CopyMutex::ForLong lock(mutex_);
    const std::size_t capacity = capacity_.load(std::memory_order_relaxed);
    if (capacity >= maxCapacity_) {
        return false;
    }
    const auto [read, write, epoch] = Look(std::memory_order_relaxed);
    const std::size_t used = AvailableRead(read, write);
    if (count > maxCapacity_ - used) {
        return false;
    }
    const std::size_t need = used + count;
    std::size_t grown = capacity;
    do {
        grown = grown > maxCapacity_ / 2 ? maxCapacity_ : grown * 2;
    } while (grown < need);

    Storage storage = Allocate(grown, elementSize_);
    if (!storage) {
        return false;
    }
    if (write < read) {
        const std::size_t tailBytes = (capacity - read) * elementSize_;
        std::memcpy(storage.get(), At(read), tailBytes);
        std::memcpy(storage.get() + tailBytes, storage_.get(), write * elementSize_);
        read_.store(epoch, std::memory_order_release);
        write_.store(used | epoch, std::memory_order_release);
    } else {
        std::memcpy(storage.get(), storage_.get(), capacity * elementSize_);
    }
    storage_ = std::move(storage);
    capacity_.store(grown, std::memory_order_release);
    // What the sides saw of each other was of the old storage: readers look again.
    readSeen_ = read_.load(std::memory_order_relaxed);
    writeSeen_ = readSeen_;
    return true;
}

void RingBuffer::CleanBufferOnWrite() {
    const CopyMutex::ForLong lock(mutex_);
    const std::size_t read = read_.load(std::memory_order_relaxed);
    // Nothing was written since the last clean: the ring is empty already. Keeping the epoch here
    // keeps the write index at most one epoch behind, so one bit is enough to tell epochs apart.
    if (IsCurrent(read, write_.load(std::memory_order_acquire))) {
        const std::size_t next = (read & kEpochBit) ^ kEpochBit;
        read_.store(next, std::memory_order_release);
        epoch_.store(next, std::memory_order_release);
        // A write index seen before would be of this epoch again after a second clean.
        writeSeen_ = next;
    }
}

}  // namespace korva_audio_utils
