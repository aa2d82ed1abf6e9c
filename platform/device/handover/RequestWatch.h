#pragma once

#include <cstdint>

namespace tqplatform {

/// Whether a device that is open still asks for blocks. [host thread] One at a time.
class RequestWatch {
  public:
    struct Seen {
        bool isNews = false;       ///< programs are to be told whether it stands still
        bool standsStill = false;  ///< which they know from then on
        bool isGone = false;       ///< it counts as lost
        bool isQuiet = false;      ///< the clock is to drive until its next request
    };

    /// A device is about to be opened.
    void restart() noexcept { *this = {}; }
    /// One look at a device that has asked so often; `isInside` while a request is under way.
    [[nodiscard]] Seen look(std::uint64_t requests, bool isInside, bool isToPlay) noexcept;
    /// It has asked since the look before.
    [[nodiscard]] bool asks() const noexcept { return quietLooks_ == 0; }
    /// Programs were told so.
    [[nodiscard]] bool standsStill() const noexcept { return standsStill_; }

  private:
    std::uint64_t seen_ = 0;
    int looks_ = 0;
    int quietLooks_ = 0;
    bool standsStill_ = false;
};

}  // namespace tqplatform
