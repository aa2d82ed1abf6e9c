#include "view/Level.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace tqrecorder {
namespace {

template <typename Sample>
double read(const std::byte* bytes) {
    Sample sample{};
    std::memcpy(&sample, bytes, sizeof sample);
    return static_cast<double>(sample);
}

double read24(const std::byte* bytes) {
    const auto at = [bytes](std::size_t index) { return static_cast<std::uint32_t>(bytes[index]); };
    // Shifted up by one byte, so that the sign bit of 24 bits becomes that of 32.
    return static_cast<double>(
        static_cast<std::int32_t>((at(0) << 8U) | (at(1) << 16U) | (at(2) << 24U)));
}

using Reader = double (*)(const std::byte*);

Reader readerOf(const BlockFormat& format, double& fullScale) {
    fullScale = format.isFloat                ? 1
                : format.bitsPerChannel == 8  ? 128.0
                : format.bitsPerChannel == 16 ? 32768.0
                                              : 2147483648.0;
    if (format.isFloat) {
        return format.bitsPerChannel == 32   ? &read<float>
               : format.bitsPerChannel == 64 ? &read<double>
                                             : nullptr;
    }
    switch (format.bitsPerChannel) {
        case 8:
            return &read<std::int8_t>;
        case 16:
            return &read<std::int16_t>;
        case 24:
            return &read24;
        case 32:
            return &read<std::int32_t>;
        default:
            return nullptr;
    }
}

}  // namespace

void Level::add(std::span<const std::byte> frames, const BlockFormat& format) {
    double fullScale = 1;
    const Reader reader = readerOf(format, fullScale);
    if (reader == nullptr) {
        return;
    }
    const std::size_t step = format.bitsPerChannel / 8;
    for (std::size_t place = 0; place + step <= frames.size(); place += step) {
        const double sample = reader(frames.data() + place) / fullScale;
        if (std::isfinite(sample)) {
            peak_ = std::max(peak_, std::abs(sample));
            squares_ += sample * sample;
        }
        ++samples_;
    }
}

void Level::add(const Level& other) {
    peak_ = std::max(peak_, other.peak_);
    squares_ += other.squares_;
    samples_ += other.samples_;
}

double Level::rms() const {
    return samples_ == 0 ? 0 : std::sqrt(squares_ / static_cast<double>(samples_));
}

std::string decibelText(double amplitude) {
    if (!(amplitude > 0)) {
        return "-inf";
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f", 20 * std::log10(amplitude));
    return text.data();
}

}  // namespace tqrecorder
