#pragma once

#include <stdexcept>
#include <string>

namespace game {

/// Why the game cannot go on, in one line, and the exit code that goes with it.
class HostError : public std::runtime_error {
  public:
    static constexpr int kSounds = 2;
    static constexpr int kAudio = 3;

    HostError(int code, const std::string& message) : std::runtime_error(message), code_(code) {}
    [[nodiscard]] int code() const { return code_; }

  private:
    int code_;
};

}  // namespace game
