#pragma once

#include <optional>
#include <string>
#include <vector>

#include "output/FilesSink.h"
#include "output/StreamClock.h"

namespace tqrecorder {

/// Writes the microphone to a file of its own, where there is no folder of tracks.
class VoiceSink : public FilesSink {
  public:
    explicit VoiceSink(FileSeries::Plan plan) : plan_(std::move(plan)) {}

    /// Where it goes beside a mix of that path: "out.flac" to "out-microphone.wav".
    [[nodiscard]] static std::string pathBeside(const std::string& mix);

    void block(const Process& process, const Block& block) override;
    std::vector<WrittenFile> split() override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override;
    [[nodiscard]] std::vector<WrittenFile> files() const override;

  protected:
    void refresh() override;

  private:
    struct Stream {
        FileSeries series;
        StreamClock clock;
        int processId;
        std::uint64_t beganAt;
    };
    FileSeries::Plan plan_;
    std::optional<Stream> stream_;
};

}  // namespace tqrecorder
