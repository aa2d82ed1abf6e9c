#include "output/files/FileSeries.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <utility>

#include "output/files/FileNames.h"

namespace tqrecorder {
namespace {

constexpr std::uint64_t kSilentFrames = 4096;

/// Whether a signal that ends a recording waits to be read by the recorder's loop, which is the one
/// that calls us. False where these signals are not blocked.
bool isEndAsked() {
    sigset_t pending;
    return sigpending(&pending) == 0 &&
           (sigismember(&pending, SIGINT) == 1 || sigismember(&pending, SIGTERM) == 1 ||
            sigismember(&pending, SIGHUP) == 1);
}

}  // namespace

FileSeries::FileSeries(Plan plan, const BlockFormat& format)
    : plan_(std::move(plan)), format_(format), fileFormat_(format) {
    if (plan_.kind->onlyRate != 0 && format.sampleRate != plan_.kind->onlyRate) {
        fileFormat_.sampleRate = plan_.kind->onlyRate;
        resampler_ =
            std::make_unique<Resampler>(static_cast<int>(std::lround(format.sampleRate)),
                                        plan_.kind->onlyRate, static_cast<int>(format.channels));
    }
    if (plan_.maximumSeconds) {
        maximumFrames_ = static_cast<std::uint64_t>(
            std::max(1.0, std::round(*plan_.maximumSeconds * fileFormat_.sampleRate)));
    }
}

bool FileSeries::open() {
    part_ = std::make_unique<PartFile>(nextPath(), plan_.mayReplace);
    std::string error = part_->problem();
    std::optional<std::uint64_t> reference = plan_.timeReference;
    if (reference) {
        *reference += complete_;
    }
    if (error.empty()) {
        file_ = SoundFile::create(part_->path(), part_->descriptor(), *plan_.kind, fileFormat_,
                                  error, reference);
    }
    if (file_ == nullptr) {
        fail(error);
        part_.reset();
        return false;
    }
    if (hasSound_) {
        takeName(*part_);
    }
    return true;
}

void FileSeries::write(std::span<const std::byte> frames) {
    writeConverted(resampler_ != nullptr ? resampler_->convert(frames) : frames);
    if (!hasSound_) {
        listen(frames);
    }
}

void FileSeries::listen(std::span<const std::byte> frames) {
    hasSound_ = !failed_ && std::any_of(frames.begin(), frames.end(),
                                        [](std::byte byte) { return byte != std::byte{0}; });
    if (!hasSound_) {
        return;
    }
    for (Silent& earlier : silent_) {
        takeName(*earlier.part);
        earlier.file.path = earlier.part->path();
        files_.push_back(std::move(earlier.file));
    }
    silent_.clear();
    if (part_ != nullptr) {
        takeName(*part_);
    }
}

void FileSeries::takeName(PartFile& part) {
    if (std::string problem = part.takeName(); !problem.empty()) {
        problems_.push_back(std::move(problem));
    }
}

void FileSeries::writeSilence(std::uint64_t frames) {
    if (frames == 0) {
        return;
    }
    const std::vector<std::byte> silence(kSilentFrames * format_.frameBytes());
    while (frames > 0 && !failed_) {
        const std::uint64_t count = std::min(frames, kSilentFrames);
        write(std::span(silence).first(count * format_.frameBytes()));
        frames -= count;
        if (frames > 0 && !failed_ && isEndAsked()) {
            fail(plan_.path + ": stopped within a long gap of the program's sound");
        }
    }
}

void FileSeries::writeConverted(std::span<const std::byte> frames) {
    while (!frames.empty() && !failed_) {
        // The next file is made when there is something to put in it.
        if (file_ == nullptr && !open()) {
            return;
        }
        std::size_t bytes = frames.size();
        if (maximumFrames_ != 0) {
            const std::uint64_t room = maximumFrames_ - file_->frames();
            bytes = static_cast<std::size_t>(
                std::min<std::uint64_t>(bytes, room * fileFormat_.frameBytes()));
        }
        if (!file_->write(frames.first(bytes))) {
            fail(file_->problem());
            closeFile();
            return;
        }
        frames = frames.subspan(bytes);
        if (maximumFrames_ != 0 && file_->frames() == maximumFrames_) {
            closeFile();
        }
    }
}

std::string FileSeries::nextPath() {
    if (maximumFrames_ == 0 && number_ == 0) {
        return plan_.path;
    }
    std::string path;
    do {
        path = withAddition(plan_.path, numberAddition(++number_));
    } while (!plan_.mayReplace && std::filesystem::exists(path));
    return path;
}

std::optional<WrittenFile> FileSeries::split() {
    if (file_ == nullptr || file_->frames() == 0) {
        return std::nullopt;
    }
    const std::size_t before = files_.size();
    closeFile();
    number_ = std::max(number_, 1U);
    if (files_.size() > before) {
        return files_.back();
    }
    return silent_.empty() ? std::nullopt : std::optional(silent_.back().file);
}

void FileSeries::refresh() {
    if (file_ != nullptr) {
        file_->refresh();
    }
}

void FileSeries::finish() {
    if (resampler_ != nullptr) {
        writeConverted(resampler_->flush());
    }
    closeFile();
    for (Silent& silent : silent_) {
        if (silent.part->isNameTaken()) {
            problems_.push_back(silent.file.path +
                                ": stays as it was; the new recording is silent and was dropped");
            continue;
        }
        takeName(*silent.part);
        files_.push_back(std::move(silent.file));
    }
    silent_.clear();
}

void FileSeries::closeFile() {
    if (file_ == nullptr) {
        return;
    }
    const bool isEmpty = file_->frames() == 0;
    if (!file_->close() && !failed_) {
        fail(file_->problem());
    }
    WrittenFile done = written(*file_);
    complete_ += file_->frames();
    file_.reset();
    std::unique_ptr<PartFile> part = std::move(part_);
    if (!part->hasName()) {
        // One without a frame goes.
        if (!isEmpty) {
            silent_.push_back({std::move(done), std::move(part)});
        }
    } else if (part->isStillThere()) {
        files_.push_back(std::move(done));
    } else {
        problems_.push_back(done.path + ": was deleted, moved or replaced while it was written");
    }
}

WrittenFile FileSeries::written(const SoundFile& file) const {
    return {part_->path(),
            textOf(file.format()),
            file.seconds(),
            0,
            0,
            {},
            0,
            static_cast<double>(complete_) / file.format().sampleRate};
}

void FileSeries::fail(const std::string& problem) {
    failed_ = true;
    problems_.push_back(problem);
}

std::vector<WrittenFile> FileSeries::files() const {
    std::vector<WrittenFile> all = files_;
    if (file_ != nullptr) {
        all.push_back(written(*file_));
    }
    return all;
}

}  // namespace tqrecorder
