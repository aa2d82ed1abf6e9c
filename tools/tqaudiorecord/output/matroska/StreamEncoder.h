#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "core/Records.h"
#include "output/files/FileFormats.h"
#include "output/matroska/MatroskaWriter.h"

namespace tqrecorder {

/// A piece of a coded stream.
struct CodedPacket {
    std::int64_t frame = 0;  ///< its first, at the codec's rate, with what the decoder cuts
    std::uint32_t frames = 0;
    std::uint32_t discarded = 0;  ///< frames at its end that are none of the stream's
    std::vector<std::byte> bytes;
};

/// Codes one stream. [one host thread at a time]
class StreamEncoder {
  public:
    /// Where the codec does not take the format, samples as they are. Null, with a reason in
    /// `error`, for a format that a file cannot hold at all.
    [[nodiscard]] static std::unique_ptr<StreamEncoder> create(MatroskaCoding coding,
                                                               const BlockFormat& format,
                                                               std::string& error);
    virtual ~StreamEncoder() = default;

    [[nodiscard]] virtual const MatroskaCodec& codec() const = 0;
    /// Whole frames in the stream's format.
    virtual void encode(std::span<const std::byte> frames) = 0;
    /// What is still inside, at the end of the stream.
    virtual void flush() = 0;
    /// Those that are ready, in order.
    [[nodiscard]] virtual std::vector<CodedPacket> takePackets() = 0;
    /// False after a fault of the codec.
    [[nodiscard]] virtual bool isGood() const { return true; }
};

/// Through libavcodec. Null where it has no such codec or that does not take the format.
[[nodiscard]] std::unique_ptr<StreamEncoder> makeLibavEncoder(MatroskaCoding coding,
                                                              const BlockFormat& format);

}  // namespace tqrecorder
