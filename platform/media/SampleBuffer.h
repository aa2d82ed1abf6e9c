#pragma once

#include <CoreMedia/CMSampleBuffer.h>

#include <cstddef>
#include <optional>
#include <vector>

#include "foundation/CFObject.h"
#include "media/BlockBuffer.h"
#include "media/FormatDescription.h"

namespace tqplatform {

/// How linear PCM lies in an AudioBufferList and, buffer after buffer, in a block buffer.
struct PCMShape {
    UInt32 buffers;            ///< 1, or the number of channels when they are not interleaved
    UInt32 channelsPerBuffer;  ///< interleaved in one buffer
    UInt32 bytesPerFrame;      ///< in one buffer
};

/// What the creator of a sample buffer said of it.
struct SampleBufferContents {
    CFReference dataBuffer;
    bool dataReady = false;
    CMSampleBufferMakeDataReadyCallback makeDataReady = nullptr;
    void* makeDataReadyRefcon = nullptr;
    CFReference format;
    CMItemCount samples = 0;
    std::vector<CMSampleTimingInfo> timing;  ///< none, one for all, or one a sample
    std::vector<std::size_t> sizes;          ///< likewise
};

class SampleBuffer : public CFObject {
  public:
    static constexpr CFKind kKind = CFKind::sampleBuffer;

    explicit SampleBuffer(SampleBufferContents contents)
        : CFObject(kKind), contents_(std::move(contents)) {}

    [[nodiscard]] const SampleBufferContents& contents() const noexcept { return contents_; }

    [[nodiscard]] const FormatDescription* format() const noexcept {
        return findObject<FormatDescription>(contents_.format.get());
    }
    [[nodiscard]] const BlockBuffer* dataBuffer() const noexcept {
        return findObject<BlockBuffer>(contents_.dataBuffer.get());
    }
    /// Nothing unless the format is linear PCM with channels and with whole bytes in a frame.
    [[nodiscard]] std::optional<PCMShape> pcmShape() const noexcept;

    void attachData(CFReference dataBuffer) noexcept {
        contents_.dataBuffer = std::move(dataBuffer);
        contents_.dataReady = true;
    }
    void markDataReady() noexcept { contents_.dataReady = true; }

  private:
    SampleBufferContents contents_;
};

}  // namespace tqplatform
