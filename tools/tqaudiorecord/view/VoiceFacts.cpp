#include "view/VoiceFacts.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "ipc/Printable.h"
#include "output/FilesSink.h"

namespace tqrecorder {

void VoiceFacts::add(const HeardBlock& block) {
    const std::uint64_t frames = block.samples.size() / std::max(1U, block.channels);
    frames_ += frames;
    wasOpen_ = wasOpen_ || block.isOpen;
    awayFrames_ += block.isOpen ? 0 : frames;
    hasSound_ = hasSound_ || std::any_of(block.samples.begin(), block.samples.end(),
                                         [](float sample) { return sample != 0; });
}

std::string VoiceFacts::line(const std::string& name) const {
    const std::string which = name.empty() ? "" : " " + printable(name);
    const std::string unducked = isToDuck_ ? ", so that nothing was ducked" : "";
    if (!wasOpen_) {
        return "Microphone" + which + ": there was none" + unducked +
               "; tqplatform-devices lists what there is\n";
    }
    if (!hasSound_) {
        return "Microphone" + which + ": it heard nothing at all" + unducked +
               "; is it muted or switched off?\n";
    }
    const double away = static_cast<double>(awayFrames_) / kMixFormat.sampleRate;
    constexpr double kLeastSeconds = 0.1;
    if (away < kLeastSeconds) {
        return {};
    }
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), ": it was away for %.1f s, ", away);
    return "Microphone" + which + text.data() +
           (isToDuck_ ? "in which nothing was ducked\n" : "which are silence\n");
}

}  // namespace tqrecorder
