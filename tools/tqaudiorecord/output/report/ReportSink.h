#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "core/Sink.h"
#include "output/Lanes.h"
#include "output/files/FileSeries.h"
#include "output/report/ReportPage.h"

namespace tqrecorder {

/// What a report tells of the recording besides what it has seen itself, in lines for people.
struct ReportFacts {
    std::vector<WrittenFile> files;
    std::vector<std::string> otherFiles;
    std::vector<std::string> leftOut;   ///< what was not recorded and why
    std::vector<std::string> accounts;  ///< what became of the frames
    std::vector<std::string> problems;
};

/// Writes at the end one page with everything of the recording that can be seen and heard. Until
/// then it writes nothing.
class ReportSink : public Sink {
  public:
    /// `lanes` are those of the same recording, with their loudness; they outlive the report and
    /// are finished before it, as is everything that `facts` tells, which is asked once.
    ReportSink(std::string path, bool mayReplace, const Lanes& lanes,
               std::function<ReportFacts()> facts, std::time_t now);

    /// Sees whether the page can be written. False with a line in problems().
    [[nodiscard]] bool open();

    void lost(const Process& process, std::uint64_t blocks, std::uint64_t bytes) override;
    void event(const Process& process, const Event& event) override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override { return problems_; }

    /// Empty when there is no page.
    [[nodiscard]] const std::string& path() const { return written_; }

  private:
    struct Times {
        std::uint64_t count = 0;
        std::vector<std::uint64_t> microseconds;  ///< the first of them
    };
    [[nodiscard]] Report report() const;
    void addLanes(Report& report, const std::vector<WrittenFile>& files) const;
    void addEvents(Report& report) const;

    std::string path_;
    bool mayReplace_;
    const Lanes& lanes_;
    std::function<ReportFacts()> facts_;
    std::time_t began_;
    std::map<std::pair<std::uint64_t, std::uint64_t>, Times> events_;  // by category and code
    std::uint64_t lostBlocks_ = 0;
    std::uint64_t lostBytes_ = 0;
    std::string written_;
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
