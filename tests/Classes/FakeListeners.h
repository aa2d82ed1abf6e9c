#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "RZStreamCollectManager.h"

// Listeners with every choice of methods. Each notes its calls under its name in one common book,
// so that the order among listeners shows.

class CallBook {
  public:
    void note(const std::string& entry) {
        const std::scoped_lock guard(mutex_);
        entries_.push_back(entry);
    }
    [[nodiscard]] std::vector<std::string> entries() const {
        const std::scoped_lock guard(mutex_);
        return entries_;
    }
    void clear() {
        const std::scoped_lock guard(mutex_);
        entries_.clear();
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> entries_;
};

/// What the listeners below have in common.
struct Noting {
    Noting(CallBook& calls, std::string listenerName)
        : book(calls), name(std::move(listenerName)) {}
    void notePCM() {
        book.note(name);
        call();
    }
    /// A copy runs, so that the call may replace itself.
    void call() const {
        if (const auto running = onCall) {
            running();
        }
    }
    CallBook& book;
    const std::string name;
    /// Runs inside each call that is noted.
    std::function<void()> onCall;
};

class PcmListener : public RZReplayAudioRecorderListener<PcmListener>, public Noting {
  public:
    using Noting::Noting;
    void onAudioReceivePCM(AudioBufferList* /*pcm*/, const RZReplayASBDInfo& /*info*/) override {
        notePCM();
    }
};

class MaskListener : public RZReplayAudioRecorderListener<MaskListener>, public Noting {
  public:
    MaskListener(CallBook& calls, std::string listenerName, std::uint64_t wanted)
        : Noting(calls, std::move(listenerName)), mask(wanted) {}
    void onAudioReceivePCM(AudioBufferList* /*pcm*/, const RZReplayASBDInfo& /*info*/) override {
        notePCM();
    }
    std::uint64_t getPCMDataType() override {
        if (onMask) {
            onMask();
        }
        return mask;
    }
    std::uint64_t mask;
    std::function<void()> onMask;
};

class FullListener : public RZReplayAudioRecorderListener<FullListener>, public Noting {
  public:
    FullListener(CallBook& calls, std::string listenerName, std::uint64_t wanted)
        : Noting(calls, std::move(listenerName)), mask(wanted) {}
    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override {
        lastPCM = pcm;
        lastInfo = &info;
        notePCM();
    }
    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                            const std::string& message) override {
        book.note(name + " " + std::to_string(category) + "/" + std::to_string(code) + " " +
                  message);
        call();
    }
    std::uint64_t getPCMDataType() override { return mask; }
    std::uint64_t mask;
    const AudioBufferList* lastPCM = nullptr;
    const RZReplayASBDInfo* lastInfo = nullptr;
};

/// Not a listener of sound at all.
class EventOnlyListener : public RZReplayAudioRecorderListener<EventOnlyListener> {
  public:
    void onAudioRecordEvent(std::uint64_t /*category*/, std::uint64_t /*code*/,
                            const std::string& /*message*/) override {}
};

/// The name that the library's lines use for an object's class.
template <class Object>
std::string classNameOf(const Object& object) {
    return NSStringFromClass(typeid(object));
}
