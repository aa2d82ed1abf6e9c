#pragma once

#include <sys/types.h>

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "common/Descriptor.h"
#include "output/FilesSink.h"
#include "output/TimedSeries.h"
#include "output/files/FileNames.h"

namespace tqrecorder {

/// Writes every track of every process to a file of its own in a folder, in the track's own
/// format, with silence where its unit did not play. A file begins where its track does and says
/// when that was.
/// Tracks of an earlier recording that may be replaced go when the first new one has its name: all
/// in the folder are of one recording.
/// A track number that goes on with another unit or format goes on in another file.
class TracksSink : public FilesSink {
  public:
    struct Plan {
        std::string folder;
        std::optional<double> maximumSeconds{};
        bool mayReplace = false;
        bool fromStart = false;  ///< silence from the recording's begin to the track's is written
        const FileFormat* kind = &trackFormat();
    };
    TracksSink(Plan plan, std::shared_ptr<ProcessNames> names);

    /// Makes the folder and sees whether it can be written to, and that it is neither filled with
    /// another recording's tracks nor being filled. False with a line in problems().
    [[nodiscard]] bool open();

    void block(const Process& process, const Block& block) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    [[nodiscard]] bool isHeard() const override;
    std::vector<WrittenFile> split() override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override { return problems_; }
    [[nodiscard]] std::vector<WrittenFile> files() const override;

  protected:
    void refresh() override;
    void catchUp(Backlog::Time end) override;

  private:
    struct Track {
        std::string unit;
        TimedSeries timed;
        std::size_t reported = 0;  // of the series' problems
        bool isEnded = false;      // its process, while it is not up to that yet
    };
    struct Axis {
        std::string addition;
        std::uint64_t beganAt;
        StreamClock::Time received;
    };
    void begin(const Process& process, const Block& block);
    [[nodiscard]] std::string takePath(const std::string& name, const std::string& addition);
    void move(int processId);
    void followNames();
    void end(int processId, Track track);
    void nameAndList(int processId, Track& track);
    using Tracks = std::map<std::pair<int, int>, Track>;  // by process and track
    Tracks::iterator endIfDone(Tracks::iterator track);
    /// Of what has become of it since it was written to.
    void tellOf(Track& track);
    void removeOld();
    void report(Track& track);
    void complain(const std::string& problem);

    Plan plan_;
    std::shared_ptr<ProcessNames> names_;
    tqcommon::Descriptor lock_;  // of the folder
    std::map<int, Axis> axes_;
    Tracks tracks_;  // those under way
    /// Ended before any process sounded: whose names are those as given is not known yet.
    std::deque<std::pair<int, Track>> unnamed_;
    bool isSettled_ = false;  // it is
    std::set<std::string> takenNames_;
    /// A file of an earlier recording, to be replaced. A name may be another file's by then.
    struct Old {
        std::string path;
        dev_t device = 0;
        ino_t number = 0;
    };
    std::vector<Old> old_;
    std::vector<WrittenFile> done_;
    std::uint64_t refused_ = 0;  // blocks of units beyond the bound
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
