// Redirecting the platform's calls when the library is loaded, in processes of many images.
#include <cstdio>
#include <memory>
#include <string>

#include "Bench.h"

namespace {

/// In a process of its own each time: what has been redirected stays so. Negative when it failed.
double secondsInProcess(int images) {
    const std::string command = TQ_LOAD_PROCESS " " + std::to_string(images);
    const std::unique_ptr<FILE, int (*)(FILE*)> process(popen(command.c_str(), "r"), pclose);
    double seconds = -1.0;
    if (!process || std::fscanf(process.get(), "%lf", &seconds) != 1) {
        return -1.0;
    }
    return seconds;
}

void rebinding(benchmark::State& state, int images) {
    for (auto _ : state) {
        const double seconds = secondsInProcess(images);
        if (seconds < 0) {
            state.SkipWithError("the process failed");
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
