// What AudioOutputUnitStart costs a host on its own thread while it is recorded, by the rate of the
// unit: the first start of that rate in the process, and every later one.
#include <TQPlatform/ManualDevice.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Bench.h"
#include "HookedHost.h"

namespace {

/// A unit of integer stereo, ready to start.
class StoppedUnit {
  public:
    explicit StoppedUnit(Float64 rate) : unit_(startStereoUnit({HookedHost::render, nullptr})) {
        AudioOutputUnitStop(unit_);
        const AudioStreamBasicDescription format{
            rate,
            kAudioFormatLinearPCM,
            kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked,
            4,
            1,
            4,
            2,
            16,
            0};
        if (AudioUnitSetProperty(unit_, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                                 &format, sizeof format) != noErr) {
            throw std::runtime_error("format");
        }
    }
    ~StoppedUnit() {
        AudioUnitUninitialize(unit_);
        AudioComponentInstanceDispose(unit_);
    }
    StoppedUnit(const StoppedUnit&) = delete;
    StoppedUnit& operator=(const StoppedUnit&) = delete;

    /// Nanoseconds.
    double start() {
        const auto before = std::chrono::steady_clock::now();
        const OSStatus status = AudioOutputUnitStart(unit_);
        const auto after = std::chrono::steady_clock::now();
        if (status != noErr) {
            throw std::runtime_error("start");
        }
        return std::chrono::duration<double, std::nano>(after - before).count();
    }
    void stop() { AudioOutputUnitStop(unit_); }

  private:
    AudioUnit unit_;
};

void pump() {
    static UInt64 hostTime = 1;
    for (int slice = 0; slice < 4; ++slice) {
        TQManualDevicePump(512, hostTime);
        hostTime += 512'000'000'000ULL / 48000;
    }
}

/// Each iteration is one start and one stop; the value is the slowest start, as all of them count.
void startUnit(benchmark::State& state, Float64 rate, bool isCaptured) {
    HookedHost host(1);
    if (isCaptured && !host.startCapture()) {
        state.SkipWithError("capture does not start");
        return;
    }
    // What units need is made ready beside the capture's start, on another thread.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    StoppedUnit unit(rate);
    double slowest = 0;
    for (auto _ : state) {
        slowest = std::max(slowest, unit.start());
        pump();
        unit.stop();
        pump();
    }
    state.counters["value"] = slowest;
}

}  // namespace

void registerBenchmarks() {
    for (const int rate : {44100, 48000, 32000, 22050, 8000}) {
        const std::string name =
            "the slowest of 20 starts of a unit of " + std::to_string(rate) + " Hz";
        bench::add("unit start", name, "ours", [rate](benchmark::State& state) {
            startUnit(state, rate, true);
        })->Iterations(20);
        bench::add("unit start", name, "not recorded", [rate](benchmark::State& state) {
            startUnit(state, rate, false);
        })->Iterations(20);
    }
}
