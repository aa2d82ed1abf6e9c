// Redirecting the platform's calls when the library is loaded, in processes of many images.
#include <AudioToolbox/AudioToolbox.h>
#include <dlfcn.h>
#include <link.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>

#include "Bench.h"
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

/// In a child each time: what has been redirected stays so. Negative when the child failed.
double secondsInChild(int images) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        return -1.0;
    }
    const pid_t child = fork();
    if (child == 0) {
        const double seconds = loadImages(images) ? rebindEverything() : -1.0;
        _exit(write(ends[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
    }
    double seconds = -1.0;
    close(ends[1]);
    if (child < 0 || read(ends[0], &seconds, sizeof seconds) != sizeof seconds) {
        seconds = -1.0;
    }
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return seconds;
}

void rebinding(benchmark::State& state, int images) {
    for (auto _ : state) {
        const double seconds = secondsInChild(images);
        if (seconds < 0) {
            state.SkipWithError("the child failed");
            break;
        }
        state.SetIterationTime(seconds);
    }
}

}  // namespace

void registerBenchmarks() {
    for (const int images : {100, 250}) {
        bench::add("load", "rebinding with " + std::to_string(images) + " images", "ours",
                   [images](benchmark::State& state) { rebinding(state, images); })
            ->UseManualTime()
            ->Iterations(5);
    }
}
