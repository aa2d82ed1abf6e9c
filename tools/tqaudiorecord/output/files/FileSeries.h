#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "output/files/PartFile.h"
#include "output/files/Resampler.h"
#include "output/files/SoundFile.h"

namespace tqrecorder {

/// A file that was written, for the summary and for the picture.
struct WrittenFile {
    std::string path;
    std::string text;  ///< its format for people
    double seconds = 0;
    std::uint64_t gaps = 0;  ///< holes filled with silence, of its whole stream
    int processId = 0;
    std::string name;           ///< "mix" or the track's
    std::uint64_t beganAt = 0;  ///< host time of its stream's first frame, microseconds
    double startSeconds = 0;    ///< of its stream that are in files before it
};

/// One stream of frames in one file, or in numbered files of a limited length with no frame lost or
/// twice between them. After a failure it takes nothing more. Files take their names with the first
/// sound; without any they take those that are free. [one host thread at a time]; waits for the
/// disk.
class FileSeries {
  public:
    struct Plan {
        std::string path;
        const FileFormat* kind = nullptr;
        std::optional<double> maximumSeconds{};
        bool mayReplace = false;  ///< files that have the names
        /// Where the first frame lies, in frames since the recording began.
        std::optional<std::uint64_t> timeReference{};
    };
    FileSeries(Plan plan, const BlockFormat& format);

    /// Makes the first file. False when that failed; see problems().
    [[nodiscard]] bool open();
    /// Whole frames in the stream's format.
    void write(std::span<const std::byte> frames);
    /// Breaks off, and takes nothing more, when the user asks for the end of the recording: silence
    /// may be long.
    void writeSilence(std::uint64_t frames);
    /// Adds to problems(); the series goes on.
    void complain(const std::string& problem) { problems_.push_back(problem); }
    void refresh();
    /// What follows goes to a new file with the next number, from 2 on for the first. Gives the one
    /// that is complete now; nothing without a frame in it.
    [[nodiscard]] std::optional<WrittenFile> split();
    void finish();

    /// As it was asked for.
    [[nodiscard]] const std::string& path() const { return plan_.path; }
    [[nodiscard]] bool failed() const { return failed_; }
    [[nodiscard]] const std::vector<std::string>& problems() const { return problems_; }
    /// Those that are complete and the one under way.
    [[nodiscard]] std::vector<WrittenFile> files() const;
    [[nodiscard]] const BlockFormat& format() const { return format_; }

  private:
    void writeConverted(std::span<const std::byte> frames);
    void closeFile();
    [[nodiscard]] std::string nextPath();
    void listen(std::span<const std::byte> frames);
    void takeName(PartFile& part);
    [[nodiscard]] WrittenFile written(const SoundFile& file) const;
    void fail(const std::string& problem);

    Plan plan_;
    BlockFormat format_;      // of the stream
    BlockFormat fileFormat_;  // of the files
    std::unique_ptr<Resampler> resampler_;
    std::unique_ptr<PartFile> part_;
    std::unique_ptr<SoundFile> file_;
    struct Silent {
        WrittenFile file;
        std::unique_ptr<PartFile> part;
    };
    std::vector<Silent> silent_;  // complete, and waiting for sound that is worth their names
    bool hasSound_ = false;
    std::uint64_t maximumFrames_ = 0;  // none when 0
    unsigned number_ = 0;
    std::uint64_t complete_ = 0;  // frames in files before
    bool failed_ = false;
    std::vector<WrittenFile> files_;
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
