#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "view/ScreenWriter.h"
#include "view/TerminalWatch.h"

namespace tqrecorder {

/// Where messages and the meter go. On a terminal the meter is an area of lines below everything
/// else, redrawn in place, as long as nobody else writes there: where the cursor has been moved by
/// others, what is above it is theirs. The terminal's settings stay as they are.
///
/// Nothing here waits for a reader but settle() and the destructor. Lines that a slow one has no
/// room for are left out and counted, and the count is told as soon as there is room.
class Screen {
  public:
    using Clock = std::chrono::steady_clock;

    /// How the meter may be shown.
    enum class Room {
        kArea,   ///< in place
        kLines,  ///< as lines that stay: no terminal, or one that others write to
        kNone,   ///< a program draws the terminal itself
    };

    /// In place again once others have been silent for `quiet`.
    explicit Screen(int descriptor, Clock::duration quiet = std::chrono::seconds{5});
    /// Waits as settle() does.
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    [[nodiscard]] Room room();
    /// Columns of the terminal now; 80 where they are unknown.
    [[nodiscard]] std::size_t width() const;
    [[nodiscard]] std::size_t height() const;

    /// A line of its own, above the area.
    void line(std::string_view text);
    /// Several lines that stay, whatever room there is.
    void text(std::string_view lines);
    /// Draws the area anew, where there is room for it.
    void area(const std::vector<std::string>& lines);
    void clearArea();
    /// Shows what can be shown by now of what waits.
    void pump();
    /// Once nothing is recorded any more: waits for the reader, as long as it goes on reading. What
    /// it then has not taken is left out and counted.
    void settle();

  private:
    /// Gives up the area when others have written.
    void look();
    /// Text that begins a line of its own, where the area was.
    void show(const std::string& text);
    void put(const std::string& text);
    void tellLost();

    int descriptor_;
    Clock::duration quiet_;
    std::optional<TerminalWatch> watch_;  ///< of a terminal
    Clock::time_point othersWrote_{};
    bool isWithinLine_ = false;  ///< others may have left the cursor behind a text
    ScreenWriter writer_;
    std::size_t areaLines_ = 0;
    unsigned long long lostLines_ = 0;
};

}  // namespace tqrecorder
