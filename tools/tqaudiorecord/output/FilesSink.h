#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/Sink.h"
#include "output/Backlog.h"
#include "output/files/FileSeries.h"

namespace tqrecorder {

/// The format of every mix.
inline constexpr BlockFormat kMixFormat{44100, 2, 16, false};
/// Headers are brought up to date that often; a killed recorder costs no more than that.
inline constexpr std::uint64_t kRefreshMicroseconds = 500'000;

/// One recording makes at most that many files of one kind, whatever its programs do.
inline constexpr std::size_t kMostFiles = 1000;

/// What the user is told when the first block beyond that comes.
inline std::string fullText(const std::string& place) {
    return place + ": " + std::to_string(kMostFiles) +
           " files are the most; further programs and units get none";
}

/// What the user is told at the end of `blocks` beyond that. `place` is the file or folder that was
/// asked for.
inline std::string refusedText(const std::string& place, std::uint64_t blocks) {
    return place + ": more than " + std::to_string(kMostFiles) + " files would be needed; " +
           std::to_string(blocks) + " blocks of further programs and units are not written";
}

/// A sink that writes sound files.
class FilesSink : public Sink {
  public:
    /// Those written so far, those of the first process first.
    [[nodiscard]] virtual std::vector<WrittenFile> files() const = 0;

    /// Whether any file has sound, without which none takes a name that is taken.
    [[nodiscard]] virtual bool isHeard() const { return false; }
    /// What follows goes to new files. Those that are complete then and have their names are put
    /// into `done`, which whoever is behind holds until it is there.
    virtual void split(const SplitFiles& /*done*/) {}

    void tick(std::uint64_t elapsedMicroseconds) override {
        catchUp(std::chrono::steady_clock::now() + Backlog::kTurn);
        if (elapsedMicroseconds >= nextRefresh_) {
            nextRefresh_ = elapsedMicroseconds + kRefreshMicroseconds;
            refresh();
        }
    }

    [[nodiscard]] bool isSaving() override {
        catchUp(std::chrono::steady_clock::now() + Backlog::kTurn);
        return isBehind();
    }

  protected:
    virtual void refresh() = 0;
    /// Whether there is anything for catchUp().
    [[nodiscard]] virtual bool isBehind() const { return false; }
    /// Writes what waits behind long silence, until `end`.
    virtual void catchUp(Backlog::Time /*end*/) {}

  private:
    std::uint64_t nextRefresh_ = 0;
};

}  // namespace tqrecorder
