#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/Sink.h"
#include "output/StreamClock.h"
#include "view/Level.h"

namespace tqrecorder {

/// What was seen of the mix (track 0) or of one track.
struct SourceState {
    std::string unit;
    BlockFormat format;
    Level whole;
    Level window;  ///< since clearWindows()
    std::uint64_t frames = 0;
    std::optional<StreamClock> clock;
    std::uint64_t bufferedBytes = 0;
    std::uint64_t bufferCapacity = 0;
};

/// What was seen of one process.
struct ProcessState {
    Process process;
    std::map<int, SourceState> sources;
    std::set<std::string, std::less<>> units;  ///< those that delivered blocks of their own
    std::uint64_t lostBlocks = 0;
    std::uint64_t lostBytes = 0;
    /// How often each pair of category and code came. Pairs that no table knows count as one pair
    /// of no category, with the code 0 or another.
    std::map<std::pair<std::uint64_t, std::uint64_t>, std::uint64_t> events;
    std::map<std::uint64_t, StreamFacts> streams;  ///< the first of them, by number
    std::uint64_t moreStreams = 0;                 ///< reports of others
    HostFacts facts;
    bool factsKnown = false;
    double ringFill = 0;
    bool ended = false;

    [[nodiscard]] std::uint64_t eventCount() const;
    [[nodiscard]] std::uint64_t gaps() const;
    [[nodiscard]] double mixSeconds() const;
    /// Whether there is anything to be said of it: a browser has a dozen processes, and one plays.
    [[nodiscard]] bool isOfInterest() const;
};

/// Counts and measures a recording for the meter, the summary and the diagnosis.
class Observer : public Sink {
  public:
    /// `isVoiceInMix` says that the mixes hold the user's voice besides.
    explicit Observer(bool isVoiceInMix = false) : isVoiceInMix_(isVoiceInMix) {}

    void processBegan(const Process& process) override;
    void block(const Process& process, const Block& block) override;
    void lost(const Process& process, std::uint64_t blocks, std::uint64_t bytes) override;
    void event(const Process& process, const Event& event) override;
    void stream(const Process& process, const StreamFacts& facts) override;
    void seen(const SeenProcess& process) override { seen_.push_back(process); }
    void numbers(const Process& process, std::span<const TrackNumbers> tracks,
                 const HostFacts& facts, double ringFill) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    void tick(std::uint64_t elapsedMicroseconds) override { elapsed_ = elapsedMicroseconds; }

    [[nodiscard]] const std::map<int, ProcessState>& processes() const { return processes_; }
    /// Whether any sound of the process's own arrived.
    [[nodiscard]] bool isHeard(const ProcessState& state) const;
    /// Those of interest; all where none is.
    [[nodiscard]] std::vector<const ProcessState*> mentioned() const;
    /// What was seen from outside, also of processes that are not recorded; known at the end.
    [[nodiscard]] const std::vector<SeenProcess>& seenProcesses() const { return seen_; }
    /// What the user has asked for.
    void setPaused(bool isPaused) { isPaused_ = isPaused; }
    [[nodiscard]] bool isPaused() const { return isPaused_; }
    [[nodiscard]] double elapsedSeconds() const { return static_cast<double>(elapsed_) / 1e6; }
    /// Begins new windows for the levels.
    void clearWindows();

  private:
    ProcessState& stateOf(const Process& process);

    std::map<int, ProcessState> processes_;
    std::vector<SeenProcess> seen_;
    std::uint64_t elapsed_ = 0;
    bool isPaused_ = false;
    bool isVoiceInMix_;
};

}  // namespace tqrecorder
