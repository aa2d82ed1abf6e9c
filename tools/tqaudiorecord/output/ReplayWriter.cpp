#include "output/ReplayWriter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <span>
#include <system_error>
#include <utility>

#include "output/files/FileChain.h"
#include "output/files/FileNames.h"
#include "output/matroska/MatroskaFile.h"

namespace tqrecorder {
namespace {

constexpr std::int64_t kSilentFrames = 4096;
/// Of all streams so much is written at a time.
constexpr double kTurnSeconds = 0.25;

constexpr const char* kAsSaid = ", as a second signal said not to wait for it";

std::string inSeconds(double seconds) {
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), "%.1f", seconds);
    return text.data();
}

template <typename Sink>
void playSilence(std::int64_t frames, std::size_t frameBytes, const Sink& sink) {
    const std::vector<std::byte> silence(static_cast<std::size_t>(kSilentFrames) * frameBytes);
    for (; frames > 0; frames -= kSilentFrames) {
        const auto count = static_cast<std::size_t>(std::min(frames, kSilentFrames));
        sink(std::span(silence).first(count * frameBytes));
    }
}

/// Gives the frames [from, to) of the stream to `sink`, piece by piece.
template <typename Sink>
void play(const StreamClip& clip, std::int64_t from, std::int64_t to, const Sink& sink) {
    const std::size_t frameBytes = clip.format.frameBytes();
    const auto bytes = [frameBytes](std::int64_t frame) {
        return static_cast<std::uint64_t>(frame) * frameBytes;
    };
    playSilence(std::min(to, clip.first) - from, frameBytes, sink);
    clip.bytes->play(bytes(std::clamp(from, clip.first, clip.last)),
                     bytes(std::clamp(to, clip.first, clip.last)), sink);
    playSilence(to - std::max(from, clip.last), frameBytes, sink);
}

/// Writes one save; of every process its number is the lowest that all of its files can have.
class Writer {
  public:
    Writer(const ReplayPlan& plan, const IsGivenUp& isGivenUp) : plan_(plan), ask_(isGivenUp) {}
    [[nodiscard]] ReplaySaved write(const ReplaySave& save);

  private:
    [[nodiscard]] bool write(const ProcessClip& process);
    [[nodiscard]] bool writeAlone(const StreamClip& clip, const std::string& path,
                                  WrittenFile& written);
    /// All streams into one file.
    [[nodiscard]] bool writeTogether(const ProcessClip& process, const std::string& path,
                                     WrittenFile& written);
    [[nodiscard]] std::string pathOf(const StreamClip& clip, const std::string& addition) const;
    [[nodiscard]] bool isGivenUp() { return isGivenUp_ = isGivenUp_ || ask_(); }
    void takeFile(const std::vector<WrittenFile>& files, bool isGood, WrittenFile& written);
    void complainOfCut(const std::string& path, double seconds, double whole);

    const ReplayPlan& plan_;
    const IsGivenUp& ask_;
    bool isGivenUp_ = false;
    ReplaySaved saved_;
};

std::string Writer::pathOf(const StreamClip& clip, const std::string& addition) const {
    if (clip.track == 0) {
        return plan_.mix.path.empty() ? std::string() : withAddition(plan_.mix.path, addition);
    }
    return plan_.tracksFolder.empty()
               ? std::string()
               : plan_.tracksFolder + "/" +
                     withAddition("track-" + std::to_string(clip.track) + "-" +
                                      fileNamePart(clip.unit) + "." +
                                      std::string(plan_.tracksKind->extension),
                                  addition);
}

bool Writer::writeAlone(const StreamClip& clip, const std::string& path, WrittenFile& written) {
    if (!clip.bytes) {
        return true;
    }
    const FileFormat* kind = clip.track == 0 ? plan_.mix.kind : plan_.tracksKind;
    FileSeries series({path, kind}, clip.format);
    std::int64_t frames = 0;
    if (series.open()) {
        play(clip, clip.begin, clip.end, [&](std::span<const std::byte> piece) {
            if (isGivenUp()) {
                return;
            }
            series.write(piece);
            // Who is killed meanwhile leaves a file that can be read as far as it got.
            series.refresh();
            frames += static_cast<std::int64_t>(piece.size() / clip.format.frameBytes());
        });
        series.finish();
    }
    const std::int64_t whole = clip.end - clip.begin;
    const bool isCut = !series.failed() && frames < whole;
    if (isCut) {
        complainOfCut(path, static_cast<double>(frames) / clip.format.sampleRate,
                      static_cast<double>(whole) / clip.format.sampleRate);
    }
    saved_.problems.insert(saved_.problems.end(), series.problems().begin(),
                           series.problems().end());
    takeFile(series.files(), !series.failed(), written);
    return !series.failed() && !isCut;
}

/// What it lacks is still in memory, to be saved again: it shall not fill the disk under a name
/// that stands for the whole.
void Writer::takeFile(const std::vector<WrittenFile>& files, bool isGood, WrittenFile& written) {
    if (files.empty()) {
        return;
    }
    std::error_code failure;
    if (isGood) {
        written = files.front();
    } else if (std::filesystem::is_regular_file(files.front().path, failure) &&
               std::filesystem::remove(files.front().path, failure)) {
        saved_.problems.back() += "; what was written of it is removed";
    }
}

void Writer::complainOfCut(const std::string& path, double seconds, double whole) {
    saved_.problems.push_back(
        path + ": " +
        (seconds > 0 ? "ends after " + inSeconds(seconds) + " of " + inSeconds(whole) + " s"
                     : "not written") +
        kAsSaid);
}

bool Writer::writeTogether(const ProcessClip& process, const std::string& path,
                           WrittenFile& written) {
    std::string error;
    FileChain chain(path, false, false);
    std::unique_ptr<MatroskaFile> file;
    if (PartFile* const part = chain.next(error)) {
        file =
            MatroskaFile::create(part->path(), part->descriptor(), plan_.mix.kind->coding, error);
    }
    if (file == nullptr) {
        saved_.problems.push_back(error);
        return false;
    }
    std::vector<std::pair<unsigned, const StreamClip*>> clips;
    std::map<std::string, int> titles;
    for (const StreamClip& clip : process.streams) {
        if (!clip.bytes) {
            continue;
        }
        std::string title = clip.track == 0 ? "mix" : clip.unit;
        if (const int before = titles[title]++; before > 0) {
            title += " (" + std::to_string(before + 1) + ")";
        }
        const MatroskaFile::Begun begun = file->begin(title, clip.format, 0);
        if (begun.stream != 0) {
            clips.emplace_back(begun.stream, &clip);
        } else {
            saved_.problems.push_back(path + ": " +
                                      (begun.error.empty() ? file->problem() : begun.error));
        }
    }
    // Where clips follow each other without an overlap a stream may begin a little earlier.
    double longest = process.seconds;
    for (const auto& [stream, clip] : clips) {
        const auto frames = static_cast<double>(clip->end - clip->begin);
        longest = std::max(longest, frames / clip->format.sampleRate);
    }
    bool isGood = true;
    double turn = 0;
    for (; isGood && turn < longest && !isGivenUp(); turn += kTurnSeconds) {
        for (const auto& [stream, clip] : clips) {
            const auto frameAfter = [clip = clip](double seconds) {
                const std::int64_t frames = std::llround(seconds * clip->format.sampleRate);
                return std::min(clip->end, clip->begin + frames);
            };
            play(*clip, frameAfter(turn), frameAfter(turn + kTurnSeconds),
                 [&, stream = stream, clip = clip](std::span<const std::byte> frames) {
                     file->write(stream, frames);
                     chain.wrote(frames, clip->format);
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
    saved_.problems.insert(saved_.problems.end(), chain.problems().begin(), chain.problems().end());
    takeFile(chain.files(), isGood, written);
    if (isGood && turn < longest) {
        complainOfCut(path, turn, longest);
        return false;
    }
    return isGood;
}

bool Writer::write(const ProcessClip& process) {
    bool isDone = true;
    unsigned number = 0;
    std::string numbers;
    std::error_code failure;
    do {
        numbers = process.addition + numberAddition(++number);
    } while (std::any_of(process.streams.begin(), process.streams.end(), [&](const auto& clip) {
        const std::string path = pathOf(clip, numbers);
        return !path.empty() && std::filesystem::exists(path, failure);
    }));
    for (const StreamClip& clip : process.streams) {
        const std::string path = pathOf(clip, numbers);
        const bool isAll =
            clip.track == 0 && plan_.mix.kind != nullptr && plan_.mix.kind->isMatroska();
        WrittenFile file;
        isDone = (path.empty() || (isAll ? writeTogether(process, freePath(path), file)
                                         : writeAlone(clip, freePath(path), file))) &&
                 isDone;
        if (!file.path.empty()) {
            file.processId = process.processId;
            file.name = clip.track == 0 ? "mix" : "track " + std::to_string(clip.track);
            saved_.files.push_back(std::move(file));
        }
    }
    return isDone;
}

ReplaySaved Writer::write(const ReplaySave& save) {
    saved_.ticket = save.ticket;
    // Its files have no numbers yet: others that wait would get the same.
    const bool isBegun = !isGivenUp();
    for (const ProcessClip& process : save.processes) {
        if (!isBegun) {
            const std::string& place = plan_.mix.path.empty() ? plan_.tracksFolder : plan_.mix.path;
            saved_.problems.push_back(withAddition(place, process.addition) + ": save " +
                                      std::to_string(save.ticket) + ", of " +
                                      inSeconds(process.seconds) + " s, was not begun" + kAsSaid);
            saved_.failed.push_back(process.processId);
        } else if (!write(process)) {
            saved_.failed.push_back(process.processId);
        }
    }
    return std::move(saved_);
}

}  // namespace

ReplaySaved writeReplay(const ReplayPlan& plan, const ReplaySave& save,
                        const IsGivenUp& isGivenUp) {
    return Writer(plan, isGivenUp).write(save);
}

}  // namespace tqrecorder
