#pragma once

#include <string>
#include <utility>
#include <vector>

#include "output/StreamClock.h"
#include "output/files/FileSeries.h"

namespace tqrecorder {

/// Files of one stream whose frames keep to the stream's time: with silence where nothing was
/// played or where blocks were lost. [one host thread at a time]; waits for the disk.
class TimedSeries {
  public:
    /// `beganAt` is the host time of the first frame, in microseconds, that `clock` begins with.
    TimedSeries(FileSeries series, StreamClock clock, std::string name, std::uint64_t beganAt)
        : series_(std::move(series)), clock_(clock), name_(std::move(name)), beganAt_(beganAt) {}

    void write(const Block& block) {
        const std::size_t frameBytes = series_.format().frameBytes();
        const std::size_t frames = block.frames.size() / frameBytes;
        const std::uint64_t silence = clock_.before(block.microseconds, frames, block.lostFrames);
        if (clock_.takeJump()) {
            series_.complain(jumpText(series_.path()));
        }
        series_.writeSilence(silence);
        series_.write(block.frames.first(frames * frameBytes));
    }
    [[nodiscard]] FileSeries& series() { return series_; }
    [[nodiscard]] const FileSeries& series() const { return series_; }

    [[nodiscard]] std::vector<WrittenFile> files(int processId) const {
        std::vector<WrittenFile> all = series_.files();
        for (WrittenFile& file : all) {
            file.gaps = clock_.gaps();
            file.processId = processId;
            file.name = name_;
            file.beganAt = beganAt_;
        }
        return all;
    }

  private:
    FileSeries series_;
    StreamClock clock_;
    std::string name_;
    std::uint64_t beganAt_;
};

}  // namespace tqrecorder
