#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "output/FilesSink.h"
#include "output/files/FileNames.h"
#include "output/matroska/MatroskaRecording.h"

namespace tqrecorder {

/// Writes the mix and the tracks of every process to one Matroska file.
class MatroskaSink : public FilesSink {
  public:
    MatroskaSink(FileSeries::Plan plan, std::shared_ptr<ProcessNames> names);

    /// Makes the first file before there is anything to write. False with a line in problems().
    [[nodiscard]] bool open();

    void block(const Process& process, const Block& block) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    std::vector<WrittenFile> split() override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override;
    [[nodiscard]] std::vector<WrittenFile> files() const override;

  protected:
    void refresh() override;

  private:
    /// Null for a process beyond the bound.
    [[nodiscard]] MatroskaRecording* recordingOf(const Process& process,
                                                 std::uint64_t microseconds);

    FileSeries::Plan plan_;
    std::shared_ptr<ProcessNames> names_;
    std::unique_ptr<MatroskaRecording> opened_;  // until the first process needs it
    std::map<int, std::unique_ptr<MatroskaRecording>> recordings_;
    std::uint64_t refused_ = 0;  // blocks of processes beyond the bound
    bool isFinished_ = false;
};

}  // namespace tqrecorder
