#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "output/Backlog.h"
#include "output/StreamClock.h"
#include "output/files/FileSeries.h"
#include "output/matroska/MatroskaFile.h"

namespace tqrecorder {

/// Mix and tracks of one process as streams of one Matroska file on one time axis. A track's stream
/// begins with the track, and holds silence where its unit does not play. One that goes on in
/// another format, or with another unit, goes on as another stream. Where a file is to end, or
/// holds no more streams, all of them go on in the next without a frame lost or twice. After a
/// failure it takes nothing more. [one host thread at a time]; waits for the disk.
class MatroskaRecording {
  public:
    explicit MatroskaRecording(FileSeries::Plan plan);

    /// Makes the first file. False when that failed; see problems().
    [[nodiscard]] bool open();
    /// When the file begins: host time of the process's first block, in microseconds.
    void beginAt(std::uint64_t microseconds);
    void block(const Block& block);
    /// Writes what waits behind long silence, until `end`.
    void catchUp(Backlog::Time end);
    [[nodiscard]] bool isBehind() const { return !backlog_.isEmpty(); }
    [[nodiscard]] bool isHeard() const { return chain_.isHeard(); }
    /// Brings the disk up to date.
    void refresh();
    /// As TimedSeries has them.
    void split(const SplitFiles& done);
    void giveUp() { isGivenUp_ = true; }
    void moveTo(const std::string& path);
    void end();
    void finish();

    [[nodiscard]] const std::vector<std::string>& problems() const { return chain_.problems(); }
    [[nodiscard]] std::vector<WrittenFile> files() const;

  private:
    struct Stream {
        int track = 0;
        std::string unit;
        BlockFormat format;
        StreamClock clock;
        std::uint64_t unwritten = 0;  // frames that the clock has counted already
        bool isCurrent = true;        // of its track's number
        bool isGone = false;          // not current when a file was closed: never written again
        unsigned inFile = 0;  // its number there; 0 before it has a frame in the file under way

        /// Host time of the next frame to be written, in microseconds.
        [[nodiscard]] double position() const {
            return clock.end() - static_cast<double>(unwritten) / format.sampleRate * 1e6;
        }
    };
    [[nodiscard]] Stream* streamOf(const Block& block);
    [[nodiscard]] std::list<Stream>::iterator currentMix();
    void forgetGone();
    [[nodiscard]] double missingBefore(const Block& block) const;
    [[nodiscard]] bool fillStep(const Block& block);
    void splitNow(const SplitFiles& done);
    void writeNow(const Block& block);
    [[nodiscard]] double latest() const;
    void write(Stream& stream, std::span<const std::byte> frames);
    void writeSilence(Stream& stream, std::uint64_t frames);
    [[nodiscard]] bool openNext();
    [[nodiscard]] bool beginInFile(Stream& stream);
    [[nodiscard]] MatroskaFile::Begun beginBehindMix(Stream& stream);
    [[nodiscard]] std::string titleOf(const Stream& stream) const;
    void fillIdle(double patience, double until);
    void cut();
    void closeFile();
    [[nodiscard]] WrittenFile written() const;
    void fail(const std::string& problem);

    FileSeries::Plan plan_;
    FileChain chain_;
    std::unique_ptr<MatroskaFile> file_;
    std::uint64_t beganAt_ = 0;
    StreamClock::Time received_{};
    double zero_ = 0;                  // host time at which the file under way begins, microseconds
    std::uint64_t maximumFrames_ = 0;  // of the mix in a file; none when 0
    std::uint64_t mixFrames_ = 0;      // in the file under way
    std::list<Stream> streams_;  // stay where they are: one is being written while a file is closed
    std::uint64_t gaps_ = 0;     // of streams that are no more
    Backlog backlog_;
    bool isGivenUp_ = false;
    bool failed_ = false;
};

}  // namespace tqrecorder
