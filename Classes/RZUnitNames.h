#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Names of units that have one of their own, by ordinal: a unit that stands for a stream of the
/// program is called by the stream. Names stay for the life of the process, because blocks that
/// carry an ordinal may still be under way when its unit has gone.
///
/// Invariant: a place is null or leads to a name that never changes again. Writers: any thread,
/// each place once (compare-exchange, release). Readers: any thread (acquire).
class RZUnitNames {
  public:
    static constexpr std::size_t kMost = 1024;
    static constexpr std::size_t kLongest = 95;  ///< bytes; what is longer is cut

    /// [any thread] The one instance, made on first use, never destroyed.
    static RZUnitNames& shared();

    /// [host thread] Allocates. Nothing happens when the ordinal has a name, or when its place has
    /// gone to another one: then it is called by its number, like any other unit.
    void give(std::uint32_t ordinal, std::string_view name);
    /// [any thread] Real-time safe. Null for a unit without a name of its own.
    [[nodiscard]] const char* of(std::uint32_t ordinal) const noexcept;

  private:
    struct Name {
        std::uint32_t ordinal = 0;
        std::array<char, kLongest + 1> text{};
    };
    std::array<std::atomic<const Name*>, kMost> places_{};
};
