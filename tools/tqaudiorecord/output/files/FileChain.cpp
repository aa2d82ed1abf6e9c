#include "output/files/FileChain.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

namespace tqrecorder {

bool hasSound(std::span<const std::byte> frames, const BlockFormat& format) {
    const std::size_t sample = format.bitsPerChannel / 8;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        // Floats have a zero with a sign.
        const bool hasSign = format.isFloat && sample > 0 && i % sample == sample - 1;
        const std::byte magnitude = hasSign ? frames[i] & std::byte{0x7F} : frames[i];
        if (magnitude != std::byte{0}) {
            return true;
        }
    }
    return false;
}

FileChain::FileChain(std::string path, bool isNumbered, bool mayReplace,
                     std::shared_ptr<const ProcessNames> programs)
    : path_(std::move(path)),
      isNumbered_(isNumbered),
      mayReplace_(mayReplace),
      programs_(std::move(programs)) {
}

PartFile* FileChain::next(std::string& error) {
    error = lockNumbered();
    if (error.empty()) {
        part_ = std::make_shared<PartFile>(nextPath(), mayReplace_);
        error = part_->problem();
    }
    if (!error.empty()) {
        part_.reset();
        return nullptr;
    }
    if (lock_ == nullptr) {
        lock_ = part_;
    }
    if (isHeard_) {
        takeName(*part_);
    }
    return part_.get();
}

/// Beside the name that no file has. A folder or a device there is nobody's recording.
std::string FileChain::lockNumbered() {
    std::error_code failure;
    const auto status = std::filesystem::status(path_, failure);
    if (!isNumbered_ || lock_ != nullptr ||
        (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))) {
        return {};
    }
    auto lock = std::make_shared<PartFile>(path_, mayReplace_);
    if (lock->problem().empty()) {
        lock_ = std::move(lock);
        return {};
    }
    return lock->problem();
}

std::string FileChain::nextPath() {
    if (!isNumbered_ && number_ == 0) {
        return path_;
    }
    std::string path;
    std::error_code failure;
    do {
        path = withAddition(path_, numberAddition(++number_));
    } while (!mayReplace_ && std::filesystem::exists(path, failure));
    return path;
}

void FileChain::moveTo(std::string path) {
    path_ = std::move(path);
    if (isNumbered_ && lock_ != nullptr) {
        lock_->moveTo(path_);
    }
    number_ = 0;
    for (std::size_t i = 0; i < parts_.size(); ++i) {
        parts_[i]->moveTo(nextPath());
        files_[i].path = parts_[i]->path();
        numberFromNowOn();
    }
    for (Silent& silent : silent_) {
        silent.part->moveTo(nextPath());
        silent.file.path = silent.part->path();
        numberFromNowOn();
    }
    if (part_ != nullptr) {
        part_->moveTo(nextPath());
    }
}

void FileChain::wrote(std::span<const std::byte> frames, const BlockFormat& format) {
    if (!isHeard_) {
        hasSound_ = hasSound_ || hasSound(frames, format);
        followPrograms();
    }
}

/// The microphone alone is no reason to replace a recording.
void FileChain::followPrograms() {
    if (hasSound_ && (programs_ == nullptr || programs_->isHeard())) {
        heard();
    }
}

void FileChain::heard() {
    if (std::exchange(isHeard_, true)) {
        return;
    }
    for (Silent& earlier : silent_) {
        nameAndList(earlier);
    }
    silent_.clear();
    if (part_ != nullptr) {
        takeName(*part_);
    }
}

void FileChain::nameAndList(Silent& complete) {
    takeName(*complete.part);
    if (complete.part->hasName()) {
        complete.file.path = complete.part->path();
        list(std::move(complete.file), complete.part);
    }
}

void FileChain::list(WrittenFile file, std::shared_ptr<PartFile> part) {
    if (part != lock_) {
        part->letGo();
    }
    files_.push_back(std::move(file));
    parts_.push_back(std::move(part));
}

void FileChain::nameBeside(Silent& voice) {
    std::string problem = voice.part->takeNameBeside();
    if (voice.part->hasName()) {
        voice.file.path = voice.part->path();
        list(std::move(voice.file), voice.part);
    }
    problems_.push_back(std::move(problem));
}

void FileChain::takeName(PartFile& part) {
    std::string problem = isHeard_ ? part.takeNameOrKeep() : part.takeName();
    if (!problem.empty()) {
        problems_.push_back(std::move(problem));
    }
}

void FileChain::complete(WrittenFile file, bool isEmpty) {
    const std::shared_ptr<PartFile> part = std::move(part_);
    file.path = part->path();
    if (!part->hasName()) {
        if (!isEmpty && !isHeard_) {
            // Hours of silence have more files than a process may have open.
            if (part != lock_) {
                part->letGo();
            }
            silent_.push_back({std::move(file), part});
        }
    } else if (part->isStillThere()) {
        list(std::move(file), part);
    } else {
        problems_.push_back(file.path + ": was deleted, moved or replaced while it was written");
    }
}

void FileChain::numberFromNowOn() {
    number_ = std::max(number_, 1U);
}

std::optional<WrittenFile> FileChain::split(const std::function<void()>& cut) {
    const std::size_t files = files_.size();
    const std::size_t problems = problems_.size();
    cut();
    numberFromNowOn();
    return files_.size() == files || problems_.size() > problems ? std::nullopt
                                                                 : std::optional(files_.back());
}

void FileChain::finish() {
    followPrograms();
    for (Silent& silent : silent_) {
        const bool isTaken = silent.part->isNameTaken();
        if (isTaken && hasSound_) {
            nameBeside(silent);
            continue;
        }
        if (isTaken) {
            problems_.push_back(silent.file.path +
                                ": stays as it was; the new recording is silent and was dropped");
            continue;
        }
        nameAndList(silent);
    }
    silent_.clear();
    parts_.clear();
    lock_.reset();
}

}  // namespace tqrecorder
