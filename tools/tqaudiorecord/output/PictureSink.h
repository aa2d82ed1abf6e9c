#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/Sink.h"
#include "output/MixSink.h"
#include "output/TracksSink.h"

namespace tqrecorder {

/// Draws waveform and spectrogram of every mix and track at the end, with the events marked:
/// failures stand out, what belongs to a normal recording is grey.
/// What is not recorded to whole files anyway is kept in a hidden folder beside the picture until
/// it is drawn.
class PictureSink : public Sink {
  public:
    /// `mix` and `tracks` are those whose files can be drawn, null where there are none; they
    /// outlive the picture and are finished before it.
    PictureSink(std::string path, const MixSink* mix, const TracksSink* tracks,
                std::shared_ptr<ProcessNames> names);
    ~PictureSink() override;
    PictureSink(const PictureSink&) = delete;
    PictureSink& operator=(const PictureSink&) = delete;

    /// Sees whether the picture can be written and makes the hidden folder where one is needed.
    /// False with a line in problems().
    [[nodiscard]] bool open();

    void processBegan(const Process& process) override;
    void block(const Process& process, const Block& block) override;
    void event(const Process& process, const Event& event) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] bool isDrawn() const { return drawn_; }

  private:
    struct Mark {
        std::uint64_t microseconds;
        std::string label;
        bool isQuiet;
    };
    void draw();

    std::string path_;
    const MixSink* mix_;
    const TracksSink* tracks_;
    std::shared_ptr<ProcessNames> names_;
    std::string hidden_;  // folder
    std::unique_ptr<MixSink> ownMix_;
    std::unique_ptr<TracksSink> ownTracks_;
    std::map<int, std::string> processNames_;
    std::vector<Mark> marks_;
    bool drawn_ = false;
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
