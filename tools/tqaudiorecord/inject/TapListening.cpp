#include <TQAudioRecord/tq_events.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <span>

#include "inject/Tap.h"
#include "ipc/SharedStream.h"

// What the tap's listeners do with what the library tells them.

namespace tqrecorder {
namespace {

std::uint64_t hostMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000U +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000U;
}

RingWriter::Bytes bytesOf(const char* text) {
    return std::as_bytes(std::span(text, std::strlen(text)));
}

/// A unit that has just been made: it has a track and has never been started.
bool isNew(const tq_unit& unit) {
    return unit.track != 0 && unit.unit == 0;
}

/// Whether a unit plays that will not be heard.
bool isLeftOut(const tq_unit& unit) {
    return unit.is_started != 0 && unit.reason != TQ_UNIT_CAPTURED &&
           unit.reason != TQ_UNIT_NOT_STARTED && unit.reason != TQ_UNIT_CAPTURE_OFF;
}

tq_listener listenerOf(void* tap) {
    tq_listener listener{};
    listener.size = sizeof listener;
    listener.context = tap;
    return listener;
}

}  // namespace

bool Tap::isWanted(const char* track) const {
    return settings_.choice.wants(track, program_);
}

/// Where nothing is left out, nobody is asked.
void Tap::chooseUnits(tq_capture_rules& rules) {
    if (!settings_.choice.isAll()) {
        rules.context = this;
        rules.is_unit_wanted = [](void* tap, const char* name) -> std::uint32_t {
            return static_cast<const Tap*>(tap)->isWanted(name) ? 1 : 0;
        };
    }
}

BridgeState Tap::useBridges() {
    tq_bridges bridges{};
    bridges.size = sizeof bridges;
    bridges.context = this;
    bridges.before_stream = [](void* tap) { static_cast<Tap*>(tap)->beforeStream(); };
    bridges.is_listener_coming = [](void* tap) -> std::uint32_t {
        return static_cast<Tap*>(tap)->isUnheard_.load(std::memory_order_relaxed) ? 0 : 1;
    };
    bridges.is_wanted = [](void* tap, const char* name) -> std::uint32_t {
        return static_cast<const Tap*>(tap)->isWanted(name) ? 1 : 0;
    };
    switch (tq_capture_use_bridges(&bridges)) {
        case TQ_OK:
            return BridgeState::kOn;
        case TQ_ERROR_HOOKS_NOT_WORKING:
            return BridgeState::kNotAsked;
        case TQ_ERROR_NO_BRIDGES:
            return BridgeState::kMissing;
        default:
            return BridgeState::kRefused;
    }
}

void Tap::watch() {
    tq_listener listener = listenerOf(this);
    listener.on_stream = [](void* tap, const tq_stream* stream) {
        static_cast<Tap*>(tap)->pushStream(*stream);
    };
    listener.on_unit = [](void* tap, const tq_unit* unit) {
        static_cast<Tap*>(tap)->takeUnit(*unit);
    };
    if (settings_.wantsLog) {
        listener.on_log = [](void* tap, const tq_log_line* line) {
            static_cast<Tap*>(tap)->pushLine(*line);
        };
    }
    (void)tq_capture_listen(&listener, &watching_);
}

/// Levels that are set before a stream begins count from its first frame.
void Tap::setVolume() {
    if (volume_.begin(settings_)) {
        followOrder();
    } else {
        tq_event refused{};
        refused.category = TQ_EVENT_PROCESSING;
        refused.code = TQ_EVENT_HOOKS_NOT_WORKING;
        refused.message = "ducking or compression could not be switched on";
        refused.host_microseconds = hostMicroseconds();
        pushEvent(refused);
    }
}

void Tap::followOrder() {
    if (!memory_) {
        return;
    }
    volume_.follow(memory_->page().duckLevel.load(std::memory_order_relaxed),
                   memory_->page().duckOrder.load(std::memory_order_relaxed));
}

void Tap::collect() {
    tq_listener mix = listenerOf(this);
    mix.on_mix = [](void* tap, const tq_block* block) {
        static_cast<Tap*>(tap)->pushBlock(RecordKind::kMix, *block);
    };
    mix.on_event = [](void* tap, const tq_event* event) {
        static_cast<Tap*>(tap)->pushEvent(*event);
    };
    // Called again as long as the first did not succeed: what is there already stays alone.
    if (mix_ == nullptr) {
        (void)tq_capture_listen(&mix, &mix_);
    }
    tq_listener tracks = listenerOf(this);
    tracks.on_track = [](void* tap, const tq_block* block) {
        static_cast<Tap*>(tap)->pushBlock(RecordKind::kTrack, *block);
    };
    if (tracks_ == nullptr) {
        (void)tq_capture_listen(&tracks, &tracks_);
    }
}

void Tap::pushBlock(RecordKind kind, const tq_block& block) noexcept {
    const Outlet* const outlet = outlet_.load(std::memory_order_acquire);
    // Before its first unit a process has no sound, and a launcher never has: the mix would be
    // silence in files that another process's sound belongs into.
    if (outlet == nullptr || !isUnitSeen_.load(std::memory_order_relaxed)) {
        return;
    }
    constexpr std::size_t kMostBuffers = 32;
    std::array<RingWriter::Bytes, kMostBuffers + 1> parts;
    std::size_t count = std::min<std::size_t>(block.buffer_count, kMostBuffers);
    for (std::size_t i = 0; i < count; ++i) {
        parts[i] = {static_cast<const std::byte*>(block.buffers[i].data), block.buffers[i].bytes};
    }
    RecordHeader header;
    header.kind = kind;
    header.buffers = static_cast<std::uint32_t>(count);
    header.channels = block.format.channels;
    header.bitsPerChannel = block.format.bits_per_channel;
    header.isFloat = block.format.is_float;
    header.isBigEndian = block.is_big_endian;
    header.isUnsigned = block.is_unsigned;
    header.fractionBits = block.fraction_bits;
    header.sampleRate = block.format.sample_rate;
    header.microseconds = block.host_microseconds;
    if (kind == RecordKind::kTrack) {
        header.track = block.track;
        // Each block says whose it is: the one before it may have found no room.
        parts[count] = bytesOf(block.name);
        parts[count] = parts[count].first(std::min(parts[count].size(), kLongestName));
        header.nameBytes = static_cast<std::uint32_t>(parts[count++].size());
    }
    pushCounted(*outlet, header, std::span(parts).first(count));
}

/// A loss is told with the next block of the same stream: where it belongs, and how long it is.
void Tap::pushCounted(const Outlet& outlet, RecordHeader& header,
                      std::span<const RingWriter::Bytes> parts) noexcept {
    if (header.track >= lostFrames_.size()) {
        return;
    }
    std::atomic<std::uint64_t>& lost = lostFrames_[header.track];
    header.lostFrames = lost.load(std::memory_order_relaxed);
    if (pushSound(outlet, header, parts)) {
        lost.store(0, std::memory_order_relaxed);
        return;
    }
    const std::uint64_t frameBytes =
        std::uint64_t{header.channels} * std::max(header.bitsPerChannel / 8, 1U);
    std::uint64_t bytes = 0;
    for (const RingWriter::Bytes& part : parts.first(header.buffers)) {
        bytes += part.size();
    }
    lost.store(header.lostFrames + bytes / std::max<std::uint64_t>(frameBytes, 1),
               std::memory_order_relaxed);
}

void Tap::pushEvent(const tq_event& event) noexcept {
    const Outlet* const outlet = outlet_.load(std::memory_order_acquire);
    if (outlet == nullptr) {
        return;
    }
    RecordHeader header;
    header.kind = RecordKind::kEvent;
    header.category = event.category;
    header.code = event.code;
    header.microseconds = event.host_microseconds;
    const std::array<RingWriter::Bytes, 1> parts{bytesOf(event.message)};
    outlet->events.push(header, parts);
}

void Tap::pushLine(const tq_log_line& line) noexcept {
    const Outlet* const outlet = outlet_.load(std::memory_order_acquire);
    if (outlet == nullptr) {
        return;
    }
    RecordHeader header;
    header.kind = RecordKind::kLog;
    header.code = static_cast<std::uint64_t>(line.level);
    const std::array<RingWriter::Bytes, 2> parts{bytesOf(line.function), bytesOf(line.message)};
    header.nameBytes = static_cast<std::uint32_t>(parts[0].size());
    outlet->log.push(header, parts);
}

void Tap::pushStream(const tq_stream& stream) noexcept {
    const bool isSound = stream.fate == TQ_STREAM_RECORDED || stream.fate == TQ_STREAM_EXCLUDED;
    if (isSound && isForked_.load(std::memory_order_relaxed)) {
        // Its first sound waits until somebody listens.
        recordForked();
    }
    if (stream.fate == TQ_STREAM_EXCLUDED && isThreadOwed_.load()) {
        // It never has a unit, and is ducked as long as the recorder wants it.
        try {
            noteUnitMade();
        } catch (...) {
            // No thread to be had: it stays as loud as it began.
        }
    }
    const Outlet* const outlet = outlet_.load(std::memory_order_acquire);
    if (outlet == nullptr) {
        return;
    }
    const SharedStream shared{stream.stream,    static_cast<std::uint32_t>(stream.fate),
                              stream.is_closed, stream.channels,
                              stream.is_paused, stream.sample_rate,
                              stream.written,   stream.played,
                              stream.dropped,   stream.lost};
    RingWriter::Bytes name = bytesOf(stream.name);
    name = name.first(std::min(name.size(), kLongestName));
    RecordHeader header;
    header.kind = RecordKind::kStream;
    header.nameBytes = static_cast<std::uint32_t>(name.size());
    const std::array<RingWriter::Bytes, 2> parts{std::as_bytes(std::span(&shared, 1)), name};
    outlet->streams.push(header, parts);
}

void Tap::takeUnit(const tq_unit& unit) noexcept {
    if (isForked_.load(std::memory_order_relaxed)) {
        // What the parent made does not play here, unless the child starts it.
        if (isNew(unit) || unit.is_started != 0) {
            recordForked();
        }
        return;
    }
    const Outlet* const outlet = outlet_.load(std::memory_order_acquire);
    if (outlet == nullptr) {
        return;
    }
    if (isNew(unit) && !isUnitMade_.exchange(true, std::memory_order_relaxed)) {
        try {
            noteUnitMade();
        } catch (...) {
            // No thread to be had: the program plays on unrecorded.
        }
    }
    // A program that is not written for the platform opens streams also to see what there is.
    // So does one of which something is left out, which may be all that it plays.
    const bool isSound = usesPlatform_ && settings_.choice.isAll()
                             ? isNew(unit)
                             : unit.is_started != 0 && unit.reason != TQ_UNIT_EXCLUDED;
    if (isSound) {
        isUnitSeen_.store(true, std::memory_order_relaxed);
    }
    publishCounts(*outlet->page);
    if (isLeftOut(unit)) {
        // Notices come one at a time.
        outlet->page->leftOut.note(UnitNumber::of(unit.unit, unit.kind == TQ_UNIT_OF_GRAPH),
                                   unit.name, static_cast<std::uint32_t>(unit.reason));
    }
}

void Tap::publishCounts(SharedPage& page) const noexcept {
    tq_unit_counts counts{};
    counts.size = sizeof counts;
    (void)tq_capture_get_unit_counts(&counts);
    page.facts.unitsCreated = counts.created - countsBefore_.created;
    page.facts.unitsStarted = counts.started - countsBefore_.started;
}

}  // namespace tqrecorder
