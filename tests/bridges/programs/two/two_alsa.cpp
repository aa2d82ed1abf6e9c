#include <alsa/asoundlib.h>

#include "TwoStreams.h"

// Through ALSA's plug-in for PulseAudio.

namespace {

bool play(const char*) {
    snd_pcm_t* pcm = nullptr;
    if (snd_pcm_open(&pcm, "pulse", SND_PCM_STREAM_PLAYBACK, 0) < 0 ||
        snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED,
                           twostreams::kChannels, twostreams::kRate, 1, 200000) < 0) {
        return false;
    }
    const std::vector<short> samples = twostreams::wholeStream();
    constexpr std::size_t kPiece = 960;
    bool isPlayed = true;
    for (std::size_t at = 0; at < samples.size(); at += kPiece * twostreams::kChannels) {
        isPlayed = isPlayed && snd_pcm_writei(pcm, &samples[at], kPiece) == kPiece;
    }
    isPlayed = snd_pcm_drain(pcm) == 0 && isPlayed;
    snd_pcm_close(pcm);
    return isPlayed;
}

}  // namespace

int main() {
    return twostreams::playTwo(play);
}
