#include "ipc/TapSettings.h"

#include <charconv>
#include <cstddef>
#include <locale>
#include <sstream>
#include <string_view>
#include <vector>

#include "ipc/Choice.h"

namespace tqrecorder {
namespace {

constexpr const char* kBegin = "tq2";

/// A pattern may hold anything: its bytes in hexadecimal digits.
std::string hexadecimal(const std::string& pattern) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const char byte : pattern) {
        const auto value = static_cast<unsigned char>(byte);
        text += kDigits[value >> 4U];
        text += kDigits[value & 15U];
    }
    return text;
}

std::optional<std::string> fromHexadecimal(std::string_view text) {
    constexpr int kBase = 16;
    std::string pattern;
    for (; text.size() >= 2; text.remove_prefix(2)) {
        unsigned value = 0;
        if (std::from_chars(text.data(), text.data() + 2, value, kBase).ptr != text.data() + 2) {
            return std::nullopt;
        }
        pattern += static_cast<char>(value);
    }
    return text.empty() && !pattern.empty() ? std::optional(pattern) : std::nullopt;
}

void write(std::ostream& text, const std::vector<std::string>& patterns) {
    text << ' ' << patterns.size();
    for (const std::string& pattern : patterns) {
        text << ' ' << hexadecimal(pattern);
    }
}

bool read(std::istream& text, std::vector<std::string>& patterns) {
    std::size_t count = 0;
    if (!(text >> count) || count > kMostPatterns) {
        return false;
    }
    for (std::string word; patterns.size() < count && text >> word;) {
        const auto pattern = fromHexadecimal(word);
        if (!pattern) {
            return false;
        }
        patterns.push_back(*pattern);
    }
    return patterns.size() == count;
}

}  // namespace

std::string toText(const TapSettings& s) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << kBegin << ' ' << s.socket << ' ' << static_cast<int>(s.task) << ' ' << s.recorder << ' '
         << s.soundBytes << ' ' << s.wantsLog << ' ' << s.armGuard << ' ' << s.duck << ' '
         << s.duckAlways << ' ' << s.duckDecibels << ' ' << s.compress << ' '
         << s.compressThresholdDecibels << ' ' << s.attackSeconds << ' ' << s.releaseSeconds;
    write(text, s.choice.only);
    write(text, s.choice.without);
    return text.str();
}

std::optional<TapSettings> settingsFromText(const std::string& text) {
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    TapSettings s;
    std::string begin;
    int task = 0;
    in >> begin >> s.socket >> task >> s.recorder >> s.soundBytes >> s.wantsLog >> s.armGuard >>
        s.duck >> s.duckAlways >> s.duckDecibels >> s.compress >> s.compressThresholdDecibels >>
        s.attackSeconds >> s.releaseSeconds;
    if (!in || begin != kBegin || s.socket.size() > 100 || task < 0 ||
        task > static_cast<int>(TapSettings::Task::kGuardDisarm) || !read(in, s.choice.only) ||
        !read(in, s.choice.without)) {
        return std::nullopt;
    }
    s.task = static_cast<TapSettings::Task>(task);
    return s;
}

}  // namespace tqrecorder
