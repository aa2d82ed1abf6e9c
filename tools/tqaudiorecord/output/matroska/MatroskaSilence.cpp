// Silence where a unit did not play, or all stood still.

#include <algorithm>

#include "output/matroska/MatroskaRecording.h"

namespace tqrecorder {
namespace {

constexpr std::uint64_t kSilentFrames = 4096;

}  // namespace

void MatroskaRecording::catchUp(Backlog::Time end) {
    backlog_.work(
        end, [this](const Block& block) { return fillStep(block); },
        [this](const Block& block) { writeNow(block); },
        [this](const SplitFiles& done) { splitNow(done); });
}

/// Of the stream that has come farthest: where that stood still, all have.
double MatroskaRecording::missingBefore(const Block& block) const {
    const auto farthest = std::max_element(
        streams_.begin(), streams_.end(),
        [](const Stream& one, const Stream& other) { return one.position() < other.position(); });
    return farthest == streams_.end() ? 0 : farthest->clock.missingBefore(block.microseconds);
}

bool MatroskaRecording::fillStep(const Block& block) {
    const double missing = missingBefore(block);
    if (failed_ || missing <= Backlog::kAtOnce) {
        return false;
    }
    if (isGivenUp_ && missing > kLongGap) {
        fail(brokenOffText(plan_.path));
        return false;
    }
    // Behind a split nothing is in the new file yet.
    const auto mix = currentMix();
    if (mix != streams_.end() && mix->inFile == 0 && !beginInFile(*mix)) {
        return false;
    }
    const double before = latest();
    fillIdle(0, before + Backlog::kStep);
    return latest() > before;
}

void MatroskaRecording::writeSilence(Stream& stream, std::uint64_t frames) {
    if (frames == 0) {
        return;
    }
    const std::vector<std::byte> silence(kSilentFrames * stream.format.frameBytes());
    while (frames > 0 && !failed_) {
        const std::uint64_t count = std::min(frames, kSilentFrames);
        write(stream, std::span(silence).first(count * stream.format.frameBytes()));
        frames -= count;
    }
}

double MatroskaRecording::latest() const {
    double latest = zero_;
    for (const Stream& stream : streams_) {
        latest = std::max(latest, stream.position());
    }
    return latest;
}

void MatroskaRecording::fillIdle(double patience, double until) {
    const bool fillsAll = plan_.kind->coding != MatroskaCoding::kPcm;
    for (Stream& stream : streams_) {
        if (stream.inFile != 0 && (stream.isCurrent || fillsAll) &&
            stream.position() < until - patience) {
            const std::uint64_t silence = stream.clock.idleUntil(until);
            stream.unwritten += silence;
            writeSilence(stream, silence);
        }
    }
}

}  // namespace tqrecorder
