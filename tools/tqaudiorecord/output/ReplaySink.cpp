#include "output/ReplaySink.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <utility>

namespace tqrecorder {
namespace {

// Bounds the memory when a launcher starts one program after another.
constexpr std::size_t kMostMemories = 8;

}  // namespace

ReplaySink::ReplaySink(FileSeries::Plan plan, double seconds, std::shared_ptr<ProcessNames> names)
    : plan_(std::move(plan)),
      capacity_(static_cast<std::size_t>(std::ceil(seconds * kMixFormat.sampleRate)) *
                kMixFormat.frameBytes()),
      names_(std::move(names)) {
}

bool ReplaySink::open() {
    unsigned number = 0;
    FileSeries::Plan plan = plan_;
    plan.path = nextPath({}, number);
    FileSeries probe(plan, kMixFormat);
    const bool made = probe.open();
    probe.finish();
    if (!made) {
        problems_ = probe.problems();
    }
    return made;
}

void ReplaySink::Memory::add(std::span<const std::byte> bytes) {
    // Of what is longer than the room only the end stays.
    const std::size_t skipped = bytes.size() > ring.size() ? bytes.size() - ring.size() : 0;
    written += skipped;
    bytes = bytes.subspan(skipped);
    const std::size_t place = written % ring.size();
    const std::size_t first = std::min(bytes.size(), ring.size() - place);
    std::copy_n(bytes.begin(), first, ring.begin() + static_cast<std::ptrdiff_t>(place));
    std::copy(bytes.begin() + static_cast<std::ptrdiff_t>(first), bytes.end(), ring.begin());
    written += bytes.size();
}

void ReplaySink::Memory::addSilence(std::uint64_t bytes) {
    const std::uint64_t room = ring.size();
    written += bytes > room ? bytes - room : 0;
    for (std::uint64_t left = std::min(bytes, room); left > 0;) {
        const std::size_t place = written % room;
        const std::size_t count =
            static_cast<std::size_t>(std::min<std::uint64_t>(left, room - place));
        std::fill_n(ring.begin() + static_cast<std::ptrdiff_t>(place), count, std::byte{0});
        written += count;
        left -= count;
    }
}

void ReplaySink::block(const Process& process, const Block& block) {
    if (block.track != 0 || block.format != kMixFormat) {
        return;
    }
    auto found = memories_.find(process.id);
    if (found == memories_.end()) {
        makeRoom();
        Memory memory{std::vector<std::byte>(capacity_),
                      0,
                      0,
                      StreamClock(kMixFormat.sampleRate, block.microseconds, kMixPatience),
                      false,
                      names_->additionOf(process),
                      false};
        found = memories_.emplace(process.id, std::move(memory)).first;
    }
    Memory& memory = found->second;
    const std::size_t frames = block.frames.size() / kMixFormat.frameBytes();
    const std::uint64_t silence =
        memory.clock.before(block.microseconds, frames, std::exchange(memory.lost, false));
    if (memory.clock.takeJump()) {
        problems_.push_back(jumpText(plan_.path));
    }
    memory.addSilence(silence * kMixFormat.frameBytes());
    memory.add(block.frames.first(frames * kMixFormat.frameBytes()));
}

void ReplaySink::processEnded(const Process& process, const HostFacts& /*facts*/) {
    const auto found = memories_.find(process.id);
    if (found != memories_.end()) {
        found->second.ended = true;
    }
}

// The processes that ended first are forgotten first.
void ReplaySink::makeRoom() {
    for (auto memory = memories_.begin();
         memory != memories_.end() && memories_.size() >= kMostMemories;) {
        memory = memory->second.ended ? memories_.erase(memory) : std::next(memory);
    }
}

void ReplaySink::lost(const Process& process, std::uint64_t blocks, std::uint64_t /*bytes*/) {
    const auto found = memories_.find(process.id);
    if (found != memories_.end() && blocks > 0) {
        found->second.lost = true;
    }
}

// Replays of earlier recordings are not to be overwritten.
std::string ReplaySink::nextPath(const std::string& addition, unsigned& number) const {
    std::string path;
    do {
        path = withAddition(plan_.path, addition + numberAddition(++number));
    } while (std::filesystem::exists(path));
    return path;
}

void ReplaySink::save() {
    for (auto& [id, memory] : memories_) {
        const std::uint64_t oldest =
            memory.written > capacity_ ? memory.written - capacity_ : std::uint64_t{0};
        const std::uint64_t from = std::max(memory.saved, oldest);
        if (from == memory.written) {
            continue;
        }
        FileSeries::Plan plan = plan_;
        plan.path = nextPath(memory.addition, numbers_[memory.addition]);
        FileSeries series(plan, kMixFormat);
        if (series.open()) {
            const std::size_t place = from % capacity_;
            const auto length = static_cast<std::size_t>(memory.written - from);
            const std::size_t first = std::min(length, capacity_ - place);
            series.write(std::span(memory.ring).subspan(place, first));
            series.write(std::span(memory.ring).first(length - first));
            series.finish();
        }
        problems_.insert(problems_.end(), series.problems().begin(), series.problems().end());
        if (series.failed()) {
            // It stays in memory: the next attempt may find room.
            continue;
        }
        memory.saved = memory.written;
        for (WrittenFile file : series.files()) {
            file.processId = id;
            file.name = "mix";
            files_.push_back(std::move(file));
        }
    }
}

}  // namespace tqrecorder
