#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "common/Descriptor.h"
#include "core/Records.h"
#include "output/files/FileFormats.h"
#include "output/matroska/MatroskaWriter.h"
#include "output/matroska/StreamEncoder.h"

namespace tqrecorder {

/// A sound file of several streams under way. What was written is playable after flush(), whatever
/// becomes of the process. [one host thread at a time]; waits for the disk.
class MatroskaFile {
  public:
    /// Into an empty file that is open; `path` is what it is called. Null with one line in `error`.
    [[nodiscard]] static std::unique_ptr<MatroskaFile> create(std::string path,
                                                              tqcommon::Descriptor file,
                                                              MatroskaCoding coding,
                                                              std::string& error);
    ~MatroskaFile();
    MatroskaFile(const MatroskaFile&) = delete;
    MatroskaFile& operator=(const MatroskaFile&) = delete;

    struct Begun {
        unsigned stream = 0;  ///< from 1 on; 0 for none
        std::string error;    ///< why the format cannot be held; empty where there is no room
    };
    /// A stream whose first frame lies so many seconds after the file's beginning.
    [[nodiscard]] Begun begin(const std::string& title, const BlockFormat& format, double seconds);
    /// Interleaved whole frames in the stream's format, integers signed.
    void write(unsigned stream, std::span<const std::byte> frames);
    /// False when the disk did not take what was written since the last time: the file then ends
    /// before that and takes no more.
    bool flush();
    /// Completes the file. False when that failed.
    [[nodiscard]] bool close();

    [[nodiscard]] const std::string& path() const { return path_; }
    /// Is called that in problems from now on.
    void setPath(std::string path) { path_ = std::move(path); }
    [[nodiscard]] std::size_t streams() const { return streams_.size(); }
    /// Up to the end of the longest stream, as far as it was flushed.
    [[nodiscard]] double seconds() const { return writer_.seconds(); }
    /// "Matroska: mix and 2 tracks, FLAC".
    [[nodiscard]] std::string text() const;
    /// One line once something failed.
    [[nodiscard]] const std::string& problem() const { return problem_; }

  private:
    struct Stream {
        std::unique_ptr<StreamEncoder> encoder;
        double begin = 0;  // seconds
    };
    MatroskaFile(std::string path, tqcommon::Descriptor file, MatroskaCoding coding);
    void take(unsigned stream);
    void fail(const std::string& why);

    std::string path_;
    MatroskaCoding coding_;
    MatroskaWriter writer_;
    std::vector<Stream> streams_;
    std::size_t waitingBytes_ = 0;
    bool isClosed_ = false;
    std::string problem_;
};

}  // namespace tqrecorder
