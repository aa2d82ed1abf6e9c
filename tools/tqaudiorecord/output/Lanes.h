#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/Sink.h"
#include "output/Floats.h"
#include "output/Loudness.h"
#include "output/StreamClock.h"
#include "output/files/FileNames.h"
#include "output/files/WholeFile.h"
#include "picture/GrowingTrack.h"

namespace tqrecorder {

/// One stream of a recording as pictures and reports show it: the mix of a process, or one of its
/// tracks as long as that has one unit and one format. Has the silence that its file has.
struct Lane {
    int processId = 0;
    int track = 0;     ///< 0 is the mix
    std::string unit;  ///< empty for the mix
    std::string name;  ///< as its file is called
    BlockFormat format;
    std::uint64_t beganAt = 0;  ///< host time of its first frame, microseconds
    StreamClock clock;
    tqpicture::GrowingTrack sound;
    Floats floats;
    std::unique_ptr<Loudness> loudness;  ///< null where it is not measured
};

/// Keeps of everything that is recorded what can be shown of it, as it comes: how it looks and how
/// loud it is. The room it takes grows with the streams that play at a time, not with their length.
class Lanes : public Sink {
  public:
    explicit Lanes(std::shared_ptr<ProcessNames> names, bool measuresLoudness = false)
        : names_(std::move(names)), measuresLoudness_(measuresLoudness) {}

    void processBegan(const Process& process) override;
    void block(const Process& process, const Block& block) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    void finish() override;

    /// After finish(): each mix with its tracks behind it, the first process first.
    [[nodiscard]] std::vector<const Lane*> inOrder() const;
    /// After finish(), where there is any: host time at which the first of them begins.
    [[nodiscard]] std::uint64_t origin() const;
    /// Whether any of them is not silent.
    [[nodiscard]] Worth worth() const;
    /// What a lane is called among those of inOrder(): with its process where there are several.
    [[nodiscard]] std::string titleOf(const Lane& lane) const;
    /// Of the process that inOrder() begins with.
    [[nodiscard]] std::string title() const;
    /// Blocks of streams beyond those that are kept.
    [[nodiscard]] std::uint64_t refused() const { return refused_; }

  private:
    [[nodiscard]] Lane* laneFor(const Process& process, const Block& block);
    void end(Lane& lane);

    std::shared_ptr<ProcessNames> names_;
    bool measuresLoudness_;
    std::map<int, std::string> processNames_;
    std::map<int, std::uint64_t> began_;  // of processes
    std::vector<std::unique_ptr<Lane>> lanes_;
    std::map<std::pair<int, int>, Lane*> current_;  // by process and track
    std::uint64_t refused_ = 0;
};

/// Seconds behind the origin of a recording, 0 for what was before it.
[[nodiscard]] inline double secondsBehind(std::uint64_t origin, std::uint64_t microseconds) {
    return microseconds > origin ? static_cast<double>(microseconds - origin) / 1e6 : 0;
}

}  // namespace tqrecorder
