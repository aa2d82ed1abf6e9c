#pragma once

#include <cubeb/cubeb.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "device/HeardDevice.h"

// A sound library in place of the real one, with servers that do what a test says.

struct cubeb_stream {
    cubeb_data_callback each = nullptr;
    cubeb_state_callback state = nullptr;
    void* self = nullptr;
    bool isMicrophone = false;
};

namespace tqtest {

struct MadeUpServer {
    std::map<std::string, bool> answers{{"pulse", true}, {"jack", false}, {"alsa", true}};
    uint32_t rate = 48000;
    uint32_t refusedRate = 0;  ///< that it plays nothing at
    /// That are plugged in: the first is the default, with one channel, another has two.
    uint32_t microphones = 1;
    bool defaultIsMonitor = false;  ///< the first is what the speakers play
    bool microphoneStarts = true;
    std::vector<std::string> reached{};
    std::vector<uint32_t> openedRates{};
    tqplatform::HeardPlace place{};
    std::string expectedMicrophone{};        ///< by its name; empty for any
    uint32_t openedChannels = 0;             ///< of the microphone
    unsigned int microphoneLatency = 0;      ///< it was opened with, in frames
    cubeb_devid openedMicrophone = nullptr;  ///< null for the server's default
    bool playsOnWhileItEnds = false;         ///< a last request comes in the middle of the end
    std::function<void()> goneJack{};        ///< a JACK server tells its clients so
    cubeb_stream* speakers = nullptr;
    cubeb_stream* microphone = nullptr;

    /// What a stream's thread would do.
    void play(std::vector<float>& stereo) const {
        speakers->each(speakers, speakers->self, nullptr, stereo.data(),
                       static_cast<long>(stereo.size() / 2));
    }
    void hear(const std::vector<float>& mono) const {
        microphone->each(microphone, microphone->self, mono.data(), nullptr,
                         static_cast<long>(mono.size()));
    }
};

inline MadeUpServer theServer;

}  // namespace tqtest
