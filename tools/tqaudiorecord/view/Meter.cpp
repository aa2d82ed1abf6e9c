#include "view/Meter.h"

#include "view/MeterText.h"

namespace tqrecorder {
namespace {

constexpr std::uint64_t kRedrawMicroseconds = 200'000;
constexpr std::uint64_t kLineMicroseconds = 1'000'000;

const char* levelName(int level) {
    switch (level) {
        case 1:
            return "debug";
        case 2:
            return "info";
        case 3:
            return "warning";
        case 4:
            return "error";
        default:
            return "log";
    }
}

}  // namespace

void Meter::log(const Process& process, const LogLine& line) {
    if (verbose_) {
        screen_.line("tqaudiorecord: " + process.name + " " + levelName(line.level) + ": " +
                     (line.function.empty() ? "" : line.function + ": ") + line.text);
    }
}

void Meter::tick(std::uint64_t elapsedMicroseconds) {
    screen_.pump();
    const Screen::Room room = screen_.room();
    const bool inPlace = room == Screen::Room::kArea;
    const std::uint64_t step = inPlace ? kRedrawMicroseconds : kLineMicroseconds;
    if (nextMicroseconds_ == 0) {
        nextMicroseconds_ = elapsedMicroseconds + step;
    }
    if (elapsedMicroseconds < nextMicroseconds_) {
        return;
    }
    nextMicroseconds_ = elapsedMicroseconds + step;
    if (inPlace) {
        screen_.area(meterLines(observer_, screen_.width()));
    } else if (room == Screen::Room::kLines) {
        for (const std::string& line : numberLines(observer_)) {
            screen_.line("tqaudiorecord: " + line);
        }
    }
    observer_.clearWindows();
}

}  // namespace tqrecorder
