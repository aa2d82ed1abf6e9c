#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "inject/Door.h"
#include "inject/LogWatch.h"
#include "inject/VolumeControl.h"
#include "ipc/SharedMemory.h"
#include "ipc/TapSettings.h"

class NSString;
class RZReplayASBDInfo;
struct AudioBufferList;

namespace tqrecorder {

class MixTap;
class TrackTap;

/// What is inside a recorded process: two listeners that copy blocks into shared memory, a log
/// callback that understands and copies lines, and a thread that keeps the rest up to date and
/// takes everything away when the recorder has gone. Made once, never destroyed.
class Tap {
  public:
    /// The one of this process; null while the process is not recorded.
    [[nodiscard]] static Tap* current();

    /// Connects, does what the settings ask for, and goes on in the background. Nothing happens
    /// when there is no recorder. `arguments` are the program's own, for starting it anew.
    static void begin(const TapSettings& settings, char** arguments);

    // [audio threads]
    void pushBlock(RecordKind kind, const AudioBufferList& pcm,
                   const RZReplayASBDInfo& info) noexcept;
    void pushEvent(std::uint64_t category, std::uint64_t code, const std::string& message) noexcept;

  private:
    /// What the callbacks write to, in one piece so that it can be taken away from them at once.
    struct Outlet {
        RingWriter sound;
        RingWriter events;
        RingWriter log;
        SharedPage* page = nullptr;
    };

    explicit Tap(const TapSettings& settings);

    void answerGuard();
    void record(char** arguments);
    [[nodiscard]] bool connectRecording(const Hello& hello);
    void startThread(void (Tap::*body)());
    void runRecording();
    void runForked();
    void collect();
    static void waitForStart();
    void collectAgain();
    void publish();
    void leave();
    void takeLine(const char* function, int level, NSString* message) noexcept;

    static void onLog(const char* file, const char* function, NSString* tag, int level, int line,
                      NSString* message);
    // Around fork(): a child must not inherit locks of the library that threads hold which it does
    // not have.
    static void onFork();
    static void onParentForked();
    static void onForked();

    const TapSettings settings_;
    Door door_;
    std::optional<SharedMapping> memory_;
    Outlet outlets_;
    std::atomic<const Outlet*> outlet_{nullptr};
    LogWatch logWatch_;
    VolumeControl volume_;
    std::shared_ptr<MixTap> mixTap_;
    std::shared_ptr<TrackTap> trackTap_;
    std::atomic<bool> isUnitSeen_{false};
    std::atomic<std::uint64_t> mixBlocks_{0};
    std::mutex work_;  ///< held while our own thread is in the library
    bool usesPlatform_ = false;
    bool isCollecting_ = false;
    /// A child without exec: connects anew when it makes its first unit.
    std::atomic<bool> isForked_{false};
};

}  // namespace tqrecorder
