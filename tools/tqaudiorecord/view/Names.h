#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace tqrecorder {

/// The first few of many names in one clause.
[[nodiscard]] inline std::string listed(const std::vector<std::string>& names) {
    constexpr std::size_t kMostNames = 4;
    std::string text;
    for (std::size_t i = 0; i < std::min(names.size(), kMostNames); ++i) {
        text += (i == 0 ? "" : ", ") + names[i];
    }
    if (names.size() > kMostNames) {
        text += " and " + std::to_string(names.size() - kMostNames) + " more";
    }
    return text;
}

}  // namespace tqrecorder
