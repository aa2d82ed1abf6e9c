#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "common/Descriptor.h"
#include "core/Records.h"
#include "output/files/FileFormats.h"

namespace tqrecorder {

/// "44100 Hz, 16-bit integer, stereo".
[[nodiscard]] std::string textOf(const BlockFormat& format);

/// A sound file under way. What was written is playable after refresh(), whatever becomes of the
/// process. [one host thread at a time]; waits for the disk.
class SoundFile {
  public:
    /// Into an empty file that is open; `path` is what it is called. Null with one line in `error`
    /// when that fails or the file cannot hold the format. `timeReference` is where the file's
    /// first frame lies, in frames since the recording began; kinds that cannot say it leave it
    /// out.
    [[nodiscard]] static std::unique_ptr<SoundFile> create(
        std::string path, tqcommon::Descriptor file, const FileFormat& kind,
        const BlockFormat& format, std::string& error,
        std::optional<std::uint64_t> timeReference = {});
    ~SoundFile();
    SoundFile(const SoundFile&) = delete;
    SoundFile& operator=(const SoundFile&) = delete;

    /// Interleaved whole frames in the format given, integers signed. False when the disk did not
    /// take them all: the file then ends with the last whole frame and takes no more.
    [[nodiscard]] bool write(std::span<const std::byte> frames);
    /// Brings the header up to date with what was written.
    void refresh();
    /// Completes the file. False when that failed; nothing may be written behind it.
    [[nodiscard]] bool close();

    [[nodiscard]] const std::string& path() const { return path_; }
    /// Is called that in problems from now on.
    void setPath(std::string path) { path_ = std::move(path); }
    [[nodiscard]] const BlockFormat& format() const { return format_; }
    [[nodiscard]] std::uint64_t frames() const { return frames_; }
    [[nodiscard]] double seconds() const {
        return static_cast<double>(frames_) / format_.sampleRate;
    }
    /// One line once something failed.
    [[nodiscard]] const std::string& problem() const { return problem_; }

  private:
    class Disk;
    struct CloseFile {
        void operator()(SNDFILE* file) const { sf_close(file); }
    };

    SoundFile(std::string path, const FileFormat& kind, const BlockFormat& format);
    [[nodiscard]] bool open(tqcommon::Descriptor file, std::string& error,
                            std::optional<std::uint64_t> timeReference);
    void stampTime(std::uint64_t timeReference);
    [[nodiscard]] sf_count_t encode(std::span<const std::byte> frames);
    void fail();
    void refreshFlac();

    std::string path_;
    const FileFormat& kind_;
    BlockFormat format_;
    std::uint64_t frames_ = 0;
    std::string problem_;
    std::vector<std::byte> turned_;  ///< samples as the file or its encoder takes them
    // Declared before the file, so destroyed after it: closing the file still writes.
    std::unique_ptr<Disk> disk_;
    std::unique_ptr<SNDFILE, CloseFile> file_;
};

}  // namespace tqrecorder
