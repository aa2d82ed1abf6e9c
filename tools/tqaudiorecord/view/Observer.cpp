#include "view/Observer.h"

#include <TQAudioRecord/tq_events.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace tqrecorder {
namespace {

constexpr std::uint64_t kUnknownCategory = std::numeric_limits<std::uint64_t>::max();
/// A host may call its unit by another name with every block.
constexpr std::size_t kMostUnits = 1000;
constexpr std::size_t kMostStreams = 1000;
constexpr std::uint64_t kUnknownCode = std::numeric_limits<std::uint64_t>::max();

}  // namespace

std::uint64_t ProcessState::eventCount() const {
    std::uint64_t count = 0;
    for (const auto& [event, times] : events) {
        count += times;
    }
    return count;
}

std::uint64_t ProcessState::gaps() const {
    const auto mix = sources.find(0);
    return mix == sources.end() || !mix->second.clock ? 0 : mix->second.clock->gaps();
}

bool ProcessState::isOfInterest() const {
    return !sources.empty() || lostBlocks > 0 || !streams.empty() || !facts.leftOut.empty();
}

double ProcessState::mixSeconds() const {
    const auto mix = sources.find(0);
    return mix == sources.end() || mix->second.format.sampleRate <= 0
               ? 0
               : static_cast<double>(mix->second.frames) / mix->second.format.sampleRate;
}

ProcessState& Observer::stateOf(const Process& process) {
    ProcessState& state = processes_[process.id];
    // The name changes when a process execs.
    state.process = process;
    return state;
}

std::vector<const ProcessState*> Observer::mentioned() const {
    std::vector<const ProcessState*> found;
    for (const bool isAny : {false, true}) {
        for (const auto& [id, state] : processes_) {
            if (isAny || state.isOfInterest()) {
                found.push_back(&state);
            }
        }
        if (!found.empty()) {
            break;
        }
    }
    return found;
}

void Observer::processBegan(const Process& process) {
    stateOf(process);
}

void Observer::block(const Process& process, const Block& block) {
    SourceState& source = stateOf(process).sources[block.track];
    if (source.format != block.format || source.unit != block.unit) {
        source.unit = block.unit;
        source.format = block.format;
        source.clock.reset();
    }
    const std::size_t frameBytes = block.format.frameBytes();
    if (frameBytes == 0 || block.format.sampleRate <= 0) {
        return;
    }
    if (auto& units = stateOf(process).units;
        block.track != 0 && units.size() < kMostUnits && !units.contains(block.unit)) {
        units.emplace(block.unit);
    }
    Level level;
    level.add(block.frames, block.format);
    source.whole.add(level);
    source.window.add(level);
    source.frames += block.frames.size() / frameBytes;
    if (!source.clock) {
        source.clock.emplace(block.format.sampleRate, block.microseconds,
                             block.track == 0 ? kMixPatience : kTrackPatience,
                             std::chrono::steady_clock::now(), slackOf(block.format));
    }
    (void)source.clock->before(block);
}

void Observer::lost(const Process& process, std::uint64_t blocks, std::uint64_t bytes) {
    ProcessState& state = stateOf(process);
    state.lostBlocks += blocks;
    state.lostBytes += bytes;
}

void Observer::event(const Process& process, const Event& event) {
    // One entry for all that no table knows: a host that spoils the shared memory may say anything.
    const bool isKnown = tq_event_find(event.category, event.code) != nullptr;
    const std::uint64_t category = isKnown ? event.category : kUnknownCategory;
    const std::uint64_t code = isKnown || event.code == TQ_EVENT_DONE ? event.code : kUnknownCode;
    ++stateOf(process).events[{category, code}];
}

void Observer::stream(const Process& process, const StreamFacts& facts) {
    ProcessState& state = stateOf(process);
    if (state.streams.size() == kMostStreams && !state.streams.contains(facts.id)) {
        ++state.moreStreams;
        return;
    }
    state.streams[facts.id] = facts;
}

void Observer::numbers(const Process& process, std::span<const TrackNumbers> tracks,
                       const HostFacts& facts, double ringFill) {
    ProcessState& state = stateOf(process);
    state.facts = facts;
    state.factsKnown = true;
    state.ringFill = ringFill;
    for (const TrackNumbers& numbers : tracks) {
        SourceState& source = state.sources[numbers.track];
        source.bufferedBytes = numbers.bufferedBytes;
        source.bufferCapacity = numbers.bufferCapacity;
        if (source.frames == 0) {
            source.unit = numbers.unit;
            source.format = numbers.format;
        }
    }
}

void Observer::processEnded(const Process& process, const HostFacts& facts) {
    ProcessState& state = stateOf(process);
    state.facts = facts;
    state.factsKnown = true;
    state.ended = true;
    state.ringFill = 0;
}

bool Observer::isHeard(const ProcessState& state) const {
    const bool isMixOurs = isVoiceInMix_ && state.facts.blocksWithSound == 0;
    return std::any_of(state.sources.begin(), state.sources.end(), [isMixOurs](const auto& source) {
        const bool isOurs = source.first == kMicrophoneTrack || (source.first == 0 && isMixOurs);
        return !isOurs && source.second.whole.peak() > 0;
    });
}

void Observer::clearWindows() {
    for (auto& [id, state] : processes_) {
        for (auto& [track, source] : state.sources) {
            source.window = {};
        }
    }
}

}  // namespace tqrecorder
