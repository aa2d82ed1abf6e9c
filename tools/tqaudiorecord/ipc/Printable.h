#pragma once

#include <string>
#include <string_view>

namespace tqrecorder {

/// The text as one line that steers no terminal: a blank for every byte of a control character
/// (also those of two bytes in UTF-8, line ends, and marks that turn the direction of writing), a
/// question mark for every byte that is no UTF-8, which some terminals take for a control
/// character. All that a host says goes through this before it is shown.
[[nodiscard]] std::string printable(std::string_view text);

}  // namespace tqrecorder
