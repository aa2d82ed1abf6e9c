#include "device/BackendTable.h"

#include "device/backends/Backends.h"

namespace tqplatform {

std::span<const BackendRow> backendTable() noexcept {
    static constexpr BackendRow kBackends[] = {
        {"manual", &makeManualBackend, false},
        {"auto", &makeAutomaticBackend, true},
        {"cubeb", &makeCubebBackend, false},
        {"cubeb:pulse", &makeCubebPulseBackend, false},
        {"cubeb:alsa", &makeCubebAlsaBackend, false},
        {"cubeb:jack", &makeCubebJackBackend, false},
        {"null", &makeNullBackend, true},
    };
    return kBackends;
}

}  // namespace tqplatform
