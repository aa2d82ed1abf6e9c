#pragma once

#include <CoreMedia/CMFormatDescription.h>

#include <cstddef>
#include <vector>

#include "foundation/CFObject.h"

namespace tqplatform {

/// Copies of what describes an audio stream; never changes.
class FormatDescription : public CFObject {
  public:
    static constexpr CFKind kKind = CFKind::formatDescription;

    FormatDescription(const AudioStreamBasicDescription& stream, std::vector<std::byte> layout,
                      std::vector<std::byte> cookie)
        : CFObject(kKind),
          stream_(stream),
          layout_(std::move(layout)),
          cookie_(std::move(cookie)) {}

    [[nodiscard]] const AudioStreamBasicDescription& stream() const noexcept { return stream_; }
    /// Empty or an AudioChannelLayout with all its descriptions.
    [[nodiscard]] const std::vector<std::byte>& layout() const noexcept { return layout_; }
    [[nodiscard]] const std::vector<std::byte>& cookie() const noexcept { return cookie_; }

  private:
    const AudioStreamBasicDescription stream_;
    const std::vector<std::byte> layout_;
    const std::vector<std::byte> cookie_;
};

}  // namespace tqplatform
