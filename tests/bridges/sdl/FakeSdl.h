#pragma once

#include <SDL_audio.h>

#include <array>
#include <optional>
#include <string>

// A made-up SDL without a thread: its devices ask for sound when the test says so.

struct FakeSdl {
    struct Device {
        bool isOpen = false;
        bool isPaused = true;
        bool isCapture = false;
        int locks = 0;
        SDL_AudioSpec spec{};
        std::string queue;  ///< of one without a callback
    };

    std::string driver = "made up";           ///< empty when its sound is not initialised
    std::string streamName;                   ///< the hint for it
    bool fails = false;                       ///< to open devices
    std::optional<SDL_AudioSpec> hasInstead;  ///< what it opens where changes are allowed
    std::array<Device, 20> devices;           ///< by their numbers; there is no device 0

    /// One buffer, as the device's thread asks for it: what is played.
    std::string play(SDL_AudioDeviceID id);

    static FakeSdl& shared();
};
