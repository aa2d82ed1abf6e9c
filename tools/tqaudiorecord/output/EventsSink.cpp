#include "output/EventsSink.h"

#include <TQAudioRecord/tq_events.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>
#include "output/files/FileSeries.h"

namespace tqrecorder {
namespace {

/// A host's words steer no terminal that shows the file: all but printable ASCII is escaped, and
/// bytes that are no UTF-8 are replaced.
std::string lineOf(const nlohmann::ordered_json& event) {
    return event.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) + "\n";
}

const char* nameOf(tq_event_kind kind) {
    switch (kind) {
        case TQ_EVENT_KIND_SUCCESS:
            return "success";
        case TQ_EVENT_KIND_ROUTINE:
            return "routine";
        case TQ_EVENT_KIND_FAILURE:
            break;
    }
    return "failure";
}

}  // namespace

EventsSink::EventsSink(std::string path, bool mayReplace,
                       std::shared_ptr<const ProcessNames> programs)
    : path_(std::move(path)), mayReplace_(mayReplace), programs_(std::move(programs)) {
}

bool EventsSink::open() {
    part_ = std::make_unique<PartFile>(path_, mayReplace_);
    if (!part_->problem().empty()) {
        problems_.push_back(part_->problem());
        return false;
    }
    file_ = part_->descriptor();
    return true;
}

void EventsSink::block(const Process& process, const Block& block) {
    noteBeginning(process, block);
    if (part_ == nullptr || isNameTried_) {
        return;
    }
    hasSound_ = hasSound_ || hasSound(block.frames, block.format);
    if (!isEmpty_ && hasSound_ && (programs_ == nullptr || programs_->isHeard())) {
        takeName();
    }
}

void EventsSink::noteBeginning(const Process& process, const Block& block) {
    const std::uint64_t origin = origins_.try_emplace(process.id, block.microseconds).first->second;
    if (block.track == 0) {
        return;
    }
    const auto [known, isNew] = beginnings_.try_emplace({process.id, block.track});
    if (!isNew && known->second.unit == block.unit && known->second.format == block.format) {
        return;
    }
    known->second = {std::string(block.unit), block.format};
    const double offset = static_cast<double>(std::max(block.microseconds, origin) - origin) / 1e6;
    nlohmann::ordered_json line;
    line["host_time_us"] = block.microseconds;
    line["category"] = 0;
    line["code"] = 0;
    line["message"] = "track begins";
    line["process"] = process.name;
    line["pid"] = process.pid;
    line["kind"] = nameOf(TQ_EVENT_KIND_ROUTINE);
    line["text"] = "track " + std::to_string(block.track) + " begins with " + known->second.unit;
    line["track"] = block.track;
    line["unit"] = known->second.unit;
    line["offset_seconds"] = offset;
    write(lineOf(line));
}

void EventsSink::takeName() {
    isNameTried_ = true;
    if (std::string problem = part_->takeNameOrKeep(); !problem.empty()) {
        problems_.push_back(std::move(problem));
    }
}

void EventsSink::event(const Process& process, const Event& event) {
    if (!file_) {
        return;
    }
    nlohmann::ordered_json line;
    line["host_time_us"] = event.microseconds;
    line["category"] = event.category;
    line["code"] = event.code;
    line["message"] = event.message;
    line["process"] = process.name;
    line["pid"] = process.pid;
    line["kind"] = nameOf(tq_event_kind_of(event.category, event.code));
    line["text"] = tq_event_text(event.category, event.code);
    write(lineOf(line));
}

void EventsSink::write(const std::string& text) {
    if (!file_) {
        return;
    }
    const off_t before = ::lseek(file_.get(), 0, SEEK_END);
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(file_.get(), text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            const int error = written < 0 ? errno : ENOSPC;
            // Removes the part of the line that was written; a pipe cannot take it back.
            if (before >= 0 && ftruncate(file_.get(), before) != 0) {
                fail(errno);
                return;
            }
            fail(error);
            return;
        }
        done += static_cast<std::size_t>(written);
    }
    isEmpty_ = false;
    if (!isNameTried_ && !part_->isNameTaken()) {
        takeName();
    }
}

void EventsSink::fail(int error) {
    problems_.push_back(path_ + ": " + std::strerror(error));
    finish();
}

void EventsSink::finish() {
    if (part_ == nullptr) {
        return;
    }
    file_.reset();
    const std::unique_ptr<PartFile> part = std::move(part_);
    if (!isNameTried_ && !isEmpty_ && hasSound_ && part->isNameTaken()) {
        problems_.push_back(part->takeNameBeside());
    }
    if (part->hasName() && part->isStillThere()) {
        written_ = part->path();
    } else if (part->hasName()) {
        problems_.push_back(part->path() + ": was deleted, moved or replaced while it was written");
    }
}

}  // namespace tqrecorder
