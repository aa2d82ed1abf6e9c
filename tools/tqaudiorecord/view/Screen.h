#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "view/ScreenWriter.h"

namespace tqrecorder {

/// Cut to that many columns; a letter of several bytes counts as one.
[[nodiscard]] std::string cutToWidth(std::string_view text, std::size_t columns);

/// Where messages and the meter go. On a terminal the meter is an area of lines below everything
/// else, redrawn in place. The terminal's settings stay as they are.
///
/// Nothing here waits for a reader but settle() and the destructor. Lines that a slow one has no
/// room for are left out and counted, and the count is told as soon as there is room.
class Screen {
  public:
    explicit Screen(int descriptor);
    /// Waits as settle() does.
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    [[nodiscard]] bool isTerminal() const { return isTerminal_; }
    /// Columns of the terminal now; 80 where they are unknown.
    [[nodiscard]] std::size_t width() const;
    [[nodiscard]] std::size_t height() const;

    /// A line of its own, above the area.
    void line(std::string_view text);
    /// Several lines that stay, whatever room there is.
    void text(std::string_view lines);
    /// Draws the area anew. Terminal only.
    void area(const std::vector<std::string>& lines);
    void clearArea();
    /// Shows what can be shown by now of what waits.
    void pump();
    /// Once nothing is recorded any more: waits for the reader, as long as it goes on reading. What
    /// it then has not taken is left out and counted.
    void settle();

  private:
    [[nodiscard]] std::string eraseArea();
    void tellLost();

    int descriptor_;
    bool isTerminal_;
    ScreenWriter writer_;
    std::size_t areaLines_ = 0;
    unsigned long long lostLines_ = 0;
};

}  // namespace tqrecorder
