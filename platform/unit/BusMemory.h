#pragma once

#include <cstddef>

#include "common/AlignedBytes.h"
#include "format/PCMFormat.h"

namespace tqplatform {

/// The buffers of a list as an array of mNumberBuffers entries.
[[nodiscard]] inline AudioBuffer* buffersOf(AudioBufferList& list) noexcept {
    return list.mBuffers;
}
[[nodiscard]] inline const AudioBuffer* buffersOf(const AudioBufferList& list) noexcept {
    return list.mBuffers;
}

/// Owns a buffer list and memory for the frames of one bus in the bus's format.
class BusMemory {
  public:
    BusMemory(const PCMFormat& format, UInt32 maximumFrames);

    /// [render thread] [real-time safe] The list with room for `frames`, silent; without data its
    /// sizes are the same but its pointers are null, and a source points them at memory of
    /// its own.
    [[nodiscard]] AudioBufferList& prepare(UInt32 frames, bool withData) noexcept;
    /// [render thread] [real-time safe] Points those buffers of a caller's list that have no data
    /// at this memory.
    void lend(AudioBufferList& list, UInt32 frames) noexcept;
    [[nodiscard]] const PCMFormat& format() const noexcept { return format_; }

  private:
    [[nodiscard]] std::byte* plane(UInt32 index) const noexcept {
        return data_.data() + static_cast<std::size_t>(index) * planeBytes_;
    }

    PCMFormat format_;
    std::size_t planeBytes_;
    tqcommon::AlignedBytes data_;
    tqcommon::AlignedBytes listBytes_;
    AudioBufferList* list_;  ///< lies in listBytes_
};

/// Whether two descriptions say the same about samples in memory and about the rate.
[[nodiscard]] bool sameFormat(const PCMFormat& a, const PCMFormat& b) noexcept;

/// [any thread] [real-time safe] How many frames of `format` all buffers of the list hold, at most
/// `frames`.
[[nodiscard]] UInt32 framesIn(const AudioBufferList& list, const PCMFormat& format,
                              UInt32 frames) noexcept;

/// [any thread] [real-time safe] Silences the data of every buffer.
void silence(AudioBufferList& list, const PCMFormat& format) noexcept;

}  // namespace tqplatform
