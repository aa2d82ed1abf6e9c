#pragma once

#include <atomic>

#include "device/HeardDevice.h"
#include "device/handover/CareNotices.h"
#include "device/handover/CareRequests.h"
#include "device/handover/DeviceKeeper.h"
#include "device/handover/Driving.h"
#include "device/handover/MicrophoneCare.h"
#include "device/handover/OpeningNotice.h"
#include "device/handover/PlaceWatch.h"
#include "device/handover/RequestWatch.h"
#include "device/handover/SleepNews.h"

namespace tqplatform {

/// Decides when a device is opened and closed, watches it meanwhile, and tells programs what became
/// of it. A look goes by what is asked for, a watch by what the device does without being asked;
/// each takes as long as the server does, and what they cannot do at once the next one does.
/// [host thread] Its own, but for what says otherwise.
///
/// Invariants: while the machine sleeps no device is open. A device that was there once is tried
/// again for as long as somebody wants it or waits for an interruption's end. Of an opening one
/// thing is told.
class Caretaker {
  public:
    Caretaker(HeardMaker make, SleepWatchMaker watchSleep, HeardHost& host, Driving& driving,
              CareRequests& requests, CareNotices& notices);

    /// Until it is to end; then nothing is open.
    void run() noexcept;
    /// [any thread] Whether a microphone is open.
    [[nodiscard]] bool isHearing() const noexcept { return isHearing_.load(); }
    /// In the child of a fork.
    void forgetAfterFork() noexcept;

  private:
    void look();
    void watch();
    /// What goes on while a call of the device takes long. As DeviceKeeper::Meanwhile.
    [[nodiscard]] bool lookMeanwhile(bool standsStill);
    /// Until there is something to look at.
    void await(std::uint64_t request) noexcept;

    // A look's.
    /// Closes what is open and is not wanted, or not so, by what was known before: what is lost
    /// meanwhile is the next look's. False when it could not be closed.
    [[nodiscard]] bool closeUnfit(const HeardWish& wish, bool isToRun, const OpeningFacts& before);
    /// `facts` are those of before; what is known since is added.
    [[nodiscard]] OpeningFacts open(OpeningFacts facts, const HeardWish& wish);
    void tell(OpeningNotice notice);
    /// What was interrupted may be there again, though nobody plays or there is no microphone.
    void endInterruption(const HeardWish& wish, bool isWanted);
    /// Has the device listen as it is asked for, and to whom.
    void listen(const HeardWish& wish, bool isListening);
    /// The device does not play at that rate. False where programs are not told so.
    bool refuseRate(Float64 sampleRate);
    /// Whether a format has to be told that was not asked for, or by nobody who waits for it.
    [[nodiscard]] bool isNews(bool isRateRefused);
    void tellNews();
    /// While the machine sleeps the device is closed: an interruption.
    void heedSleep();
    [[nodiscard]] bool close(bool isAlive, bool isNeeded = true);
    /// As DeviceKeeper::meet().
    [[nodiscard]] bool meet(const HeardWish& wish);
    /// A device is about to be reached.
    void restart();

    // A watch's.
    void watchRequests();
    /// One that is open alone and brings nothing is opened anew.
    void watchMicrophoneAlone();
    /// One that has gone, or was never there, is tried again beside the speakers.
    void watchMicrophoneBeside();
    void tellHearing(bool isHearing);
    void noteHearing(const MicrophoneSeen& seen);
    /// Tells of other speakers, another microphone, or another format of either.
    void watchPlace();

    Driving& driving_;
    CareRequests& requests_;
    CareNotices& notices_;
    DeviceKeeper keeper_;
    SleepNews sleep_;  ///< while somebody is to be heard or listens, or waits

    RequestWatch requestWatch_;
    PlaceWatch place_;
    MicrophoneCare microphone_;
    bool hasRun_ = false;        ///< a device has played
    bool hasNewLength_ = false;  ///< of its blocks; to be told
    std::atomic<bool> isHearing_{false};
};

}  // namespace tqplatform
