#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/Descriptor.h"
#include "output/matroska/Ebml.h"

namespace tqrecorder {

/// How a stream is coded, as the file states it.
struct MatroskaCodec {
    std::string_view id;           ///< static
    std::vector<std::byte> setup;  ///< what a decoder needs first
    double sampleRate = 0;         ///< Hz
    std::uint32_t channels = 0;
    std::uint32_t bitDepth = 0;            ///< 0 where it has none
    std::uint64_t delayNanoseconds = 0;    ///< that a decoder cuts from the beginning
    std::uint64_t preRollNanoseconds = 0;  ///< that a decoder needs in front of where it begins
};

/// A piece of a stream.
struct MatroskaPacket {
    unsigned stream = 0;
    double seconds = 0;                      ///< of its first frame, since the file's beginning
    double length = 0;                       ///< seconds
    std::uint64_t discardedNanoseconds = 0;  ///< at its end, that a decoder drops
    std::vector<std::byte> bytes;
};

/// Writes a Matroska file whose streams may begin while it is written. In front of the sound there
/// is room for the streams' descriptions; one more is put there in place. What flush() has written
/// is playable whatever becomes of the process: every step leaves a whole file behind it. [one host
/// thread at a time]; waits for the disk.
class MatroskaWriter {
  public:
    /// Into an empty file. See error().
    MatroskaWriter(tqcommon::Descriptor file, std::size_t roomForStreams);

    /// Its number, from 1 on. Nothing where there is no room for it, or after an error.
    [[nodiscard]] std::optional<unsigned> addStream(std::string_view title,
                                                    const MatroskaCodec& codec);
    /// Kept until flush().
    void add(MatroskaPacket packet);
    /// False where the disk does not take it: the file ends before it then.
    bool flush();
    /// Behind the last flush(): what players seek by.
    bool finish();

    /// As errno has it; 0 for none.
    [[nodiscard]] int error() const { return error_; }
    /// The end of all that was written.
    [[nodiscard]] double seconds() const { return seconds_; }
    [[nodiscard]] unsigned streams() const { return streams_; }

    static constexpr unsigned kMostStreams = 126;  ///< as many as one byte counts

  private:
    struct Cue {
        std::uint64_t ticks;
        std::uint64_t position;
    };
    void writeHead(std::size_t roomForStreams);
    void writeDuration();
    [[nodiscard]] std::vector<std::byte> seekHead(std::uint64_t cues) const;
    void takeCluster(std::span<const MatroskaPacket> packets, Ebml& all);
    bool writeAt(std::uint64_t place, std::span<const std::byte> bytes);

    tqcommon::Descriptor file_;
    std::uint64_t segment_ = 0;  // where its content begins, from which positions count
    std::uint64_t seekHead_ = 0;
    std::uint64_t info_ = 0;
    std::uint64_t duration_ = 0;
    std::uint64_t tracks_ = 0;
    std::uint64_t nextEntry_ = 0;
    std::uint64_t endOfEntries_ = 0;
    std::uint64_t end_ = 0;
    unsigned streams_ = 0;
    double seconds_ = 0;
    std::vector<MatroskaPacket> waiting_;
    std::vector<Cue> cues_;
    int error_ = 0;
};

}  // namespace tqrecorder
