#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tqrecorder {

/// The text with every control character, also those of two bytes in UTF-8, replaced by a blank: a
/// host's texts must not steer the user's terminal.
[[nodiscard]] std::string printable(std::string_view text);

/// Cut to that many columns; a letter of several bytes counts as one.
[[nodiscard]] std::string cutToWidth(std::string_view text, std::size_t columns);

/// Where messages and the meter go. On a terminal the meter is an area of lines below everything
/// else, redrawn in place. The terminal's settings stay as they are.
class Screen {
  public:
    explicit Screen(int descriptor);

    [[nodiscard]] bool isTerminal() const { return isTerminal_; }
    /// Columns of the terminal now; 80 where they are unknown.
    [[nodiscard]] std::size_t width() const;
    [[nodiscard]] std::size_t height() const;

    /// A line of its own, above the area.
    void line(std::string_view text);
    /// Several lines that stay.
    void text(std::string_view lines);
    /// Draws the area anew. Terminal only.
    void area(const std::vector<std::string>& lines);
    void clearArea();

  private:
    [[nodiscard]] std::string eraseArea();
    void send(std::string_view bytes) const;

    int descriptor_;
    bool isTerminal_;
    std::size_t areaLines_ = 0;
};

}  // namespace tqrecorder
