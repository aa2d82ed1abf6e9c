#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "Sounds.h"

namespace game {

/// Voice chat: a voice unit with its microphone on, made and unmade on a thread of its own, as
/// communication engines do. The partner's voice is 16000 Hz 16-bit mono, ours as well.
class Voice {
  public:
    static constexpr int kSampleRate = 16000;
    static constexpr int kChannels = 1;

    /// Joins the chat; returns when the unit runs. `partner` must outlive the voice. Throws
    /// HostError when the unit cannot be made.
    explicit Voice(const Clip<SInt16>& partner);
    /// Leaves the chat.
    ~Voice();
    Voice(const Voice&) = delete;
    Voice& operator=(const Voice&) = delete;

    /// Frames that the microphone has given so far.
    [[nodiscard]] std::size_t microphoneFrames() const;

  private:
    struct Engine;
    void run();

    const Clip<SInt16>& partner_;
    std::atomic<std::size_t> microphoneFrames_{0};
    std::mutex mutex_;
    std::condition_variable changed_;
    bool ready_ = false;    // under mutex_: the unit runs, or problem_ says why not
    bool leaving_ = false;  // under mutex_
    std::string problem_;   // under mutex_
    std::thread thread_;
};

}  // namespace game
