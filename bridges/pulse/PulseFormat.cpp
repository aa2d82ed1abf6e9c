#include "bridges/pulse/PulseFormat.h"

namespace tq::bridges {

NativeSample pulseSample(pa_sample_format_t format) noexcept {
    using enum NativeSample;
    // NE is this machine's byte order and RE the other one.
    switch (format) {
        case PA_SAMPLE_U8:
            return kU8;
        case PA_SAMPLE_S16NE:
            return kS16;
        case PA_SAMPLE_S16RE:
            return kS16Swapped;
        case PA_SAMPLE_S24NE:
            return kS24In3;
        case PA_SAMPLE_S24RE:
            return kS24In3Swapped;
        case PA_SAMPLE_S24_32NE:
            return kS24In4;
        case PA_SAMPLE_S24_32RE:
            return kS24In4Swapped;
        case PA_SAMPLE_S32NE:
            return kS32;
        case PA_SAMPLE_S32RE:
            return kS32Swapped;
        case PA_SAMPLE_FLOAT32NE:
            return kF32;
        case PA_SAMPLE_FLOAT32RE:
            return kF32Swapped;
        default:
            return kNotPcm;
    }
}

}  // namespace tq::bridges
