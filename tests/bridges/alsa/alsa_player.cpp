// Plays a file of 16-bit stereo frames on the ALSA device "cap": alsa_player ROAD FILE. Says what
// it was answered. A program by itself, or a plug-in of one.

#include "alsa_player.h"

#include <alsa/asoundlib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace {

constexpr unsigned kChannels = 2;
constexpr std::size_t kBytes = 2;

/// Through ALSA's own memory, a little at a time, and never all that was begun.
snd_pcm_sframes_t writeMapped(snd_pcm_t* pcm, const char* frames, std::size_t count) {
    const snd_pcm_channel_area_t* areas = nullptr;
    snd_pcm_uframes_t offset = 0;
    snd_pcm_uframes_t room = std::min<std::size_t>(count, 1000);
    (void)snd_pcm_avail_update(pcm);
    if (const int error = snd_pcm_mmap_begin(pcm, &areas, &offset, &room); error < 0) {
        return error;
    }
    room = std::min<snd_pcm_uframes_t>(room, count);
    for (std::size_t frame = 0; frame < room; ++frame) {
        for (unsigned channel = 0; channel < kChannels; ++channel) {
            char* const to = static_cast<char*>(areas[channel].addr) +
                             (areas[channel].first + areas[channel].step * (offset + frame)) / 8;
            std::memcpy(to, frames + (frame * kChannels + channel) * kBytes, kBytes);
        }
    }
    const snd_pcm_sframes_t taken = snd_pcm_mmap_commit(pcm, offset, room > 10 ? room - 10 : room);
    if (taken >= 0 && snd_pcm_state(pcm) == SND_PCM_STATE_PREPARED) {
        (void)snd_pcm_start(pcm);
    }
    return taken;
}

snd_pcm_sframes_t writePlanes(snd_pcm_t* pcm, const char* frames, std::size_t count,
                              bool isMapped) {
    std::array<std::string, kChannels> planes;
    std::array<void*, kChannels> at{};
    const std::size_t piece = std::min<std::size_t>(count, 777);
    for (std::size_t i = 0; i < piece * kChannels; ++i) {
        planes[i % kChannels].append(frames + i * kBytes, kBytes);
    }
    for (unsigned channel = 0; channel < kChannels; ++channel) {
        at[channel] = planes[channel].data();
    }
    const auto before = planes;
    const snd_pcm_sframes_t taken = isMapped ? snd_pcm_mmap_writen(pcm, at.data(), piece)
                                             : snd_pcm_writen(pcm, at.data(), piece);
    return planes == before ? taken : -EFAULT;
}

snd_pcm_access_t accessOf(std::string_view road) {
    if (road == "mapped") {
        return SND_PCM_ACCESS_MMAP_INTERLEAVED;
    }
    if (road == "mappedPlanes" || road == "mappedWriten") {
        return SND_PCM_ACCESS_MMAP_NONINTERLEAVED;
    }
    return road == "writen" ? SND_PCM_ACCESS_RW_NONINTERLEAVED : SND_PCM_ACCESS_RW_INTERLEAVED;
}

}  // namespace

extern "C" int playAlsa(int count, char** arguments) {
    if (count != 3) {
        return 2;
    }
    const std::string_view road = arguments[1];
    std::ifstream file(arguments[2], std::ios::binary);
    const std::string sound{std::istreambuf_iterator<char>(file), {}};
    snd_pcm_t* pcm = nullptr;
    if (snd_pcm_open(&pcm, "cap", SND_PCM_STREAM_PLAYBACK, 0) < 0 ||
        snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16_LE, accessOf(road), kChannels, 48000, 0,
                           200000) < 0) {
        return 3;
    }
    const std::size_t frames = sound.size() / kChannels / kBytes;
    std::size_t written = 0;
    while (written < frames) {
        const char* const from = sound.data() + written * kChannels * kBytes;
        const std::size_t left = frames - written;
        const snd_pcm_sframes_t taken =
            road.starts_with("mapped") && road != "mappedWriten" ? writeMapped(pcm, from, left)
            : road.ends_with("writei")                           ? snd_pcm_writei(pcm, from, left)
                                       : writePlanes(pcm, from, left, road == "mappedWriten");
        if (taken < 0) {
            std::printf("%s\n", snd_strerror(static_cast<int>(taken)));
            return 4;
        }
        written += static_cast<std::size_t>(taken);
    }
    std::printf("%zu\n", written);
    if (road == "paused_writei") {
        (void)snd_pcm_start(pcm);
        std::printf("%d\n", snd_pcm_pause(pcm, 1));
    }
    std::printf("%d\n", snd_pcm_drain(pcm));
    return snd_pcm_close(pcm) == 0 ? 0 : 5;
}
