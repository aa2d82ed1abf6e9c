#pragma once

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "core/Sink.h"
#include "output/FilesSink.h"
#include "output/ReplayMemory.h"
#include "output/ReplaySaver.h"
#include "output/StreamClock.h"
#include "output/files/FileNames.h"

namespace tqrecorder {

/// Keeps the last seconds of every process's mix and tracks in memory, and has them written to new
/// numbered files when asked to, or all to one Matroska file: what is in one save begins and ends
/// together. The end of a recording saves nothing by itself. Saves are written while more is kept;
/// until then what they hold stays in memory beside it.
class ReplaySink : public FilesSink {
  public:
    using Plan = ReplayPlan;
    /// `write` is called on another thread.
    ReplaySink(Plan plan, std::shared_ptr<ProcessNames> names, ReplaySaver::Write write = {});

    /// Sees whether files can be made there. False with a line in problems().
    [[nodiscard]] bool open();

    void block(const Process& process, const Block& block) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    /// Begins to save that many last seconds, or all that is kept. Gives the ticket that
    /// takeSaved() has when it is written; 0 where there is nothing to save.
    [[nodiscard]] std::uint64_t beginSave(std::optional<double> seconds);
    /// Whether so many saves are under way that there is no room for another.
    [[nodiscard]] bool isSavingAllItCan() const { return saver_.isFull(); }
    [[nodiscard]] bool isSaving() override { return saver_.isBusy(); }
    void giveUpSaves() override { saver_.giveUp(); }
    /// Those that were written since the last call.
    [[nodiscard]] std::vector<ReplaySaved> takeSaved();
    /// Waits for the saves that are under way.
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override { return problems_; }
    [[nodiscard]] std::vector<WrittenFile> files() const override { return files_; }

  protected:
    void refresh() override {}

  private:
    /// The last of one stream.
    struct Memory {
        BlockFormat format;
        std::string unit;                   ///< empty for the mix
        std::optional<ReplayMemory> sound;  ///< none where there was no memory for it
        StreamClock clock;
        bool isCurrent = true;
        std::uint64_t number = 0;                   ///< no other stream has it
        std::optional<std::int64_t> savedFrames{};  ///< up to there, since the stream began

        [[nodiscard]] std::int64_t newest() const {
            return static_cast<std::int64_t>(sound->written() / format.frameBytes());
        }
        [[nodiscard]] std::int64_t oldest() const {
            return static_cast<std::int64_t>(sound->oldest() / format.frameBytes());
        }
        /// Frames since the stream began, at that time; before that, less than 0.
        [[nodiscard]] double frameAt(double microseconds) const;
    };
    struct ProcessMemory {
        std::vector<std::pair<int, Memory>> streams;  // by track, the mix is 0
        double savedUntil = 0;                        // host time
        bool ended = false;
        bool isClockBroken = false;  ///< its times say nothing about those of others

        /// Host time behind its last sound.
        [[nodiscard]] double newest() const;
    };
    /// How far a process and its streams were saved before a save.
    struct Mark {
        std::uint64_t ticket;
        int processId;
        double savedUntil;
        std::map<std::uint64_t, std::optional<std::int64_t>> savedFrames;  // by stream
    };
    [[nodiscard]] bool keepsTracks() const {
        return !plan_.tracksFolder.empty() ||
               (plan_.mix.kind != nullptr && plan_.mix.kind->isMatroska());
    }
    [[nodiscard]] StreamClip clipOf(int track, const Memory& memory, double from, double to) const;
    [[nodiscard]] Memory& memoryOf(ProcessMemory& process, const Block& block);
    void keep(Memory& memory, std::uint64_t silence, std::span<const std::byte> bytes);
    void complainOfMemory(Memory& memory);
    void complainOfMore(std::size_t most, const std::string& ofWhat);
    /// Host time behind the last sound of all processes.
    [[nodiscard]] double newest() const;
    void makeRoom();
    void forgetOld(ProcessMemory& process);
    /// What is kept of a process of the last `seconds` before `now`, in host time. It counts as
    /// saved from now on.
    [[nodiscard]] std::optional<ProcessClip> clipOf(int id, ProcessMemory& process, double now,
                                                    double seconds);
    void collect();
    void unmark(const Mark& mark);

    Plan plan_;
    std::shared_ptr<ProcessNames> names_;
    std::map<int, ProcessMemory> processes_;
    std::uint64_t lastNumber_ = 0;  // of streams
    std::uint64_t lastTicket_ = 0;
    std::vector<Mark> marks_;  // of saves that are under way
    std::vector<ReplaySaved> saved_;
    std::vector<WrittenFile> files_;
    std::vector<std::string> problems_;
    ReplaySaver saver_;
};

}  // namespace tqrecorder
