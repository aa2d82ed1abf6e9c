#pragma once

#include "view/Observer.h"
#include "view/Screen.h"

namespace tqrecorder {

/// Shows a recording while it runs: in place on a terminal that nobody else writes to, otherwise
/// one line of numbers a second, and nothing on a terminal that the program draws itself; with
/// `verbose` the library's log as well.
class Meter : public Sink {
  public:
    /// Both outlive the meter. The observer is an earlier sink of the same set.
    Meter(Screen& screen, Observer& observer, bool verbose)
        : screen_(screen), observer_(observer), verbose_(verbose) {}

    void log(const Process& process, const LogLine& line) override;
    void tick(std::uint64_t elapsedMicroseconds) override;
    void finish() override { screen_.clearArea(); }

  private:
    Screen& screen_;
    Observer& observer_;
    bool verbose_;
    std::uint64_t nextMicroseconds_ = 0;
};

}  // namespace tqrecorder
