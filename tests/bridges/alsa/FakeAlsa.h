#pragma once

#include <alsa/asoundlib.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <vector>

// A made-up libasound without a device. A pcm takes all that it is given, and keeps it interleaved,
// unless its next answers say otherwise.

struct _snd_pcm_hw_params {
    snd_pcm_format_t format = SND_PCM_FORMAT_S16;
    unsigned channels = 2;
    unsigned rate = 48000;
    snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED;
};

struct _snd_pcm {
    /// Of its own memory, in frames.
    std::size_t ringFrames = 1000;

    std::string name;
    snd_pcm_stream_t stream = SND_PCM_STREAM_PLAYBACK;
    _snd_pcm_hw_params parameters;
    snd_pcm_state_t state = SND_PCM_STATE_OPEN;
    std::vector<unsigned> positions;        ///< of its channels; empty when it does not say them
    std::deque<snd_pcm_sframes_t> answers;  ///< of the next writes: frames at most, or an error
    int answer = 0;                         ///< of everything else
    std::string taken;
    snd_pcm_uframes_t buffer = 0;     ///< in frames; 0 where it does not say it
    snd_pcm_uframes_t queued = 0;     ///< of that, not played
    snd_pcm_uframes_t threshold = 1;  ///< frames that start it
    snd_pcm_uframes_t unstarted = 0;  ///< that it has been given
    const void* passed = nullptr;     ///< by the last write of frames
    std::function<void()> meanwhile;  ///< called inside of writes and drains
    std::string ring;
    std::vector<snd_pcm_channel_area_t> areas;
    std::size_t place = 0;  ///< in the ring, of the next frame

    [[nodiscard]] std::size_t sampleBytes() const;
    [[nodiscard]] std::size_t frameBytes() const { return sampleBytes() * parameters.channels; }
};
