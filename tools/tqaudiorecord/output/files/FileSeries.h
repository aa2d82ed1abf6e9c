#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "output/files/FileChain.h"
#include "output/files/Resampler.h"
#include "output/files/SoundFile.h"

namespace tqrecorder {

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
        std::shared_ptr<const ProcessNames> programs{};  ///< as FileChain has them

        /// The path of a process that has that in its names.
        [[nodiscard]] std::string pathWith(const std::string& addition) const;
    };
    FileSeries(Plan plan, const BlockFormat& format);

    /// Makes the first file. False when that failed; see problems().
    [[nodiscard]] bool open();
    /// Whole frames in the stream's format.
    void write(std::span<const std::byte> frames);
    void writeSilence(std::uint64_t frames);
    /// Takes nothing more: the user does not wait until long silence is written.
    void breakOff();
    /// Adds to problems(); the series goes on.
    void complain(const std::string& problem) { chain_.complain(problem); }
    void refresh();
    /// What follows goes to a new file with the next number, from 2 on for the first. Gives the one
    /// that is complete now; nothing without a frame in it, or while there is only silence.
    [[nodiscard]] std::optional<WrittenFile> split();
    /// Files that have no name yet get that one, with numbers as open() has them.
    void moveTo(const std::string& path);
    /// Nothing more comes; files without sound wait for finish() or moveTo() with their names.
    void end();
    void finish();

    /// As it was asked for.
    [[nodiscard]] const std::string& path() const { return plan_.path; }
    [[nodiscard]] bool failed() const { return failed_; }
    /// Whether there was any sound, so that files take their names.
    [[nodiscard]] bool isHeard() const { return chain_.isHeard(); }
    [[nodiscard]] const std::vector<std::string>& problems() const { return chain_.problems(); }
    /// Those that are complete and the one under way.
    [[nodiscard]] std::vector<WrittenFile> files() const;
    [[nodiscard]] const BlockFormat& format() const { return format_; }

  private:
    void writeConverted(std::span<const std::byte> frames);
    void closeFile();
    [[nodiscard]] WrittenFile written(const SoundFile& file) const;
    void fail(const std::string& problem);

    Plan plan_;
    BlockFormat format_;      // of the stream
    BlockFormat fileFormat_;  // of the files
    std::unique_ptr<Resampler> resampler_;
    FileChain chain_;
    std::unique_ptr<SoundFile> file_;
    std::uint64_t maximumFrames_ = 0;  // none when 0
    std::uint64_t complete_ = 0;       // frames in files before
    bool failed_ = false;
};

/// Microseconds. A longer gap is broken off when the user does not wait for the end.
inline constexpr double kLongGap = 60e6;
[[nodiscard]] std::string brokenOffText(const std::string& path);

}  // namespace tqrecorder
