#include "output/Floats.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace tqrecorder {
namespace {

template <typename Sample>
Sample valueAt(const std::byte* bytes) {
    Sample sample{};
    std::memcpy(&sample, bytes, sizeof sample);
    return sample;
}

template <typename Sample>
float readFloat(const std::byte* bytes) {
    const auto value = static_cast<float>(valueAt<Sample>(bytes));
    return std::isfinite(value) ? value : 0.0F;
}

template <typename Sample, std::uint32_t kFullScale>
float readInteger(const std::byte* bytes) {
    return static_cast<float>(valueAt<Sample>(bytes)) / static_cast<float>(kFullScale);
}

float read24(const std::byte* bytes) {
    const auto at = [bytes](std::size_t index) { return static_cast<std::uint32_t>(bytes[index]); };
    // Shifted up by one byte, so that the sign bit of 24 bits becomes that of 32.
    const auto value = static_cast<std::int32_t>((at(0) << 8U) | (at(1) << 16U) | (at(2) << 24U));
    return static_cast<float>(value) / 2147483648.0F;
}

}  // namespace

Floats::Floats(const BlockFormat& format) : step_(format.bitsPerChannel / 8) {
    switch (format.bitsPerChannel) {
        case 8:
            read_ = format.isFloat ? nullptr : &readInteger<std::int8_t, 1U << 7U>;
            break;
        case 16:
            read_ = format.isFloat ? nullptr : &readInteger<std::int16_t, 1U << 15U>;
            break;
        case 24:
            read_ = format.isFloat ? nullptr : &read24;
            break;
        case 32:
            read_ = format.isFloat ? &readFloat<float> : &readInteger<std::int32_t, 1U << 31U>;
            break;
        case 64:
            read_ = format.isFloat ? &readFloat<double> : nullptr;
            break;
        default:
            break;
    }
}

std::span<const float> Floats::of(std::span<const std::byte> frames) {
    samples_.resize(read_ == nullptr ? 0 : frames.size() / step_);
    for (std::size_t index = 0; index < samples_.size(); ++index) {
        samples_[index] = read_(frames.data() + index * step_);
    }
    return samples_;
}

}  // namespace tqrecorder
