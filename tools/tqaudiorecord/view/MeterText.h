#pragma once

#include <string>
#include <vector>

#include "view/Observer.h"

namespace tqrecorder {

/// "0:01:23".
[[nodiscard]] std::string elapsedText(double seconds);

/// The meter as the terminal shows it: one line for the whole, one for every mix and track.
[[nodiscard]] std::vector<std::string> meterLines(const Observer& observer, std::size_t width);

/// One line of numbers for each process, for logs and scripts; one for none.
[[nodiscard]] std::vector<std::string> numberLines(const Observer& observer);

}  // namespace tqrecorder
