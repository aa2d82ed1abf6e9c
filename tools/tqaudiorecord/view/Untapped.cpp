#include "view/Untapped.h"

#include "core/Services.h"

namespace tqrecorder {
namespace {

constexpr std::size_t kMostLines = 8;

std::string whyOutside(const SeenProcess& seen) {
    if (seen.isStatic) {
        return "it is statically linked, so that nothing can be loaded into it; use a build of it "
               "that is not";
    }
    if (seen.isPrivileged) {
        return "it runs with raised privileges (setuid), where the system lets nothing be loaded; "
               "start it as a program without them";
    }
    if (seen.isSandboxed) {
        return "it runs in a sandbox that keeps the recorder out; start the program with its "
               "sandbox off, or record the program's main process";
    }
    // A child of a recorded program joins with its first sound.
    if (!seen.library.empty() && !seen.isPrepared) {
        return "it opened " + seen.library +
               " later, which could not be known when it was started; start it as COMMAND";
    }
    return {};
}

}  // namespace

std::string rawDeviceText(const SeenProcess& seen) {
    return "it plays straight to the device " + seen.device +
           ", past every library; choose ALSA or PulseAudio in its settings";
}

std::vector<std::string> unrecordedProcessLines(const Observer& observer, Evidence evidence) {
    std::vector<std::string> lines;
    for (const SeenProcess& seen : observer.seenProcesses()) {
        const bool hasSound = !seen.library.empty() || !seen.device.empty();
        std::string why = whyOutside(seen);
        if (why.empty() && !seen.device.empty()) {
            why = rawDeviceText(seen);
        }
        // What a sound server plays is recorded of its clients.
        if (!seen.isTapped && !isService(seen.name) && !why.empty() &&
            (hasSound || evidence == Evidence::kOfAnyReason) && lines.size() < kMostLines) {
            lines.push_back(seen.name + " (" + std::to_string(seen.pid) + "): " + why);
        }
    }
    return lines;
}

}  // namespace tqrecorder
