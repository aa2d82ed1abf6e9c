#include "output/matroska/MatroskaSink.h"

#include <algorithm>
#include <utility>

namespace tqrecorder {

MatroskaSink::MatroskaSink(FileSeries::Plan plan, std::shared_ptr<ProcessNames> names)
    : plan_(std::move(plan)), names_(std::move(names)) {
}

bool MatroskaSink::open() {
    opened_ = std::make_unique<MatroskaRecording>(plan_);
    return opened_->open();
}

MatroskaRecording* MatroskaSink::recordingOf(const Process& process, std::uint64_t microseconds) {
    const auto found = recordings_.find(process.id);
    if (found != recordings_.end()) {
        return found->second.get();
    }
    if (recordings_.size() >= kMostFiles) {
        ++refused_;
        return nullptr;
    }
    const std::string& addition = names_->additionOf(process);
    std::unique_ptr<MatroskaRecording> recording;
    if (addition.empty() && opened_ != nullptr) {
        recording = std::move(opened_);
    } else {
        FileSeries::Plan plan = plan_;
        plan.path = withAddition(plan_.path, addition);
        if (!plan.mayReplace && !plan.maximumSeconds) {
            plan.path = freePath(plan.path);
        }
        recording = std::make_unique<MatroskaRecording>(plan);
    }
    recording->beginAt(microseconds);
    return recordings_.emplace(process.id, std::move(recording)).first->second.get();
}

void MatroskaSink::block(const Process& process, const Block& block) {
    if (MatroskaRecording* const recording = recordingOf(process, block.microseconds)) {
        recording->block(block);
    }
}

void MatroskaSink::processEnded(const Process& process, const HostFacts& /*facts*/) {
    const auto found = recordings_.find(process.id);
    if (found != recordings_.end()) {
        found->second->finish();
    }
}

std::vector<WrittenFile> MatroskaSink::split() {
    std::vector<WrittenFile> done;
    for (auto& [id, recording] : recordings_) {
        if (std::optional<WrittenFile> file = recording->split()) {
            done.push_back(std::move(*file));
        }
    }
    return done;
}

void MatroskaSink::refresh() {
    for (auto& [id, recording] : recordings_) {
        recording->refresh();
    }
}

void MatroskaSink::finish() {
    isFinished_ = true;
    if (opened_ != nullptr) {
        opened_->finish();
    }
    for (auto& [id, recording] : recordings_) {
        recording->finish();
    }
}

std::vector<std::string> MatroskaSink::problems() const {
    std::vector<std::string> all;
    const auto add = [&all](const MatroskaRecording& recording) {
        all.insert(all.end(), recording.problems().begin(), recording.problems().end());
    };
    if (opened_ != nullptr) {
        add(*opened_);
    }
    for (const auto& [id, recording] : recordings_) {
        add(*recording);
    }
    if (isFinished_ && refused_ > 0) {
        all.push_back(refusedText(plan_.path, refused_));
    }
    return all;
}

std::vector<WrittenFile> MatroskaSink::files() const {
    std::vector<WrittenFile> all;
    if (opened_ != nullptr) {
        all = opened_->files();
    }
    // The process that has the names as given comes first.
    for (const bool isFirst : {true, false}) {
        for (const auto& [id, recording] : recordings_) {
            if (names_->isFirst(id) != isFirst) {
                continue;
            }
            for (WrittenFile file : recording->files()) {
                file.processId = id;
                all.push_back(std::move(file));
            }
        }
    }
    return all;
}

}  // namespace tqrecorder
