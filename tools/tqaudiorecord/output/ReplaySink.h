#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/Sink.h"
#include "output/FilesSink.h"
#include "output/StreamClock.h"
#include "output/files/FileNames.h"

namespace tqrecorder {

/// Keeps the last seconds of every process's mix and tracks in memory, in room that is taken once
/// for each, and writes them to new numbered files when asked to, or all to one Matroska file: what
/// is in one save begins and ends together. The end of a recording saves nothing by itself.
class ReplaySink : public FilesSink {
  public:
    struct Plan {
        FileSeries::Plan mix;      ///< an empty path for none
        std::string tracksFolder;  ///< empty for none
        double seconds = 0;
        bool overlaps = false;  ///< else what was saved is not saved again: files go on
        const FileFormat* tracksKind = &trackFormat();
    };
    ReplaySink(Plan plan, std::shared_ptr<ProcessNames> names);

    /// Sees whether files can be made there. False with a line in problems().
    [[nodiscard]] bool open();

    void block(const Process& process, const Block& block) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    std::vector<WrittenFile> saveLast(std::optional<double> seconds) override;
    [[nodiscard]] std::vector<std::string> problems() const override { return problems_; }
    [[nodiscard]] std::vector<WrittenFile> files() const override { return files_; }

  protected:
    void refresh() override {}

  private:
    /// The last of one stream.
    struct Memory {
        BlockFormat format;
        std::string unit;  ///< empty for the mix
        std::size_t capacity = 0;
        std::unique_ptr<std::byte[]> ring;  ///< null where there was no memory for it
        std::uint64_t written = 0;          // bytes ever
        StreamClock clock;
        bool isCurrent = true;
        std::optional<std::int64_t> savedFrames{};  ///< up to there, since the stream began

        void add(std::span<const std::byte> bytes);
        void addSilence(std::uint64_t bytes);
        [[nodiscard]] std::uint64_t oldest() const {
            return written > capacity ? written - capacity : 0;
        }
        /// Frames since the stream began, at that time; before that, less than 0.
        [[nodiscard]] double frameAt(double microseconds) const;
    };
    struct ProcessMemory {
        std::string addition;
        std::vector<std::pair<int, Memory>> streams;  // by track, the mix is 0
        double savedUntil = 0;                        // host time
        bool ended = false;
        bool isClockBroken = false;  ///< its times say nothing about those of others

        /// Host time behind its last sound.
        [[nodiscard]] double newest() const;
    };
    struct Clip;
    [[nodiscard]] bool keepsTracks() const {
        return !plan_.tracksFolder.empty() ||
               (plan_.mix.kind != nullptr && plan_.mix.kind->isMatroska());
    }
    [[nodiscard]] std::optional<Clip> clipOf(Memory& memory, double from, double to) const;
    [[nodiscard]] Memory& memoryOf(ProcessMemory& process, const Block& block);
    void makeRoom();
    void forgetOld(ProcessMemory& process) const;
    /// What is kept of a process of the last `seconds` before `now`, in host time.
    void saveProcess(int id, ProcessMemory& process, double now, double seconds,
                     std::vector<WrittenFile>& saved);
    [[nodiscard]] bool write(Memory& memory, std::string path, double from, double to,
                             WrittenFile& written);
    /// All streams into one file.
    [[nodiscard]] bool writeTogether(ProcessMemory& process, const std::string& path, double from,
                                     double to, WrittenFile& written);
    [[nodiscard]] std::string pathOf(int track, const Memory& memory,
                                     const std::string& addition) const;

    Plan plan_;
    std::shared_ptr<ProcessNames> names_;
    std::map<int, ProcessMemory> processes_;
    std::vector<WrittenFile> files_;
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
