#pragma once

#include <sys/file.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace korva_audio_utils {

/// Keeps other processes that use this class out of a file for as long as it lives. Whoever holds
/// the file longer than kPatience is not waited for: a hostile holder costs that time and no more.
/// [host thread]
class FileLock {
  public:
    static constexpr std::chrono::milliseconds kPatience{500};

    explicit FileLock(int fd) : fd_(fd) {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        isHeld_ = tryLock();
        while (!isHeld_ && errno == EWOULDBLOCK && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
            isHeld_ = tryLock();
        }
    }
    ~FileLock() {
        if (isHeld_) {
            ::flock(fd_, LOCK_UN);
        }
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

  private:
    [[nodiscard]] bool tryLock() const { return ::flock(fd_, LOCK_EX | LOCK_NB) == 0; }

    int fd_;
    bool isHeld_ = false;
};

}  // namespace korva_audio_utils
