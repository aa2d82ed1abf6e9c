// What the interception adds to the host's render callback.
#include <Foundation/NSException.h>
#include <audio_hook_config.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "Bench.h"
#include "HookedHost.h"
#include "RZStreamMixManager.h"
#include "aligned.h"

namespace {

constexpr const char* kArea = "callback";
using Clock = std::chrono::steady_clock;

/// One stereo float block of the host.
struct HostBlock {
    explicit HostBlock(UInt32 frames) : samples(frames * 2, 0.25F) {
        list.mNumberBuffers = 1;
        list.mBuffers[0] = {2, static_cast<UInt32>(samples.size() * sizeof(float)), samples.data()};
    }
    bench::Vector<float> samples;
    AudioBufferList list{};
};

void direct(benchmark::State& state) {
    HostBlock block(64);
    AURenderCallback render = HookedHost::render;
    AudioUnitRenderActionFlags flags = 0;
    AudioTimeStamp ts{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(render);
        benchmark::DoNotOptimize(render(nullptr, &flags, &ts, 0, 64, &block.list));
    }
}

void idle(benchmark::State& state, int units) {
    HookedHost host(units);
    HostBlock block(64);
    for (auto _ : state) {
        benchmark::DoNotOptimize(host.callIntercepted(64, &block.list));
    }
}

constexpr UInt32 kFrames = 512;
constexpr int kBlocksBetweenReads = 3;

/// Times a few blocks at a time; what happens in between is not counted.
template <class Block, class Between>
void timed(benchmark::State& state, Block block, Between between) {
    for (auto _ : state) {
        const auto start = Clock::now();
        for (int i = 0; i < kBlocksBetweenReads; ++i) {
            block();
        }
        const std::chrono::duration<double> took = Clock::now() - start;
        state.SetIterationTime(took.count() / kBlocksBetweenReads);
        between();
    }
}

void capturing(benchmark::State& state, UInt32 frames) {
    HookedHost host(1);
    if (!host.startCapture()) {
        state.SkipWithError("capture did not start");
        return;
    }
    HostBlock block(frames);
    timed(
        state, [&] { benchmark::DoNotOptimize(host.callIntercepted(frames, &block.list)); },
        [&] { host.emptyRings(); });
}

/// The copies alone, into memory that turns as the rings do.
void copies(benchmark::State& state) {
    constexpr std::size_t kRing = 16384;
    HostBlock block(kFrames);
    std::size_t size = block.list.mBuffers[0].mDataByteSize;
    benchmark::DoNotOptimize(size);
    bench::Vector<std::byte> pre(kRing);
    bench::Vector<std::byte> post(kRing);
    bench::Vector<std::byte> drain(kRing);
    std::size_t at = 0;
    timed(
        state,
        [&] {
            std::memcpy(pre.data() + at, block.samples.data(), size);
            benchmark::ClobberMemory();
            std::memcpy(post.data() + at, block.samples.data(), size);
            benchmark::ClobberMemory();
            at = (at + size) % kRing;
        },
        [&] {
            std::memcpy(drain.data(), pre.data(), kRing);
            std::memcpy(drain.data(), post.data(), kRing);
            benchmark::ClobberMemory();
        });
}

template <class Part>
void part(const char* name, Part part) {
    bench::add("parts of a captured block", name, "ours", [part](benchmark::State& state) {
        HookedHost host(1);
        if (!host.startCapture()) {
            state.SkipWithError("capture did not start");
            return;
        }
        for (auto _ : state) {
            part(host);
        }
    });
}

/// What the locks and references on the road cost when nobody else wants them.
void addParts() {
    part("crash guard, in and out", [](HookedHost& /*host*/) {
        const korva_audio_utils::AudioHookFunctionGuards guard;
        benchmark::ClobberMemory();
    });
    part("unit looked up under mapLock", [](HookedHost& host) {
        benchmark::DoNotOptimize(
            RZStreamMixManager::sharedManager()->findAudioUnitObj(host.lastUnit()));
    });
    part("what listeners want, asked under their lock", [](HookedHost& /*host*/) {
        benchmark::DoNotOptimize(RZStreamMixManager::sharedManager()->callback()->getPCMDataType());
    });
    part("buffer looked up under bufferLock", [](HookedHost& host) {
        benchmark::DoNotOptimize(host.lastObject().getOrCreateBufferAt(0));
    });
    part("barrier for exceptions and cancellation",
         [](HookedHost& /*host*/) { NSCallGuarded([] { benchmark::ClobberMemory(); }); });
}

}  // namespace

void registerBenchmarks() {
    // In a program of its own: once a process has captured, its listeners are asked on every cycle.
    const bool isAfterCapture = TQ_BENCH_AFTER_CAPTURE;
    const std::string kind = isAfterCapture ? "no longer captured" : "never captured";
    for (const int units : {1, 7}) {
        const std::string name =
            kind + ", 64 frames, " + std::to_string(units) + (units == 1 ? " unit" : " units");
        bench::add(kArea, name, "ours", [=](benchmark::State& state) { idle(state, units); });
        bench::add(kArea, name, "direct call", direct);
        if (units == 7) {
            bench::add(kArea, name, "ours with 1 unit",
                       [](benchmark::State& state) { idle(state, 1); });
        }
    }
    // A host has more than one thread, and standard libraries take other ways then.
    static std::thread another([] { pause(); });
    another.detach();
    if (!isAfterCapture) {
        return;
    }
    {
        HookedHost host(1);
        host.startCapture();
    }
    const char* const captured = "pre and post captured, 512 frames float stereo";
    bench::add(kArea, captured, "ours", [](benchmark::State& state) {
        capturing(state, kFrames);
    })->UseManualTime();
    bench::add(kArea, captured, "limit", copies)->UseManualTime();
    addParts();
    for (const UInt32 frames : {16U, 64U, 256U, 1024U, 4096U}) {
        bench::add("growth", "a captured block", std::to_string(frames) + " frames",
                   [frames](benchmark::State& state) { capturing(state, frames); })
            ->UseManualTime();
    }
}
