#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "output/FilesSink.h"
#include "output/files/FileNames.h"

namespace tqrecorder {

/// Writes what each process plays to files of its own, a Recording for each. The first process that
/// delivers anything gets the file that was opened at the start; what is silent gives its name up
/// as ProcessNames says. A Recording is made of a FileSeries::Plan and has open(), beginAt(),
/// block(), catchUp(), isBehind(), isHeard(), refresh(), split(), moveTo(), giveUp(), end(),
/// finish(), problems() and files().
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
        if (found != recordings_.end()) {
            found->second.isLeft = true;
            concludeIfDone(process.id, found->second);
        }
    }

    [[nodiscard]] bool isHeard() const override {
        return std::any_of(recordings_.begin(), recordings_.end(),
                           [](const auto& one) { return one.second.recording->isHeard(); });
    }

    void split(const SplitFiles& done) override {
        for (auto& [id, one] : recordings_) {
            one.recording->split(done);
        }
    }

    void giveUpSaves() override {
        for (auto& [id, one] : recordings_) {
            one.recording->giveUp();
        }
    }

    void finish() override {
        isFinished_ = true;
        if (opened_ != nullptr) {
            opened_->finish();
        }
        for (auto& [id, one] : recordings_) {
            one.recording->finish();
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
        for (const auto& [id, one] : recordings_) {
            add(*one.recording);
        }
        if (refused_ > 0) {
            all.push_back(fullText(plan_.path));
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
            for (const auto& [id, one] : recordings_) {
                if (names_->isFirst(id) != isFirst) {
                    continue;
                }
                for (WrittenFile file : one.recording->files()) {
                    file.processId = id;
                    all.push_back(std::move(file));
                }
            }
        }
        return all;
    }

  protected:
    void refresh() override {
        for (auto& [id, one] : recordings_) {
            one.recording->refresh();
        }
    }
    [[nodiscard]] bool isBehind() const override {
        return std::any_of(recordings_.begin(), recordings_.end(),
                           [](const auto& one) { return one.second.recording->isBehind(); });
    }
    void catchUp(Backlog::Time end) override {
        for (auto& [id, one] : recordings_) {
            one.recording->catchUp(end);
            concludeIfDone(id, one);
        }
    }

  private:
    /// Recordings that have ended and may still change their names. Each holds a file open.
    static constexpr std::size_t kMostUnnamed = 32;
    struct One {
        std::unique_ptr<Recording> recording;
        std::string addition{};
        bool isLeft = false;  ///< its process has ended
        bool isOver = false;  ///< and all of it is written
    };

    void concludeIfDone(int id, One& one) {
        if (!one.isLeft || one.isOver || one.recording->isBehind()) {
            return;
        }
        one.isOver = true;
        if (!names_->mayLoseNames(id)) {
            // Whatever its name is: a finished file cannot move on.
            names_->settle(id);
            one.recording->finish();
            return;
        }
        one.recording->end();
        unnamed_.push_back(id);
        // The names as given stay to be had until the end.
        const auto oldest = std::find_if(unnamed_.begin(), unnamed_.end(),
                                         [this](int other) { return !names_->isFirst(other); });
        if (unnamed_.size() > kMostUnnamed && oldest != unnamed_.end()) {
            names_->settle(*oldest);
            recordings_.at(*oldest).recording->finish();
            unnamed_.erase(oldest);
        }
    }

    /// Each process that sounds may get the names of one that does not.
    void followNames() {
        if (hearings_ == names_->hearings()) {
            return;
        }
        hearings_ = names_->hearings();
        // Who gives them up goes first.
        for (const bool hasSounded : {false, true}) {
            for (auto& [id, one] : recordings_) {
                const std::string& addition = names_->additionOf(id);
                if (one.addition == addition || names_->hasSounded(id) != hasSounded) {
                    continue;
                }
                if (addition.empty()) {
                    opened_.reset();
                }
                one.addition = addition;
                one.recording->moveTo(plan_.pathWith(addition));
            }
        }
        std::erase_if(unnamed_, [this](int id) {
            const bool isSettled = !names_->mayLoseNames(id);
            if (isSettled) {
                recordings_.at(id).recording->finish();
            }
            return isSettled;
        });
    }

    /// Null for a process beyond the bound.
    [[nodiscard]] Recording* recordingOf(const Process& process, std::uint64_t microseconds) {
        const auto found = recordings_.find(process.id);
        if (found != recordings_.end()) {
            return found->second.recording.get();
        }
        if (recordings_.size() >= kMostFiles) {
            ++refused_;
            return nullptr;
        }
        const std::string& addition = names_->additionOf(process);
        std::unique_ptr<Recording> recording;
        if (addition.empty() && opened_ != nullptr) {
            recording = std::move(opened_);
        } else {
            FileSeries::Plan plan = plan_;
            plan.path = plan_.pathWith(addition);
            recording = std::make_unique<Recording>(plan);
        }
        recording->beginAt(microseconds);
        return recordings_.emplace(process.id, One{std::move(recording), addition})
            .first->second.recording.get();
    }

    FileSeries::Plan plan_;
    std::shared_ptr<ProcessNames> names_;
    std::unique_ptr<Recording> opened_;  // until the first process needs it
    std::map<int, One> recordings_;
    std::vector<int> unnamed_;   // that are over and may still change their names
    std::size_t hearings_ = 0;   // up to which names were followed
    std::uint64_t refused_ = 0;  // blocks of processes beyond the bound
    bool isFinished_ = false;
};

}  // namespace tqrecorder
