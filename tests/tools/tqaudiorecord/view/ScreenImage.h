#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace tqrecorder::test {

/// What can be read on a terminal, with all that has scrolled away, behind the sequences that the
/// recorder uses: lines up, erasing to the end of the line and of the screen.
inline std::vector<std::string> screenImage(std::string_view text) {
    std::vector<std::string> lines(1);
    std::size_t row = 0;
    std::size_t column = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '\r') {
            column = 0;
        } else if (c == '\n') {
            ++row;
            column = 0;
            lines.resize(std::max(lines.size(), row + 1));
        } else if (c == '\033' && at + 1 < text.size() && text[at + 1] == '[') {
            const std::size_t end =
                std::min(text.find_first_not_of("0123456789", at + 2), text.size() - 1);
            const std::size_t number = std::strtoul(text.data() + at + 2, nullptr, 10);
            if (text[end] == 'A') {
                row -= std::min(row, std::max<std::size_t>(number, 1));
            } else {
                lines[row].resize(std::min(lines[row].size(), column));
                if (text[end] == 'J') {
                    lines.resize(row + 1);
                }
            }
            at = end;
        } else {
            lines[row].resize(std::max(lines[row].size(), column + 1), ' ');
            lines[row][column++] = c;
        }
    }
    return lines;
}

}  // namespace tqrecorder::test
