// SDL 2 and 1.2: streams are playing devices, from when they are opened.

#include <SDL_audio.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bridges/core/LibraryOf.h"
#include "bridges/core/NativeApi.h"
#include "bridges/core/NativeStream.h"
#include "bridges/sdl/SdlDevices.h"
#include "bridges/sdl/SdlLibrary.h"
#include "hook/Hook.h"

extern "C" {
// The header that declares them brings all of SDL.
void SDL_QuitSubSystem(Uint32 flags);
void SDL_Quit(void);
}

namespace tq::bridges {
namespace {

/// The device that SDL_OpenAudio() opens, and that the functions without a number mean.
constexpr SDL_AudioDeviceID kFirstDevice = 1;

template <class Original>
SdlDevice* deviceOf(Original* original, SDL_AudioDeviceID id) {
    return SdlDevices::shared().find(libraryOf<SdlLibrary>(original), id);
}

/// The same, where it keeps its sound with us and not with SDL.
template <class Original>
SdlDevice* queueOf(Original* original, SDL_AudioDeviceID id) {
    SdlDevice* const device = deviceOf(original, id);
    return device != nullptr && device->isQueue() ? device : nullptr;
}

/// A device for an open call that is about to be made; null when it is not ours.
SdlDevice* deviceToOpen(const SdlLibrary& library, const SDL_AudioSpec* desired) {
    const bool canWrap = desired != nullptr && library.isServed() &&
                         (desired->callback != nullptr || library.hasQueues());
    return canWrap ? SdlDevices::shared().take(library) : nullptr;
}

std::string nameOf(const SdlLibrary& library, const char* device) {
    const std::string name = library.streamName();
    return name.empty() && device != nullptr ? device : name;
}

void noteRefusal(const SdlLibrary& library, const char* device) {
    NativeStream::refused("sdl", device == nullptr ? library.driver() : device,
                          library.lastError());
}

/// What SDL opens for a program that leaves the choice to it and does not ask what it was.
SDL_AudioSpec withDefaults(SDL_AudioSpec spec) {
    const auto numberOf = [](const char* variable, int otherwise) {
        const char* const text = std::getenv(variable);
        const int number = text == nullptr ? 0 : std::atoi(text);
        return number == 0 ? otherwise : number;
    };
    constexpr int kRate = 22050;
    constexpr int kChannels = 2;
    if (spec.freq == 0) {
        spec.freq = numberOf("SDL_AUDIO_FREQUENCY", kRate);
    }
    if (spec.channels == 0) {
        spec.channels = static_cast<Uint8>(numberOf("SDL_AUDIO_CHANNELS", kChannels));
    }
    if (spec.format == 0 && std::getenv("SDL_AUDIO_FORMAT") == nullptr) {
        spec.format = AUDIO_S16SYS;
    }
    return spec;
}

// SDL 3 has a function of this name with other arguments. They are passed on as they came, in their
// whole width.

using Word = std::uintptr_t;

Word (*originalOpenDevice)(Word, Word, Word, Word, Word) = nullptr;

Word wordOf(const SDL_AudioSpec* spec) {
    return reinterpret_cast<Word>(spec);
}

Word replacedOpenDevice(Word name, Word isCapture, Word desired, Word obtained, Word changes) {
    const SdlLibrary& library = libraryOf<SdlLibrary>(originalOpenDevice);
    const auto* const wanted = reinterpret_cast<const SDL_AudioSpec*>(desired);
    const bool isPlaying = library.hasCallbacks() && static_cast<int>(isCapture) == 0;
    SdlDevice* const device = isPlaying ? deviceToOpen(library, wanted) : nullptr;
    if (device == nullptr) {
        return originalOpenDevice(name, isCapture, desired, obtained, changes);
    }
    const SDL_AudioSpec ours = device->wrap(*wanted);
    SDL_AudioSpec unseen{};
    SDL_AudioSpec* const spec =
        obtained == 0 ? &unseen : reinterpret_cast<SDL_AudioSpec*>(obtained);
    const Word result = originalOpenDevice(name, isCapture, wordOf(&ours), wordOf(spec), changes);
    if (const auto id = static_cast<SDL_AudioDeviceID>(result); id == 0) {
        SdlDevices::shared().giveBack(*device);
        noteRefusal(library, reinterpret_cast<const char*>(name));
    } else {
        device->begin(id, *spec, nameOf(library, reinterpret_cast<const char*>(name)));
    }
    device->unwrap(spec);
    return result;
}

/// A function that may end SDL's sound, and with it every device.
template <auto* kFunction>
constexpr auto hookOfEnd() {
    return tqhook::hook<kFunction>([](auto* original, auto... arguments) {
        original(arguments...);
        if (const SdlLibrary& library = libraryOf<SdlLibrary>(original); library.driver().empty()) {
            SdlDevices::shared().closeAll(library);
        }
    });
}

constexpr tqhook::HookTable kHooks{
    tqhook::hook<&SDL_OpenAudio>(
        [](auto* original, SDL_AudioSpec* desired, SDL_AudioSpec* obtained) {
            const SdlLibrary& library = libraryOf<SdlLibrary>(original);
            SdlDevice* const device = deviceToOpen(library, desired);
            if (device == nullptr) {
                return original(desired, obtained);
            }
            SDL_AudioSpec ours = device->wrap(*desired);
            const int result = original(&ours, obtained);
            if (result < 0) {
                SdlDevices::shared().giveBack(*device);
                noteRefusal(library, nullptr);
            } else {
                device->begin(kFirstDevice, obtained == nullptr ? withDefaults(ours) : *obtained,
                              nameOf(library, nullptr));
            }
            device->unwrap(&ours);
            device->unwrap(obtained);
            // There SDL tells what it has chosen; the program's memory may be constant where it
            // does not.
            if (std::memcmp(desired, &ours, sizeof ours) != 0) {
                *desired = ours;
            }
            return result;
        }),
    tqhook::hook<&SDL_QueueAudio>([](auto* original, SDL_AudioDeviceID id, const void* data,
                                     Uint32 length) {
        SdlDevice* const device = queueOf(original, id);
        return device != nullptr ? device->queueAudio(data, length) : original(id, data, length);
    }),
    tqhook::hook<&SDL_GetQueuedAudioSize>([](auto* original, SDL_AudioDeviceID id) {
        SdlDevice* const device = queueOf(original, id);
        return device != nullptr ? device->queuedSize() : original(id);
    }),
    tqhook::hook<&SDL_ClearQueuedAudio>([](auto* original, SDL_AudioDeviceID id) {
        if (SdlDevice* const device = queueOf(original, id)) {
            device->clearQueue();
        } else {
            original(id);
        }
    }),
    tqhook::hook<&SDL_CloseAudioDevice>([](auto* original, SDL_AudioDeviceID id) {
        original(id);
        SdlDevices::shared().close(libraryOf<SdlLibrary>(original), id);
    }),
    tqhook::hook<&SDL_CloseAudio>([](auto* original) {
        original();
        SdlDevices::shared().close(libraryOf<SdlLibrary>(original), kFirstDevice);
    }),
    tqhook::hook<&SDL_AudioInit>([](auto* original, const char* driver) {
        // With another driver, or the same once more, no device stays open.
        const int result = original(driver);
        SdlDevices::shared().closeAll(libraryOf<SdlLibrary>(original));
        return result;
    }),
    hookOfEnd<&SDL_AudioQuit>(),
    hookOfEnd<&SDL_QuitSubSystem>(),
    hookOfEnd<&SDL_Quit>(),
};

}  // namespace

NativeApi sdlApi() {
    static const auto rows = [] {
        const auto typed = kHooks.rows();
        std::vector<tqhook_rebinding> all(typed.begin(), typed.end());
        all.push_back({"SDL_OpenAudioDevice", reinterpret_cast<void*>(&replacedOpenDevice),
                       reinterpret_cast<void**>(&originalOpenDevice)});
        return all;
    }();
    return {"sdl", rows};
}

}  // namespace tq::bridges
