#pragma once

#include "device/HeardDevice.h"

namespace tqplatform {

/// What a device plays on and hears, as programs know it, and whether they are to be told of
/// another. [host thread] One at a time.
class PlaceWatch {
  public:
    /// A device is about to be opened: what it is found on first is no news.
    void restart() { *this = {}; }
    /// A program has chosen another microphone: that is told like one of the system's.
    void move() noexcept { isMoving_ = true; }
    /// One look. True, once, when it has moved and stays: a server changes several things one after
    /// the other.
    [[nodiscard]] bool hasSettled(const HeardPlace& now, bool isHearing);
    /// Whether a device that was opened so, and got that format, would get another one there.
    [[nodiscard]] static bool isStale(const HeardPlace& now, const HeardWish& wish,
                                      const DeviceFormat& format) noexcept;

  private:
    HeardPlace known_{};
    bool isMoving_ = false;  ///< it was another at the last look
};

}  // namespace tqplatform
