#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tqrecorder {

/// Which programs and tracks the user wants recorded, by patterns as shells have them for file
/// names; letters match whatever their case. A pattern stands for a track when it matches the
/// track's whole name, what the program calls it (what stands behind the first space), or the
/// program's name.
/// Patterns of each kind, and bytes of all of them together. More would not fit into what a program
/// may be started with.
inline constexpr std::size_t kMostPatterns = 1000;
inline constexpr std::size_t kMostPatternBytes = 50'000;

struct Choice {
    std::vector<std::string> only;     ///< empty: everything
    std::vector<std::string> without;  ///< these are left out, whatever `only` says

    [[nodiscard]] bool isAll() const { return only.empty() && without.empty(); }
    /// Whether nothing of that program is wanted, whatever its tracks are called.
    [[nodiscard]] bool excludes(std::string_view program) const;
    /// Whether that track of that program is wanted.
    [[nodiscard]] bool wants(std::string_view track, std::string_view program) const;
};

}  // namespace tqrecorder
