#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/Sink.h"
#include "output/files/FileNames.h"
#include "output/files/PartFile.h"

namespace tqrecorder {

/// Writes events as JSON, one object a line: host_time_us, category, code, message, process, pid,
/// kind, text.
/// The beginning of a track is a line as well, with track, unit and offset_seconds, which is how
/// long after the mix that was. A line is on the disk as soon as its event has come. A file that is
/// there is replaced with the first sound; where there is none, the first event makes it.
class EventsSink : public Sink {
  public:
    /// `programs` as FileChain has them.
    explicit EventsSink(std::string path, bool mayReplace = false,
                        std::shared_ptr<const ProcessNames> programs = nullptr);

    /// Sees whether the file can be made. False with a line in problems().
    [[nodiscard]] bool open();

    void block(const Process& process, const Block& block) override;
    void event(const Process& process, const Event& event) override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override { return problems_; }

    /// Empty when there is no file.
    [[nodiscard]] const std::string& path() const { return written_; }

  private:
    struct Beginning {
        std::string unit;
        BlockFormat format;
    };
    void noteBeginning(const Process& process, const Block& block);
    void write(const std::string& text);
    void takeName();
    void fail(int error);

    std::string path_;
    bool mayReplace_;
    std::shared_ptr<const ProcessNames> programs_;
    std::unique_ptr<PartFile> part_;
    tqcommon::Descriptor file_;
    bool isEmpty_ = true;
    bool isNameTried_ = false;
    bool hasSound_ = false;                                ///< of programs or the microphone
    std::map<int, std::uint64_t> origins_;                 // of processes, host time
    std::map<std::pair<int, int>, Beginning> beginnings_;  // by process and track
    std::string written_;
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
