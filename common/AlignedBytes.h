#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace tqcommon {

/// Owns bytes that begin on a cache line. Their content is whatever was there.
class AlignedBytes {
  public:
    static constexpr std::size_t kLine = 64;

    /// Throws std::bad_alloc.
    explicit AlignedBytes(std::size_t size)
        : bytes_(static_cast<std::byte*>(::operator new(size, kAlignment))) {}
    [[nodiscard]] std::byte* data() const noexcept { return bytes_.get(); }

    /// `size` rounded up to whole lines.
    [[nodiscard]] static constexpr std::size_t wholeLines(std::size_t size) noexcept {
        return (size + kLine - 1) / kLine * kLine;
    }

  private:
    static constexpr std::align_val_t kAlignment{kLine};
    struct Free {
        void operator()(std::byte* bytes) const noexcept { ::operator delete(bytes, kAlignment); }
    };
    std::unique_ptr<std::byte, Free> bytes_;
};

}  // namespace tqcommon
