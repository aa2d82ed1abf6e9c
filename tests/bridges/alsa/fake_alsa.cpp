#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "bridges/alsa/FakeAlsa.h"

// What libasound exports, as far as the bridge and its tests call it. Every call spoils errno, as
// calls of the real one may.

namespace {

constexpr int kSpoiled = ENOTTY;

bool isPlanar(snd_pcm_access_t access) {
    return access == SND_PCM_ACCESS_RW_NONINTERLEAVED ||
           access == SND_PCM_ACCESS_MMAP_NONINTERLEAVED;
}

void startAtThreshold(snd_pcm_t* pcm, std::size_t frames) {
    pcm->unstarted += frames;
    if (pcm->state == SND_PCM_STATE_PREPARED && pcm->unstarted >= pcm->threshold) {
        pcm->state = SND_PCM_STATE_RUNNING;
    }
}

/// Takes what its next answer allows; `append` is given the number of frames.
template <class Append>
snd_pcm_sframes_t take(snd_pcm_t* pcm, snd_pcm_uframes_t frames, Append append) {
    errno = kSpoiled;
    if (pcm->meanwhile) {
        pcm->meanwhile();
    }
    auto taken = static_cast<snd_pcm_sframes_t>(frames);
    if (!pcm->answers.empty()) {
        taken = std::min(taken, pcm->answers.front());
        pcm->answers.pop_front();
    }
    if (taken > 0) {
        append(static_cast<std::size_t>(taken));
    }
    return taken;
}

snd_pcm_sframes_t takeFrames(snd_pcm_t* pcm, const void* samples, snd_pcm_uframes_t frames) {
    pcm->passed = samples;
    return take(pcm, frames, [&](std::size_t count) {
        pcm->taken.append(static_cast<const char*>(samples), count * pcm->frameBytes());
        startAtThreshold(pcm, count);
    });
}

snd_pcm_sframes_t takePlanes(snd_pcm_t* pcm, void** planes, snd_pcm_uframes_t frames) {
    return take(pcm, frames, [&](std::size_t count) {
        const std::size_t bytes = pcm->sampleBytes();
        const unsigned channels = pcm->parameters.channels;
        for (std::size_t i = 0; i < count * channels; ++i) {
            const auto* const plane = static_cast<const char*>(planes[i % channels]);
            pcm->taken += plane == nullptr ? std::string(bytes, '\0')
                                           : std::string(plane + i / channels * bytes, bytes);
        }
        startAtThreshold(pcm, count);
    });
}

char* inRing(const snd_pcm_t& pcm, unsigned channel, std::size_t frame) {
    const snd_pcm_channel_area_t& area = pcm.areas[channel];
    return static_cast<char*>(area.addr) + (area.first + area.step * frame) / 8;
}

int configure(snd_pcm_t* pcm, const snd_pcm_hw_params_t& parameters) {
    errno = kSpoiled;
    if (pcm->answer < 0) {
        return pcm->answer;
    }
    pcm->parameters = parameters;
    pcm->state = SND_PCM_STATE_PREPARED;
    pcm->unstarted = 0;
    pcm->ring.assign(pcm->ringFrames * pcm->frameBytes(), '\0');
    pcm->areas.resize(parameters.channels);
    pcm->place = 0;
    const auto bits = static_cast<unsigned>(8 * pcm->sampleBytes());
    for (unsigned i = 0; i < parameters.channels; ++i) {
        pcm->areas[i] =
            isPlanar(parameters.access)
                ? snd_pcm_channel_area_t{pcm->ring.data(),
                                         i * bits * static_cast<unsigned>(pcm->ringFrames), bits}
                : snd_pcm_channel_area_t{pcm->ring.data(), i * bits, bits * parameters.channels};
    }
    return 0;
}

int answer(const snd_pcm_t* pcm) {
    errno = kSpoiled;
    return pcm->answer;
}

}  // namespace

std::size_t _snd_pcm::sampleBytes() const {
    switch (parameters.format) {
        case SND_PCM_FORMAT_S8:
        case SND_PCM_FORMAT_U8:
        case SND_PCM_FORMAT_MU_LAW:
            return 1;
        case SND_PCM_FORMAT_S24_3LE:
        case SND_PCM_FORMAT_S24_3BE:
        case SND_PCM_FORMAT_U24_3LE:
        case SND_PCM_FORMAT_U24_3BE:
            return 3;
        case SND_PCM_FORMAT_FLOAT64_LE:
        case SND_PCM_FORMAT_FLOAT64_BE:
            return 8;
        case SND_PCM_FORMAT_S16_LE:
        case SND_PCM_FORMAT_S16_BE:
        case SND_PCM_FORMAT_U16_LE:
        case SND_PCM_FORMAT_U16_BE:
            return 2;
        default:
            return 4;
    }
}

extern "C" {

snd_pcm_stream_t snd_pcm_stream(snd_pcm_t* pcm) {
    return pcm->stream;
}
const char* snd_pcm_name(snd_pcm_t* pcm) {
    return pcm->name.c_str();
}
snd_pcm_state_t snd_pcm_state(snd_pcm_t* pcm) {
    errno = kSpoiled;
    return pcm->state;
}
int snd_pcm_hw_params_get_format(const snd_pcm_hw_params_t* parameters, snd_pcm_format_t* format) {
    *format = parameters->format;
    return 0;
}
int snd_pcm_hw_params_get_channels(const snd_pcm_hw_params_t* parameters, unsigned* channels) {
    *channels = parameters->channels;
    return 0;
}
int snd_pcm_hw_params_get_rate(const snd_pcm_hw_params_t* parameters, unsigned* rate,
                               int* direction) {
    *rate = parameters->rate;
    *direction = 0;
    return 0;
}
int snd_pcm_hw_params(snd_pcm_t* pcm, snd_pcm_hw_params_t* parameters) {
    return configure(pcm, *parameters);
}
int snd_pcm_set_params(snd_pcm_t* pcm, snd_pcm_format_t format, snd_pcm_access_t access,
                       unsigned channels, unsigned rate, int /*softResample*/,
                       unsigned /*latency*/) {
    return configure(pcm, {format, channels, rate, access});
}
snd_pcm_chmap_t* snd_pcm_get_chmap(snd_pcm_t* pcm) {
    errno = kSpoiled;
    if (pcm->positions.empty()) {
        return nullptr;
    }
    const std::size_t bytes = sizeof(unsigned) * (1 + pcm->positions.size());
    auto* const map = static_cast<snd_pcm_chmap_t*>(std::malloc(bytes));
    map->channels = static_cast<unsigned>(pcm->positions.size());
    std::copy(pcm->positions.begin(), pcm->positions.end(), map->pos);
    return map;
}
int snd_pcm_set_chmap(snd_pcm_t* pcm, const snd_pcm_chmap_t* map) {
    if (pcm->answer >= 0) {
        pcm->positions.assign(map->pos, map->pos + map->channels);
    }
    return answer(pcm);
}

snd_pcm_sframes_t snd_pcm_writei(snd_pcm_t* pcm, const void* samples, snd_pcm_uframes_t frames) {
    return takeFrames(pcm, samples, frames);
}
snd_pcm_sframes_t snd_pcm_mmap_writei(snd_pcm_t* pcm, const void* samples,
                                      snd_pcm_uframes_t frames) {
    return takeFrames(pcm, samples, frames);
}
snd_pcm_sframes_t snd_pcm_writen(snd_pcm_t* pcm, void** planes, snd_pcm_uframes_t frames) {
    return takePlanes(pcm, planes, frames);
}
snd_pcm_sframes_t snd_pcm_mmap_writen(snd_pcm_t* pcm, void** planes, snd_pcm_uframes_t frames) {
    return takePlanes(pcm, planes, frames);
}
int snd_pcm_mmap_begin(snd_pcm_t* pcm, const snd_pcm_channel_area_t** areas,
                       snd_pcm_uframes_t* offset, snd_pcm_uframes_t* frames) {
    *areas = pcm->areas.data();
    *offset = pcm->place;
    *frames = std::min(*frames, pcm->ringFrames - pcm->place);
    return answer(pcm);
}
snd_pcm_sframes_t snd_pcm_mmap_commit(snd_pcm_t* pcm, snd_pcm_uframes_t offset,
                                      snd_pcm_uframes_t frames) {
    return take(pcm, frames, [&](std::size_t count) {
        for (std::size_t frame = offset; frame < offset + count; ++frame) {
            for (unsigned channel = 0; channel < pcm->parameters.channels; ++channel) {
                pcm->taken.append(inRing(*pcm, channel, frame), pcm->sampleBytes());
            }
        }
        pcm->place = (offset + count) % pcm->ringFrames;
        startAtThreshold(pcm, count);
    });
}
snd_pcm_sframes_t snd_pcm_rewind(snd_pcm_t* pcm, snd_pcm_uframes_t frames) {
    return take(pcm, frames, [](std::size_t) {});
}
snd_pcm_sframes_t snd_pcm_forward(snd_pcm_t* pcm, snd_pcm_uframes_t frames) {
    return take(pcm, frames, [](std::size_t) {});
}

int snd_pcm_pause(snd_pcm_t* pcm, int /*isPaused*/) {
    return answer(pcm);
}
int snd_pcm_resume(snd_pcm_t* pcm) {
    return answer(pcm);
}
int snd_pcm_reset(snd_pcm_t* pcm) {
    return answer(pcm);
}
int snd_pcm_get_params(snd_pcm_t* pcm, snd_pcm_uframes_t* buffer, snd_pcm_uframes_t* period) {
    errno = kSpoiled;
    *buffer = *period = pcm->buffer;
    return pcm->buffer == 0 ? -EIO : 0;
}
snd_pcm_sframes_t snd_pcm_avail_update(snd_pcm_t* pcm) {
    errno = kSpoiled;
    return static_cast<snd_pcm_sframes_t>(pcm->buffer - pcm->queued);
}
int snd_pcm_delay(snd_pcm_t* /*pcm*/, snd_pcm_sframes_t* frames) {
    errno = kSpoiled;
    *frames = 0;
    return 0;
}
int snd_pcm_start(snd_pcm_t* pcm) {
    pcm->state = SND_PCM_STATE_RUNNING;
    return answer(pcm);
}
int snd_pcm_drop(snd_pcm_t* pcm) {
    pcm->state = SND_PCM_STATE_SETUP;
    return answer(pcm);
}
int snd_pcm_prepare(snd_pcm_t* pcm) {
    pcm->state = SND_PCM_STATE_PREPARED;
    pcm->unstarted = 0;
    return answer(pcm);
}
int snd_pcm_recover(snd_pcm_t* pcm, int error, int /*isSilent*/) {
    return error == -EPIPE || error == -ESTRPIPE ? snd_pcm_prepare(pcm)
           : error == -EINTR                     ? 0
                                                 : error;
}
int snd_pcm_drain(snd_pcm_t* pcm) {
    if (pcm->meanwhile) {
        pcm->meanwhile();
    }
    return answer(pcm);
}
int snd_pcm_link(snd_pcm_t* pcm, snd_pcm_t* /*other*/) {
    return answer(pcm);
}
int snd_pcm_unlink(snd_pcm_t* pcm) {
    return answer(pcm);
}
int snd_pcm_open(snd_pcm_t** /*pcm*/, const char* /*name*/, snd_pcm_stream_t /*stream*/,
                 int /*mode*/) {
    // Pcms are made by the tests.
    return -ENODEV;
}
const char* snd_strerror(int /*error*/) {
    return "No such device";
}
int snd_pcm_hw_free(snd_pcm_t* pcm) {
    return answer(pcm);
}
int snd_pcm_close(snd_pcm_t* pcm) {
    return answer(pcm);
}

}  // extern "C"
