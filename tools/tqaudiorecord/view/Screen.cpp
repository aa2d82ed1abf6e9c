#include "view/Screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "ipc/Printable.h"
#include "view/Columns.h"

namespace tqrecorder {
namespace {

winsize sizeOf(int descriptor) {
    winsize size{};
    if (ioctl(descriptor, TIOCGWINSZ, &size) != 0) {
        size = {};
    }
    return size;
}

}  // namespace

Screen::Screen(int descriptor, Clock::duration quiet)
    : descriptor_(descriptor),
      quiet_(quiet),
      othersWrote_(Clock::now() - quiet),
      writer_(descriptor) {
    if (::isatty(descriptor) == 1) {
        watch_.emplace(descriptor);
    }
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

Screen::Room Screen::room() {
    if (!watch_) {
        return Room::kLines;
    }
    if (watch_->isTakenOver()) {
        return Room::kNone;
    }
    look();
    return Clock::now() - othersWrote_ < quiet_ ? Room::kLines : Room::kArea;
}

void Screen::look() {
    if (watch_ && watch_->haveOthersWritten()) {
        othersWrote_ = Clock::now();
        areaLines_ = 0;
        isWithinLine_ = true;
    }
}

void Screen::put(const std::string& text) {
    const std::uint64_t before = writer_.written();
    writer_.put(text);
    if (watch_ && writer_.written() != before) {
        watch_->ownIsWritten();
    }
}

void Screen::show(const std::string& text) {
    look();
    std::string begin;
    if (areaLines_ > 0) {
        // The cursor is in the line below the area.
        begin = "\r\033[" + std::to_string(areaLines_) + "A\033[J";
    } else if (isWithinLine_) {
        begin = "\n";
    }
    areaLines_ = 0;
    isWithinLine_ = false;
    put(begin + text);
}

void Screen::line(std::string_view text) {
    pump();
    if (!writer_.hasRoom()) {
        ++lostLines_;
        return;
    }
    show(printable(text) + "\n");
}

void Screen::text(std::string_view lines) {
    std::string all;
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find('\n'), lines.size());
        all += printable(lines.substr(0, end)) + "\n";
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    show(all);
}

void Screen::area(const std::vector<std::string>& lines) {
    pump();
    // One that is behind is not drawn for: what it showed would be old.
    if (writer_.isBehind()) {
        return;
    }
    const std::size_t columns = width() > 1 ? width() - 1 : 1;
    // A line that would scroll away could not be redrawn.
    const std::size_t rows = std::min(lines.size(), height() > 1 ? height() - 1 : 1);
    std::string all;
    for (std::size_t row = 0; row < rows; ++row) {
        all += cutToWidth(printable(lines[row]), columns) + "\033[K\n";
    }
    all += "\033[J";
    // Asked last: what others write from here on would be drawn over.
    if (room() != Room::kArea) {
        return;
    }
    const std::string begin = areaLines_ > 0  ? "\r\033[" + std::to_string(areaLines_) + "A"
                              : isWithinLine_ ? "\n"
                                              : "";
    areaLines_ = rows;
    isWithinLine_ = false;
    put(begin + all);
}

void Screen::clearArea() {
    look();
    if (areaLines_ > 0) {
        show({});
    }
}

void Screen::pump() {
    put({});
    if (!writer_.isBehind()) {
        tellLost();
    }
}

void Screen::settle() {
    const std::uint64_t before = writer_.written();
    (void)writer_.settle(lostLines_);
    if (watch_ && writer_.written() != before) {
        watch_->ownIsWritten();
    }
    tellLost();
}

void Screen::tellLost() {
    if (lostLines_ > 0) {
        const auto count = std::exchange(lostLines_, 0);
        show("tqaudiorecord: " + std::to_string(count) +
             (count == 1 ? " line was" : " lines were") + " not shown: the reader was too slow\n");
    }
}

}  // namespace tqrecorder
