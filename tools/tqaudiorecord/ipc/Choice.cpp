#include "ipc/Choice.h"

#include <fnmatch.h>
#include <locale.h>

#include <algorithm>

#include "ipc/Printable.h"

namespace tqrecorder {
namespace {

/// Has the calling thread read text as UTF-8: a program that never asked for its user's language
/// would fold the case of A to Z only, and take one letter for several.
class Utf8Here {
  public:
    Utf8Here() : before_(utf8() != nullptr ? uselocale(utf8()) : nullptr) {}
    ~Utf8Here() {
        if (before_ != nullptr) {
            uselocale(before_);
        }
    }
    Utf8Here(const Utf8Here&) = delete;
    Utf8Here& operator=(const Utf8Here&) = delete;

  private:
    /// Made once and kept to the program's end; null on a system without it.
    static locale_t utf8() {
        static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return locale;
    }
    locale_t before_;
};

/// Names are matched as they are shown.
bool matchesOneOf(const std::vector<std::string>& patterns, std::string_view name) {
    const std::string whole = printable(name);
    const Utf8Here language;
    return std::any_of(patterns.begin(), patterns.end(), [&whole](const std::string& pattern) {
        return fnmatch(pattern.c_str(), whole.c_str(), FNM_CASEFOLD) == 0;
    });
}

bool standForTrack(const std::vector<std::string>& patterns, std::string_view track,
                   std::string_view program) {
    const std::size_t space = track.find(' ');
    return matchesOneOf(patterns, track) || matchesOneOf(patterns, program) ||
           (space != std::string_view::npos && matchesOneOf(patterns, track.substr(space + 1)));
}

}  // namespace

bool Choice::excludes(std::string_view program) const {
    return matchesOneOf(without, program);
}

bool Choice::wants(std::string_view track, std::string_view program) const {
    return (only.empty() || standForTrack(only, track, program)) &&
           !standForTrack(without, track, program);
}

}  // namespace tqrecorder
