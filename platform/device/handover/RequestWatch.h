#pragma once

#include <cstdint>

namespace tqplatform {

/// Whether a device that is open still asks for blocks. One that stood still until it counted as
/// gone is opened anew in hope: what it asks for at first fills what it has in hand, whether it
/// plays or not. It stands still until it asks again, and is given up more seldom each time.
/// [host thread] One at a time.
class RequestWatch {
  public:
    struct Seen {
        bool isNews = false;       ///< programs are to be told whether it stands still
        bool standsStill = false;  ///< which they know from then on
        bool isGone = false;       ///< it counts as lost
        bool isQuiet = false;      ///< the clock is to drive until its next request
    };

    /// A device is about to be opened.
    void restart() noexcept;
    /// One look at a device that has asked so often; `isInside` while a request is under way.
    [[nodiscard]] Seen look(std::uint64_t requests, bool isInside, bool isToPlay) noexcept;
    /// It has asked since the look before.
    [[nodiscard]] bool asks() const noexcept { return quietLooks_ == 0; }
    /// Programs were told so.
    [[nodiscard]] bool standsStill() const noexcept { return standsStill_; }
    /// What is opened next is opened in hope.
    [[nodiscard]] bool isInHope() const noexcept { return isGone_ || isInHope_; }
    /// Programs were told that the device is there.
    void toldThere() noexcept { standsStill_ = false; }

  private:
    /// Looks without a request after which a device counts as gone: ten seconds.
    static constexpr int kMostQuietLooks = 40;

    std::uint64_t seen_ = 0;
    int looks_ = 0;
    int quietLooks_ = 0;
    bool standsStill_ = false;
    bool isGone_ = false;  ///< it counts as lost, since it stands still
    bool isInHope_ = false;
    int mostQuietLooks_ = kMostQuietLooks;
};

}  // namespace tqplatform
