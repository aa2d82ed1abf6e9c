#include "view/TerminalWatch.h"

#include <sys/inotify.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <string>

namespace tqrecorder {

TerminalWatch::TerminalWatch(int descriptor) : descriptor_(descriptor) {
    tqcommon::Descriptor notices(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    if (notices && inotify_add_watch(notices.get(), path.c_str(), IN_MODIFY) >= 0) {
        notices_ = std::move(notices);
    }
}

bool TerminalWatch::take() {
    alignas(inotify_event) std::array<char, 4096> events{};
    bool isAny = false;
    while (read(notices_.get(), events.data(), events.size()) > 0) {
        isAny = true;
    }
    return isAny;
}

bool TerminalWatch::haveOthersWritten() {
    return !notices_ || take();
}

// A system that does not tell of our own writes does not tell of others' either.
void TerminalWatch::ownIsWritten() {
    if (notices_ && !take() && !isTried_) {
        notices_.reset();
    }
    isTried_ = true;
}

bool TerminalWatch::isTakenOver() const {
    termios settings{};
    constexpr tcflag_t kOfAShell = ICANON | ECHO;
    return tcgetattr(descriptor_, &settings) == 0 && (settings.c_lflag & kOfAShell) != kOfAShell;
}

}  // namespace tqrecorder
