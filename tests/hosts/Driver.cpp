// The program around a back end, on the manual device. What the program handed out, and what the
// device played, go to files of the folder that HOSTS_FOLDER names.

#include <TQPlatform/ManualDevice.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "Player.h"

namespace {

constexpr int kSlicesBehind = 4;

struct Run {
    std::vector<std::int16_t> given;
    std::vector<float> played;  ///< interleaved
    std::uint32_t noise = 1;
    UInt64 hostTime = 1'000'000'000;
};

Run& run() {
    static Run instance;
    return instance;
}

std::int16_t nextSample() {
    Run& state = run();
    state.noise = state.noise * 1664525U + 1013904223U;
    // Never 0, so that a silent frame is told from the program's.
    const auto sample = static_cast<std::int16_t>((state.noise >> 17U) | 1U);
    state.given.push_back((state.noise & 0x10000U) != 0 ? sample
                                                        : static_cast<std::int16_t>(-sample));
    return state.given.back();
}

void keepPlayed(void* /*refCon*/, const AudioTimeStamp* /*time*/, UInt32 channels, UInt32 frames,
                const float* const* planes) {
    for (UInt32 i = 0; i < frames; ++i) {
        for (UInt32 k = 0; k < channels; ++k) {
            run().played.push_back(planes[k][i]);
        }
    }
}

template <class Sample>
void write(const std::string& name, const std::vector<Sample>& samples) {
    const char* const folder = std::getenv("HOSTS_FOLDER");
    std::ofstream file(std::string(folder == nullptr ? "." : folder) + "/" + name,
                       std::ios::binary);
    file.write(reinterpret_cast<const char*>(samples.data()),
               static_cast<std::streamsize>(samples.size() * sizeof(Sample)));
    if (!file.flush()) {
        playerFailed("writing a file");
    }
}

/// A function of Recorder.c where that is in the process; else nothing happens.
void callRecorder(const char* name) {
    void* const function = dlsym(RTLD_DEFAULT, name);
    if (function != nullptr && reinterpret_cast<int (*)()>(function)() != 0) {
        playerFailed(name);
    }
}

void check(OSStatus status, const char* what) {
    if (status != noErr) {
        playerFailed(what);
    }
}

}  // namespace

void nextFrames(int16_t* to, unsigned frames) {
    for (unsigned i = 0; i < frames * kPlayerChannels; ++i) {
        to[i] = nextSample();
    }
}

void nextFloatFrames(float* to, unsigned frames) {
    for (unsigned i = 0; i < frames * kPlayerChannels; ++i) {
        to[i] = static_cast<float>(nextSample()) / 32768.0F;
    }
}

int16_t nextMonoFrame() {
    const int16_t sample = nextSample();
    run().given.push_back(sample);
    return sample;
}

void pumpSlice() {
    check(TQManualDevicePump(kPlayerSlice, run().hostTime), "the pump");
    run().hostTime += std::uint64_t{kPlayerSlice} * 1'000'000'000 / kPlayerRate;
}

void playerFailed(const char* what) {
    std::fprintf(stderr, "%s failed\n", what);
    std::_Exit(3);
}

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "arm") {
        callRecorder("hostsArm");
        return 0;
    }
    check(TQManualDeviceSetSampleRate(kPlayerRate), "the device's rate");
    check(TQManualDeviceSetOutput(keepPlayed, nullptr), "the device's output");
    callRecorder("hostsRecord");
    play();
    // What a unit that has stopped still owes its listeners comes with the slices after it.
    for (int i = 0; i < kSlicesBehind; ++i) {
        pumpSlice();
    }
    check(TQManualDeviceSetOutput(nullptr, nullptr), "the device's end");
    callRecorder("hostsStop");
    write("given", run().given);
    write("played", run().played);
    return 0;
}
