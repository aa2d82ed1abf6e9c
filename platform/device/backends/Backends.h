#pragma once

#include <memory>

#include "device/Backend.h"

namespace tqplatform {

// One factory for each file of this folder; none of them connects to anything.

[[nodiscard]] std::unique_ptr<Backend> makeManualBackend();
[[nodiscard]] std::unique_ptr<Backend> makeNullBackend();

}  // namespace tqplatform
