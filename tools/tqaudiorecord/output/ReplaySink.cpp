#include "output/ReplaySink.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
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
    for (const std::string& path :
         {plan_.mix.path,
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
    memory.ring = std::make_unique_for_overwrite<std::byte[]>(memory.capacity);
    process.streams.emplace_back(block.track, std::move(memory));
    return process.streams.back().second;
}

void ReplaySink::block(const Process& process, const Block& block) {
    const bool isMix = block.track == 0;
    if ((isMix && block.format != kMixFormat) || block.format.frameBytes() == 0 ||
        block.format.sampleRate < 1 || (!isMix && plan_.tracksFolder.empty())) {
        return;
    }
    auto found = processes_.find(process.id);
    if (found == processes_.end()) {
        makeRoom();
        found = processes_.emplace(process.id, ProcessMemory{}).first;
        found->second.addition = names_->additionOf(process);
    }
    Memory& memory = memoryOf(found->second, block);
    const std::size_t frameBytes = block.format.frameBytes();
    const std::size_t frames = block.frames.size() / frameBytes;
    const std::uint64_t silence = memory.clock.before(block.microseconds, frames, block.lostFrames);
    if (memory.clock.takeJump()) {
        problems_.push_back(jumpText(isMix ? plan_.mix.path : plan_.tracksFolder));
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

std::string ReplaySink::pathOf(int track, const Memory& memory, const std::string& addition) const {
    if (track == 0) {
        return plan_.mix.path.empty() ? std::string() : withAddition(plan_.mix.path, addition);
    }
    return plan_.tracksFolder + "/" +
           withAddition("track-" + std::to_string(track) + "-" + fileNamePart(memory.unit) + ".wav",
                        addition);
}

bool ReplaySink::write(Memory& memory, std::string path, double from, double to,
                       WrittenFile& written) {
    const FileFormat* kind = memory.unit.empty() ? plan_.mix.kind : &trackFormat();
    FileSeries series({std::move(path), kind}, memory.format);
    const std::size_t frameBytes = memory.format.frameBytes();
    const auto oldest = static_cast<std::int64_t>(memory.oldest() / frameBytes);
    const auto newest = static_cast<std::int64_t>(memory.written / frameBytes);
    std::int64_t begin = std::llround(memory.frameAt(from));
    // The clock is corrected by little all the time: where one file is to go on where the one
    // before ended, the frames say where that was.
    if (!plan_.overlaps && memory.savedFrames &&
        static_cast<double>(std::abs(begin - *memory.savedFrames)) <
            kMixPatience * memory.format.sampleRate) {
        begin = *memory.savedFrames;
    }
    const std::int64_t end = std::max(begin, std::int64_t{std::llround(memory.frameAt(to))});
    const std::int64_t first = std::clamp(begin, oldest, newest);
    const std::int64_t last = std::clamp(end, first, newest);
    if (first == last) {
        return true;  // nothing of it was played then
    }
    const auto silence = [&series](std::int64_t frames) {
        series.writeSilence(static_cast<std::uint64_t>(std::max<std::int64_t>(frames, 0)));
    };
    if (series.open()) {
        silence(first - begin);
        std::size_t place = static_cast<std::size_t>(first) * frameBytes % memory.capacity;
        std::size_t left = static_cast<std::size_t>(last - first) * frameBytes;
        while (left > 0) {
            const std::size_t count = std::min(left, memory.capacity - place);
            series.write({memory.ring.get() + place, count});
            place = 0;
            left -= count;
        }
        silence(end - last);
        series.finish();
    }
    problems_.insert(problems_.end(), series.problems().begin(), series.problems().end());
    if (!series.failed() && !series.files().empty()) {
        written = series.files().front();
    }
    if (!series.failed()) {
        memory.savedFrames = end;
    }
    return !series.failed();
}

void ReplaySink::saveProcess(int id, ProcessMemory& process, std::optional<double> seconds,
                             std::vector<WrittenFile>& saved) {
    double oldest = 0;
    double newest = 0;
    for (const auto& [track, memory] : process.streams) {
        const auto kept =
            static_cast<double>((memory.written - memory.oldest()) / memory.format.frameBytes());
        const double begin = memory.clock.end() - kept / memory.format.sampleRate * 1e6;
        oldest = oldest == 0 ? begin : std::min(oldest, begin);
        newest = std::max(newest, memory.clock.end());
    }
    // The mix is always there while a unit plays: it says what is now.
    for (const auto& [track, memory] : process.streams) {
        newest = track == 0 ? memory.clock.end() : newest;
    }
    const double length = std::min(seconds.value_or(plan_.seconds), plan_.seconds) * 1e6;
    double from = std::max(oldest, newest - length);
    from = plan_.overlaps ? from : std::max(from, process.savedUntil);
    if (newest - from < 1) {
        return;
    }
    bool isDone = true;
    unsigned number = 0;
    std::string numbers;
    do {
        numbers = process.addition + numberAddition(++number);
    } while (std::any_of(process.streams.begin(), process.streams.end(), [&](const auto& one) {
        const std::string path = pathOf(one.first, one.second, numbers);
        return !path.empty() && std::filesystem::exists(path);
    }));
    for (auto& [track, memory] : process.streams) {
        const std::string path = pathOf(track, memory, numbers);
        WrittenFile file;
        isDone = (path.empty() || write(memory, freePath(path), from, newest, file)) && isDone;
        if (!file.path.empty()) {
            file.processId = id;
            file.name = track == 0 ? "mix" : "track " + std::to_string(track);
            saved.push_back(std::move(file));
        }
    }
    if (isDone) {
        // What could not be written stays to be saved: the next attempt may find room.
        process.savedUntil = newest;
    }
}

std::vector<WrittenFile> ReplaySink::saveLast(std::optional<double> seconds) {
    std::vector<WrittenFile> saved;
    for (auto& [id, process] : processes_) {
        saveProcess(id, process, seconds, saved);
    }
    files_.insert(files_.end(), saved.begin(), saved.end());
    return saved;
}

}  // namespace tqrecorder
