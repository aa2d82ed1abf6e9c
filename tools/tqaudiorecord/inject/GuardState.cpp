#include "inject/GuardState.h"

#include <TQAudioRecord/tq_capture.h>
#include <fcntl.h>

#include <array>
#include <cerrno>
#include <filesystem>

#include "common/Descriptor.h"

namespace tqrecorder {
namespace {

GuardState stateOf(tq_guard_reason reason) {
    switch (reason) {
        case TQ_GUARD_ARMED:
            return GuardState::kArmed;
        case TQ_GUARD_NEVER_ENABLED:
            return GuardState::kNeverEnabled;
        case TQ_GUARD_NOT_WANTED:
            return GuardState::kNotWanted;
        case TQ_GUARD_FORBIDDEN:
            return GuardState::kForbidden;
        case TQ_GUARD_USED_UP:
            return GuardState::kUsedUp;
        case TQ_GUARD_NO_FILES:
            return GuardState::kUnreadable;
    }
    return GuardState::kUnknown;
}

std::string guardFolder() {
    std::array<char, 4096> folder{};
    return tq_guard_folder(folder.data(), folder.size()) == TQ_OK ? folder.data() : "";
}

/// Whether there are as many as the guard's folder and its three files need.
bool areDescriptorsLeft() {
    std::array<tqcommon::Descriptor, 4> probes;
    for (tqcommon::Descriptor& probe : probes) {
        probe = tqcommon::Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    return static_cast<bool>(probes.back()) || errno != EMFILE;
}

}  // namespace

GuardStatus guardStatus() {
    tq_guard_state guard{};
    guard.size = sizeof guard;
    if (tq_guard_get_state(&guard) != TQ_OK) {
        return {};
    }
    return {stateOf(guard.next_launch), guard.retries_left,
            stateOf(guard.this_launch) == GuardState::kArmed};
}

std::string programName() {
    return std::filesystem::path(guardFolder()).parent_path().filename().string();
}

Hello helloWith(const GuardStatus& status, bool usesPlatform) {
    Hello hello;
    hello.guard = static_cast<std::uint32_t>(status.state);
    hello.retriesLeft = status.retriesLeft;
    hello.usesPlatform = usesPlatform ? 1 : 0;
    programName().copy(hello.name.data(), hello.name.size() - 1);
    if (status.state == GuardState::kUnreadable) {
        hello.lacksDescriptors = areDescriptorsLeft() ? 0 : 1;
        guardFolder().copy(hello.brokenGuard.data(), hello.brokenGuard.size() - 1);
    }
    return hello;
}

}  // namespace tqrecorder
