// A program whose library plays a tone from its constructor on. Its argument is that library.

#include <AudioToolbox/AudioToolbox.h>
#include <TQPlatform/Devices.h>
#include <dlfcn.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <thread>

#include "support/OutputUnit.h"

namespace {

constexpr double kRate = 48000;
constexpr double kHertz = 440;

OSStatus play(void* /*self*/, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
              UInt32 frames, AudioBufferList* list) {
    static unsigned played = 0;
    auto* const out = static_cast<float*>(list->mBuffers[0].mData);
    for (UInt32 i = 0; i < frames; ++i, ++played) {
        out[i] = static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * kHertz * played / kRate));
    }
    return noErr;
}

}  // namespace

/// What the library's constructor calls.
extern "C" [[gnu::visibility("default")]] void tqtest_construct() {
    const AudioUnit unit = tqtest::makeOutputUnit(tqtest::floatFormat(kRate, 1), {.play = &play});
    std::printf("start=%d\n", static_cast<int>(AudioOutputUnitStart(unit)));
    const auto ignore = [](void*, const TQDeviceDescription*) {};
    static_cast<void>(TQListDevices(ignore, nullptr));
    std::printf("constructed=1\n");
    std::fflush(stdout);
}

int main(int argc, char** argv) {
    if (argc != 2 || dlopen(argv[1], RTLD_NOW) == nullptr) {
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::seconds(3));
    std::printf("done=1\n");
    return 0;
}
