#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "output/Backlog.h"
#include "output/StreamClock.h"
#include "output/files/FileSeries.h"

namespace tqrecorder {

/// Files of one stream whose frames keep to the stream's time: with silence where nothing was
/// played or where blocks were lost. Long silence, and what follows it, is written by catchUp().
/// [one host thread at a time]; waits for the disk.
class TimedSeries {
  public:
    /// `beganAt` is the host time of the first frame, in microseconds, that `clock` begins with.
    TimedSeries(FileSeries series, StreamClock clock, std::string name, std::uint64_t beganAt)
        : series_(std::move(series)), clock_(clock), name_(std::move(name)), beganAt_(beganAt) {}

    void write(const Block& block) {
        if (backlog_.isEmpty() && clock_.missingBefore(block.microseconds) <= Backlog::kAtOnce) {
            writeNow(block);
        } else {
            backlog_.add(block);
        }
    }
    /// Writes what waits behind long silence, until `end`.
    void catchUp(Backlog::Time end) {
        backlog_.work(
            end, [this](const Block& block) { return fillStep(block); },
            [this](const Block& block) { writeNow(block); },
            [this](const SplitFiles& done) { splitNow(done); });
    }
    [[nodiscard]] bool isBehind() const { return !backlog_.isEmpty(); }
    /// What was given so far ends in this file, as FileSeries has it.
    void split(const SplitFiles& done) {
        if (backlog_.isEmpty()) {
            splitNow(done);
        } else {
            backlog_.add(done);
        }
    }
    void moveTo(const std::string& path) { series_.moveTo(path); }
    /// Nobody waits for a long gap that is not written yet: it is broken off there.
    void giveUp() { isGivenUp_ = true; }
    void end() {
        catchUp(Backlog::Time::max());
        series_.end();
    }
    void finish() {
        catchUp(Backlog::Time::max());
        series_.finish();
    }
    void refresh() { series_.refresh(); }
    [[nodiscard]] const std::string& name() const { return name_; }
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
    void writeNow(const Block& block) {
        const std::size_t frameBytes = series_.format().frameBytes();
        const std::size_t frames = block.frames.size() / frameBytes;
        const std::uint64_t silence = clock_.before(block);
        if (clock_.takeJump()) {
            series_.complain(jumpText(series_.path()));
        }
        series_.writeSilence(silence);
        series_.write(block.frames.first(frames * frameBytes));
    }
    void splitNow(const SplitFiles& done) {
        if (std::optional<WrittenFile> file = series_.split()) {
            done->push_back(std::move(*file));
        }
    }
    [[nodiscard]] bool fillStep(const Block& block) {
        const double missing = clock_.missingBefore(block.microseconds);
        if (missing <= Backlog::kAtOnce) {
            return false;
        }
        if (isGivenUp_ && missing > kLongGap && !series_.failed()) {
            series_.breakOff();
        }
        series_.writeSilence(clock_.idleUntil(clock_.end() + Backlog::kStep));
        return true;
    }

    FileSeries series_;
    StreamClock clock_;
    std::string name_;
    std::uint64_t beganAt_;
    Backlog backlog_;
    bool isGivenUp_ = false;
};

}  // namespace tqrecorder
