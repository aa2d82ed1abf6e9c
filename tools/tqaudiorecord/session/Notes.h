#pragma once

#include <string>
#include <vector>

namespace tqrecorder {

/// What the user is told at the end, one line each. The same line again is counted, and so are
/// lines beyond a bound: a host that goes on giving reasons cannot flood the user.
/// [one host thread at a time]
class Notes {
  public:
    void add(const std::string& text);
    [[nodiscard]] std::vector<std::string> lines() const;

  private:
    struct Note {
        std::string text;
        unsigned long long times = 1;
    };
    std::vector<Note> notes_;
    unsigned long long further_ = 0;
};

}  // namespace tqrecorder
