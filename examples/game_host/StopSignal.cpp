#include "StopSignal.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace game {
namespace {

// A pipe wakes the waiting thread whichever thread the signal reaches.
std::array<int, 2> wakePipe{-1, -1};

void onSignal(int /*number*/) {
    const int saved = errno;
    const char byte = 0;
    // When the pipe is full, the waiting thread is already woken.
    [[maybe_unused]] const ssize_t written = write(wakePipe[1], &byte, 1);
    errno = saved;
}

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

StopSignal::StopSignal() {
    if (pipe2(wakePipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        fail("pipe2");
    }
    struct sigaction action {};
    action.sa_handler = &onSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM}) {
        if (sigaction(number, &action, nullptr) != 0) {
            fail("sigaction");
        }
    }
}

bool StopSignal::waitUntil(std::chrono::steady_clock::time_point deadline) const {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        constexpr std::chrono::milliseconds kLongest{60000};
        const auto wait = std::clamp(left, std::chrono::milliseconds{0}, kLongest);
        pollfd entry{wakePipe[0], POLLIN, 0};
        const int ready = poll(&entry, 1, static_cast<int>(wait.count()));
        if (ready > 0) {
            return true;
        }
        if (ready == 0 && left <= kLongest) {
            return false;
        }
    }
}

}  // namespace game
