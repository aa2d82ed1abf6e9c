#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace tqcommon {

/// Gives a descriptor that a library keeps a number that programs do not count on: at least
/// `lowest`, or else one that is no standard stream's. What a program without standard streams
/// prints would reach the library's file otherwise. -1 when the number is a standard stream's and
/// there is no other. Closed by exec. [any thread]
[[nodiscard]] inline int outOfTheWay(int number, int lowest = 64) noexcept {
    if (number < 0) {
        return -1;
    }
    int moved = fcntl(number, F_DUPFD_CLOEXEC, lowest);
    if (moved < 0 && number > STDERR_FILENO) {
        return number;
    }
    if (moved < 0) {
        moved = fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    }
    close(number);
    return moved;
}

/// Owns a file descriptor.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }

    [[nodiscard]] int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    void reset() {
        if (number_ >= 0) {
            close(std::exchange(number_, -1));
        }
    }

  private:
    int number_ = -1;
};

}  // namespace tqcommon
