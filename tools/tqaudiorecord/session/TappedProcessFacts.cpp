// What a recorded process tells of itself beside its sound, and what it is told.

#include <algorithm>
#include <utility>

#include "session/TappedProcess.h"

namespace tqrecorder {
namespace {

/// The library buffers at most this much of one track.
constexpr std::uint64_t kTrackBufferBytes = 409600;

}  // namespace

void TappedProcess::tellNumbers(Sink& sink) {
    if (isCorrupt_) {
        return;
    }
    std::vector<TrackNumbers> list;
    for (std::size_t id = 1; id < kTracks; ++id) {
        const SharedTrack& track = program_.memory.page().tracks[id];
        if (track.isThere.load() == 0) {
            continue;
        }
        TrackNumbers numbers;
        numbers.track = static_cast<int>(id);
        numbers.unit = unitNameOf(track.unit.load());
        // Its own blocks come as 16-bit samples where the host renders float.
        numbers.format = {static_cast<double>(track.sampleRate.load()),
                          std::min(track.channels.load(), kMostChannels), 16, false};
        numbers.bufferedBytes = track.bufferedBytes.load();
        numbers.bufferCapacity = kTrackBufferBytes;
        list.push_back(std::move(numbers));
    }
    sink.numbers(process_, list, facts(), std::exchange(highestFill_, sound_.fill()));
}

HostFacts TappedProcess::facts() const {
    HostFacts facts = before_;
    if (process_.pid == 0) {
        return facts;
    }
    const SharedFacts& shared = program_.memory.page().facts;
    const GuardState guard = shared.guard.load();
    facts.hooksInstalled = shared.hooksInstalled.load() != 0;
    facts.guardRefused = !facts.hooksInstalled && guard != GuardState::kArmed;
    facts.retriesLeft = shared.retriesLeft.load();
    facts.brokenGuard = program_.hello.brokenGuard.data();
    facts.unitsCreated += shared.unitsCreated.load();
    facts.unitsStarted += shared.unitsStarted.load();
    for (std::size_t track = 0; track < kTracks; ++track) {
        program_.memory.page().frames[track].addTo(facts.frames[track]);
    }
    facts.bridges = shared.bridges.load();
    facts.mayPlay = newest().hello.mayPlay != 0;
    facts.blocks = blocks_;
    facts.blocksWithSound = blocksWithSound_;
    addLeftOut(facts);
    return facts;
}

void TappedProcess::addLeftOut(HostFacts& facts) const {
    const SharedLeftOut& shared = program_.memory.page().leftOut;
    const std::size_t count =
        std::min<std::size_t>(shared.count.load(std::memory_order_acquire), SharedLeftOut::kMost);
    for (std::size_t i = 0; i < count; ++i) {
        facts.leftOut.push_back(
            {unitNameOf(shared.units[i].name.load()), shared.units[i].reasons.load()});
    }
    facts.leftOutMoreReasons |= shared.reasonsOfMore.load();
}

void TappedProcess::setDuckLevel(float decibels) {
    if (!isCorrupt_) {
        newest().memory.page().duckLevel.store(decibels, std::memory_order_relaxed);
    }
}

void TappedProcess::setDuckOrder(float order) {
    if (!isCorrupt_) {
        newest().memory.page().duckOrder.store(order, std::memory_order_relaxed);
    }
}

}  // namespace tqrecorder
