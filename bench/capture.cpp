// What capturing costs a host that plays seven stereo units, from its callbacks to one listener.
#include <TQPlatform/ManualDevice.h>
#include <ctime>

#include <cmath>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "Bench.h"
#include "HookedHost.h"

namespace {

constexpr int kUnits = 7;
constexpr UInt32 kFrames = 512;
constexpr UInt32 kRate = 48000;
constexpr int kSlices = 2 * kRate / kFrames;

/// A second of a tone: silence would be cheaper.
const std::vector<float>& tone() {
    static const std::vector<float> samples = [] {
        std::vector<float> made(2 * kRate);
        for (std::size_t i = 0; i < made.size(); ++i) {
            made[i] = static_cast<float>(0.1 * std::sin(static_cast<double>(i / 2) * 0.0576));
        }
        return made;
    }();
    return samples;
}

OSStatus play(void* /*refCon*/, AudioUnitRenderActionFlags* /*flags*/, const AudioTimeStamp* ts,
              UInt32 /*bus*/, UInt32 frames, AudioBufferList* ioData) {
    const auto at = static_cast<std::size_t>(ts->mSampleTime) % (kRate - kFrames);
    std::memcpy(ioData->mBuffers[0].mData, tone().data() + 2 * at,
                std::size_t{frames} * 2 * sizeof(float));
    return noErr;
}

/// Nanoseconds of this thread's processor time, which renders everything on the manual device.
double threadTime() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

/// The cost of a second of the device, nanoseconds.
double costOfASecond() {
    static UInt64 hostTime = 1;
    const double before = threadTime();
    for (int slice = 0; slice < kSlices; ++slice) {
        if (TQManualDevicePump(kFrames, hostTime) != noErr) {
            throw std::runtime_error("the manual device");
        }
        hostTime += 1'000'000'000ULL * kFrames / kRate;
    }
    return (threadTime() - before) * kRate / (kSlices * kFrames);
}

/// What a second costs more while it is captured than before.
void capture(benchmark::State& state, int units, std::uint64_t wanted) {
    HookedHost host(units, play);
    costOfASecond();
    double value = 0;
    for (auto _ : state) {
        const double alone = costOfASecond();
        if (!host.startCapture(wanted)) {
            state.SkipWithError("capture does not start");
            break;
        }
        costOfASecond();
        value = costOfASecond() - alone;
        host.stopCapture();
    }
    state.counters["value"] = value;
}

}  // namespace

void registerBenchmarks() {
    const char* const work = "7 stereo streams, a second of sound";
    bench::add("whole capture", work, "ours", [](benchmark::State& state) {
        capture(state, kUnits, RZPCMDataTypePre);
    })->Iterations(1);
    bench::add("whole capture", work, "ours with tracks", [](benchmark::State& state) {
        capture(state, kUnits, RZPCMDataTypePre | RZPCMDataTypePost);
    })->Iterations(1);
    for (int units = 1; units <= kUnits; ++units) {
        bench::add("growth", "a second of whole capture",
                   std::to_string(units) + (units == 1 ? " track" : " tracks"),
                   [units](benchmark::State& state) {
                       capture(state, units, RZPCMDataTypePre | RZPCMDataTypePost);
                   })
            ->Iterations(1);
    }
}
