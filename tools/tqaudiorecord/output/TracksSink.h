#pragma once

#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "output/FilesSink.h"
#include "output/TimedSeries.h"
#include "output/files/FileNames.h"
#include "output/files/TracksFolder.h"

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
        std::shared_ptr<const ProcessNames> programs{};  ///< as FileChain has them
    };
    TracksSink(Plan plan, std::shared_ptr<ProcessNames> names);

    /// As TracksFolder has it. False with a line in problems().
    [[nodiscard]] bool open();

    void block(const Process& process, const Block& block) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    [[nodiscard]] bool isHeard() const override;
    void split(const SplitFiles& done) override;
    void giveUpSaves() override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override { return problems_; }
    [[nodiscard]] std::vector<WrittenFile> files() const override;

  protected:
    void refresh() override;
    [[nodiscard]] bool isBehind() const override;
    void catchUp(Backlog::Time end) override;

  private:
    struct Track {
        std::string unit;
        TimedSeries timed;
        std::size_t reported = 0;  // of the series' problems
    };
    struct Axis {
        std::string addition;
        std::uint64_t beganAt;
        StreamClock::Time received;
    };
    void begin(const Process& process, const Block& block);
    [[nodiscard]] std::string takePath(const std::string& name, const std::string& addition);
    template <typename Use>
    void forAllUnderWay(const Use& use);
    void move(int processId);
    void followNames();
    void end(int processId, Track track);
    void conclude(int processId, Track track);
    void nameAndList(int processId, Track& track);
    /// Of what has become of it since it was written to.
    void tellOf(Track& track);
    void report(Track& track);
    void complain(const std::string& problem);

    Plan plan_;
    TracksFolder folder_;
    std::shared_ptr<ProcessNames> names_;
    std::map<int, Axis> axes_;
    std::map<std::pair<int, int>, Track> tracks_;  // those under way, by process and number
    std::list<std::pair<int, Track>> ending_;      // nothing comes, and not all is written yet
    std::list<std::pair<int, Track>> unnamed_;     // have ended, and may still change their names
    std::size_t hearings_ = 0;                     // up to which names were followed
    std::set<std::string> takenNames_;
    std::vector<WrittenFile> done_;
    std::uint64_t refused_ = 0;  // blocks of units beyond the bound
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
