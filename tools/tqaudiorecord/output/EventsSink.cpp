#include "output/EventsSink.h"

#include <TQAudioRecord/tq_events.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

namespace tqrecorder {
namespace {

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

EventsSink::EventsSink(std::string path) : path_(std::move(path)) {
}

EventsSink::~EventsSink() {
    finish();
}

bool EventsSink::open() {
    file_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0666);
    if (file_ < 0) {
        fail(errno);
    }
    return file_ >= 0;
}

void EventsSink::event(const Process& process, const Event& event) {
    if (file_ < 0) {
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
    // A message may contain bytes that are no UTF-8; they are replaced.
    const std::string text =
        line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    const off_t before = ::lseek(file_, 0, SEEK_END);
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(file_, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            const int error = written < 0 ? errno : ENOSPC;
            // Removes the part of the line that was written; a pipe cannot take it back.
            if (before >= 0 && ftruncate(file_, before) != 0) {
                fail(errno);
                return;
            }
            fail(error);
            return;
        }
        done += static_cast<std::size_t>(written);
    }
}

void EventsSink::fail(int error) {
    problems_.push_back(path_ + ": " + std::strerror(error));
    finish();
}

void EventsSink::finish() {
    if (file_ >= 0) {
        ::close(std::exchange(file_, -1));
    }
}

}  // namespace tqrecorder
