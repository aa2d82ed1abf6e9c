#include "output/matroska/MatroskaRecording.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tqrecorder {
namespace {

/// So long after a time no block of it comes any more: blocks of one process arrive in the order of
/// their time, but for bursts. A unit that has not played then was silent.
constexpr double kSettledMicroseconds = 1e6;
constexpr BlockFormat kMix{44100, 2, 16, false};

}  // namespace

MatroskaRecording::MatroskaRecording(FileSeries::Plan plan)
    : plan_(std::move(plan)),
      chain_(plan_.path, plan_.maximumSeconds.has_value(), plan_.mayReplace, plan_.programs) {
    if (plan_.maximumSeconds) {
        maximumFrames_ = static_cast<std::uint64_t>(
            std::max(1.0, std::round(*plan_.maximumSeconds * kMix.sampleRate)));
    }
}

bool MatroskaRecording::open() {
    return openNext();
}

bool MatroskaRecording::openNext() {
    std::string error;
    if (PartFile* const part = chain_.next(error)) {
        file_ = MatroskaFile::create(part->path(), part->descriptor(), plan_.kind->coding, error);
    }
    if (file_ == nullptr) {
        chain_.drop();
        fail(error);
    }
    return file_ != nullptr;
}

void MatroskaRecording::beginAt(std::uint64_t microseconds) {
    beganAt_ = microseconds;
    received_ = std::chrono::steady_clock::now();
    zero_ = static_cast<double>(microseconds);
    streams_.push_back(
        {0, {}, kMix, StreamClock(kMix.sampleRate, beganAt_, kMixPatience, received_)});
}

void MatroskaRecording::forgetGone() {
    streams_.remove_if([this](const Stream& stream) {
        gaps_ += stream.isGone ? stream.clock.gaps() : 0;
        return stream.isGone;
    });
}

MatroskaRecording::Stream* MatroskaRecording::streamOf(const Block& block) {
    const auto isSame = [&block](const Stream& stream) {
        return stream.unit == block.unit && stream.format == block.format;
    };
    for (Stream& stream : streams_) {
        if (stream.isCurrent && stream.track == block.track) {
            if (isSame(stream)) {
                return &stream;
            }
            stream.isCurrent = false;
        }
    }
    // Of samples as they are, silence for units that are gone would take as much room as sound.
    const auto earlier =
        plan_.kind->coding == MatroskaCoding::kPcm
            ? streams_.end()
            : std::find_if(streams_.begin(), streams_.end(), [&](const Stream& stream) {
                  return !stream.isCurrent && isSame(stream);
              });
    if (earlier != streams_.end()) {
        earlier->isCurrent = true;
        earlier->track = block.track;
        return &*earlier;
    }
    const bool isMix = block.track == 0;
    // The mix begins with the process, a track with its first block.
    streams_.push_back(
        {block.track, std::string(block.unit), block.format,
         isMix ? StreamClock(block.format.sampleRate, beganAt_, kMixPatience, received_)
               : StreamClock(block.format.sampleRate, block.microseconds, kTrackPatience,
                             std::chrono::steady_clock::now(), slackOf(block.format))});
    return &streams_.back();
}

void MatroskaRecording::block(const Block& block) {
    const std::size_t frameBytes = block.format.frameBytes();
    if (failed_ || frameBytes == 0 || block.format.sampleRate < 1) {
        return;
    }
    if (backlog_.isEmpty() && missingBefore(block) <= Backlog::kAtOnce) {
        writeNow(block);
    } else {
        backlog_.add(block);
    }
}

void MatroskaRecording::writeNow(const Block& block) {
    if (failed_) {
        return;
    }
    forgetGone();
    Stream& stream = *streamOf(block);
    const std::size_t frames = block.frames.size() / block.format.frameBytes();
    const std::uint64_t silence = stream.clock.before(block);
    stream.unwritten = silence + frames;
    if (stream.clock.takeJump()) {
        chain_.complain(jumpText(plan_.path));
    }
    writeSilence(stream, silence);
    write(stream, block.frames.first(frames * block.format.frameBytes()));
    if (!failed_) {
        chain_.wrote(block.frames, block.format);
    }
}

void MatroskaRecording::write(Stream& stream, std::span<const std::byte> frames) {
    const std::size_t frameBytes = stream.format.frameBytes();
    while (!frames.empty() && !failed_) {
        if (stream.inFile == 0 && !beginInFile(stream)) {
            return;
        }
        std::uint64_t count = frames.size() / frameBytes;
        const bool isCounted = stream.track == 0 && maximumFrames_ != 0;
        if (isCounted) {
            count = std::min(count, maximumFrames_ - mixFrames_);
        }
        file_->write(stream.inFile, frames.first(count * frameBytes));
        stream.unwritten -= std::min(stream.unwritten, count);
        frames = frames.subspan(count * frameBytes);
        if (isCounted && (mixFrames_ += count) == maximumFrames_) {
            cut();
        }
    }
}

bool MatroskaRecording::beginInFile(Stream& stream) {
    if (file_ == nullptr && !openNext()) {
        return false;
    }
    MatroskaFile::Begun begun = beginBehindMix(stream);
    if (begun.stream == 0 && begun.error.empty() && file_->problem().empty() &&
        file_->streams() > 0) {
        // There is no room for one more.
        cut();
        chain_.numberFromNowOn();
        if (!openNext()) {
            return false;
        }
        begun = beginBehindMix(stream);
    }
    stream.inFile = begun.stream;
    if (!begun.error.empty()) {
        // Will never be written: where the next file begins is not for it to say.
        stream.unwritten = 0;
        const std::string problem = plan_.path + ": " + begun.error;
        if (std::find(problems().begin(), problems().end(), problem) == problems().end()) {
            chain_.complain(problem);
        }
    } else if (begun.stream == 0) {
        fail(file_->problem());
    }
    return begun.stream != 0;
}

std::list<MatroskaRecording::Stream>::iterator MatroskaRecording::currentMix() {
    return std::find_if(streams_.begin(), streams_.end(),
                        [](const Stream& one) { return one.track == 0 && one.isCurrent; });
}

/// The mix is every file's first stream, whoever plays first.
MatroskaFile::Begun MatroskaRecording::beginBehindMix(Stream& stream) {
    const auto begin = [this](const Stream& one) {
        return file_->begin(titleOf(one), one.format, (one.position() - zero_) / 1e6);
    };
    const auto mix = currentMix();
    if (file_->streams() == 0 && mix != streams_.end() && &*mix != &stream) {
        mix->inFile = begin(*mix).stream;
    }
    return begin(stream);
}

/// Further streams of one unit have numbers.
std::string MatroskaRecording::titleOf(const Stream& stream) const {
    const std::string name = stream.track == 0 ? "mix" : stream.unit;
    const auto before = std::count_if(streams_.begin(), streams_.end(), [&](const Stream& other) {
        return other.inFile != 0 && other.track != 0 && other.unit == stream.unit;
    });
    return before == 0 || stream.track == 0 ? name : name + " (" + std::to_string(before + 1) + ")";
}

void MatroskaRecording::refresh() {
    forgetGone();
    if (file_ == nullptr) {
        return;
    }
    fillIdle(0, latest() - kSettledMicroseconds);
    if (file_ != nullptr && !file_->flush()) {
        fail(file_->problem());
        closeFile();
    }
}

/// What follows goes to the next file. A stream that lags begins in it a little before the others,
/// so that nothing of it lies before the file. Whoever called may be writing a stream: none leaves
/// the list here.
void MatroskaRecording::cut() {
    const double patience = kTrackPatience.most * 1e6;
    fillIdle(patience, latest());
    closeFile();
    const double now = latest();
    zero_ = now;
    for (Stream& stream : streams_) {
        stream.isGone = !stream.isCurrent;
        // One that played nothing in the file that is closed has nothing for the next before now.
        if (!stream.isGone && stream.inFile == 0 && stream.unwritten == 0 &&
            stream.position() < now - patience) {
            (void)stream.clock.idleUntil(now);
        }
        stream.inFile = 0;
        zero_ = stream.isGone ? zero_ : std::min(zero_, stream.position());
    }
    mixFrames_ = 0;
}

void MatroskaRecording::split(const SplitFiles& done) {
    if (backlog_.isEmpty()) {
        splitNow(done);
    } else {
        backlog_.add(done);
    }
}

void MatroskaRecording::splitNow(const SplitFiles& done) {
    if (file_ == nullptr || file_->streams() == 0) {
        return;
    }
    if (std::optional<WrittenFile> file = chain_.split([this] { cut(); })) {
        done->push_back(std::move(*file));
    }
}

void MatroskaRecording::moveTo(const std::string& path) {
    plan_.path = path;
    chain_.moveTo(path);
    if (file_ != nullptr) {
        file_->setPath(chain_.current()->path());
    }
}

void MatroskaRecording::end() {
    catchUp(Backlog::Time::max());
    closeFile();
}

void MatroskaRecording::finish() {
    end();
    chain_.finish();
}

void MatroskaRecording::closeFile() {
    if (file_ == nullptr) {
        return;
    }
    if (!file_->close() && !failed_) {
        fail(file_->problem());
    }
    const WrittenFile done = written();
    file_.reset();
    chain_.complete(done, done.seconds == 0);
}

WrittenFile MatroskaRecording::written() const {
    std::uint64_t gaps = gaps_;
    for (const Stream& stream : streams_) {
        gaps += stream.clock.gaps();
    }
    return {chain_.current()->path(),
            file_->text(),
            file_->seconds(),
            gaps,
            0,
            "mix",
            beganAt_,
            (zero_ - static_cast<double>(beganAt_)) / 1e6,
            plan_.kind};
}

void MatroskaRecording::fail(const std::string& problem) {
    failed_ = true;
    chain_.complain(problem);
}

std::vector<WrittenFile> MatroskaRecording::files() const {
    std::vector<WrittenFile> all = chain_.files();
    if (file_ != nullptr) {
        all.push_back(written());
    }
    return all;
}

}  // namespace tqrecorder
