#include "hook/rebind/Exemptions.h"

#include <fnmatch.h>

#include <algorithm>

namespace tqhook {

bool Exemptions::cover(std::string_view path, std::uintptr_t base) const {
    if (std::find(bases_.begin(), bases_.end(), base) != bases_.end()) {
        return true;
    }
    if (path.empty() || patterns_.empty()) {
        return false;
    }
    const std::string file(path.substr(path.rfind('/') + 1));
    return std::any_of(patterns_.begin(), patterns_.end(), [&file](const std::string& pattern) {
        return fnmatch(pattern.c_str(), file.c_str(), 0) == 0;
    });
}

}  // namespace tqhook
