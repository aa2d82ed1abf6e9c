#include "output/files/FileSeries.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tqrecorder {
namespace {

constexpr std::uint64_t kSilentFrames = 4096;

}  // namespace

std::string brokenOffText(const std::string& path) {
    return path + ": stopped within a long gap of the program's sound";
}

std::string FileSeries::Plan::pathWith(const std::string& addition) const {
    const std::string whole = addition.empty() ? path : withAddition(path, addition);
    return addition.empty() || mayReplace || maximumSeconds ? whole : freePath(whole);
}

FileSeries::FileSeries(Plan plan, const BlockFormat& format)
    : plan_(std::move(plan)),
      format_(format),
      fileFormat_(format),
      chain_(plan_.path, plan_.maximumSeconds.has_value(), plan_.mayReplace, plan_.programs) {
    if (plan_.kind->onlyRate != 0 && format.sampleRate != plan_.kind->onlyRate) {
        fileFormat_ = widened(format);
        fileFormat_.sampleRate = plan_.kind->onlyRate;
        resampler_ = std::make_unique<Resampler>(format, fileFormat_);
    }
    if (plan_.maximumSeconds) {
        maximumFrames_ = static_cast<std::uint64_t>(
            std::max(1.0, std::round(*plan_.maximumSeconds * fileFormat_.sampleRate)));
    }
}

bool FileSeries::open() {
    std::string error;
    std::optional<std::uint64_t> reference = plan_.timeReference;
    if (reference) {
        *reference += complete_;
    }
    if (PartFile* const part = chain_.next(error)) {
        file_ = SoundFile::create(part->path(), part->descriptor(), *plan_.kind, fileFormat_, error,
                                  reference);
    }
    if (file_ == nullptr) {
        fail(error);
        chain_.drop();
        return false;
    }
    return true;
}

void FileSeries::write(std::span<const std::byte> frames) {
    writeConverted(resampler_ != nullptr ? resampler_->convert(frames) : frames);
    if (!failed_) {
        chain_.wrote(frames, format_);
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
    }
}

void FileSeries::breakOff() {
    fail(brokenOffText(plan_.path));
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

std::optional<WrittenFile> FileSeries::split() {
    if (file_ == nullptr || file_->frames() == 0) {
        return std::nullopt;
    }
    return chain_.split([this] { closeFile(); });
}

void FileSeries::refresh() {
    if (file_ != nullptr) {
        file_->refresh();
    }
}

void FileSeries::moveTo(const std::string& path) {
    plan_.path = path;
    chain_.moveTo(path);
    if (file_ != nullptr) {
        file_->setPath(chain_.current()->path());
    }
}

void FileSeries::end() {
    if (resampler_ != nullptr) {
        writeConverted(resampler_->flush());
    }
    closeFile();
}

void FileSeries::finish() {
    end();
    chain_.finish();
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
    chain_.complete(std::move(done), isEmpty);
}

WrittenFile FileSeries::written(const SoundFile& file) const {
    return {chain_.current()->path(),
            textOf(file.format()),
            file.seconds(),
            0,
            0,
            {},
            0,
            static_cast<double>(complete_) / file.format().sampleRate,
            plan_.kind};
}

void FileSeries::fail(const std::string& problem) {
    failed_ = true;
    chain_.complain(problem);
}

std::vector<WrittenFile> FileSeries::files() const {
    std::vector<WrittenFile> all = chain_.files();
    if (file_ != nullptr) {
        all.push_back(written(*file_));
    }
    return all;
}

}  // namespace tqrecorder
