#pragma once

#include <AVFoundation/AVFoundation.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "device/Backend.h"
#include "device/HeardDevice.h"
#include "device/HostTimes.h"
#include "device/handover/HeardGate.h"
#include "device/handover/HeardThread.h"
#include "device/handover/SleepNews.h"

namespace tqplatform {

/// A device while somebody is to be heard or listens, and a clock the rest of the time: before,
/// behind and in every gap. Clients go on from one to the other between two requests; none is lost
/// and none comes twice.
///
/// Two threads may ask for a block at one time, the clock's and the device's. Invariant: whoever
/// renders, changes the format or changes `driver_` holds `turn_`; a request that does not get it
/// is silence, and no client sees it. The clock drives until the device's first request behind
/// `isOffered_`, and again when the caretaker takes the turn away.
///
/// The device is opened, watched and ended by one thread, the caretaker, since that takes long. A
/// server that stands still lets none of it end: what asks the server is done on a thread beside,
/// and the caretaker looks after the rest meanwhile.
class HandoverBackend final : public Backend, private BackendHost, private HeardHost {
  public:
    /// `name` is for the line that says that there is none.
    HandoverBackend(std::string name, HeardMaker make, std::unique_ptr<Backend> clock,
                    SleepWatchMaker watchSleep = {});
    ~HandoverBackend() override;

    std::optional<DeviceFormat> open(BackendHost& host) override;
    bool start() override;
    void stop() noexcept override;
    bool preferRate(Float64 sampleRate, bool mayWait) noexcept override;
    [[nodiscard]] bool hasRefusedRate() const noexcept override { return isRateRefused_.load(); }
    bool preferDuration(Float64 seconds, bool mayWait) noexcept override;
    bool preferMicrophone(const std::string& name) noexcept override;
    [[nodiscard]] bool isHearing() const noexcept override { return isHearing_.load(); }
    void expect(const ClientWants& wants, bool mayWait) noexcept override;
    void meet() noexcept override;
    bool hurry(Float64 seconds) noexcept override;
    void forgetAfterFork() noexcept override;

  private:
    static constexpr std::chrono::microseconds kTurnStep{100};
    /// Looks behind the start in which the clock does not drive for a device that asks for nothing:
    /// a sink that sleeps takes seconds to wake, and what was rendered meanwhile would not be
    /// heard.
    static constexpr int kWakingLooks = 12;
    static constexpr const char* kThereIsNone = "no sound server or card answers, using null";
    enum class Driver { clock, device };
    /// The right to render and to change what drives.
    class Turn {
      public:
        /// [render thread] Takes it when it is free.
        explicit Turn(std::atomic_flag& turn) noexcept
            : turn_(turn), isMine_(!turn.test_and_set(std::memory_order_acquire)) {}
        /// [host thread] Waits for it so long.
        Turn(std::atomic_flag& turn, std::chrono::nanoseconds longest) noexcept : Turn(turn) {
            const auto end = std::chrono::steady_clock::now() + longest;
            while (!isMine_ && std::chrono::steady_clock::now() < end) {
                std::this_thread::sleep_for(kTurnStep);
                isMine_ = !turn_.test_and_set(std::memory_order_acquire);
            }
        }
        ~Turn() {
            if (isMine_) {
                turn_.clear(std::memory_order_release);
            }
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        [[nodiscard]] explicit operator bool() const noexcept { return isMine_; }

      private:
        std::atomic_flag& turn_;
        bool isMine_;
    };
    /// What the caretaker is asked for, and the lock: one piece, to be renewed after a fork.
    struct Care {
        std::mutex mutex;
        std::condition_variable asked;
        std::condition_variable done;
        std::thread thread;
        std::uint64_t requests = 0;  ///< rises with everything that is asked for
        std::uint64_t answered = 0;  ///< the last request that was dealt with
        ClientWants wants;
        HeardWish wish;
        bool meets = false;         ///< somebody asks what the device is like
        bool isFormatLate = false;  ///< the clock has another, for which nobody waits any more
        bool awaitsRate = false;    ///< somebody waits for what the device says to the wish's rate
        bool isPlayingOut = false;  ///< a device that nobody needs any more
        bool isHeldUp = false;      ///< a call of the device takes long: nobody waits for answers
        bool comesLate = false;     ///< a constructor that waited for the device was let go on
        bool isRefused = false;     ///< there is none, and nobody looks again
        bool isEnding = false;
    };

    /// A device, what its calls pass, and what it said last. Owned by the thread beside as well
    /// while that calls it.
    struct Kept {
        explicit Kept(HeardHost& host) noexcept : gate(host) {}
        HeardGate gate;
        std::unique_ptr<HeardDevice> device{};
        std::optional<DeviceFormat> format{};
        bool answer = false;
    };

    struct Ended : std::exception {};

    // What the clock calls.
    AudioTimeStamp render(const BlockRequest& block) noexcept override;
    void changed(const DeviceFormat& format) noexcept override;
    void changedLate() noexcept override;
    void lost() noexcept override;
    bool isNewFormat() noexcept override { return host_->isNewFormat(); }
    // What the device calls.
    void renderHeard(const BlockRequest& block) noexcept override;
    void lostHeard() noexcept override;
    bool isWantedAgain() noexcept override;
    /// In the child of a fork, in a request of the device; does not return.
    [[noreturn]] void stayAsChild() noexcept;
    /// A thread of a child that has nothing more to do there.
    [[noreturn]] static void rest() noexcept;

    /// The format of what drives; in a turn.
    void publish(Driver driver) noexcept;
    /// Has the caretaker look at what was asked for; with its lock held.
    void ask(std::unique_lock<std::mutex>& lock, bool mayWait) noexcept;
    /// Nobody answers in time: nobody looks again, unless a library's constructor waits here,
    /// behind which the device's module is loaded. Gives the lock back meanwhile, or for good.
    void refuse(std::unique_lock<std::mutex>& lock, std::uint64_t request) noexcept;
    /// Starts or stops the clock, as clients and the device have it.
    [[nodiscard]] bool settleClock() noexcept;

    // [host thread] The caretaker's.
    /// What a device does; nothing where there is no memory for it.
    template <typename Call>
    static auto orNothing(Call call) noexcept -> decltype(call()) {
        try {
            return call();
        } catch (const std::exception&) {
            return decltype(call())();
        }
    }
    void takeCare();
    /// One round; the lock is given back while something takes long.
    void look(std::unique_lock<std::mutex>& lock);
    /// What came of opening the device.
    enum class Opening { none, refused, open };
    /// `wish` becomes what the device took. False when it cannot be opened.
    [[nodiscard]] bool openDevice(HeardWish& wish);
    [[nodiscard]] Opening tryDevice(const HeardWish& wish);
    /// Learns what the device is like. False when there is none.
    [[nodiscard]] bool meetDevice(const HeardWish& wish);
    [[nodiscard]] std::shared_ptr<Kept> reachDevice(const HeardWish& wish);
    /// Has the thread beside call the device, and looks after the rest when that takes long. Throws
    /// Ended when this is to end first: then the device is that thread's, and nothing comes of it.
    void aside(const std::shared_ptr<Kept>& kept, std::function<void(Kept&)> call);
    /// The rest; what `standsStill` is no server that is merely slow. False when this is to end.
    [[nodiscard]] bool lookMeanwhile(bool standsStill);
    /// False while the program's callback holds a request, or when it is needed again while what
    /// was rendered is played out: then it is not closed. `isNeeded` is for one that is closed to
    /// be opened anew.
    [[nodiscard]] bool closeDevice(bool isAlive, bool isNeeded = true);
    /// False when it was needed again before it had played out.
    bool endDevice(const std::shared_ptr<Kept>& kept, bool isToFinish);
    /// Waits until what was started drives. False when it asks for nothing.
    [[nodiscard]] bool awaitDriving();
    /// As it is asked for now; with the lock held.
    [[nodiscard]] HeardWish wished() const;
    /// Whether the device need not be opened anew for that.
    [[nodiscard]] bool isOpenFor(const HeardWish& wish) const;
    /// False in the same case: the device drives on.
    [[nodiscard]] bool driveByClock();
    /// While nothing plays: asks the device whether it would play at the wish's rate.
    void tryRate(const HeardWish& wish);
    /// The device has refused that rate: the one that it took last holds again. False when whoever
    /// prefers it waits for the answer; else it is told.
    bool refuseRate(Float64 sampleRate);
    /// [any thread] Who asks once more when he is told of the refusal would be told again, and the
    /// device opened anew for each time.
    [[nodiscard]] bool isBeingRefused(Float64 sampleRate) noexcept;
    /// Whether a format has to be told that was not asked for, or by nobody who waits for it.
    [[nodiscard]] bool isNews(bool isRateRefused);
    /// While the machine sleeps the device is closed: an interruption.
    void heedSleep();
    void noteSleep();
    /// Programs are told so, once.
    void interrupt(AVAudioSessionInterruptionReason reason);
    /// What goes on without a request: the device stands still, or was moved.
    void watch(std::unique_lock<std::mutex>& lock);
    void watchRequests();
    /// A microphone that has gone, or was never there, is tried again beside the speakers.
    void listenAgain();
    /// One that is open alone and brings nothing is opened anew.
    void watchMicrophone();
    /// Whether one that is not heard has been waited for long enough.
    [[nodiscard]] bool isToListenAgain();
    /// Whether a microphone is heard. One that stood still alone counts again with its first
    /// block, not when it is opened anew.
    [[nodiscard]] bool hears() const;
    [[nodiscard]] bool awaitsFirstBlock() const;
    void noteHearing();
    void listen(bool isHearing);
    /// Another microphone beside speakers, which go on.
    void choose(const std::string& microphone);
    /// Tells, once, that a microphone is open or is not any more.
    void tellHearing(bool isHearing);
    /// Tells of other speakers, another microphone, or another format of either.
    void followPlace();
    /// Whether the device would have another format if it were opened anew.
    [[nodiscard]] bool isStale(const HeardPlace& now) const;
    // As the functions of the same names. The child of a handler that forks does not return: what
    // the caretaker looks after is the parent's.
    template <class Tell>
    static void asParent(const Tell& tell) noexcept {
        const pid_t parent = getpid();
        tell();
        if (getpid() != parent) {
            rest();
        }
    }
    static void tellRouteChange(AVAudioSessionRouteChangeReason reason) noexcept;
    static void tellInterruptionBegan(AVAudioSessionInterruptionReason reason) noexcept;
    static void tellInterruptionEnded() noexcept;
    /// A line on standard error.
    void say(const char* what) const noexcept;
    /// A process that ends lets what its last unit rendered be played.
    void playOutAtExit() noexcept;

    static inline std::atomic<HandoverBackend*> playsOut_{nullptr};  ///< at the process's exit

    const std::string name_;
    const HeardMaker make_;
    const std::unique_ptr<Backend> clock_;
    BackendHost* host_ = nullptr;

    std::atomic_flag turn_;
    std::atomic<Driver> driver_{Driver::clock};
    std::atomic<bool> isOffered_{false};  ///< the device may take over at its next request
    DeviceFormat published_{};            ///< what the host was told last; in a turn
    HostTimes times_;                     ///< in a turn
    DeviceFormat heardFormat_{};  ///< written by the caretaker in a turn, or before it offers
    std::atomic<Float64> clockRate_{0};
    std::atomic<UInt32> clockFrames_{0};
    std::atomic<pid_t> process_{0};           ///< that has opened the device
    std::atomic<bool> isLost_{false};         ///< the device says so
    std::atomic<bool> isHearing_{false};      ///< a microphone is open
    std::atomic<bool> isRateRefused_{false};  ///< that a program prefers; it was taken at first

    std::mutex clockVerbs_;               ///< held while the clock is started or stopped
    std::atomic<bool> isRunning_{false};  ///< there are clients
    bool clockRuns_ = false;              ///< under clockVerbs_

    // The caretaker's own.
    std::unique_ptr<HeardThread> beside_;
    std::shared_ptr<Kept> device_;  ///< that is started, or about to be
    bool isUp_ = false;             ///< it has begun to ask for blocks
    HeardWish deviceWish_;
    Float64 refusing_ = 0;       ///< Hz, while its refusal is told; 0 at other times
    Float64 takenRate_ = 0;      ///< Hz, the last that the device took; 0 for its own
    HeardPlace place_;           ///< as programs know it
    bool isMoving_ = false;      ///< it was another at the last look; told when it has settled
    bool hasNewLength_ = false;  ///< of its blocks; to be told
    bool isOutdated_ = false;    ///< to be opened anew, for another format
    bool wasHearing_ = false;    ///< it was asked to listen
    bool toldHearing_ = false;   ///< programs know that a microphone is open
    std::atomic<bool> wasOpen_{false};  ///< it was there once: a device that goes comes back
    bool hasRun_ = false;               ///< it has played once
    bool isDeafAlone_ = false;          ///< nobody plays, and the microphone cannot be opened
    bool saidThatItCannot_ = false;     ///< play, though a server answers
    bool isInterrupted_ = false;        ///< programs were told so, and not yet of its end
    SleepNews sleepNews_;               ///< while somebody is to be heard or listens, or waits
    bool isAsleep_ = false;
    std::uint64_t seenRequests_ = 0;
    int quietLooks_ = 0;
    bool stoodStill_ = false;        ///< programs were told so
    int deafLooks_ = 0;              ///< that found no microphone though one is wanted
    int stillLooks_ = kWakingLooks;  ///< as many of one that is open, before it is tried again
    bool wasStill_ = false;          ///< alone: programs are told with its next block
    int looks_ = 0;                  ///< since the device was opened

    Care care_;
};

}  // namespace tqplatform
