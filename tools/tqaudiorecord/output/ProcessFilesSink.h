#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "output/FilesSink.h"
#include "output/files/FileNames.h"

namespace tqrecorder {

/// Writes what each process plays to files of its own, a Recording for each. The first process that
/// delivers anything gets the file that was opened at the start, and gives its name up to the first
/// that sounds. A Recording is made of a FileSeries::Plan and has open(), beginAt(), block(),
/// catchUp(), isBehind(), isHeard(), refresh(), split(), moveTo(), giveUp(), end(), finish(),
/// problems() and files().
template <typename Recording>
class ProcessFilesSink : public FilesSink {
  public:
    ProcessFilesSink(FileSeries::Plan plan, std::shared_ptr<ProcessNames> names)
        : plan_(std::move(plan)), names_(std::move(names)) {}

    /// Makes the first file before there is anything to write. False with a line in problems().
    [[nodiscard]] bool open() {
        opened_ = std::make_unique<Recording>(plan_);
        return opened_->open();
    }

    void block(const Process& process, const Block& block) override {
        followNames();
        // A track's first block may come before the mix's: all files of a process begin with it.
        if (Recording* const recording = recordingOf(process, block.microseconds)) {
            recording->block(block);
        }
    }

    void processEnded(const Process& process, const HostFacts& /*facts*/) override {
        const auto found = recordings_.find(process.id);
        if (found != recordings_.end() && found->second->isBehind()) {
            ended_.insert(process.id);
        } else if (found != recordings_.end()) {
            conclude(process.id, *found->second);
        }
    }

    [[nodiscard]] bool isHeard() const override {
        return std::any_of(recordings_.begin(), recordings_.end(),
                           [](const auto& one) { return one.second->isHeard(); });
    }

    void split(const SplitFiles& done) override {
        for (auto& [id, recording] : recordings_) {
            recording->split(done);
        }
    }

    void giveUpSaves() override {
        for (auto& [id, recording] : recordings_) {
            recording->giveUp();
        }
    }

    void finish() override {
        isFinished_ = true;
        if (opened_ != nullptr) {
            opened_->finish();
        }
        for (auto& [id, recording] : recordings_) {
            recording->finish();
        }
    }

    [[nodiscard]] std::vector<std::string> problems() const override {
        std::vector<std::string> all;
        const auto add = [&all](const Recording& recording) {
            const std::vector<std::string>& more = recording.problems();
            all.insert(all.end(), more.begin(), more.end());
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

    [[nodiscard]] std::vector<WrittenFile> files() const override {
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

  protected:
    void refresh() override {
        for (auto& [id, recording] : recordings_) {
            recording->refresh();
        }
    }
    [[nodiscard]] bool isBehind() const override {
        return std::any_of(recordings_.begin(), recordings_.end(),
                           [](const auto& one) { return one.second->isBehind(); });
    }
    void catchUp(Backlog::Time end) override {
        for (auto& [id, recording] : recordings_) {
            recording->catchUp(end);
            if (!recording->isBehind() && ended_.erase(id) > 0) {
                conclude(id, *recording);
            }
        }
    }

  private:
    [[nodiscard]] std::string pathWith(const std::string& addition) const {
        const std::string path = addition.empty() ? plan_.path : withAddition(plan_.path, addition);
        return addition.empty() || plan_.mayReplace || plan_.maximumSeconds ? path : freePath(path);
    }

    /// Its process has ended.
    void conclude(int id, Recording& recording) {
        if (id == first_ && !names_->isHeard()) {
            // Another may still get its name.
            recording.end();
            isFirstOver_ = true;
        } else {
            recording.finish();
        }
    }

    /// Once a process has sounded it is known whose the name as given is.
    void followNames() {
        if (isSettled_ || !names_->isHeard()) {
            return;
        }
        isSettled_ = true;
        if (first_ == 0 || !names_->isFirst(first_)) {
            if (first_ != 0) {
                recordings_.at(first_)->moveTo(pathWith(names_->additionOf(first_)));
            }
            for (auto& [id, recording] : recordings_) {
                if (names_->isFirst(id)) {
                    opened_.reset();
                    recording->moveTo(plan_.path);
                }
            }
        }
        if (isFirstOver_) {
            recordings_.at(first_)->finish();
        }
    }

    /// Null for a process beyond the bound.
    [[nodiscard]] Recording* recordingOf(const Process& process, std::uint64_t microseconds) {
        const auto found = recordings_.find(process.id);
        if (found != recordings_.end()) {
            return found->second.get();
        }
        if (recordings_.size() >= kMostFiles) {
            ++refused_;
            return nullptr;
        }
        const std::string& addition = names_->additionOf(process);
        std::unique_ptr<Recording> recording;
        if (addition.empty()) {
            first_ = process.id;
        }
        if (addition.empty() && opened_ != nullptr) {
            recording = std::move(opened_);
        } else {
            FileSeries::Plan plan = plan_;
            plan.path = pathWith(addition);
            recording = std::make_unique<Recording>(plan);
        }
        recording->beginAt(microseconds);
        return recordings_.emplace(process.id, std::move(recording)).first->second.get();
    }

    FileSeries::Plan plan_;
    std::shared_ptr<ProcessNames> names_;
    std::unique_ptr<Recording> opened_;  // until the first process needs it
    std::map<int, std::unique_ptr<Recording>> recordings_;
    std::set<int> ended_;        // those whose recording is not up to their end yet
    int first_ = 0;              // process that has the name as given; 0 for none
    bool isFirstOver_ = false;   // it has ended before any process sounded
    bool isSettled_ = false;     // names change no more
    std::uint64_t refused_ = 0;  // blocks of processes beyond the bound
    bool isFinished_ = false;
};

}  // namespace tqrecorder
