#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "output/FilesSink.h"
#include "output/TimedSeries.h"

namespace tqrecorder {

/// Writes the microphone to a file of its own, where there is no folder of tracks. It begins with
/// the mix that it lies beside.
class VoiceSink : public FilesSink {
  public:
    explicit VoiceSink(FileSeries::Plan plan) : plan_(std::move(plan)) {}

    /// Where it goes beside a mix of that path: "out.flac" to "out-microphone.wav".
    [[nodiscard]] static std::string pathBeside(const std::string& mix);

    /// Sees whether its file can be made. False with a line in problems().
    [[nodiscard]] bool open();

    void block(const Process& process, const Block& block) override;
    [[nodiscard]] bool isHeard() const override { return voice_ && voice_->series().isHeard(); }
    void split(const SplitFiles& done) override;
    void giveUpSaves() override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override;
    [[nodiscard]] std::vector<WrittenFile> files() const override;

  protected:
    void refresh() override;
    [[nodiscard]] bool isBehind() const override { return voice_ && voice_->isBehind(); }
    void catchUp(Backlog::Time end) override;

  private:
    /// A mix that it may come to lie beside.
    struct Mix {
        std::uint64_t began;  ///< host time, microseconds
        StreamClock::Time received;
        StreamClock clock;
    };
    Mix& mixOf(const Process& process, const Block& block);

    FileSeries::Plan plan_;
    std::map<int, Mix> mixes_;  ///< by process, until the microphone is heard
    std::optional<TimedSeries> voice_;
    std::vector<std::string> problems_;  ///< of open()
    int processId_ = 0;
};

}  // namespace tqrecorder
