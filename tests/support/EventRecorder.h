#pragma once

#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "RZReplayAudioRecorderDelegate.h"

struct RecordedEvent {
    std::uint64_t category;
    std::uint64_t code;
    std::string message;

    bool operator==(const RecordedEvent&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const RecordedEvent& event) {
        return out << '(' << event.category << ", " << event.code << ") " << event.message;
    }
};

/// Stands at the upper end of the inner path and keeps the events that arrive, from any thread.
class EventRecorder : public RZReplayAudioRecorderInternalListener<EventRecorder> {
  public:
    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                            const std::string& message) override {
        const std::scoped_lock guard(mutex_);
        events_.push_back({category, code, message});
    }
    [[nodiscard]] std::vector<RecordedEvent> events() const {
        const std::scoped_lock guard(mutex_);
        return events_;
    }
    void clear() {
        const std::scoped_lock guard(mutex_);
        events_.clear();
    }

  private:
    mutable std::mutex mutex_;
    std::vector<RecordedEvent> events_;
};
