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

/// The symbols that the capture library redirects, in one request as it does when it is loaded.
double rebindEverything() {
    constexpr std::array kCalls{"AudioUnitUninitialize",
                                "AudioOutputUnitStart",
                                "AudioOutputUnitStop",
                                "AudioUnitSetProperty",
                                "AudioComponentInstanceNew",
                                "NewAUGraph",
                                "AUGraphSetNodeInputCallback",
                                "AUGraphAddNode",
                                "AUGraphRemoveNode",
                                "AUGraphOpen",
                                "AUGraphStart",
                                "AUGraphUpdate",
                                "AUGraphStop",
                                "AUGraphClose",
                                "DisposeAUGraph"};
    std::array<void*, kCalls.size()> saved{};
    std::array<TQRebinding, kCalls.size()> records{};
    for (std::size_t i = 0; i < records.size(); ++i) {
        records[i] = {kCalls[i], reinterpret_cast<void*>(&standIn), &saved[i]};
    }
    const auto start = std::chrono::steady_clock::now();
    tqreplay_rebind_symbols(records.data(), records.size());
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || !loadImages(std::atoi(argv[1]))) {
        return 1;
    }
    std::printf("%.9f\n", rebindEverything());
}
