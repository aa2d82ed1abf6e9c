#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "output/FilesSink.h"
#include "output/TimedSeries.h"

namespace tqrecorder {

/// Writes the microphone to a file of its own, where there is no folder of tracks. It begins with
/// the mix that it lies beside. When a silent launcher gives its names up, so does its microphone,
/// and a file begins anew with the mix of the program that has them then.
class VoiceSink : public FilesSink {
  public:
    explicit VoiceSink(FileSeries::Plan plan) : plan_(std::move(plan)) {}

    /// Where it goes beside a mix of that path: "out.flac" to "out-microphone.wav".
    [[nodiscard]] static std::string pathBeside(const std::string& mix);

    /// Sees whether its file can be made. False with a line in problems().
    [[nodiscard]] bool open();

    void block(const Process& process, const Block& block) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    [[nodiscard]] bool isHeard() const override;
    void split(const SplitFiles& done) override;
    void giveUpSaves() override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override;
    [[nodiscard]] std::vector<WrittenFile> files() const override;

  protected:
    void refresh() override;
    [[nodiscard]] bool isBehind() const override;
    void catchUp(Backlog::Time end) override;

  private:
    /// A mix that it may come to lie beside.
    struct Mix {
        std::uint64_t began;  ///< host time, microseconds
        StreamClock::Time received;
        StreamClock clock;
    };
    struct Voice {
        int processId;
        bool isFirst;  ///< has the names as given
        TimedSeries series;
        bool isFinished = false;
    };
    Mix& mixOf(const Process& process, const Block& block);
    void begin(const Process& process, const Block& block);
    void followNames();
    /// Those that are not to go on take their names, once all that waits is written.
    void finishLeft();

    FileSeries::Plan plan_;
    std::map<int, Mix> mixes_;           ///< by process
    std::deque<Voice> voices_;           ///< the one under way first
    bool isLeft_ = false;                ///< it is not to go on beside another program
    std::vector<std::string> problems_;  ///< of open()
};

}  // namespace tqrecorder
