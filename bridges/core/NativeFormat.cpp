#include "bridges/core/NativeFormat.h"

namespace tq::bridges {

namespace {

constexpr unsigned kMostChannels = 8;
constexpr double kLowestRate = 1000;
constexpr double kHighestRate = 768000;

struct Layout {
    unsigned bytes;
    UnitSample unit;
};

Layout layoutOf(NativeSample sample) noexcept {
    switch (sample) {
        case NativeSample::kU8:
        case NativeSample::kS8:
            return {1, UnitSample::kS16};
        case NativeSample::kS16:
        case NativeSample::kS16Swapped:
        case NativeSample::kU16:
        case NativeSample::kU16Swapped:
            return {2, UnitSample::kS16};
        case NativeSample::kS24In3:
        case NativeSample::kS24In3Swapped:
        case NativeSample::kU24In3:
        case NativeSample::kU24In3Swapped:
            return {3, UnitSample::kS32};
        case NativeSample::kS24In4:
        case NativeSample::kS24In4Swapped:
        case NativeSample::kU24In4:
        case NativeSample::kU24In4Swapped:
        case NativeSample::kS32:
        case NativeSample::kS32Swapped:
        case NativeSample::kU32:
        case NativeSample::kU32Swapped:
            return {4, UnitSample::kS32};
        case NativeSample::kF32:
        case NativeSample::kF32Swapped:
            return {4, UnitSample::kF32};
        case NativeSample::kF64:
        case NativeSample::kF64Swapped:
            return {8, UnitSample::kF32};
        case NativeSample::kNotPcm:
            break;
    }
    return {0, UnitSample::kF32};
}

}  // namespace

unsigned bytesPerSample(NativeSample sample) noexcept {
    return layoutOf(sample).bytes;
}

unsigned bytesPerSample(UnitSample sample) noexcept {
    return sample == UnitSample::kS16 ? 2 : 4;
}

UnitSample unitSampleOf(NativeSample sample) noexcept {
    return layoutOf(sample).unit;
}

bool hasFewerBitsThanItsUnit(NativeSample sample) noexcept {
    switch (sample) {
        case NativeSample::kS24In4:
        case NativeSample::kS24In4Swapped:
        case NativeSample::kU24In4:
        case NativeSample::kU24In4Swapped:
            return true;
        default:
            return bytesPerSample(sample) < bytesPerSample(unitSampleOf(sample));
    }
}

unsigned NativeFormat::bytesPerFrame() const noexcept {
    return channels * bytesPerSample(sample);
}

unsigned NativeFormat::unitBytesPerFrame() const noexcept {
    return channels * bytesPerSample(unitSampleOf(sample));
}

bool NativeFormat::servable() const noexcept {
    return sample != NativeSample::kNotPcm && channels >= 1 && channels <= kMostChannels &&
           sampleRate >= kLowestRate && sampleRate <= kHighestRate;
}

}  // namespace tq::bridges
