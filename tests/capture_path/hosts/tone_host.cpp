// A host that knows nothing of capture: it plays a tone on the manual device and says what it
// sees, in "name=value" lines. What it is told to do:
//   play          a unit, ten slices
//   die           the same, killed without warning inside its own callback
//   open:LIBRARY  a unit's whole life first, then the library is loaded, then another unit

#include <AudioToolbox/AudioToolbox.h>
#include <TQPlatform/ManualDevice.h>
#include <dlfcn.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

struct Tone {
    int calls = 0;
    bool isDeadly = false;
    std::uint32_t guard = 0;  ///< the crash guard's count as seen from inside the callback
};

std::uint32_t guardCount() {
    const char* const caches = std::getenv("XDG_CACHE_HOME");
    std::ifstream file(std::string(caches == nullptr ? "." : caches) +
                           "/tone_host/korva_audio_utils/korva_audio_hook_func_count.flag",
                       std::ios::binary);
    std::uint32_t count = 0;
    file.read(reinterpret_cast<char*>(&count), sizeof(count));
    return file ? count : 0;
}

OSStatus render(void* refCon, AudioUnitRenderActionFlags* /*flags*/, const AudioTimeStamp* /*ts*/,
                UInt32 /*bus*/, UInt32 /*frames*/, AudioBufferList* ioData) {
    Tone& tone = *static_cast<Tone*>(refCon);
    ++tone.calls;
    tone.guard = guardCount();
    for (UInt32 i = 0; i < ioData->mNumberBuffers; ++i) {
        auto* const samples = static_cast<float*>(ioData->mBuffers[i].mData);
        for (UInt32 k = 0; k < ioData->mBuffers[i].mDataByteSize / sizeof(float); ++k) {
            samples[k] = 0.25F;
        }
    }
    if (tone.isDeadly && tone.calls == 3) {
        std::raise(SIGKILL);
    }
    return 0;
}

bool play(Tone& tone) {
    const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    AudioUnit unit = nullptr;
    const AURenderCallbackStruct callback{render, &tone};
    bool isGood =
        AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit) == 0 &&
        AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                             &callback, sizeof(callback)) == 0 &&
        AudioUnitInitialize(unit) == 0 && AudioOutputUnitStart(unit) == 0;
    for (int i = 0; i < 10 && isGood; ++i) {
        isGood = TQManualDevicePump(480, static_cast<UInt64>(i) * 10'000'000) == 0;
    }
    return AudioOutputUnitStop(unit) == 0 && AudioUnitUninitialize(unit) == 0 &&
           AudioComponentInstanceDispose(unit) == 0 && isGood;
}

/// Asks the capture library by its symbols, if it is in the process: a host has no headers of it.
const char* hooks() {
    void* const shared = dlsym(RTLD_DEFAULT, "_ZN22RZStreamCollectManager13sharedManagerEv");
    void* const started = dlsym(RTLD_DEFAULT, "_ZNK22RZStreamCollectManager13isHookStartedEv");
    if (shared == nullptr || started == nullptr) {
        return "absent";
    }
    const void* const manager = reinterpret_cast<void* (*)()>(shared)();
    return reinterpret_cast<bool (*)(const void*)>(started)(manager) ? "started" : "out";
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "play";
    Tone tone;
    tone.isDeadly = what == "die";
    if (what.rfind("open:", 0) == 0) {
        Tone first;
        std::printf("first_played=%d\n", play(first) ? first.calls : -1);
        // The symbols must be found above, so the library is opened for everybody.
        if (dlopen(what.c_str() + 5, RTLD_NOW | RTLD_GLOBAL) == nullptr) {
            std::printf("dlerror=%s\n", dlerror());
            return 2;
        }
    }
    std::printf("hooks=%s\n", hooks());
    std::fflush(stdout);
    std::printf("played=%d\n", play(tone) ? tone.calls : -1);
    std::printf("guard=%u\n", tone.guard);
    return 0;
}
