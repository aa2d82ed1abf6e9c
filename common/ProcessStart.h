#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace tqcommon {

/// When a process started, in the system's ticks since it booted; 0 for one that is not there, and
/// where no descriptor is left. Not changed by exec: with its number it names a process for good.
/// [any thread] Also in a child between fork and exec.
[[nodiscard]] inline std::uint64_t processStart(pid_t process) noexcept {
    // "/proc/PID/stat", written without what may allocate.
    std::array<char, 32> path{"/proc/"};
    std::array<char, 12> digits{};
    std::size_t count = 0;
    for (auto rest = static_cast<std::uint32_t>(process); rest > 0; rest /= 10) {
        digits[count++] = static_cast<char>('0' + rest % 10);
    }
    std::size_t end = 6;
    while (count > 0) {
        path[end++] = digits[--count];
    }
    std::memcpy(&path[end], "/stat", 6);
    const int fd = ::open(path.data(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return 0;
    }
    std::array<char, 1024> text{};
    const ssize_t got = ::read(fd, text.data(), text.size() - 1);
    ::close(fd);
    // The name, in brackets, may hold anything; the start is the 20th field behind it.
    const char* at = got > 0 ? std::strrchr(text.data(), ')') : nullptr;
    for (int field = 0; at != nullptr && field < 20; ++field) {
        at = std::strchr(at + 1, ' ');
    }
    return at != nullptr ? std::strtoull(at + 1, nullptr, 10) : 0;
}

}  // namespace tqcommon
