#include "Sound.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numbers>
#include <stdexcept>

namespace tqtest {
namespace {

constexpr double kHalf = 0.5;

/// The value at half of full scale or below in that encoding: appended to `bytes`.
void append(std::string& bytes, Encoding encoding, double value) {
    std::array<char, 4> raw{};
    if (encoding == Encoding::F32) {
        const auto sample = static_cast<float>(value);
        std::memcpy(raw.data(), &sample, sizeof sample);
    } else {
        const std::size_t bits = 8 * bytesOf(encoding);
        const auto scaled = std::llround(std::ldexp(value, static_cast<int>(bits) - 1));
        const auto sample =
            static_cast<std::uint32_t>(encoding == Encoding::U8 ? scaled + 0x80 : scaled);
        std::memcpy(raw.data(), &sample, sizeof sample);
    }
    bytes.append(raw.data(), bytesOf(encoding));
}

/// SplitMix64: every bit depends on every bit of the number.
std::uint64_t mixed(std::uint64_t number) {
    number += 0x9E3779B97F4A7C15U;
    number = (number ^ (number >> 30U)) * 0xBF58476D1CE4E5B9U;
    number = (number ^ (number >> 27U)) * 0x94D049BB133111EBU;
    return number ^ (number >> 31U);
}

void appendNumber(std::string& bytes, std::size_t number, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        bytes.push_back(static_cast<char>((number >> (8 * i)) & 0xFFU));
    }
}

std::size_t numberAt(std::string_view bytes, std::size_t from, std::size_t size) {
    std::size_t number = 0;
    for (std::size_t i = size; i > 0; --i) {
        number = number << 8U | static_cast<unsigned char>(bytes.at(from + i - 1));
    }
    return number;
}

Encoding encodingOf(std::size_t tag, std::size_t bits) {
    if (tag == 3 && bits == 32) {
        return Encoding::F32;
    }
    if (tag == 1 && bits >= 8 && bits <= 32 && bits % 8 == 0) {
        constexpr std::array all{Encoding::U8, Encoding::S16, Encoding::S24, Encoding::S32};
        return all.at(bits / 8 - 1);
    }
    throw std::runtime_error("neither PCM nor float in the WAV file");
}

}  // namespace

std::size_t bytesOf(Encoding encoding) {
    switch (encoding) {
        case Encoding::U8:
            return 1;
        case Encoding::S16:
            return 2;
        case Encoding::S24:
            return 3;
        default:
            return 4;
    }
}

std::string_view pulseName(Encoding encoding) {
    switch (encoding) {
        case Encoding::U8:
            return "u8";
        case Encoding::S16:
            return "s16le";
        case Encoding::S24:
            return "s24le";
        case Encoding::S32:
            return "s32le";
        default:
            return "float32le";
    }
}

std::string_view Sound::frame(std::size_t number) const {
    return std::string_view(bytes).substr(number * format.bytesPerFrame(), format.bytesPerFrame());
}

double Sound::value(std::size_t frame, std::size_t channel) const {
    const std::size_t size = bytesOf(format.encoding);
    const std::string_view raw = this->frame(frame).substr(channel * size, size);
    if (format.encoding == Encoding::F32) {
        float sample = 0;
        std::memcpy(&sample, raw.data(), sizeof sample);
        return static_cast<double>(sample);
    }
    if (format.encoding == Encoding::U8) {
        return (static_cast<double>(static_cast<unsigned char>(raw[0])) - 128) / 128;
    }
    // Moved to the top of 32 bits, which puts the sign where it belongs.
    const auto top = static_cast<std::uint32_t>(numberAt(raw, 0, size) << (32 - 8 * size));
    return std::ldexp(static_cast<double>(static_cast<std::int32_t>(top)), -31);
}

bool Sound::isSilent(std::size_t frame) const {
    const std::string_view raw = this->frame(frame);
    if (format.encoding == Encoding::F32) {
        for (std::size_t channel = 0; channel < static_cast<std::size_t>(format.channels);
             ++channel) {
            if (value(frame, channel) != 0) {
                return false;
            }
        }
        return true;
    }
    const char zero = format.encoding == Encoding::U8 ? '\x80' : '\0';
    return std::all_of(raw.begin(), raw.end(), [&](char byte) { return byte == zero; });
}

std::size_t Sound::silenceAtStart() const {
    std::size_t count = 0;
    while (count < frames() && isSilent(count)) {
        ++count;
    }
    return count;
}

std::size_t Sound::silenceAtEnd() const {
    std::size_t count = 0;
    while (count < frames() && isSilent(frames() - 1 - count)) {
        ++count;
    }
    return count;
}

Sound Sound::trimmed() const {
    const std::size_t start = silenceAtStart();
    return start == frames() ? part(0, 0) : part(start, frames() - silenceAtEnd() - start);
}

Sound Sound::part(std::size_t from, std::size_t count) const {
    return {format, bytes.substr(from * format.bytesPerFrame(), count * format.bytesPerFrame())};
}

Sound markedNoise(const SoundFormat& format, std::size_t frames, std::uint64_t seed) {
    Sound sound{format, {}};
    sound.bytes.reserve(frames * format.bytesPerFrame());
    const std::uint64_t base = mixed(seed);
    const auto channels = static_cast<std::size_t>(format.channels);
    for (std::size_t i = 0; i < frames * channels; ++i) {
        // 24 random bits fit a float exactly; the last one, always set, keeps zero out in 24 bits.
        const auto bits = static_cast<double>((mixed(base + i) >> 41U) | 1U);
        double value = (bits / 0x400000 - 1) * kHalf;
        // Coarser encodings could round to zero.
        const double least = std::ldexp(1.0, 1 - static_cast<int>(8 * bytesOf(format.encoding)));
        if (std::abs(value) < least) {
            value = least;
        }
        append(sound.bytes, format.encoding, value);
    }
    return sound;
}

Sound tone(const SoundFormat& format, std::size_t frames, double hertz) {
    Sound sound{format, {}};
    for (std::size_t i = 0; i < frames; ++i) {
        const double phase = 2 * std::numbers::pi * hertz * static_cast<double>(i) / format.rate;
        for (int channel = 0; channel < format.channels; ++channel) {
            append(sound.bytes, format.encoding, kHalf * std::sin(phase));
        }
    }
    return sound;
}

Sound silence(const SoundFormat& format, std::size_t frames) {
    return tone(format, frames, 0);
}

double frequencyOf(const Sound& sound) {
    double first = -1;
    double last = -1;
    std::size_t count = 0;
    for (std::size_t i = 1; i < sound.frames(); ++i) {
        const double before = sound.value(i - 1, 0);
        const double here = sound.value(i, 0);
        if (before < 0 && here >= 0) {
            last = static_cast<double>(i - 1) + before / (before - here);
            first = count == 0 ? last : first;
            ++count;
        }
    }
    return count < 2 ? 0 : static_cast<double>(count - 1) * sound.format.rate / (last - first);
}

double amplitudeOf(const Sound& sound, double hertz) {
    std::complex<double> sum;
    for (std::size_t i = 0; i < sound.frames(); ++i) {
        const double turn =
            2 * std::numbers::pi * hertz * static_cast<double>(i) / sound.format.rate;
        sum += sound.value(i, 0) * std::polar(1.0, -turn);
    }
    return 2 * std::abs(sum) / static_cast<double>(std::max<std::size_t>(sound.frames(), 1));
}

void writeWav(const Sound& sound, const std::filesystem::path& file) {
    const SoundFormat& format = sound.format;
    std::string head = "RIFF";
    appendNumber(head, 36 + sound.bytes.size(), 4);
    head += "WAVEfmt ";
    appendNumber(head, 16, 4);
    appendNumber(head, format.encoding == Encoding::F32 ? 3 : 1, 2);
    appendNumber(head, static_cast<std::size_t>(format.channels), 2);
    appendNumber(head, static_cast<std::size_t>(format.rate), 4);
    appendNumber(head, static_cast<std::size_t>(format.rate) * format.bytesPerFrame(), 4);
    appendNumber(head, format.bytesPerFrame(), 2);
    appendNumber(head, 8 * bytesOf(format.encoding), 2);
    head += "data";
    appendNumber(head, sound.bytes.size(), 4);
    std::ofstream(file, std::ios::binary) << head << sound.bytes;
}

Sound readWav(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    if (bytes.size() < 12 || (!bytes.starts_with("RIFF") && !bytes.starts_with("RF64"))) {
        throw std::runtime_error(file.string() + " is no WAV file");
    }
    Sound sound;
    for (std::size_t at = 12; at + 8 <= bytes.size();) {
        const std::string_view name = std::string_view(bytes).substr(at, 4);
        const std::size_t size = numberAt(bytes, at + 4, 4);
        at += 8;
        if (name == "fmt ") {
            const std::size_t tag = numberAt(bytes, at, 2);
            const bool isExtensible = tag == 0xFFFE;
            sound.format = {.rate = static_cast<int>(numberAt(bytes, at + 4, 4)),
                            .channels = static_cast<int>(numberAt(bytes, at + 2, 2)),
                            .encoding = encodingOf(isExtensible ? numberAt(bytes, at + 24, 2) : tag,
                                                   numberAt(bytes, at + 14, 2))};
        } else if (name == "data") {
            // A length that is not known yet, or stands elsewhere, goes to the file's end.
            sound.bytes = bytes.substr(at, size);
            return sound;
        }
        at += size + size % 2;
    }
    throw std::runtime_error(file.string() + " holds no samples");
}

}  // namespace tqtest
