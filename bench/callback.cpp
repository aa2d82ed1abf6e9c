// What the interception adds to the host's render callback.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "Bench.h"
#include "HookedHost.h"
#include "aligned.h"

namespace {

constexpr const char* kArea = "callback";
using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::duration<double, std::nano>;

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

void capturing(benchmark::State& state) {
    HookedHost host(1);
    if (!host.startCapture()) {
        state.SkipWithError("capture did not start");
        return;
    }
    HostBlock block(kFrames);
    timed(
        state, [&] { benchmark::DoNotOptimize(host.callIntercepted(kFrames, &block.list)); },
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

enum class Company { None, BusyCore, ControlThread };

/// The slowest of 100,000 captured blocks, while another thread works or starts and stops a unit.
void slowest(benchmark::State& state, Company company) {
    HookedHost host(1);
    HookedHost other(1);
    if (!host.startCapture()) {
        state.SkipWithError("capture did not start");
        return;
    }
    std::atomic<bool> isOver{false};
    std::thread thread([&] {
        while (!isOver.load(std::memory_order_relaxed) && company != Company::None) {
            if (company == Company::ControlThread) {
                AudioOutputUnitStop(other.lastUnit());
                AudioOutputUnitStart(other.lastUnit());
            }
        }
    });
    HostBlock block(kFrames);
    for (auto _ : state) {
        double worst = 0.0;
        for (int i = 0; i < 100000; ++i) {
            const auto start = Clock::now();
            host.callIntercepted(kFrames, &block.list);
            worst = std::max(worst, Nanoseconds(Clock::now() - start).count());
            host.emptyRings();
        }
        state.counters["value"] = worst;
    }
    isOver = true;
    thread.join();
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
    bench::add(kArea, captured, "ours", capturing)->UseManualTime();
    bench::add(kArea, captured, "limit", copies)->UseManualTime();
    const char* const worst = "slowest of 100 000 captured blocks";
    bench::add(kArea, worst, "ours alone", [](benchmark::State& state) {
        slowest(state, Company::None);
    })->Iterations(1);
    bench::add(kArea, worst, "ours beside a busy core", [](benchmark::State& state) {
        slowest(state, Company::BusyCore);
    })->Iterations(1);
    bench::add(kArea, worst, "ours beside starts and stops", [](benchmark::State& state) {
        slowest(state, Company::ControlThread);
    })->Iterations(1);
}
