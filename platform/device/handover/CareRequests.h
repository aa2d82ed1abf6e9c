#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "device/Backend.h"
#include "device/HeardDevice.h"
#include "device/handover/CareNotices.h"

namespace tqplatform {

/// What any thread asks the caretaker of a device for, and what he answers. He begins with the
/// first who needs a device.
///
/// Invariants: everything that is asked for is a request with a number, and whoever waits does so
/// until that number is answered, for a second at most. The caretaker waits for nobody here: a
/// handler of a notice, which he calls, gets no answer. Where nobody answered in time before a
/// device was ever there, none is looked for again.
class CareRequests {
  public:
    /// What is asked for at the moment.
    struct Asked {
        ClientWants wants{};
        HeardWish wish{};           ///< but for whether it is to play
        bool isRefused = false;     ///< there is none, and nobody looks again
        bool meets = false;         ///< somebody asks what the device is like
        bool awaitsRate = false;    ///< somebody waits for what the device says to the wish's rate
        bool isFormatLate = false;  ///< the clock has another, for which nobody waits any more

        [[nodiscard]] bool isWanted() const noexcept { return wants.bits() != 0 && !isRefused; }
    };
    /// How a device that was reached is received.
    enum class Welcome { inTime, late, refused };
    /// What becomes of a rate that the device refuses.
    enum class Refusal { isOutdated, isAnswered, isToBeTold };

    /// `care` is what the caretaker does, on a thread that begins when somebody needs it.
    CareRequests(const CareNotices& notices, std::function<void()> care)
        : notices_(notices), care_(std::move(care)) {}
    ~CareRequests();
    CareRequests(const CareRequests&) = delete;
    CareRequests& operator=(const CareRequests&) = delete;
    /// [host thread] Has the caretaker end, and waits for him.
    void end() noexcept;
    /// In the child of a fork: there is no caretaker and nothing is asked for. What the program
    /// prefers holds on.
    void forgetAfterFork() noexcept;

    // [any thread] The program's verbs, as those of Backend.
    bool preferRate(Float64 sampleRate, bool mayWait) noexcept;
    [[nodiscard]] bool hasRefusedRate() const noexcept { return isRateRefused_.load(); }
    /// Who asks once more when he is told of the refusal would be told again, and the device opened
    /// anew for each time.
    [[nodiscard]] bool isBeingRefused(Float64 sampleRate) noexcept;
    /// False where there is no device and none will come.
    bool preferDuration(Float64 seconds, bool mayWait) noexcept;
    bool preferMicrophone(const std::string& name) noexcept;
    void expect(const ClientWants& wants, bool mayWait) noexcept;
    void meet() noexcept;
    /// [any thread] Has the caretaker tell of the clock's format: one thing behind the other. False
    /// where there is none who could.
    [[nodiscard]] bool tellLateFormat() noexcept;

    // [any thread] The device's.
    void lose() noexcept;
    /// While it is played out.
    [[nodiscard]] bool isWantedAgain() noexcept;

    // [host thread] The caretaker's.
    [[nodiscard]] bool isEnding() noexcept;
    /// The number of the last request.
    [[nodiscard]] std::uint64_t last() noexcept;
    /// Throws std::bad_alloc.
    [[nodiscard]] Asked take();
    /// Everything up to that request was dealt with.
    void answer(std::uint64_t request) noexcept;
    /// Waits for a request behind that one, for a loss where that is news, or for the end; at most
    /// so long, where a time is given. False when nothing came.
    bool await(std::uint64_t request, bool isLossNews,
               std::optional<std::chrono::milliseconds> longest) noexcept;
    /// A call of the device takes long: nobody waits for answers. Or it is over.
    void holdUp(bool isHeldUp) noexcept;
    /// A device that was opened so is played out, since nobody needs it; or it is over.
    void playOut(std::optional<HeardWish> open) noexcept;
    [[nodiscard]] ClientWants wants() noexcept;
    /// Somebody is to be heard, and a device may be there.
    [[nodiscard]] bool isToPlay() noexcept;
    [[nodiscard]] bool isRateAwaited() noexcept;
    /// The device does not play at the rate that is wished for; `taken` is what it took last.
    [[nodiscard]] Refusal refuseRate(Float64 sampleRate, Float64 taken) noexcept;
    /// Programs were told of the refusal.
    void refusalTold() noexcept;
    [[nodiscard]] Welcome welcome() noexcept;
    /// There is none, and none was there before: nobody looks again.
    void giveUp() noexcept;
    /// A device was there once: one that goes comes back.
    [[nodiscard]] bool hasBeenThere() const noexcept { return hasBeenThere_.load(); }
    /// True the first time.
    bool noteThere() noexcept { return !hasBeenThere_.exchange(true); }
    [[nodiscard]] bool isLost() const noexcept { return isLost_.load(); }
    /// A loss was another device's.
    void forgetLoss() noexcept { isLost_.store(false); }
    /// A process that ends waits until what its last unit rendered was played.
    void awaitAtExit() noexcept;

  private:
    /// One piece, to be renewed after a fork.
    struct State {
        std::mutex mutex;
        std::condition_variable asked;
        std::condition_variable done;
        std::thread caretaker;
        std::uint64_t requests = 0;  ///< rises with everything that is asked for
        std::uint64_t answered = 0;  ///< the last request that was dealt with
        Asked now;
        std::optional<HeardWish> playingOut;  ///< a device that nobody needs any more
        Float64 refusing = 0;                 ///< Hz, while its refusal is told; 0 at other times
        bool isHeldUp = false;                ///< by a call of the device
        bool comesLate = false;  ///< a constructor that waited for the device was let go on
        bool isEnding = false;
    };
    using Lock = std::unique_lock<std::mutex>;

    /// Has the caretaker look at what was asked for. Gives the lock back while it waits.
    void ask(Lock& lock, bool mayWait) noexcept;
    /// Nobody answers in time: nobody looks again, unless a library's constructor waits here,
    /// behind which the device's module is loaded. Gives the lock back meanwhile.
    void refuse(Lock& lock, std::uint64_t request) noexcept;

    const CareNotices& notices_;
    const std::function<void()> care_;
    State state_;
    std::atomic<bool> isLost_{false};  ///< set with the lock
    std::atomic<bool> hasBeenThere_{false};
    std::atomic<bool> isRateRefused_{false};  ///< that a program prefers; it was taken at first
};

/// What a device is to be opened with. Speakers that play go on for who listens: another opening
/// would be a hole in what is heard.
[[nodiscard]] HeardWish wishOf(const HeardWish& wish, const ClientWants& wants, bool plays);
/// Whether a device that is open so need not be opened anew for that.
[[nodiscard]] bool isOpenFor(const HeardWish& open, const HeardWish& wish);

}  // namespace tqplatform
