// What a user asks to be saved.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "output/ReplaySink.h"
#include "output/matroska/MatroskaFile.h"

namespace tqrecorder {
namespace {

constexpr std::int64_t kSilentFrames = 4096;
/// Of all streams so much is written at a time.
constexpr double kTurnSeconds = 0.25;
/// Microseconds that a stream may be ahead of the mix while both play.
constexpr double kMostAhead = 1e6;

template <typename Sink>
void playSilence(std::int64_t frames, std::size_t frameBytes, const Sink& sink) {
    const std::vector<std::byte> silence(static_cast<std::size_t>(kSilentFrames) * frameBytes);
    for (; frames > 0; frames -= kSilentFrames) {
        const auto count = static_cast<std::size_t>(std::min(frames, kSilentFrames));
        sink(std::span(silence).first(count * frameBytes));
    }
}

}  // namespace

/// What is kept of a stream between two times, with silence where it was not played.
struct ReplaySink::Clip {
    Memory& memory;
    std::int64_t begin = 0;  ///< frames since the stream began
    std::int64_t end = 0;
    std::int64_t first = 0;  ///< that is kept
    std::int64_t last = 0;   ///< behind it

    /// Gives the frames [from, to) of the stream to `sink`, piece by piece.
    template <typename Sink>
    void play(std::int64_t from, std::int64_t to, const Sink& sink) const {
        const std::size_t frameBytes = memory.format.frameBytes();
        playSilence(std::min(to, first) - from, frameBytes, sink);
        const std::int64_t begun = std::clamp(from, first, last);
        const std::int64_t done = std::clamp(to, first, last);
        std::size_t place = static_cast<std::size_t>(begun) * frameBytes % memory.capacity;
        std::size_t left = static_cast<std::size_t>(done - begun) * frameBytes;
        while (left > 0) {
            const std::size_t count = std::min(left, memory.capacity - place);
            sink(std::span<const std::byte>(memory.ring.get() + place, count));
            place = 0;
            left -= count;
        }
        playSilence(to - std::max(from, last), frameBytes, sink);
    }
};

std::optional<ReplaySink::Clip> ReplaySink::clipOf(Memory& memory, double from, double to) const {
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
    // Else nothing of it was played then.
    return first == last ? std::nullopt : std::optional(Clip{memory, begin, end, first, last});
}

std::string ReplaySink::pathOf(int track, const Memory& memory, const std::string& addition) const {
    if (track == 0) {
        return plan_.mix.path.empty() ? std::string() : withAddition(plan_.mix.path, addition);
    }
    return plan_.tracksFolder.empty()
               ? std::string()
               : plan_.tracksFolder + "/" +
                     withAddition("track-" + std::to_string(track) + "-" +
                                      fileNamePart(memory.unit) + "." +
                                      std::string(plan_.tracksKind->extension),
                                  addition);
}

bool ReplaySink::write(Memory& memory, std::string path, double from, double to,
                       WrittenFile& written) {
    const std::optional<Clip> clip = clipOf(memory, from, to);
    if (!clip) {
        return true;
    }
    const FileFormat* kind = memory.unit.empty() ? plan_.mix.kind : plan_.tracksKind;
    FileSeries series({std::move(path), kind}, memory.format);
    if (series.open()) {
        clip->play(clip->begin, clip->end,
                   [&series](std::span<const std::byte> frames) { series.write(frames); });
        series.finish();
    }
    problems_.insert(problems_.end(), series.problems().begin(), series.problems().end());
    if (series.failed()) {
        return false;
    }
    if (!series.files().empty()) {
        written = series.files().front();
    }
    memory.savedFrames = clip->end;
    return true;
}

bool ReplaySink::writeTogether(ProcessMemory& process, const std::string& path, double from,
                               double to, WrittenFile& written) {
    std::string error;
    FileChain chain(path, false, false);
    std::unique_ptr<MatroskaFile> file;
    if (PartFile* const part = chain.next(error)) {
        file =
            MatroskaFile::create(part->path(), part->descriptor(), plan_.mix.kind->coding, error);
    }
    if (file == nullptr) {
        problems_.push_back(error);
        return false;
    }
    std::vector<std::pair<unsigned, Clip>> clips;
    std::map<std::string, int> titles;
    for (auto& [track, memory] : process.streams) {
        const std::optional<Clip> clip = clipOf(memory, from, to);
        if (!clip) {
            continue;
        }
        std::string title = track == 0 ? "mix" : memory.unit;
        if (const int before = titles[title]++; before > 0) {
            title += " (" + std::to_string(before + 1) + ")";
        }
        const MatroskaFile::Begun begun = file->begin(title, memory.format, 0);
        if (begun.stream != 0) {
            clips.emplace_back(begun.stream, *clip);
        } else {
            problems_.push_back(path + ": " +
                                (begun.error.empty() ? file->problem() : begun.error));
        }
    }
    bool isGood = true;
    for (double turn = 0; isGood && turn < (to - from) / 1e6; turn += kTurnSeconds) {
        for (const auto& [stream, clip] : clips) {
            const auto frameAfter = [&clip = clip](double seconds) {
                const std::int64_t frames = std::llround(seconds * clip.memory.format.sampleRate);
                return std::min(clip.end, clip.begin + frames);
            };
            clip.play(frameAfter(turn), frameAfter(turn + kTurnSeconds),
                      [&, stream = stream](std::span<const std::byte> frames) {
                          file->write(stream, frames);
                          if (!chain.isHeard() && hasSound(frames)) {
                              chain.heard();
                          }
                      });
        }
        isGood = file->flush();
    }
    isGood = file->close() && isGood;
    if (!isGood) {
        chain.complain(file->problem());
    }
    chain.complete({path, file->text(), file->seconds(), 0, 0, {}, 0, 0, plan_.mix.kind},
                   file->seconds() == 0);
    chain.finish();
    problems_.insert(problems_.end(), chain.problems().begin(), chain.problems().end());
    if (!chain.files().empty()) {
        written = chain.files().front();
    }
    for (const auto& [stream, clip] : clips) {
        clip.memory.savedFrames = isGood ? std::optional(clip.end) : clip.memory.savedFrames;
    }
    return isGood;
}

double ReplaySink::ProcessMemory::newest() const {
    double mix = 0;
    double others = 0;
    for (const auto& [track, memory] : streams) {
        if (memory.ring != nullptr) {
            double& latest = track == 0 && memory.isCurrent ? mix : others;
            latest = std::max(latest, memory.clock.end());
        }
    }
    // The mix is there while a unit plays: it says what is now. A microphone goes on without it,
    // and is ahead of it by less than the time within which blocks arrive.
    return mix == 0 ? others : std::max(mix, others - kMostAhead);
}

void ReplaySink::saveProcess(int id, ProcessMemory& process, double now, double seconds,
                             std::vector<WrittenFile>& saved) {
    double oldest = 0;
    for (const auto& [track, memory] : process.streams) {
        if (memory.ring == nullptr) {
            continue;
        }
        const auto kept =
            static_cast<double>((memory.written - memory.oldest()) / memory.format.frameBytes());
        const double begin = memory.clock.end() - kept / memory.format.sampleRate * 1e6;
        oldest = oldest == 0 ? begin : std::min(oldest, begin);
    }
    const double newest = process.newest();
    now = process.isClockBroken ? newest : now;
    double from = std::max(oldest, now - seconds * 1e6);
    from = plan_.overlaps ? from : std::max(from, process.savedUntil);
    if (newest - from < 1) {
        return;
    }
    // Clips that overlap end together. One that the next goes on from ends with its own sound:
    // what has been played and not arrived yet belongs to the next.
    const double to = plan_.overlaps ? now : newest;
    bool isDone = true;
    unsigned number = 0;
    std::string numbers;
    std::error_code failure;
    do {
        numbers = process.addition + numberAddition(++number);
    } while (std::any_of(process.streams.begin(), process.streams.end(), [&](const auto& one) {
        const std::string path = pathOf(one.first, one.second, numbers);
        return !path.empty() && std::filesystem::exists(path, failure);
    }));
    for (auto& [track, memory] : process.streams) {
        const std::string path = pathOf(track, memory, numbers);
        const bool isAll = track == 0 && plan_.mix.kind != nullptr && plan_.mix.kind->isMatroska();
        WrittenFile file;
        isDone = (path.empty() || (isAll ? writeTogether(process, freePath(path), from, to, file)
                                         : write(memory, freePath(path), from, to, file))) &&
                 isDone;
        if (!file.path.empty()) {
            file.processId = id;
            file.name = track == 0 ? "mix" : "track " + std::to_string(track);
            saved.push_back(std::move(file));
        }
    }
    if (isDone) {
        // What could not be written stays to be saved: the next attempt may find room.
        process.savedUntil = to;
    }
}

std::vector<WrittenFile> ReplaySink::saveLast(std::optional<double> seconds) {
    // A program that ended long ago is no part of the last seconds: all have one time.
    double now = 0;
    for (const auto& [id, process] : processes_) {
        now = process.isClockBroken ? now : std::max(now, process.newest());
    }
    const double length = std::min(seconds.value_or(plan_.seconds), plan_.seconds);
    std::vector<WrittenFile> saved;
    for (auto& [id, process] : processes_) {
        saveProcess(id, process, now, length, saved);
    }
    files_.insert(files_.end(), saved.begin(), saved.end());
    return saved;
}

}  // namespace tqrecorder
