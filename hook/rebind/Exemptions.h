#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tqhook {

/// Images that keep their calls: named by patterns of file names, or one by one.
class Exemptions {
  public:
    /// An fnmatch() pattern for the last part of an image's path.
    void addPattern(std::string pattern) { patterns_.push_back(std::move(pattern)); }
    /// The image that the loader put at `base`; it must stay loaded.
    void addImage(std::uintptr_t base) { bases_.push_back(base); }

    /// What an image that keeps no calls for what else it defines is known by: a symbol.
    void addFront(std::string symbol) { fronts_.push_back(std::move(symbol)); }

    /// The main program has an empty path and no pattern covers it.
    [[nodiscard]] bool cover(std::string_view path, std::uintptr_t base) const;

    [[nodiscard]] const std::vector<std::string>& fronts() const { return fronts_; }

  private:
    std::vector<std::string> patterns_;
    std::vector<std::string> fronts_;
    std::vector<std::uintptr_t> bases_;
};

}  // namespace tqhook
