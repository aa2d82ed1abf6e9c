#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

// Interleaved samples, lowest byte first, as files and sound servers have them.

namespace tqtest {

enum class Encoding { U8, S16, S24, S32, F32 };

[[nodiscard]] std::size_t bytesOf(Encoding encoding);
/// As PulseAudio calls it ("s16le").
[[nodiscard]] std::string_view pulseName(Encoding encoding);

struct SoundFormat {
    int rate = 48000;  ///< frames a second
    int channels = 2;
    Encoding encoding = Encoding::S16;

    [[nodiscard]] std::size_t bytesPerFrame() const {
        return bytesOf(encoding) * static_cast<std::size_t>(channels);
    }
    bool operator==(const SoundFormat&) const = default;
};

struct Sound {
    SoundFormat format;
    std::string bytes;

    [[nodiscard]] std::size_t frames() const { return bytes.size() / format.bytesPerFrame(); }
    /// That frame's samples.
    [[nodiscard]] std::string_view frame(std::size_t number) const;
    /// -1 to 1.
    [[nodiscard]] double value(std::size_t frame, std::size_t channel) const;
    [[nodiscard]] bool isSilent(std::size_t frame) const;
    /// Silent frames before the first other one; all of them when there is none.
    [[nodiscard]] std::size_t silenceAtStart() const;
    [[nodiscard]] std::size_t silenceAtEnd() const;
    /// Without the silence around it.
    [[nodiscard]] Sound trimmed() const;
    [[nodiscard]] Sound part(std::size_t from, std::size_t count) const;
};

/// Pseudo-random samples at half of full scale, never silent: every sixteen frames of it occur
/// once, so that a frame can be told by its neighbours. The same `seed` gives the same sound.
[[nodiscard]] Sound markedNoise(const SoundFormat& format, std::size_t frames,
                                std::uint64_t seed = 1);
/// A sine at half of full scale, equal in all channels.
[[nodiscard]] Sound tone(const SoundFormat& format, std::size_t frames, double hertz);
[[nodiscard]] Sound silence(const SoundFormat& format, std::size_t frames);

/// Hertz of the first channel, from its upward zero crossings; 0 when there are fewer than two.
[[nodiscard]] double frequencyOf(const Sound& sound);

/// Of a sine of that frequency in the first channel, by correlation.
[[nodiscard]] double amplitudeOf(const Sound& sound, double hertz);

void writeWav(const Sound& sound, const std::filesystem::path& file);
/// RIFF or RF64 with PCM or float samples; throws on anything else.
[[nodiscard]] Sound readWav(const std::filesystem::path& file);

}  // namespace tqtest
