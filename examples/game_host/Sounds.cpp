#include "Sounds.h"

#include <sndfile.h>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <array>
#include <filesystem>
#include <memory>
#include <utility>

#include "HostError.h"

namespace game {
namespace {

constexpr sf_count_t kLongestFrames = 60 * 60 * 48000;

struct Decoded {
    int sampleRate = 0;
    int channels = 0;
    std::vector<float> samples;  // interleaved
};

struct CloseFile {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

struct FreeResampler {
    void operator()(SwrContext* context) const { swr_free(&context); }
};

Decoded decode(const std::string& path) {
    SF_INFO info{};
    const std::unique_ptr<SNDFILE, CloseFile> file(sf_open(path.c_str(), SFM_READ, &info));
    if (file == nullptr) {
        throw HostError(HostError::kSounds,
                        "cannot read sound " + path + ": " + sf_strerror(nullptr));
    }
    if (info.frames <= 0 || info.frames > kLongestFrames) {
        throw HostError(HostError::kSounds, "cannot use sound " + path + ": empty or too long");
    }
    Decoded decoded{info.samplerate, info.channels, {}};
    decoded.samples.resize(static_cast<std::size_t>(info.frames * info.channels));
    const sf_count_t got = sf_readf_float(file.get(), decoded.samples.data(), info.frames);
    if (got <= 0) {
        throw HostError(HostError::kSounds,
                        "cannot read sound " + path + ": " + sf_strerror(file.get()));
    }
    decoded.samples.resize(static_cast<std::size_t>(got * info.channels));
    return decoded;
}

template <class Sample>
Clip<Sample> convert(const std::string& path, AVSampleFormat format, int sampleRate, int channels) {
    const Decoded source = decode(path);
    AVChannelLayout from{};
    AVChannelLayout to{};
    av_channel_layout_default(&from, source.channels);
    av_channel_layout_default(&to, channels);
    SwrContext* raw = nullptr;
    const int made = swr_alloc_set_opts2(&raw, &to, format, sampleRate, &from, AV_SAMPLE_FMT_FLT,
                                         source.sampleRate, 0, nullptr);
    const std::unique_ptr<SwrContext, FreeResampler> resampler(raw);
    if (made < 0 || swr_init(resampler.get()) < 0) {
        throw HostError(HostError::kSounds, "cannot convert sound " + path);
    }

    const auto wide = static_cast<std::size_t>(channels);
    const int sourceFrames =
        static_cast<int>(source.samples.size() / static_cast<std::size_t>(source.channels));
    const int room = swr_get_out_samples(resampler.get(), sourceFrames) + 4096;
    Clip<Sample> clip{wide, std::vector<Sample>(static_cast<std::size_t>(room) * wide)};
    // The second round, without input, takes out what the filter still holds.
    std::size_t frames = 0;
    for (const int give : {sourceFrames, 0}) {
        std::array<std::uint8_t*, 1> out{
            reinterpret_cast<std::uint8_t*>(clip.samples.data() + frames * wide)};
        std::array<const std::uint8_t*, 1> in{
            reinterpret_cast<const std::uint8_t*>(source.samples.data())};
        const int got = swr_convert(resampler.get(), out.data(), room - static_cast<int>(frames),
                                    give > 0 ? in.data() : nullptr, give);
        if (got < 0) {
            throw HostError(HostError::kSounds, "cannot convert sound " + path);
        }
        frames += static_cast<std::size_t>(got);
    }
    if (frames == 0) {
        throw HostError(HostError::kSounds, "cannot use sound " + path + ": too short");
    }
    clip.samples.resize(frames * wide);
    return clip;
}

}  // namespace

Sounds::Sounds(std::string folder) : folder_(std::move(folder)) {
}

std::string Sounds::pathOf(const std::string& name) const {
    const std::filesystem::path path(name);
    return folder_.empty() ? std::filesystem::path("/usr/share") / path
                           : std::filesystem::path(folder_) / path.filename();
}

Clip<float> Sounds::loadFloat(const std::string& name, int sampleRate, int channels) const {
    return convert<float>(pathOf(name), AV_SAMPLE_FMT_FLT, sampleRate, channels);
}

Clip<SInt16> Sounds::loadShort(const std::string& name, int sampleRate, int channels) const {
    return convert<SInt16>(pathOf(name), AV_SAMPLE_FMT_S16, sampleRate, channels);
}

}  // namespace game
