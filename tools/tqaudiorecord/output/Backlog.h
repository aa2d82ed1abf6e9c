#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "core/Records.h"
#include "output/files/FileChain.h"

namespace tqrecorder {

/// Blocks of a recording that wait until the long silence in front of them is written, and splits
/// behind them. To code half an hour of silence takes seconds, in which whoever calls could take no
/// other block: it is written a little in every turn instead. [one host thread at a time]
class Backlog {
  public:
    using Time = std::chrono::steady_clock::time_point;
    /// What a recorder's turn may spend on it.
    static constexpr std::chrono::milliseconds kTurn{20};
    /// Microseconds of silence that are written at once, and those of a step where there is more.
    static constexpr double kAtOnce = 5e6;
    static constexpr double kStep = 2e6;

    [[nodiscard]] bool isEmpty() const { return waiting_.empty(); }
    void add(const Block& block) { waiting_.emplace_back(block); }
    void add(SplitFiles split) { waiting_.emplace_back(std::move(split)); }

    /// `fill` writes a step of the silence in front of a block, false where it is to be written
    /// now, which `write` does; `split` cuts where a split was asked for. Does one step at least,
    /// and no more when it is `end`.
    template <typename Fill, typename Write, typename Split>
    void work(Time end, const Fill& fill, const Write& write, const Split& split) {
        while (!waiting_.empty()) {
            const Waiting& next = waiting_.front();
            if (next.split != nullptr) {
                split(next.split);
                waiting_.pop_front();
            } else if (!fill(next.block)) {
                write(next.block);
                waiting_.pop_front();
            }
            if (std::chrono::steady_clock::now() >= end) {
                return;
            }
        }
    }

  private:
    struct Waiting {
        explicit Waiting(const Block& from)
            : unit(from.unit), bytes(from.frames.begin(), from.frames.end()), block(from) {
            block.unit = unit;
            block.frames = bytes;
        }
        explicit Waiting(SplitFiles files) : split(std::move(files)) {}
        Waiting(const Waiting&) = delete;
        Waiting& operator=(const Waiting&) = delete;

        std::string unit;
        std::vector<std::byte> bytes;
        Block block;
        SplitFiles split;  ///< null for a block
    };
    std::deque<Waiting> waiting_;
};

}  // namespace tqrecorder
