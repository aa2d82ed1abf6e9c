#include "ipc/Choice.h"

#include <fnmatch.h>

#include <algorithm>

namespace tqrecorder {
namespace {

bool matchesOneOf(const std::vector<std::string>& patterns, std::string_view name) {
    const std::string whole(name);
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
