#pragma once

#include <memory>

#include "device/Backend.h"

namespace tqplatform {

// One factory for each file of this folder; none of them connects to anything.

[[nodiscard]] std::unique_ptr<Backend> makeManualBackend();
[[nodiscard]] std::unique_ptr<Backend> makeNullBackend();
/// The best that answers when somebody is to be heard.
[[nodiscard]] std::unique_ptr<Backend> makeAutomaticBackend();
[[nodiscard]] std::unique_ptr<Backend> makeCubebBackend();
[[nodiscard]] std::unique_ptr<Backend> makeCubebPulseBackend();
[[nodiscard]] std::unique_ptr<Backend> makeCubebAlsaBackend();
[[nodiscard]] std::unique_ptr<Backend> makeCubebJackBackend();

}  // namespace tqplatform
