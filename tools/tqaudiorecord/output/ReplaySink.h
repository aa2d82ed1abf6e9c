#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "output/FilesSink.h"
#include "output/StreamClock.h"
#include "output/files/FileNames.h"

namespace tqrecorder {

/// Keeps the last seconds of every process's mix in memory, in room that is taken once, and writes
/// them to a new numbered file when asked to. What was saved is never saved again, so that one
/// file goes on where the one before ended. The end of a recording saves nothing by itself.
class ReplaySink : public FilesSink {
  public:
    ReplaySink(FileSeries::Plan plan, double seconds, std::shared_ptr<ProcessNames> names);

    /// Sees whether files can be made there. False with a line in problems().
    [[nodiscard]] bool open();

    void block(const Process& process, const Block& block) override;
    void lost(const Process& process, std::uint64_t blocks, std::uint64_t bytes) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    void save() override;
    [[nodiscard]] std::vector<std::string> problems() const override { return problems_; }
    [[nodiscard]] std::vector<WrittenFile> files() const override { return files_; }

  protected:
    void refresh() override {}

  private:
    struct Memory {
        std::vector<std::byte> ring;
        std::uint64_t written = 0;  // bytes ever
        std::uint64_t saved = 0;    // up to there
        StreamClock clock;
        bool lost = false;
        std::string addition;
        bool ended = false;

        void add(std::span<const std::byte> bytes);
        void addSilence(std::uint64_t bytes);
    };
    void makeRoom();
    [[nodiscard]] std::string nextPath(const std::string& addition, unsigned& number) const;

    FileSeries::Plan plan_;
    std::size_t capacity_;  // bytes
    std::shared_ptr<ProcessNames> names_;
    std::map<int, Memory> memories_;
    std::map<std::string, unsigned> numbers_;  // the last one used, by addition
    std::vector<WrittenFile> files_;
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
