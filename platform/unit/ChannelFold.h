#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <vector>

#include "common/AudioView.h"
#include "common/RealTime.h"
#include "unit/ChannelLayout.h"

namespace tqplatform {

/// What two loudspeakers get of a bus whose more channels are said to be meant for others: those on
/// a side and behind it go to that side, the middle to both, each 3 dB lower; the subwoofer's to
/// none.
class ChannelFold {
  public:
    /// Folds nothing.
    ChannelFold() = default;
    /// Folds nothing where the layout does not say which loudspeakers the channels are meant for.
    explicit ChannelFold(const ChannelLayout& layout);

    [[nodiscard]] bool exists() const noexcept { return !gains_.empty(); }
    bool operator==(const ChannelFold&) const = default;

    /// [render thread] [real-time safe] Into two planes; they are not the source's.
    void apply(const tqcommon::ConstAudioView& source,
               const tqcommon::AudioView& destination) const noexcept TQ_NONBLOCKING;

  private:
    struct Gains {
        float left;
        float right;
        bool operator==(const Gains&) const = default;
    };
    [[nodiscard]] static Gains gainsOf(AudioChannelLabel label) noexcept;

    std::vector<Gains> gains_;  ///< by channel
};

}  // namespace tqplatform
