#include "view/VoiceFacts.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "ipc/Printable.h"
#include "output/FilesSink.h"

namespace tqrecorder {
namespace {

/// A tenth is what is shown.
constexpr double kLeastSeconds = 0.1;
/// A device without any microphone calls nobody. What is late is so by less.
constexpr double kAwaySeconds = 1;

std::string textOf(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f", seconds);
    return text.data();
}

}  // namespace

void VoiceFacts::add(const HeardBlock& block) {
    const std::uint64_t frames = block.samples.size() / std::max(1U, block.channels);
    const double rate = kMixFormat.sampleRate;
    const double hole = (static_cast<double>(block.microseconds) -
                         static_cast<double>(end_.value_or(block.microseconds))) /
                            1e6 -
                        static_cast<double>(block.lostFrames) / rate;
    awayFrames_ += hole > kAwaySeconds ? static_cast<std::uint64_t>(hole * rate) : 0;
    end_ = block.microseconds + frames * 1'000'000 / static_cast<std::uint64_t>(rate);
    wasOpen_ = wasOpen_ || block.isOpen;
    lostFrames_ += block.lostFrames;
    awayFrames_ += block.isOpen ? 0 : frames;
    hasSound_ = hasSound_ || std::any_of(block.samples.begin(), block.samples.end(),
                                         [](float sample) { return sample != 0; });
}

std::string VoiceFacts::lines(const std::string& name, double leftOutSeconds) const {
    const std::string which = "Microphone" + (name.empty() ? "" : " " + printable(name)) + ": ";
    const std::string silent = whySilent();
    std::string all = silent.empty() ? "" : which + silent + "\n";
    const double lost = static_cast<double>(lostFrames_) / kMixFormat.sampleRate;
    if (lost >= kLeastSeconds) {
        all += which + textOf(lost) + " s were lost while the recorder was held up\n";
    }
    // A silent one has nothing to miss.
    if (hasSound_ && leftOutSeconds >= kLeastSeconds) {
        all += which + textOf(leftOutSeconds) +
               " s that it heard while nothing played are in no file\n";
    }
    return all;
}

std::string VoiceFacts::whySilent() const {
    const std::string unducked = isToDuck_ ? ", so that nothing was ducked" : "";
    if (!wasOpen_) {
        return "there was none" + unducked + "; tqplatform-devices lists what there is";
    }
    if (!hasSound_) {
        return "it heard nothing at all" + unducked + "; is it muted or switched off?";
    }
    const double away = static_cast<double>(awayFrames_) / kMixFormat.sampleRate;
    return away < kLeastSeconds
               ? ""
               : "it was away for " + textOf(away) +
                     (isToDuck_ ? " s, in which nothing was ducked" : " s, which are silence");
}

}  // namespace tqrecorder
