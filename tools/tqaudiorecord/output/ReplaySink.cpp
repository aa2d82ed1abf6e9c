#include "output/ReplaySink.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <new>
#include <tuple>
#include <utility>

namespace tqrecorder {
namespace {

// Bounds the memory when one program after another is started within what is kept.
constexpr std::size_t kMostProcesses = 64;
// Of one process, with tracks that have ended not long ago.
constexpr std::size_t kMostStreams = 32;

double lengthOf(const BlockFormat& format, double seconds) {
    return std::ceil(seconds * format.sampleRate);
}

}  // namespace

ReplaySink::ReplaySink(Plan plan, std::shared_ptr<ProcessNames> names, ReplaySaver::Write write)
    : plan_(std::move(plan)),
      names_(std::move(names)),
      saver_(write ? std::move(write)
                   : [plan = plan_](const ReplaySave& save, const IsGivenUp& isGivenUp) {
                         return writeReplay(plan, save, isGivenUp);
                     }) {
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

double ReplaySink::Memory::frameAt(double microseconds) const {
    return static_cast<double>(newest()) - (clock.end() - microseconds) / 1e6 * format.sampleRate;
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
    const Patience& patience = block.track == 0 ? kMixPatience : kTrackPatience;
    Memory memory{.format = block.format,
                  .unit = std::string(block.unit),
                  .sound = std::nullopt,
                  .clock = StreamClock(block.format.sampleRate, block.microseconds, patience),
                  .number = ++lastNumber_};
    const std::size_t frameBytes = block.format.frameBytes();
    try {
        memory.sound.emplace(
            static_cast<std::size_t>(lengthOf(block.format, plan_.seconds)) * frameBytes,
            frameBytes);
    } catch (const std::bad_alloc&) {
        complainOfMemory(memory);
    }
    process.streams.emplace_back(block.track, std::move(memory));
    return process.streams.back().second;
}

void ReplaySink::keep(Memory& memory, std::uint64_t silence, std::span<const std::byte> bytes) {
    try {
        memory.sound->addSilence(silence);
        memory.sound->add(bytes);
    } catch (const std::bad_alloc&) {
        complainOfMemory(memory);
    }
}

/// Other streams, and what else is written, go on.
void ReplaySink::complainOfMemory(Memory& memory) {
    memory.sound.reset();
    problems_.push_back((memory.unit.empty() ? "the mix" : memory.unit) +
                        ": there is no memory left to keep its last seconds");
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
        (void)names_->additionOf(process);
    }
    Memory& memory = memoryOf(found->second, block);
    if (!memory.sound) {
        return;
    }
    const std::size_t frameBytes = block.format.frameBytes();
    const std::size_t frames = block.frames.size() / frameBytes;
    const std::uint64_t silence = memory.clock.before(block);
    if (memory.clock.takeJump()) {
        found->second.isClockBroken = true;
        problems_.push_back(
            jumpText(isMix || plan_.tracksFolder.empty() ? plan_.mix.path : plan_.tracksFolder));
    }
    keep(memory, silence * frameBytes, block.frames.first(frames * frameBytes));
}

void ReplaySink::processEnded(const Process& process, const HostFacts& /*facts*/) {
    const auto found = processes_.find(process.id);
    if (found != processes_.end()) {
        found->second.ended = true;
    }
}

double ReplaySink::newest() const {
    double newest = 0;
    for (const auto& [id, process] : processes_) {
        newest = process.isClockBroken ? newest : std::max(newest, process.newest());
    }
    return newest;
}

// Processes that have ended, and of which nothing is within the seconds that are kept.
void ReplaySink::makeRoom() {
    const double oldest = newest() - plan_.seconds * 1e6;
    std::erase_if(processes_, [oldest](const auto& one) {
        return one.second.ended && one.second.newest() < oldest;
    });
    // Of more than there is room for, the one whose sound is the oldest goes.
    const auto first = std::min_element(
        processes_.begin(), processes_.end(), [](const auto& one, const auto& other) {
            const auto order = [](const ProcessMemory& process) {
                return std::tuple(!process.ended, !process.isClockBroken, process.newest());
            };
            return order(one.second) < order(other.second);
        });
    if (processes_.size() >= kMostProcesses && first->second.ended) {
        processes_.erase(first);
        complainOfMore(kMostProcesses, "programs");
    }
}

void ReplaySink::complainOfMore(std::size_t most, const std::string& ofWhat) {
    const std::string problem = (plan_.mix.path.empty() ? plan_.tracksFolder : plan_.mix.path) +
                                ": more than " + std::to_string(most) + " " + ofWhat +
                                " within what is kept; those that ended first are in no clip";
    if (std::find(problems_.begin(), problems_.end(), problem) == problems_.end()) {
        problems_.push_back(problem);
    }
}

// Streams that have ended, and of which nothing is within the seconds that are kept.
void ReplaySink::forgetOld(ProcessMemory& process) {
    double end = 0;
    for (const auto& [track, memory] : process.streams) {
        end = std::max(end, memory.clock.end());
    }
    std::erase_if(process.streams, [&](const auto& one) {
        return !one.second.isCurrent && one.second.clock.end() < end - plan_.seconds * 1e6;
    });
    // Of more than there is room for, the one whose sound is the oldest goes.
    const auto oldest = std::min_element(
        process.streams.begin(), process.streams.end(), [](const auto& one, const auto& other) {
            const auto order = [](const Memory& memory) {
                return std::pair(memory.isCurrent, memory.clock.end());
            };
            return order(one.second) < order(other.second);
        });
    if (process.streams.size() >= kMostStreams && !oldest->second.isCurrent) {
        process.streams.erase(oldest);
        complainOfMore(kMostStreams, "streams");
    }
}

}  // namespace tqrecorder
