#pragma once

#include <string>
#include <vector>

#include "core/Sink.h"
#include "output/Lanes.h"
#include "picture/Picture.h"

namespace tqrecorder {

/// Draws waveform and spectrogram of every mix and track at the end, with the events marked:
/// failures stand out, what belongs to a normal recording is grey. Until then it writes nothing.
class PictureSink : public Sink {
  public:
    /// `lanes` are those of the same recording; they outlive the picture and are finished before
    /// it.
    PictureSink(std::string path, bool mayReplace, const Lanes& lanes);

    /// Sees whether the picture can be written. False with a line in problems().
    [[nodiscard]] bool open();

    void event(const Process& process, const Event& event) override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override { return problems_; }

    /// Empty when there is no picture.
    [[nodiscard]] const std::string& path() const { return written_; }

  private:
    struct Mark {
        std::uint64_t microseconds;
        std::string label;
        bool isQuiet;
    };
    [[nodiscard]] bool draw(tqpicture::Png& png, std::string& error) const;

    std::string path_;
    bool mayReplace_;
    const Lanes& lanes_;
    std::vector<Mark> marks_;
    std::string written_;
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
