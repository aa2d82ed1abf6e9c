#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace tqrecorder {

/// What a unit or stream is called, at most; what is longer is cut. Bytes.
inline constexpr std::size_t kLongestName = 95;

/// A name in shared memory. One writer at a time; a reader meanwhile may see parts of the old and
/// the new one, which is why it is shown and never decided upon.
class SharedText {
  public:
    /// [any thread] Real-time safe.
    void store(std::string_view text) noexcept {
        std::array<std::uint64_t, kWords> words{};
        std::memcpy(words.data(), text.data(), std::min(text.size(), kLongestName));
        for (std::size_t i = 0; i < kWords; ++i) {
            words_[i].store(words[i], std::memory_order_relaxed);
        }
    }
    [[nodiscard]] std::string load() const {
        std::array<std::uint64_t, kWords> words{};
        for (std::size_t i = 0; i < kWords; ++i) {
            words[i] = words_[i].load(std::memory_order_relaxed);
        }
        std::string text(kLongestName, '\0');
        std::memcpy(text.data(), words.data(), text.size());
        return text.substr(0, text.find('\0'));
    }

  private:
    static constexpr std::size_t kWords = (kLongestName + 1) / sizeof(std::uint64_t);

    std::atomic<std::uint64_t> words_[kWords] = {};
};

}  // namespace tqrecorder
