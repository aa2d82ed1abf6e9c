#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tqrecorder {

/// How many columns of a terminal the text takes: two for a letter of East Asian scripts or an
/// emoji, none for a mark on another letter. UTF-8 without control characters.
[[nodiscard]] std::size_t columnsOf(std::string_view text);

/// Cut to whole letters of that many columns at most.
[[nodiscard]] std::string cutToWidth(std::string_view text, std::size_t columns);

}  // namespace tqrecorder
