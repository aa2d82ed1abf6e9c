#pragma once

#include <CoreMedia/CMBlockBuffer.h>

#include <cstddef>
#include <memory>

#include "foundation/CFObject.h"

namespace tqplatform {

/// One piece of memory, not initialised, at a multiple of 16 bytes.
class BlockBuffer : public CFObject {
  public:
    static constexpr CFKind kKind = CFKind::blockBuffer;
    static constexpr std::size_t kAlignment = 16;
    static_assert(__STDCPP_DEFAULT_NEW_ALIGNMENT__ >= kAlignment);

    explicit BlockBuffer(std::size_t length)
        : CFObject(kKind),
          memory_(std::make_unique_for_overwrite<std::byte[]>(length)),
          length_(length) {}

    [[nodiscard]] std::byte* data() const noexcept { return memory_.get(); }
    [[nodiscard]] std::size_t length() const noexcept { return length_; }

  private:
    const std::unique_ptr<std::byte[]> memory_;
    const std::size_t length_;
};

}  // namespace tqplatform
