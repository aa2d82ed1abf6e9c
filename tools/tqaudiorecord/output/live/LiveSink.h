#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/Sink.h"
#include "output/live/LiveLink.h"
#include "output/live/LiveNames.h"

namespace tqrecorder {

/// Shows the mix and every track as sources of the sound server while they are recorded.
///
/// A source appears with its first block and stays, silent where nothing is played, as long as its
/// process lives: who has picked it keeps it. The same track in another format goes and comes back
/// under its name. Of two of one name the first that sounds has it without a number.
class LiveSink : public Sink {
  public:
    /// Says one line to the user.
    using Tell = std::function<void(const std::string&)>;
    /// At most that many sources; the one that has been silent for longest gives way to another.
    static constexpr std::size_t kMostSources = 24;

    explicit LiveSink(Tell tell, std::vector<std::string> holders = findLiveHolders());

    /// Looks for a server. False with a line in problems() where none answers.
    [[nodiscard]] bool open();

    void block(const Process& process, const Block& block) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    void tick(std::uint64_t elapsedMicroseconds) override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override { return problems_; }

  private:
    using Clock = std::chrono::steady_clock;
    using Key = std::pair<int, std::string>;  ///< process, unit
    struct Source {
        std::uint32_t id = 0;
        std::string program;
        LiveName name;
        BlockFormat format;
        std::uint32_t blockFrames = 0;
        Clock::time_point lastSound;
        bool isRefused = false;  ///< by the server that is there now
        bool isHeard = false;
    };
    [[nodiscard]] Source* sourceOf(const Process& process, const Block& block);
    [[nodiscard]] bool makeRoom();
    void tellNone(const Key& key, const std::string& program, const std::string& why);
    void takeRefused();
    [[nodiscard]] bool takePlainName(const Key& key, Source& source);
    void announceAnew(Source& source);
    void announce(const Source& source);
    void close(const Source& source);
    void follow();

    Tell tell_;
    LiveLink link_;
    bool wasUp_ = false;
    LiveNames names_;
    std::map<Key, Source> sources_;
    std::set<Key> told_;  ///< which have no source
    std::uint32_t lastId_ = 0;
    std::vector<float> samples_;
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
