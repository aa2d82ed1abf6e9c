#include "view/Screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

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

std::string printable(std::string_view text) {
    std::string result(text);
    for (std::size_t place = 0; place < result.size(); ++place) {
        const auto code = static_cast<unsigned char>(result[place]);
        // U+0080 to U+009F are control characters too; UTF-8 writes them as 0xC2 and one more byte.
        const bool upper = code == 0xC2 && place + 1 < result.size() &&
                           static_cast<unsigned char>(result[place + 1]) < 0xA0;
        if (code < 0x20 || code == 0x7F) {
            result[place] = ' ';
        } else if (upper) {
            result[place] = ' ';
            result[place + 1] = ' ';
        }
    }
    return result;
}

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

Screen::Screen(int descriptor) : descriptor_(descriptor), isTerminal_(::isatty(descriptor) == 1) {
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
    send(eraseArea() + printable(text) + "\n");
}

void Screen::text(std::string_view lines) {
    std::string all = eraseArea();
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find('\n'), lines.size());
        all += printable(lines.substr(0, end)) + "\n";
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    send(all);
}

void Screen::area(const std::vector<std::string>& lines) {
    if (!isTerminal_) {
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
    send(all);
}

void Screen::clearArea() {
    send(eraseArea());
}

void Screen::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;  // the terminal is gone; the recording goes on without it
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

}  // namespace tqrecorder
