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

std::string_view trackOf(std::string_view unit) {
    return unit.empty() ? std::string_view("mix") : unit;
}

/// Servers take only letters of ASCII. Others stand as their bytes in hexadecimal digits, which
/// keeps names apart, and the same at every launch.
std::string serverNamePart(std::string_view text, std::size_t longest) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string result;
    for (const char c : fileNamePart(text)) {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x80) {
            result += c;
        } else {
            result += {kDigits[code >> 4U], kDigits[code & 0xFU]};
        }
    }
    return fileNamePart(result.substr(0, longest));
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

std::string LiveNames::description(std::string_view program, std::string_view unit) {
    return printable(std::string(program) + ": " + std::string(trackOf(unit)));
}

LiveName LiveNames::take(std::string_view program, std::string_view unit) {
    // PulseAudio takes 128 bytes in all.
    constexpr std::size_t kLongestProgram = 40;
    constexpr std::size_t kLongestTrack = 60;
    const std::string name = "tqaudiorecord." + serverNamePart(program, kLongestProgram) + "." +
                             serverNamePart(trackOf(unit), kLongestTrack);
    const std::string description = LiveNames::description(program, unit);
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
