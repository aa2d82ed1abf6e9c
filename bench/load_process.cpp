// A process that loads images, redirects the platform's calls and says how long that took.
//   bench_load_process COUNT
#include <AudioToolbox/AudioToolbox.h>
#include <dlfcn.h>
#include <link.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "TQAudioRecordResolver.h"

namespace {

int countImages() {
    int count = 0;
    dl_iterate_phdr(
        [](dl_phdr_info* /*info*/, std::size_t /*size*/, void* data) {
            ++*static_cast<int*>(data);
            return 0;
        },
        &count);
    return count;
}

bool loadImages(int wanted) {
    for (int n = 1; countImages() < wanted; ++n) {
        const std::string path = std::string(TQ_LOAD_IMAGES "/image") + std::to_string(n) + ".so";
        if (dlopen(path.c_str(), RTLD_LAZY) == nullptr) {
            return false;
        }
    }
    return true;
}

void standIn() {
}

/// The symbols that the capture library redirects, in its two steps.
double rebindEverything() {
    constexpr std::array kUnitCalls{"AudioUnitUninitialize", "AudioOutputUnitStart",
                                    "AudioOutputUnitStop", "AudioUnitSetProperty",
                                    "AudioComponentInstanceNew"};
    constexpr std::array kGraphCalls{"NewAUGraph",      "DisposeAUGraph",
                                     "AUGraphAddNode",  "AUGraphRemoveNode",
                                     "AUGraphOpen",     "AUGraphInitialize",
                                     "AUGraphStart",    "AUGraphStop",
                                     "AUGraphNodeInfo", "AUGraphSetNodeInputCallback"};
    std::array<void*, kUnitCalls.size() + kGraphCalls.size()> saved{};
    std::array<TQRebinding, kUnitCalls.size()> units{};
    std::array<TQRebinding, kGraphCalls.size()> graphs{};
    for (std::size_t i = 0; i < units.size(); ++i) {
        units[i] = {kUnitCalls[i], reinterpret_cast<void*>(&standIn), &saved[i]};
    }
    for (std::size_t i = 0; i < graphs.size(); ++i) {
        graphs[i] = {kGraphCalls[i], reinterpret_cast<void*>(&standIn), &saved[units.size() + i]};
    }
    const auto start = std::chrono::steady_clock::now();
    tqreplay_rebind_symbols(units.data(), units.size());
    tqreplay_rebind_symbols(graphs.data(), graphs.size());
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || !loadImages(std::atoi(argv[1]))) {
        return 1;
    }
    std::printf("%.9f\n", rebindEverything());
}
