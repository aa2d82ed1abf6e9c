#include "view/Screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "ipc/Printable.h"

namespace tqrecorder {
namespace {

bool continuesLetter(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

winsize sizeOf(int descriptor) {
    winsize size{};
    if (ioctl(descriptor, TIOCGWINSZ, &size) != 0) {
        size = {};
    }
    return size;
}

}  // namespace

std::string cutToWidth(std::string_view text, std::size_t columns) {
    std::size_t letters = 0;
    std::size_t end = 0;
    while (end < text.size()) {
        if (!continuesLetter(text[end]) && letters++ == columns) {
            break;
        }
        ++end;
    }
    return std::string(text.substr(0, end));
}

Screen::Screen(int descriptor)
    : descriptor_(descriptor), isTerminal_(::isatty(descriptor) == 1), writer_(descriptor) {
}

Screen::~Screen() {
    settle();
}

std::size_t Screen::width() const {
    const winsize size = sizeOf(descriptor_);
    return size.ws_col == 0 ? 80 : size.ws_col;
}

std::size_t Screen::height() const {
    const winsize size = sizeOf(descriptor_);
    return size.ws_row == 0 ? 24 : size.ws_row;
}

std::string Screen::eraseArea() {
    if (areaLines_ == 0) {
        return {};
    }
    // The cursor is in the line below the area.
    return "\r\033[" + std::to_string(std::exchange(areaLines_, 0)) + "A\033[J";
}

void Screen::line(std::string_view text) {
    pump();
    if (!writer_.hasRoom()) {
        ++lostLines_;
        return;
    }
    writer_.put(eraseArea() + printable(text) + "\n");
}

void Screen::text(std::string_view lines) {
    std::string all = eraseArea();
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find('\n'), lines.size());
        all += printable(lines.substr(0, end)) + "\n";
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    writer_.put(all);
}

void Screen::area(const std::vector<std::string>& lines) {
    pump();
    // One that is behind is not drawn for: what it showed would be old.
    if (!isTerminal_ || writer_.isBehind()) {
        return;
    }
    const std::size_t columns = width() > 1 ? width() - 1 : 1;
    // A line that would scroll away could not be redrawn.
    const std::size_t rows = std::min(lines.size(), height() > 1 ? height() - 1 : 1);
    std::string all;
    if (areaLines_ > 0) {
        all = "\r\033[" + std::to_string(areaLines_) + "A";
    }
    for (std::size_t row = 0; row < rows; ++row) {
        all += cutToWidth(printable(lines[row]), columns) + "\033[K\n";
    }
    all += "\033[J";
    areaLines_ = rows;
    writer_.put(all);
}

void Screen::clearArea() {
    writer_.put(eraseArea());
}

void Screen::pump() {
    writer_.pump();
    if (!writer_.isBehind()) {
        tellLost();
    }
}

void Screen::settle() {
    (void)writer_.settle(lostLines_);
    tellLost();
}

void Screen::tellLost() {
    if (lostLines_ > 0) {
        const auto count = std::exchange(lostLines_, 0);
        writer_.put(eraseArea() + "tqaudiorecord: " + std::to_string(count) +
                    (count == 1 ? " line was" : " lines were") +
                    " not shown: the reader was too slow\n");
    }
}

}  // namespace tqrecorder
