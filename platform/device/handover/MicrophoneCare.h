#pragma once

#include <optional>

#include "device/handover/Looks.h"

namespace tqplatform {

/// The microphone of an open device, as one look finds it.
struct MicrophoneSeen {
    bool isAlone = false;   ///< nothing is played beside it
    bool isHeard = false;   ///< it is open, and brings something
    bool isStill = false;   ///< it is open, and brings nothing
    bool hasAsked = false;  ///< the device has asked for a block
};

/// What becomes of a microphone that goes, comes or stands still: when it is tried again, and what
/// programs are told. They are told that one is open, or is not, only when they know otherwise.
/// One that stood still alone counts again with its first block, not when it is opened anew.
/// [host thread] One at a time.
class MicrophoneCare {
  public:
    /// A device is about to be opened, which listens to nothing.
    void restart() noexcept;
    /// It is open; who begins knows what is there.
    void opened(const MicrophoneSeen& seen) noexcept;
    /// What came of a look: whether somebody listens or is to be heard, and whether what they need
    /// is there.
    void looked(bool isWanted, bool isHeard, bool isThere) noexcept;
    /// Whether the device has to be told that somebody listens, or nobody any more; it is, then.
    [[nodiscard]] bool isToSwitch(bool isListening) noexcept;
    /// It was told so. Who has just begun to listen knows nothing yet.
    void switched(const MicrophoneSeen& seen) noexcept;
    /// Another was chosen beside speakers. Whether that is another place to be told: that none is
    /// heard, or one at last, is told as such.
    [[nodiscard]] bool chosen(const MicrophoneSeen& seen) noexcept;

    /// Whether one is heard.
    [[nodiscard]] bool hears(const MicrophoneSeen& seen) const noexcept;
    /// One look while somebody listens: whether it has been waited for long enough.
    [[nodiscard]] bool isToTryAgain(const MicrophoneSeen& seen) noexcept;
    /// What programs are to be told of one that is heard, or is not: nothing where they know.
    [[nodiscard]] std::optional<bool> news(bool isHearing) noexcept;

    /// The device was asked to listen.
    [[nodiscard]] bool isListening() const noexcept { return isListening_; }
    /// Nobody plays, and the microphone cannot be opened.
    [[nodiscard]] bool isDeafAlone() const noexcept { return isDeafAlone_; }
    /// Alone, and it stood still: programs are told with its next block.
    [[nodiscard]] bool wasStill() const noexcept { return wasStill_; }

  private:
    [[nodiscard]] bool awaitsFirstBlock(const MicrophoneSeen& seen) const noexcept;

    bool isListening_ = false;
    bool isTold_ = false;  ///< programs know that a microphone is open
    bool isDeafAlone_ = false;
    bool wasStill_ = false;
    int deafLooks_ = 0;              ///< that found none though one is wanted
    int stillLooks_ = kWakingLooks;  ///< as many of one that is open, before it is tried again
};

}  // namespace tqplatform
