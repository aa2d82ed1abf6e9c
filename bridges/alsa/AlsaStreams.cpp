#include "bridges/alsa/AlsaStreams.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "bridges/alsa/AlsaFormat.h"
#include "bridges/core/NativeStream.h"

namespace tq::bridges {
namespace {

/// Questions of ours leave no trace.
class ErrnoKept {
  public:
    ErrnoKept() noexcept = default;
    ~ErrnoKept() { errno = before_; }
    ErrnoKept(const ErrnoKept&) = delete;
    ErrnoKept& operator=(const ErrnoKept&) = delete;

  private:
    const int before_ = errno;
};

/// What the device says of its channels, or ALSA's own order.
Speakers speakersOf(const AlsaLibrary& alsa, snd_pcm_t* pcm, unsigned channels) {
    if (channels <= 2) {
        return {};
    }
    const int before = errno;
    const std::unique_ptr<snd_pcm_chmap_t, decltype(&std::free)> map(
        alsa.map == nullptr ? nullptr : alsa.map(pcm), &std::free);
    errno = before;
    if (map == nullptr || map->channels != channels) {
        return usualAlsaSpeakers(channels);
    }
    const Speakers said = alsaSpeakers({map->pos, channels});
    return said == Speakers{} ? usualAlsaSpeakers(channels) : said;
}

void openStream(const AlsaLibrary& alsa, snd_pcm_t* pcm, const NativeFormat& format) {
    const char* const name = alsa.name(pcm);
    NativeStream::open(pcm, format, "alsa", name == nullptr ? "" : name);
    snd_pcm_uframes_t buffer = 0;
    snd_pcm_uframes_t period = 0;
    const ErrnoKept kept;
    const NativeStream::Use stream(pcm);
    if (stream && alsa.sizes != nullptr && alsa.sizes(pcm, &buffer, &period) >= 0) {
        stream->takesAtOnce(buffer);
    }
}

}  // namespace

void beginStream(const AlsaLibrary& alsa, snd_pcm_t* pcm, const NativeFormat& format) {
    if (alsa.isComplete() && alsa.stream(pcm) == SND_PCM_STREAM_PLAYBACK) {
        const char* const name = alsa.name(pcm);
        NativeFormat known = format;
        if (name != nullptr && isPassThrough(name)) {
            known.sample = NativeSample::kNotPcm;
        }
        known.speakers = speakersOf(alsa, pcm, format.channels);
        openStream(alsa, pcm, known);
    }
}

NativeFormat alsaFormat(const AlsaLibrary& alsa, const snd_pcm_hw_params_t* params) {
    snd_pcm_format_t format{};
    unsigned channels = 0;
    unsigned rate = 0;
    int direction = 0;
    if (alsa.format(params, &format) < 0 || alsa.channels(params, &channels) < 0 ||
        alsa.rate(params, &rate, &direction) < 0) {
        return {};
    }
    return {alsaSample(format), channels, static_cast<double>(rate)};
}

std::optional<std::size_t> unheardBefore(const AlsaLibrary& alsa, snd_pcm_t* pcm) {
    const NativeStream::Use stream(pcm);
    if (!stream || stream->waiting() == 0) {
        return std::nullopt;
    }
    const ErrnoKept kept;
    const snd_pcm_state_t state = alsa.state(pcm);
    if (state == SND_PCM_STATE_XRUN || state == SND_PCM_STATE_SETUP) {
        // Run dry or drained, it has played all: what waits is what the unit is behind.
        return 0;
    }
    if (state == SND_PCM_STATE_PREPARED) {
        // Some devices say that their buffer is empty until they are started.
        return stream->unstarted();
    }
    snd_pcm_uframes_t buffer = 0;
    snd_pcm_uframes_t period = 0;
    if (alsa.sizes == nullptr || alsa.room == nullptr || alsa.sizes(pcm, &buffer, &period) < 0) {
        return std::nullopt;
    }
    const snd_pcm_sframes_t room = alsa.room(pcm);
    if (room < 0) {
        return std::nullopt;
    }
    // Behind the buffer there may be more; a delay that does not count the buffer is none.
    snd_pcm_sframes_t delay = 0;
    if (alsa.delay == nullptr || alsa.delay(pcm, &delay) < 0) {
        delay = 0;
    }
    const auto waiting = static_cast<snd_pcm_sframes_t>(buffer) - room;
    return static_cast<std::size_t>(std::max({waiting, delay, snd_pcm_sframes_t{0}}));
}

bool isUnstarted(const AlsaLibrary& alsa, snd_pcm_t* pcm) {
    const ErrnoKept kept;
    return alsa.state(pcm) == SND_PCM_STATE_PREPARED;
}

std::size_t longestPart(const AlsaLibrary& alsa, snd_pcm_t* pcm, const NativeStream& stream) {
    if (stream.unstarted() == 0 || alsa.room == nullptr) {
        return stream.atOnce();
    }
    const ErrnoKept kept;
    const snd_pcm_sframes_t room = alsa.room(pcm);
    return room > 0 ? std::min(stream.atOnce(), static_cast<std::size_t>(room)) : stream.atOnce();
}

void followMap(const AlsaLibrary& alsa, snd_pcm_t* pcm, const snd_pcm_chmap_t& map) {
    NativeFormat format;
    {
        const NativeStream::Use stream(pcm);
        if (!stream || map.channels != stream->format().channels) {
            return;
        }
        format = stream->format();
    }
    const Speakers before = format.speakers;
    format.speakers = alsaSpeakers({map.pos, map.channels});
    if (format.speakers != Speakers{} && format.speakers != before) {
        openStream(alsa, pcm, format);
    }
}

}  // namespace tq::bridges
