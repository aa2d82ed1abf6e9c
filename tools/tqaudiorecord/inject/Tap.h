#pragma once

#include <TQAudioRecord/tq_capture.h>
#include <semaphore.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "inject/RecorderConnection.h"
#include "inject/VolumeControl.h"
#include "ipc/SharedMemory.h"
#include "ipc/TapSettings.h"

namespace tqrecorder {

/// What is inside a recorded process: listeners of the capture library that copy blocks, events,
/// log lines and what becomes of units and streams into shared memory, and a thread that keeps the
/// rest up to date and takes everything away when the recorder has gone. Made once, never
/// destroyed.
///
/// Tap.cpp has its life, TapListening.cpp what the listeners do, TapFork.cpp what fork() asks for,
/// TapThreads.cpp what is left when the program's own threads have gone, TapEnd.cpp what its
/// orderly end asks for.
class Tap {
  public:
    /// [host thread] Connects, does what the settings ask for, and goes on in the background.
    /// Nothing happens when there is no recorder. `arguments` are the program's own, for starting
    /// it anew.
    static void begin(const TapSettings& settings, char** arguments);

  private:
    /// What the listeners write to, in one piece so that it can be taken away from them at once.
    struct Outlet {
        RingWriter sound;
        RingWriter events;
        RingWriter log;
        RingWriter streams;
        SharedPage* page = nullptr;
    };

    explicit Tap(const TapSettings& settings);

    /// [any thread] The one of this process; null while the process is not recorded.
    [[nodiscard]] static Tap* current();

    void answerGuard();
    void record(char** arguments);
    void tellThatDescriptorsLack();
    [[nodiscard]] static bool armForNextLaunch();
    [[nodiscard]] bool connectRecording(Hello hello);
    void startThread(void (Tap::*body)());
    void runRecording();
    void noteUnitMade();
    void setVolume();
    void followOrder();
    [[nodiscard]] BridgeState useBridges();
    void chooseUnits(tq_capture_rules& rules);
    [[nodiscard]] bool isWanted(const char* track) const;
    void watch();
    void collect();
    [[nodiscard]] bool waitForEnd(int milliseconds);
    void publish();
    void leave();

    // What the listeners do. Blocks come on render threads, the rest on any.
    void pushBlock(RecordKind kind, const tq_block& block) noexcept;
    void pushCounted(const Outlet& outlet, RecordHeader& header,
                     std::span<const RingWriter::Bytes> parts) noexcept;
    void pushEvent(const tq_event& event) noexcept;
    void pushLine(const tq_log_line& line) noexcept;
    void pushStream(const tq_stream& stream) noexcept;
    void takeUnit(const tq_unit& unit) noexcept;
    [[nodiscard]] bool pushSound(const Outlet& outlet, const RecordHeader& header,
                                 std::span<const RingWriter::Bytes> parts) noexcept;
    void publishCounts(SharedPage& page) const noexcept;

    /// [host thread] What the library counts now, without what was there before.
    [[nodiscard]] static FramesOfTracks framesSince(const FramesOfTracks& before);
    void publishFrames() const;
    [[nodiscard]] static bool isAnyUnitStarted();
    [[nodiscard]] static bool isAnyWantedStarted();
    [[nodiscard]] bool isMoreToCome() const;
    static void publishFramesAtExit();

    // Where the program ends in order.
    static void makeRoomAtExit();
    void makeRoom();

    // Where the program's last thread has gone.
    void watchMainThread();
    [[nodiscard]] bool isProgramOver();
    [[nodiscard]] bool isAnyThreadTheirs() const;

    // Around fork().
    void watchForks();
    void becomeChild();
    void recordForked() noexcept;
    void runForked();
    void beforeStream() noexcept;
    void beUnheard();

    const TapSettings settings_;
    std::string program_;  ///< constant once the process is recorded
    RecorderConnection connection_;
    std::optional<SharedMapping> memory_;
    Outlet outlets_;
    /// Invariant: what it points to may be written to. Writer: the tap's own thread, or the only
    /// thread of a new child. Readers: listeners, on any thread; release and acquire publish the
    /// outlet. Before the memory goes, the listeners are stopped, which waits for calls under way.
    std::atomic<const Outlet*> outlet_{nullptr};
    /// Frames of each track, and of the mix as track 0, that found no room since one that did.
    /// Writers and readers: render threads in the library's listeners, where one delivery follows
    /// the other; before there is an outlet, whoever makes it. Publishes nothing else.
    std::array<std::atomic<std::uint64_t>, kTracks> lostFrames_{};
    VolumeControl volume_;
    tq_listening* watching_ = nullptr;  ///< units and log lines
    tq_listening* mix_ = nullptr;       ///< the mix and events
    tq_listening* tracks_ = nullptr;
    tq_unit_counts countsBefore_{};  ///< what a child has of its parent
    FramesOfTracks framesBefore_{};
    std::atomic<bool> isUnitMade_{false};
    /// From here on there may be sound.
    std::atomic<bool> isUnitSeen_{false};
    /// A program that is not written for the platform gets the tap's thread with its first unit:
    /// launchers that change their credentials or their user namespace, and the processes that
    /// browsers fork others from, must have no second thread.
    std::atomic<bool> isThreadOwed_{false};
    std::atomic<bool> isMainThreadGone_{false};
    /// Since when no thread but ours is left; on the tap's thread.
    std::optional<std::chrono::steady_clock::time_point> aloneSince_;
    /// The program ends, and blocks wait for room until they have once waited in vain. Writers:
    /// the thread that ends the program, and a render thread that gives up. Publishes nothing else.
    std::atomic<bool> isPatient_{false};
    sem_t unitMade_{};  ///< posted for the tap's thread while nothing is collected
    std::mutex work_;   ///< held while our own thread is in the library
    bool usesPlatform_ = false;
    /// Nobody listens any more, nor will in this process or its children. Writers: whoever finds
    /// out. Readers: bridges. Publishes nothing else.
    std::atomic<bool> isUnheard_{false};
    /// A child without exec: connects anew when it makes its first unit.
    std::atomic<bool> isForked_{false};
    /// It is doing so.
    std::atomic<bool> isJoining_{false};
};

}  // namespace tqrecorder
