// What a user asks to be saved.

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "output/ReplaySink.h"

namespace tqrecorder {
namespace {

/// Microseconds that a stream may be ahead of the mix while both play.
constexpr double kMostAhead = 1e6;

}  // namespace

StreamClip ReplaySink::clipOf(int track, const Memory& memory, double from, double to) const {
    StreamClip clip{track, memory.unit, memory.format};
    if (!memory.sound) {
        return clip;
    }
    clip.begin = std::llround(memory.frameAt(from));
    // The clock is corrected by little all the time: where one file is to go on where the one
    // before ended, the frames say where that was.
    if (!plan_.overlaps && memory.savedFrames &&
        static_cast<double>(std::abs(clip.begin - *memory.savedFrames)) <
            kMixPatience.most * memory.format.sampleRate) {
        clip.begin = *memory.savedFrames;
    }
    clip.end = std::max(clip.begin, std::int64_t{std::llround(memory.frameAt(to))});
    clip.first = std::clamp(clip.begin, memory.oldest(), memory.newest());
    clip.last = std::clamp(clip.end, clip.first, memory.newest());
    // Else nothing of it was played then.
    if (clip.first < clip.last) {
        const std::size_t frameBytes = memory.format.frameBytes();
        clip.bytes = memory.sound->keep(static_cast<std::uint64_t>(clip.first) * frameBytes,
                                        static_cast<std::uint64_t>(clip.last) * frameBytes);
    }
    return clip;
}

double ReplaySink::ProcessMemory::newest() const {
    double mix = 0;
    double others = 0;
    for (const auto& [track, memory] : streams) {
        if (memory.sound) {
            double& latest = track == 0 && memory.isCurrent ? mix : others;
            latest = std::max(latest, memory.clock.end());
        }
    }
    // The mix is there while a unit plays: it says what is now. A microphone goes on without it,
    // and is ahead of it by less than the time within which blocks arrive.
    return mix == 0 ? others : std::max(mix, others - kMostAhead);
}

std::optional<ProcessClip> ReplaySink::clipOf(int id, ProcessMemory& process, double now,
                                              double seconds) {
    double oldest = 0;
    for (const auto& [track, memory] : process.streams) {
        if (memory.sound) {
            const auto kept = static_cast<double>(memory.newest() - memory.oldest());
            const double begin = memory.clock.end() - kept / memory.format.sampleRate * 1e6;
            oldest = oldest == 0 ? begin : std::min(oldest, begin);
        }
    }
    const double newest = process.newest();
    now = process.isClockBroken ? newest : now;
    double from = std::max(oldest, now - seconds * 1e6);
    from = plan_.overlaps ? from : std::max(from, process.savedUntil);
    if (newest - from < 1) {
        return std::nullopt;
    }
    // Clips that overlap end together. One that the next goes on from ends with its own sound:
    // what has been played and not arrived yet belongs to the next.
    const double to = plan_.overlaps ? now : newest;
    ProcessClip clip{id, names_->additionOf(id), (to - from) / 1e6, {}};
    Mark mark{lastTicket_, id, std::exchange(process.savedUntil, to), {}};
    for (auto& [track, memory] : process.streams) {
        clip.streams.push_back(clipOf(track, memory, from, to));
        mark.savedFrames.emplace(memory.number, memory.savedFrames);
        if (clip.streams.back().bytes) {
            memory.savedFrames = clip.streams.back().end;
        }
    }
    marks_.push_back(std::move(mark));
    return clip;
}

std::uint64_t ReplaySink::beginSave(std::optional<double> seconds) {
    collect();
    // A program that ended long ago is no part of the last seconds: all have one time.
    const double now = newest();
    const double length = std::min(seconds.value_or(plan_.seconds), plan_.seconds);
    ReplaySave save{++lastTicket_, {}};
    for (auto& [id, process] : processes_) {
        if (std::optional<ProcessClip> clip = clipOf(id, process, now, length)) {
            save.processes.push_back(std::move(*clip));
        }
    }
    if (save.processes.empty()) {
        --lastTicket_;
        return 0;
    }
    saver_.add(std::move(save));
    return lastTicket_;
}

/// What could not be written stays to be saved: the next attempt may find room.
void ReplaySink::unmark(const Mark& mark) {
    const auto found = processes_.find(mark.processId);
    if (found == processes_.end()) {
        return;
    }
    ProcessMemory& process = found->second;
    process.savedUntil = std::min(process.savedUntil, mark.savedUntil);
    for (auto& [track, memory] : process.streams) {
        const auto before = mark.savedFrames.find(memory.number);
        memory.savedFrames =
            before != mark.savedFrames.end() ? before->second : std::optional<std::int64_t>{};
    }
}

void ReplaySink::collect() {
    for (ReplaySaved& saved : saver_.take()) {
        for (const Mark& mark : marks_) {
            if (mark.ticket == saved.ticket &&
                std::count(saved.failed.begin(), saved.failed.end(), mark.processId) > 0) {
                unmark(mark);
            }
        }
        std::erase_if(marks_, [&](const Mark& mark) { return mark.ticket == saved.ticket; });
        files_.insert(files_.end(), saved.files.begin(), saved.files.end());
        problems_.insert(problems_.end(), saved.problems.begin(), saved.problems.end());
        saved_.push_back(std::move(saved));
    }
}

std::vector<ReplaySaved> ReplaySink::takeSaved() {
    collect();
    return std::exchange(saved_, {});
}

void ReplaySink::finish() {
    saver_.finish();
    collect();
}

}  // namespace tqrecorder
