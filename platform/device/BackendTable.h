#pragma once

#include <memory>
#include <span>
#include <string_view>

#include "device/Backend.h"

namespace tqplatform {

struct BackendRow {
    std::string_view name;  ///< for TQ_AUDIO_DEVICE
    std::unique_ptr<Backend> (*make)();
    bool automatic;  ///< "auto" may choose it
};

/// All backends, in the order in which "auto" tries them. The last one always opens.
[[nodiscard]] std::span<const BackendRow> backendTable() noexcept;

}  // namespace tqplatform
