#pragma once

#include <sndfile.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "wav_listener/BlockQueue.h"

namespace demo {

inline constexpr std::uint32_t kFlagFloat = 0x1;
inline constexpr std::uint32_t kFlagBigEndian = 0x2;
inline constexpr std::uint32_t kFlagSignedInteger = 0x4;

/// The format of a WAV file and of the blocks that go into it.
struct WavFormat {
    double sampleRate = 0;
    std::int32_t channels = 0;
    std::int32_t bitsPerChannel = 0;
    std::uint32_t formatFlags = 0;

    [[nodiscard]] bool operator==(const WavFormat&) const = default;
    [[nodiscard]] static WavFormat of(const RecordHeader& header) {
        return {header.sampleRate, header.channels, header.bitsPerChannel,
                header.formatFlags & (kFlagFloat | kFlagBigEndian | kFlagSignedInteger)};
    }
    /// libsndfile's encoding, 0 for one that a WAV file cannot hold as it is.
    [[nodiscard]] int encoding() const {
        if ((formatFlags & kFlagBigEndian) != 0) {
            return 0;
        }
        if ((formatFlags & kFlagFloat) != 0) {
            return bitsPerChannel == 32 ? SF_FORMAT_FLOAT : 0;
        }
        if ((formatFlags & kFlagSignedInteger) == 0) {
            return 0;
        }
        switch (bitsPerChannel) {
            case 16:
                return SF_FORMAT_PCM_16;
            case 24:
                return SF_FORMAT_PCM_24;
            case 32:
                return SF_FORMAT_PCM_32;
            default:
                return 0;
        }
    }
    [[nodiscard]] std::string text() const {
        return std::to_string(static_cast<int>(sampleRate)) + " Hz, " +
               std::to_string(bitsPerChannel) + "-bit " +
               ((formatFlags & kFlagFloat) != 0 ? "float" : "integer") + ", " +
               (channels == 1   ? "mono"
                : channels == 2 ? "stereo"
                                : std::to_string(channels) + " channels");
    }
};

/// One buffer per channel, one after the other, becomes one interleaved buffer. Interleaved data
/// (`buffers` 1) comes back as it is.
inline std::span<const std::byte> interleave(std::span<const std::byte> payload,
                                             std::size_t buffers, std::size_t bytesPerSample,
                                             std::vector<std::byte>& scratch) {
    if (buffers <= 1 || bytesPerSample == 0) {
        return payload;
    }
    const std::size_t frames = payload.size() / buffers / bytesPerSample;
    const std::size_t stride = payload.size() / buffers;
    scratch.resize(frames * buffers * bytesPerSample);
    std::byte* out = scratch.data();
    for (std::size_t frame = 0; frame < frames; ++frame) {
        for (std::size_t buffer = 0; buffer < buffers; ++buffer, out += bytesPerSample) {
            std::memcpy(out, payload.data() + buffer * stride + frame * bytesPerSample,
                        bytesPerSample);
        }
    }
    return scratch;
}

/// A WAV file under way. What was written is playable after refresh() even if the process dies.
class WavFile {
  public:
    /// Null with the reason in `error` when the file cannot be made.
    [[nodiscard]] static std::unique_ptr<WavFile> create(std::string path, const WavFormat& format,
                                                         std::string& error) {
        SF_INFO info{};
        info.samplerate = static_cast<int>(format.sampleRate);
        info.channels = format.channels;
        info.format = SF_FORMAT_WAV | format.encoding();
        if (format.encoding() == 0 || format.channels < 1 || info.samplerate < 1) {
            error = path + ": a WAV file cannot hold " + format.text();
            return nullptr;
        }
        SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
        if (file == nullptr) {
            error = path + ": " + sf_strerror(nullptr);
            return nullptr;
        }
        return std::unique_ptr<WavFile>(new WavFile(file, std::move(path), format));
    }

    /// Interleaved whole frames in the file's format. False when the disk did not take them all.
    [[nodiscard]] bool write(std::span<const std::byte> bytes) {
        const auto count = static_cast<sf_count_t>(bytes.size());
        const sf_count_t written = sf_write_raw(file_.get(), bytes.data(), count);
        frames_ += written > 0 ? static_cast<std::uint64_t>(written) / frameBytes() : 0;
        return written == count;
    }
    /// Silence up to `seconds` from the beginning; nothing when the file is that long already.
    [[nodiscard]] bool padTo(double seconds) {
        const auto end = static_cast<std::uint64_t>(std::max(0.0, seconds) * format_.sampleRate);
        constexpr std::uint64_t kBlockFrames = 4096;
        const std::vector<std::byte> silence(kBlockFrames * frameBytes());
        bool whole = true;
        while (whole && frames_ < end) {
            const std::uint64_t frames = std::min(end - frames_, kBlockFrames);
            whole = write(std::span(silence).first(frames * frameBytes()));
        }
        return whole;
    }
    /// Brings the header up to date.
    void refresh() { sf_command(file_.get(), SFC_UPDATE_HEADER_NOW, nullptr, 0); }

    /// Of one frame, all channels.
    [[nodiscard]] std::size_t frameBytes() const {
        return static_cast<std::size_t>(format_.channels) *
               static_cast<std::size_t>(format_.bitsPerChannel / 8);
    }
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const WavFormat& format() const { return format_; }
    [[nodiscard]] double seconds() const {
        return static_cast<double>(frames_) / format_.sampleRate;
    }

  private:
    struct CloseFile {
        void operator()(SNDFILE* file) const { sf_close(file); }
    };

    WavFile(SNDFILE* file, std::string path, const WavFormat& format)
        : file_(file), path_(std::move(path)), format_(format) {}

    std::unique_ptr<SNDFILE, CloseFile> file_;
    std::string path_;
    WavFormat format_;
    std::uint64_t frames_ = 0;
};

}  // namespace demo
