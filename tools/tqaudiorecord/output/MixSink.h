#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "output/ProcessFilesSink.h"
#include "output/TimedSeries.h"

namespace tqrecorder {

/// The mix of one process in files. [one host thread at a time]; waits for the disk.
class MixRecording {
  public:
    explicit MixRecording(const FileSeries::Plan& plan)
        : unbegun_(std::make_unique<FileSeries>(plan, kMixFormat)) {}

    /// Makes the first file. False when that failed; see problems().
    [[nodiscard]] bool open() { return unbegun_->open(); }
    /// When the file begins: host time of the process's first block, in microseconds.
    void beginAt(std::uint64_t microseconds) {
        mix_.emplace(std::move(*unbegun_),
                     StreamClock(kMixFormat.sampleRate, microseconds, kMixPatience), "mix",
                     microseconds);
        unbegun_.reset();
    }
    /// Blocks of tracks are left out.
    void block(const Block& block) {
        if (block.track == 0 && block.format == kMixFormat) {
            mix_->write(block);
        }
    }
    /// Brings the disk up to date.
    void refresh() {
        if (mix_) {
            mix_->refresh();
        }
    }
    /// Writes what waits behind long silence, until `end`.
    void catchUp(Backlog::Time end) {
        if (mix_) {
            mix_->catchUp(end);
        }
    }
    [[nodiscard]] bool isBehind() const { return mix_ && mix_->isBehind(); }
    [[nodiscard]] bool isHeard() const { return series().isHeard(); }
    /// As TimedSeries has it.
    void split(const SplitFiles& done) {
        if (mix_) {
            mix_->split(done);
        }
    }
    void giveUp() {
        if (mix_) {
            mix_->giveUp();
        }
    }
    void moveTo(const std::string& path) { mix_ ? mix_->moveTo(path) : unbegun_->moveTo(path); }
    void end() { mix_ ? mix_->end() : unbegun_->end(); }
    void finish() { mix_ ? mix_->finish() : unbegun_->finish(); }

    [[nodiscard]] const std::vector<std::string>& problems() const { return series().problems(); }
    [[nodiscard]] std::vector<WrittenFile> files() const {
        return mix_ ? mix_->files(0) : unbegun_->files();
    }

  private:
    [[nodiscard]] const FileSeries& series() const { return mix_ ? mix_->series() : *unbegun_; }

    std::unique_ptr<FileSeries> unbegun_;  ///< until it is known when the file begins
    std::optional<TimedSeries> mix_;
};

/// Writes the mix of every process to a file of its own.
using MixSink = ProcessFilesSink<MixRecording>;

}  // namespace tqrecorder
