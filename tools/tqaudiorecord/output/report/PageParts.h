#pragma once

#include <string_view>

namespace tqrecorder {

/// What stands in page.css and page.js, as they are at the build.
[[nodiscard]] std::string_view pageStyle();
[[nodiscard]] std::string_view pageScript();

}  // namespace tqrecorder
