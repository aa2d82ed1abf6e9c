#include "ipc/TapSettings.h"

#include <locale>
#include <sstream>

namespace tqrecorder {
namespace {

constexpr const char* kBegin = "tq1";

}  // namespace

std::string toText(const TapSettings& s) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << kBegin << ' ' << s.socket << ' ' << static_cast<int>(s.task) << ' ' << s.recorder << ' '
         << s.soundBytes << ' ' << s.wantsLog << ' ' << s.armGuard << ' ' << s.duck << ' '
         << s.duckAlways << ' ' << s.duckDecibels << ' ' << s.compress << ' '
         << s.compressThresholdDecibels << ' ' << s.attackSeconds << ' ' << s.releaseSeconds;
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
        task > static_cast<int>(TapSettings::Task::kGuardDisarm)) {
        return std::nullopt;
    }
    s.task = static_cast<TapSettings::Task>(task);
    return s;
}

}  // namespace tqrecorder
