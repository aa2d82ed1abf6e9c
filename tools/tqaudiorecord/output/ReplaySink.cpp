#include "output/ReplaySink.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <new>
#include <utility>

namespace tqrecorder {
namespace {

// Bounds the memory when a launcher starts one program after another.
constexpr std::size_t kMostProcesses = 8;
// Of one process, with tracks that have ended not long ago.
constexpr std::size_t kMostStreams = 32;

double lengthOf(const BlockFormat& format, double seconds) {
    return std::ceil(seconds * format.sampleRate);
}

}  // namespace

ReplaySink::ReplaySink(Plan plan, std::shared_ptr<ProcessNames> names)
    : plan_(std::move(plan)), names_(std::move(names)) {
}

bool ReplaySink::open() {
    std::error_code failure;
    if (!plan_.tracksFolder.empty()) {
        std::filesystem::create_directories(plan_.tracksFolder, failure);
    }
    // Files are numbered: their names are longer than what was asked for.
    for (const std::string& path :
         {plan_.mix.path.empty() ? std::string()
                                 : freePath(withAddition(plan_.mix.path, numberAddition(1))),
          plan_.tracksFolder.empty() ? std::string() : plan_.tracksFolder + "/track.wav"}) {
        if (!path.empty()) {
            const PartFile probe(path, false);
            if (!probe.problem().empty()) {
                problems_.push_back(probe.problem());
                return false;
            }
        }
    }
    return true;
}

void ReplaySink::Memory::add(std::span<const std::byte> bytes) {
    // Of what is longer than the room only the end stays.
    const std::size_t skipped = bytes.size() > capacity ? bytes.size() - capacity : 0;
    written += skipped;
    bytes = bytes.subspan(skipped);
    const std::size_t place = written % capacity;
    const std::size_t first = std::min(bytes.size(), capacity - place);
    std::memcpy(ring.get() + place, bytes.data(), first);
    std::memcpy(ring.get(), bytes.data() + first, bytes.size() - first);
    written += bytes.size();
}

void ReplaySink::Memory::addSilence(std::uint64_t bytes) {
    const std::uint64_t room = capacity;
    written += bytes > room ? bytes - room : 0;
    for (std::uint64_t left = std::min(bytes, room); left > 0;) {
        const std::size_t place = written % room;
        const std::size_t count =
            static_cast<std::size_t>(std::min<std::uint64_t>(left, room - place));
        std::memset(ring.get() + place, 0, count);
        written += count;
        left -= count;
    }
}

double ReplaySink::Memory::frameAt(double microseconds) const {
    const auto frames = static_cast<double>(written / format.frameBytes());
    return frames - (clock.end() - microseconds) / 1e6 * format.sampleRate;
}

ReplaySink::Memory& ReplaySink::memoryOf(ProcessMemory& process, const Block& block) {
    for (auto& [track, memory] : process.streams) {
        if (track == block.track && memory.isCurrent) {
            if (memory.unit == block.unit && memory.format == block.format) {
                return memory;
            }
            memory.isCurrent = false;
        }
    }
    forgetOld(process);
    const double patience = block.track == 0 ? kMixPatience : kTrackPatience;
    Memory memory{
        block.format,
        std::string(block.unit),
        static_cast<std::size_t>(lengthOf(block.format, plan_.seconds)) * block.format.frameBytes(),
        nullptr,
        0,
        StreamClock(block.format.sampleRate, block.microseconds, patience)};
    // The system gives its pages as they are filled.
    try {
        memory.ring = std::make_unique_for_overwrite<std::byte[]>(memory.capacity);
    } catch (const std::bad_alloc&) {
        // Other streams, and what else is written, go on.
        problems_.push_back((memory.unit.empty() ? "the mix" : memory.unit) +
                            ": there is no memory left to keep its last seconds");
    }
    process.streams.emplace_back(block.track, std::move(memory));
    return process.streams.back().second;
}

void ReplaySink::block(const Process& process, const Block& block) {
    const bool isMix = block.track == 0;
    if ((isMix && block.format != kMixFormat) || block.format.frameBytes() == 0 ||
        block.format.sampleRate < 1 || (!isMix && !keepsTracks())) {
        return;
    }
    auto found = processes_.find(process.id);
    if (found == processes_.end()) {
        makeRoom();
        found = processes_.emplace(process.id, ProcessMemory{}).first;
        found->second.addition = names_->additionOf(process);
    }
    Memory& memory = memoryOf(found->second, block);
    if (memory.ring == nullptr) {
        return;
    }
    const std::size_t frameBytes = block.format.frameBytes();
    const std::size_t frames = block.frames.size() / frameBytes;
    const std::uint64_t silence = memory.clock.before(block.microseconds, frames, block.lostFrames);
    if (memory.clock.takeJump()) {
        found->second.isClockBroken = true;
        problems_.push_back(
            jumpText(isMix || plan_.tracksFolder.empty() ? plan_.mix.path : plan_.tracksFolder));
    }
    memory.addSilence(silence * frameBytes);
    memory.add(block.frames.first(frames * frameBytes));
}

void ReplaySink::processEnded(const Process& process, const HostFacts& /*facts*/) {
    const auto found = processes_.find(process.id);
    if (found != processes_.end()) {
        found->second.ended = true;
    }
}

// The processes that ended first are forgotten first.
void ReplaySink::makeRoom() {
    for (auto one = processes_.begin();
         one != processes_.end() && processes_.size() >= kMostProcesses;) {
        one = one->second.ended ? processes_.erase(one) : std::next(one);
    }
}

// Streams that have ended, and of which nothing is within the seconds that are kept.
void ReplaySink::forgetOld(ProcessMemory& process) const {
    double end = 0;
    for (const auto& [track, memory] : process.streams) {
        end = std::max(end, memory.clock.end());
    }
    std::erase_if(process.streams, [&](const auto& one) {
        return !one.second.isCurrent && one.second.clock.end() < end - plan_.seconds * 1e6;
    });
    const auto ended = std::find_if(process.streams.begin(), process.streams.end(),
                                    [](const auto& one) { return !one.second.isCurrent; });
    if (process.streams.size() >= kMostStreams && ended != process.streams.end()) {
        process.streams.erase(ended);
    }
}

}  // namespace tqrecorder
