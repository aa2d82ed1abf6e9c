#pragma once

#include <CoreAudio/CoreAudioTypes.h>
#include <TQPlatform/Devices.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "device/Backend.h"

// A device that is heard: speakers and microphones behind a sound server or a driver. Unlike a
// clock it takes long to open, may not be there, and may go away. What implements it lives in a
// module of its own, which is loaded when a program first plays, so that the platform depends on no
// sound library. DeviceKeeper keeps one and makes one call at a time.

namespace tqplatform {

/// What the program would like. A device that cannot have it takes what comes near.
struct HeardWish {
    Float64 sampleRate = 0;    ///< Hz; 0 for the device's own
    Float64 seconds = 0;       ///< of one request; 0 for what the device does best
    std::string microphone{};  ///< as the server has it; empty for its default
    bool isToPlay = true;      ///< else it listens only, and nothing is opened to play on

    bool operator==(const HeardWish&) const = default;
};

/// What a device plays on, or the microphone that it hears, as far as it knows.
struct HeardEnd {
    std::string name{};      ///< as the server has it; empty when it is not known
    Float64 sampleRate = 0;  ///< Hz, its own
    UInt32 channels = 0;     ///< of speakers its own, of a microphone those that programs get
    bool isDefault = false;  ///< who asks for none gets this one

    bool operator==(const HeardEnd&) const = default;
    [[nodiscard]] bool isKnown() const noexcept { return !name.empty(); }
};

/// Both ends of a device.
struct HeardPlace {
    HeardEnd speakers{};
    HeardEnd microphone{};
};

/// The keeper of the device, as the device sees it.
class HeardHost {
  public:
    /// [render thread] [real-time safe] As BackendHost::render(). A device that only listens gives
    /// no room to play.
    virtual void renderHeard(const BlockRequest& block) noexcept = 0;
    /// [any thread] Nothing is played any more: the device or its server is gone.
    virtual void lostHeard() noexcept = 0;
    /// [any thread] Asked over and over while a device finishes: whether it is wanted again as it
    /// is.
    [[nodiscard]] virtual bool isWantedAgain() noexcept = 0;

  protected:
    ~HeardHost() = default;
};

class HeardDevice {
  public:
    HeardDevice() = default;
    HeardDevice(const HeardDevice&) = delete;
    HeardDevice& operator=(const HeardDevice&) = delete;
    /// [host thread] Ends what open() and start() began; what was not played is dropped. Behind it
    /// no upcall comes.
    virtual ~HeardDevice() = default;

    /// [host thread] Once, before everything else. Reaches the server or the driver and says what
    /// it will ask for; nothing when there is none. Plays nothing and holds no device.
    virtual std::optional<DeviceFormat> open(HeardHost& host, const HeardWish& wish) = 0;
    /// [host thread] Once. Requests come from here on. False when the device cannot play, or not
    /// as it is wished.
    [[nodiscard]] virtual bool start() = 0;
    /// [host thread] Instead of start(): whether it would play as it is wished. Holds the device
    /// for that moment; plays nothing.
    [[nodiscard]] virtual bool accepts() = 0;
    /// [host thread] Behind start(): whether it listens to the microphone; requests go on. Of a
    /// device that only listens it changes nothing. False when it has to be opened anew for that:
    /// there was no microphone then.
    [[nodiscard]] virtual bool hear(bool isHearing) = 0;
    /// [host thread] Whether a microphone is open and brings something.
    [[nodiscard]] virtual bool isHearing() const = 0;
    /// [host thread] Whether a microphone is open and brings nothing, which it may do again any
    /// time.
    [[nodiscard]] virtual bool isStill() const = 0;
    /// [host thread] Behind start(), while it does not listen: which microphone hear() opens from
    /// then on, by its name; empty for the default. Programs keep the channels that they were told.
    /// Of a device that only listens it is not asked.
    virtual void choose(const std::string& microphone) = 0;
    /// [host thread] Behind start(): whether requests are as long, and as much is in hand, as if
    /// `seconds` had been wished for; 0 for what the device does best. Asks nobody and does not
    /// wait.
    [[nodiscard]] virtual bool hasLengthOf(Float64 seconds) const = 0;
    /// [host thread] Asks for nothing more and waits, half a second at most, until what was
    /// rendered has been played. True when it was wanted again before: then it asks as if nothing
    /// had been.
    [[nodiscard]] virtual bool finish() noexcept = 0;
    /// [host thread] What it plays on and hears at the moment: another one, or another format of
    /// the same, is the user's or the system's doing. Asks nobody and does not wait.
    [[nodiscard]] virtual HeardPlace place() = 0;
};

/// Says when the machine is about to sleep and when it is awake again.
class SleepWatch {
  public:
    SleepWatch() = default;
    SleepWatch(const SleepWatch&) = delete;
    SleepWatch& operator=(const SleepWatch&) = delete;
    virtual ~SleepWatch() = default;

    /// [host thread] True when it is about to sleep, false when it is awake, nothing where nothing
    /// is new; does not wait. The machine waits, as far as it can, until this is called behind
    /// true.
    [[nodiscard]] virtual std::optional<bool> news() = 0;
    /// [host thread] In the child of a fork, before it is left to itself: the child holds nothing
    /// that the machine waits for. Takes no lock.
    virtual void forgetAfterFork() noexcept = 0;
};

/// What a server has, for TQListDevices(). False when none of that kind answers.
using HeardListing = bool (*)(const char* kind, TQDeviceListing each, void* refCon);

/// Makes a device that reaches nothing yet; null when its module cannot be loaded.
using HeardMaker = std::function<std::unique_ptr<HeardDevice>()>;
/// The same for what watches the machine's sleep.
using SleepWatchMaker = std::function<std::unique_ptr<SleepWatch>()>;

}  // namespace tqplatform
