#include "CountedFrames.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace tqtest {
namespace {

/// Values of a sample; 16 bits tell four times as many apart.
constexpr std::size_t kSteps = 4096;
constexpr double kStepsPerUnit = 8192;
constexpr double kLowest = 0.25;
/// A sample that is further from all steps was made of others.
constexpr double kMostOff = 0.3;
constexpr double kSilent = 0.001;

std::optional<std::size_t> stepOf(double sample) {
    const double step = (sample - kLowest) * kStepsPerUnit;
    const double nearest = std::round(step);
    if (nearest < 0 || nearest >= kSteps || std::abs(step - nearest) > kMostOff) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(nearest);
}

CountedRun runOf(const Sound& sound, std::size_t frame) {
    const double low = sound.value(frame, 0);
    const double high = sound.value(frame, 1);
    if (std::abs(low) < kSilent && std::abs(high) < kSilent) {
        return {CountedRun::Kind::silent, 0, 1};
    }
    const auto lowStep = stepOf(low);
    const auto highStep = stepOf(high);
    if (!lowStep || !highStep) {
        return {CountedRun::Kind::other, 0, 1};
    }
    return {CountedRun::Kind::counted, *highStep * kSteps + *lowStep, 1};
}

}  // namespace

float countedSample(std::size_t sample) {
    const std::size_t frame = sample / 2;
    const std::size_t step = (sample % 2 == 0 ? frame : frame / kSteps) % kSteps;
    return static_cast<float>(kLowest + static_cast<double>(step) / kStepsPerUnit);
}

std::vector<CountedRun> countedRuns(const Sound& sound) {
    std::vector<CountedRun> runs;
    for (std::size_t frame = 0; frame < sound.frames(); ++frame) {
        const CountedRun next = runOf(sound, frame);
        const bool goesOn =
            !runs.empty() && runs.back().kind == next.kind &&
            (next.kind != CountedRun::Kind::counted || next.first == runs.back().end());
        if (goesOn) {
            ++runs.back().frames;
        } else {
            runs.push_back(next);
        }
    }
    return runs;
}

std::vector<CountedRun> withoutPauses(const std::vector<CountedRun>& runs) {
    std::vector<CountedRun> joined;
    for (const CountedRun& run : runs) {
        const std::size_t count = joined.size();
        const bool isBehindPause = count >= 2 && run.kind == CountedRun::Kind::counted &&
                                   joined[count - 1].kind == CountedRun::Kind::silent &&
                                   joined[count - 2].kind == CountedRun::Kind::counted &&
                                   joined[count - 2].end() == run.first;
        if (isBehindPause) {
            joined.pop_back();
            joined.back().frames += run.frames;
        } else {
            joined.push_back(run);
        }
    }
    return joined;
}

std::string told(const std::vector<CountedRun>& runs) {
    std::string all;
    for (const CountedRun& run : runs) {
        all += all.empty() ? "" : ", ";
        if (run.kind == CountedRun::Kind::counted) {
            all += "counted " + std::to_string(run.first) + " to " + std::to_string(run.end() - 1);
        } else {
            const bool isSilent = run.kind == CountedRun::Kind::silent;
            all += (isSilent ? "silent " : "other ") + std::to_string(run.frames);
        }
    }
    return all;
}

std::size_t longestCount(const Sound& sound) {
    std::size_t longest = 0;
    for (const CountedRun& run : countedRuns(sound)) {
        longest = std::max(longest, run.kind == CountedRun::Kind::counted ? run.frames : 0);
    }
    return longest;
}

}  // namespace tqtest
