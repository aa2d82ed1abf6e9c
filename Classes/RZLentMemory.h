#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>

#include "common/RealTime.h"

/// Memory of the library's that a render callback puts into the platform's buffer list. The
/// platform reads it behind the callback, when its owner may have gone: so it is kept for a second
/// longer than that.
class RZLentMemory {
  public:
    RZLentMemory();
    ~RZLentMemory();
    RZLentMemory(const RZLentMemory&) = delete;
    RZLentMemory& operator=(const RZLentMemory&) = delete;

    /// [render thread] Allocates only for more than ever before. At least `bytes` of memory, null
    /// when there is none left.
    [[nodiscard]] std::byte* atLeast(std::size_t bytes);

  private:
    struct Block;
    class Kept;

    std::unique_ptr<Block> block_;
};

/// The memory that the platform gave for a block before the host rendered it. What is there in its
/// place afterwards is the host's own.
class RZGivenMemory {
  public:
    /// As many as a bus has channels at most.
    static constexpr UInt32 kMostBuffers = 64;

    /// [render thread] Real-time safe. Null for a list without buffers.
    void note(const AudioBufferList* list) noexcept TQ_NONBLOCKING {
        isNoted_ = true;
        count_ = list == nullptr ? 0 : std::min(list->mNumberBuffers, kMostBuffers);
        for (UInt32 i = 0; i < count_; ++i) {
            data_[i] = list->mBuffers[i].mData;
        }
    }
    /// [render thread] Real-time safe. Whether that buffer lies where it lay; so does everything
    /// while nothing was noted.
    [[nodiscard]] bool has(UInt32 index, const AudioBuffer& buffer) const noexcept TQ_NONBLOCKING {
        return !isNoted_ || (index < count_ && data_[index] == buffer.mData);
    }

  private:
    bool isNoted_ = false;
    UInt32 count_ = 0;
    std::array<const void*, kMostBuffers> data_{};
};
