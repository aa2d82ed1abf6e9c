#include "view/MeterText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "ipc/Printable.h"
#include "view/Columns.h"

namespace tqrecorder {
namespace {

constexpr double kBarFloorDb = -60;

double decibels(double amplitude) {
    return amplitude > 0 ? 20 * std::log10(amplitude) : -1000;
}

/// RMS as a bar, the peak as a mark on it, over 60 dB.
std::string bar(const Level& level, std::size_t width) {
    const auto place = [width](double amplitude) {
        const double part = std::clamp(1 - decibels(amplitude) / kBarFloorDb, 0.0, 1.0);
        return static_cast<std::size_t>(std::lround(part * static_cast<double>(width)));
    };
    std::string text(width, '.');
    std::fill_n(text.begin(), static_cast<std::ptrdiff_t>(place(level.rms())), '#');
    if (const std::size_t peak = place(level.peak()); peak > 0) {
        text[peak - 1] = level.peak() >= 1 ? '!' : '|';
    }
    return "[" + text + "]";
}

std::string padded(const std::string& text, std::size_t width) {
    const std::size_t columns = columnsOf(text);
    return text + std::string(columns < width ? width - columns : 0, ' ');
}

std::string right(const std::string& text, std::size_t width) {
    return std::string(text.size() < width ? width - text.size() : 0, ' ') + text;
}

std::string percent(double part) {
    return std::to_string(std::lround(std::clamp(part, 0.0, 1.0) * 100)) + "%";
}

std::string nameOf(int track, const SourceState& source) {
    return track == 0 ? "mix" : "track " + std::to_string(track) + " " + source.unit;
}

constexpr std::size_t kNameColumns = 24;
constexpr std::size_t kNumberColumns = 7;
constexpr std::size_t kBufferColumns = 5;
constexpr std::size_t kSmallestBar = 10;

}  // namespace

std::string elapsedText(double seconds) {
    const auto whole = static_cast<long long>(std::max(seconds, 0.0));
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                  whole % 60);
    return text.data();
}

std::vector<std::string> meterLines(const Observer& observer, std::size_t width) {
    std::uint64_t lost = 0;
    std::uint64_t gaps = 0;
    double fill = 0;
    for (const auto& [id, state] : observer.processes()) {
        lost += state.lostBlocks;
        gaps += state.gaps();
        fill = std::max(fill, state.ringFill);
    }
    std::vector<std::string> lines;
    lines.push_back(elapsedText(observer.elapsedSeconds()) +
                    (observer.isPaused() ? "   PAUSED" : "") + "   ring " + percent(fill) +
                    "   lost " + std::to_string(lost) + "   gaps " + std::to_string(gaps));
    const std::size_t fixed = kNameColumns + 2 * kNumberColumns + kBufferColumns + 6;
    const std::size_t barWidth = width > fixed + kSmallestBar + 1 ? width - fixed - 1 : 0;
    if (!observer.processes().empty()) {
        lines.front() = padded(lines.front(), kNameColumns);
        lines.push_back(padded("dBFS", kNameColumns) + right("peak", kNumberColumns) +
                        right("rms", kNumberColumns) + right("buf", kBufferColumns));
    }
    for (const ProcessState* const mentioned : observer.mentioned()) {
        const ProcessState& state = *mentioned;
        if (state.ended) {
            continue;
        }
        lines.push_back(printable(state.process.name) + " (" + std::to_string(state.process.pid) +
                        ")" + (state.sources.empty() ? ": nothing played yet" : ""));
        for (const auto& [track, source] : state.sources) {
            std::string line =
                padded("  " + cutToWidth(printable(nameOf(track, source)), kNameColumns - 3),
                       kNameColumns) +
                right(decibelText(source.window.peak()), kNumberColumns) +
                right(decibelText(source.window.rms()), kNumberColumns) +
                right(source.bufferCapacity == 0
                          ? "-"
                          : percent(static_cast<double>(source.bufferedBytes) /
                                    static_cast<double>(source.bufferCapacity)),
                      kBufferColumns);
            if (barWidth >= kSmallestBar) {
                line += "  " + bar(source.window, barWidth);
            }
            lines.push_back(line);
        }
    }
    return lines;
}

std::vector<std::string> numberLines(const Observer& observer) {
    std::array<char, 32> elapsed{};
    std::snprintf(elapsed.data(), elapsed.size(), "%.1f s%s", observer.elapsedSeconds(),
                  observer.isPaused() ? "  PAUSED" : "");
    std::vector<std::string> lines;
    for (const ProcessState* const mentioned : observer.mentioned()) {
        const ProcessState& state = *mentioned;
        if (state.ended) {
            continue;
        }
        std::string line = std::string(elapsed.data()) + "  " + state.process.name;
        for (const auto& [track, source] : state.sources) {
            line += "  " + std::string(track == 0 ? "mix" : std::to_string(track)) + " " +
                    decibelText(source.window.peak()) + "/" + decibelText(source.window.rms());
        }
        line += "  ring " + percent(state.ringFill) + "  lost " + std::to_string(state.lostBlocks) +
                "  gaps " + std::to_string(state.gaps());
        lines.push_back(line);
        if (!state.isOfInterest()) {
            break;  // as good as any other of them
        }
    }
    if (lines.empty()) {
        lines.push_back(std::string(elapsed.data()) + (observer.processes().empty()
                                                           ? "  nothing to record yet"
                                                           : "  all that played has ended"));
    }
    return lines;
}

}  // namespace tqrecorder
