#include "output/files/FileChain.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "output/files/FileNames.h"

namespace tqrecorder {

FileChain::FileChain(std::string path, bool isNumbered, bool mayReplace)
    : path_(std::move(path)), isNumbered_(isNumbered), mayReplace_(mayReplace) {
}

PartFile* FileChain::next(std::string& error) {
    part_ = std::make_unique<PartFile>(nextPath(), mayReplace_);
    if (!part_->problem().empty()) {
        error = part_->problem();
        part_.reset();
        return nullptr;
    }
    if (isHeard_) {
        takeName(*part_);
    }
    return part_.get();
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
        files_.push_back(std::move(complete.file));
    }
}

void FileChain::takeName(PartFile& part) {
    if (std::string problem = part.takeName(); !problem.empty()) {
        if (isHeard_ && !part.hasName()) {
            problem += "; what was recorded is kept as " + part.keep();
        }
        problems_.push_back(std::move(problem));
    }
}

void FileChain::complete(WrittenFile file, bool isEmpty) {
    std::unique_ptr<PartFile> part = std::move(part_);
    file.path = part->path();
    if (!part->hasName()) {
        if (!isEmpty && !isHeard_) {
            silent_.push_back({std::move(file), std::move(part)});
        }
    } else if (part->isStillThere()) {
        files_.push_back(std::move(file));
    } else {
        problems_.push_back(file.path + ": was deleted, moved or replaced while it was written");
    }
}

std::optional<WrittenFile> FileChain::last() const {
    if (!silent_.empty()) {
        return silent_.back().file;
    }
    return files_.empty() ? std::nullopt : std::optional(files_.back());
}

void FileChain::numberFromNowOn() {
    number_ = std::max(number_, 1U);
}

void FileChain::finish() {
    for (Silent& silent : silent_) {
        if (silent.part->isNameTaken()) {
            problems_.push_back(silent.file.path +
                                ": stays as it was; the new recording is silent and was dropped");
            continue;
        }
        nameAndList(silent);
    }
    silent_.clear();
}

}  // namespace tqrecorder
