#include "output/live/LiveNames.h"

#include <cstring>

#include "ipc/Printable.h"
#include "output/files/FileNames.h"

namespace tqrecorder {
namespace {

template <typename Sample>
void copyAs(std::span<const std::byte> frames, double scale, std::vector<float>& samples) {
    for (std::size_t place = 0; place + sizeof(Sample) <= frames.size(); place += sizeof(Sample)) {
        Sample sample;
        std::memcpy(&sample, frames.data() + place, sizeof sample);
        samples.push_back(static_cast<float>(static_cast<double>(sample) * scale));
    }
}

/// Three bytes each, the lowest first.
void copyPacked(std::span<const std::byte> frames, std::vector<float>& samples) {
    for (std::size_t place = 0; place + 3 <= frames.size(); place += 3) {
        // At the top of a word it has its sign.
        std::uint32_t word = 0;
        for (std::size_t byte = 0; byte < 3; ++byte) {
            word |= std::to_integer<std::uint32_t>(frames[place + byte]) << (8 * (byte + 1));
        }
        samples.push_back(static_cast<float>(static_cast<std::int32_t>(word)) * 0x1p-31F);
    }
}

}  // namespace

LiveName LiveNames::take(std::string_view program, std::string_view unit) {
    const std::string_view track = unit.empty() ? std::string_view("mix") : unit;
    const std::string name = "tqaudiorecord." + fileNamePart(program) + "." + fileNamePart(track);
    const std::string description = printable(std::string(program) + ": " + std::string(track));
    if (taken_.insert(name).second) {
        return {name, description};
    }
    for (int number = 2;; ++number) {
        const std::string text = std::to_string(number);
        if (taken_.insert(name + "." + text).second) {
            return {name + "." + text, description + " (" + text + ")"};
        }
    }
}

bool toFloats(const BlockFormat& format, std::span<const std::byte> frames,
              std::vector<float>& samples) {
    samples.clear();
    if (format.isFloat && format.bitsPerChannel == 32) {
        copyAs<float>(frames, 1, samples);
    } else if (format.isFloat && format.bitsPerChannel == 64) {
        copyAs<double>(frames, 1, samples);
    } else if (!format.isFloat && format.bitsPerChannel == 8) {
        copyAs<std::int8_t>(frames, 0x1p-7, samples);
    } else if (!format.isFloat && format.bitsPerChannel == 16) {
        copyAs<std::int16_t>(frames, 0x1p-15, samples);
    } else if (!format.isFloat && format.bitsPerChannel == 24) {
        copyPacked(frames, samples);
    } else if (!format.isFloat && format.bitsPerChannel == 32) {
        copyAs<std::int32_t>(frames, 0x1p-31, samples);
    } else {
        return false;
    }
    return true;
}

}  // namespace tqrecorder
