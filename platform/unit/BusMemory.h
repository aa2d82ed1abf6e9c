#pragma once

#include <cstddef>
#include <memory>
#include <new>

#include "format/PCMFormat.h"

namespace tqplatform {

/// The buffers of a list as an array of mNumberBuffers entries.
[[nodiscard]] inline AudioBuffer* buffersOf(AudioBufferList& list) noexcept {
    return list.mBuffers;
}
[[nodiscard]] inline const AudioBuffer* buffersOf(const AudioBufferList& list) noexcept {
    return list.mBuffers;
}

/// Bytes that start on a cache line.
class AlignedBytes {
  public:
    explicit AlignedBytes(std::size_t size)
        : bytes_(static_cast<std::byte*>(::operator new(size, alignment))) {}
    [[nodiscard]] std::byte* data() const noexcept { return bytes_.get(); }

  private:
    static constexpr std::align_val_t alignment{64};
    struct Free {
        void operator()(std::byte* bytes) const noexcept { ::operator delete(bytes, alignment); }
    };
    std::unique_ptr<std::byte, Free> bytes_;
};

/// A buffer list with memory of its own for the frames of one bus in the bus's format.
class BusMemory {
  public:
    BusMemory(const PCMFormat& format, UInt32 maximumFrames);

    /// [real-time safe] The list with room for `frames`, zeroed; without data it has null pointers
    /// of the right sizes, for whoever has memory of his own.
    [[nodiscard]] AudioBufferList& prepare(UInt32 frames, bool withData) noexcept;
    /// [real-time safe] Points the buffers of somebody else's list that have none at this memory.
    void lend(AudioBufferList& list, UInt32 frames) noexcept;
    [[nodiscard]] const PCMFormat& format() const noexcept { return format_; }

  private:
    [[nodiscard]] std::byte* plane(UInt32 index) const noexcept {
        return data_.data() + static_cast<std::size_t>(index) * planeBytes_;
    }

    PCMFormat format_;
    std::size_t planeBytes_;
    AlignedBytes data_;
    AlignedBytes listBytes_;
    AudioBufferList* list_;  ///< lies in listBytes_
};

/// Whether two descriptions say the same about samples in memory and about the rate.
[[nodiscard]] bool sameFormat(const PCMFormat& a, const PCMFormat& b) noexcept;

/// [real-time safe] How many frames of `format` all buffers of the list hold, at most `frames`.
[[nodiscard]] UInt32 framesIn(const AudioBufferList& list, const PCMFormat& format,
                              UInt32 frames) noexcept;

/// [real-time safe] Zeroes the data of every buffer.
void silence(AudioBufferList& list) noexcept;

}  // namespace tqplatform
