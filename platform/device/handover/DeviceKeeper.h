#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "device/HeardDevice.h"
#include "device/handover/CareRequests.h"
#include "device/handover/Driving.h"
#include "device/handover/HeardGate.h"
#include "device/handover/HeardThread.h"
#include "device/handover/MicrophoneCare.h"

namespace tqplatform {

/// Opens a device, keeps it and closes it. [host thread] The caretaker's.
///
/// Invariant: a server that stands still lets no call of the device end, so each is made on a
/// thread beside; who waits for it looks after the rest meanwhile, or leaves thread and device to
/// each other. Each call here that opens, asks or closes throws Ended in that case, and
/// std::bad_alloc or std::system_error where there is no memory or no thread.
class DeviceKeeper {
  public:
    struct Ended : std::exception {};
    /// The rest; what `standsStill` is no server that is merely slow. False when this is to end.
    using Meanwhile = std::function<bool(bool standsStill)>;

    DeviceKeeper(HeardMaker make, HeardHost& host, Driving& driving, CareRequests& requests,
                 Meanwhile meanwhile);

    /// Opens it and waits until it drives. `wish` becomes what the device took. False when it
    /// cannot be opened.
    [[nodiscard]] bool open(HeardWish& wish);
    /// Learns what it is like. False when there is none.
    [[nodiscard]] bool meet(const HeardWish& wish);
    /// While none is open: asks whether one would play at the wish's rate. False when it would
    /// not; then the clock has the rate of before again.
    [[nodiscard]] bool tryRate(const HeardWish& wish);
    /// What was rendered is played out where `isAlive`. False while the program's callback holds a
    /// request, or when it is needed again meanwhile: then it is not closed. `isNeeded` is for one
    /// that is closed to be opened anew.
    [[nodiscard]] bool close(bool isAlive, bool isNeeded = true);

    [[nodiscard]] bool isOpen() const noexcept { return device_ != nullptr; }
    /// It has begun to ask for blocks.
    [[nodiscard]] bool isUp() const noexcept { return isUp_; }
    /// It was opened so, or was to be.
    [[nodiscard]] const HeardWish& wish() const noexcept { return wish_; }
    /// Hz, the last that a device took; 0 for its own.
    [[nodiscard]] Float64 takenRate() const noexcept { return takenRate_; }
    /// It is to be opened anew.
    void outdate() noexcept { isOutdated_ = true; }
    [[nodiscard]] bool isOutdated() const noexcept { return isOutdated_; }
    /// The same; from here on it is not.
    [[nodiscard]] bool takeOutdated() noexcept;

    // Of one that is open.
    [[nodiscard]] const HeardGate& gate() const noexcept { return device_->gate; }
    [[nodiscard]] HeardPlace place() { return device_->device->place(); }
    /// Nothing where none is open.
    [[nodiscard]] MicrophoneSeen microphone() const;
    /// Another length of its blocks is preferred. Where it is what they have, nothing is left to do
    /// for that.
    void preferLength(Float64 seconds);
    /// It is outdated when it cannot do that as it is.
    void listen(bool isListening);
    /// Another microphone beside speakers, which go on. The same.
    void choose(const std::string& microphone, bool isListening);

    /// In the child of a fork: none was ever opened.
    void forgetAfterFork() noexcept;

  private:
    /// A device, what its calls pass, and what it said last. Owned by the thread beside as well
    /// while that calls it.
    struct Kept {
        explicit Kept(HeardHost& host) noexcept : gate(host) {}
        HeardGate gate;
        std::unique_ptr<HeardDevice> device{};
        std::optional<DeviceFormat> format{};
        bool answer = false;
    };
    enum class Opening { none, refused, open };

    /// Has the thread beside call it, and looks after the rest when that takes long.
    void aside(const std::shared_ptr<Kept>& kept, std::function<void(Kept&)> call);
    /// A device that says its format, and plays nothing yet. Null when there is none.
    [[nodiscard]] std::shared_ptr<Kept> reach(const HeardWish& wish);
    [[nodiscard]] Opening tryToOpen(const HeardWish& wish);
    /// Waits until what was started drives. False when it asks for nothing.
    bool awaitDriving();
    /// False when it was needed again before it had played out.
    bool end(const std::shared_ptr<Kept>& kept, bool isToFinish);

    const HeardMaker make_;
    HeardHost& host_;
    Driving& driving_;
    CareRequests& requests_;
    const Meanwhile meanwhile_;

    std::unique_ptr<HeardThread> beside_;
    std::shared_ptr<Kept> device_;  ///< that is started, or about to be
    HeardWish wish_;
    bool isUp_ = false;
    bool isOutdated_ = false;
    Float64 takenRate_ = 0;
};

}  // namespace tqplatform
