// The slowest of many captured blocks, and what it was waiting for.
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "Bench.h"
#include "HookedHost.h"
#include "aligned.h"

namespace {

using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::duration<double, std::nano>;

constexpr UInt32 kFrames = 512;
constexpr int kBlocks = 100000;

enum class Company { None, BusyCore, ControlThread };

/// Of all blocks.
struct Findings {
    double slowest = 0.0;        ///< nanoseconds
    double slowestOnCore = 0.0;  ///< of those that neither waited nor lost their core
    double waited = 0.0;         ///< how many gave their core away, which is waiting for a lock
    double lostCore = 0.0;       ///< how many had it taken away
};

/// How often this thread gave its core away and had it taken away.
struct Switches {
    long voluntary = 0;
    long forced = 0;

    static Switches now() {
        rusage usage{};
        getrusage(RUSAGE_THREAD, &usage);
        return {usage.ru_nvcsw, usage.ru_nivcsw};
    }
};

/// Works, or starts and stops a unit, as long as it lives.
class Companion {
  public:
    Companion(Company company, AudioUnit unit)
        : thread_([this, company, unit] {
              while (!isOver_.load(std::memory_order_relaxed) && company != Company::None) {
                  if (company == Company::ControlThread) {
                      AudioOutputUnitStop(unit);
                      AudioOutputUnitStart(unit);
                  }
              }
          }) {}
    ~Companion() {
        isOver_ = true;
        thread_.join();
    }
    Companion(const Companion&) = delete;
    Companion& operator=(const Companion&) = delete;

  private:
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

Findings watch(HookedHost& host, AudioBufferList& block) {
    Findings found;
    for (int i = 0; i < kBlocks; ++i) {
        const Switches before = Switches::now();
        const auto start = Clock::now();
        host.callIntercepted(kFrames, &block);
        const double took = Nanoseconds(Clock::now() - start).count();
        const Switches after = Switches::now();
        host.emptyRings();
        found.slowest = std::max(found.slowest, took);
        found.waited += after.voluntary != before.voluntary ? 1 : 0;
        found.lostCore += after.forced != before.forced ? 1 : 0;
        if (after.voluntary == before.voluntary && after.forced == before.forced) {
            found.slowestOnCore = std::max(found.slowestOnCore, took);
        }
    }
    return found;
}

void slowest(benchmark::State& state, Company company, double Findings::*figure) {
    HookedHost host(1);
    HookedHost other(1);
    if (!host.startCapture()) {
        state.SkipWithError("capture did not start");
        return;
    }
    bench::Vector<float> samples(std::size_t{kFrames} * 2, 0.25F);
    AudioBufferList block{};
    block.mNumberBuffers = 1;
    block.mBuffers[0] = {2, static_cast<UInt32>(samples.size() * sizeof(float)), samples.data()};
    const Companion companion(company, other.lastUnit());
    for (auto _ : state) {
        state.counters["value"] = watch(host, block).*figure;
    }
}

void add(const std::string& name, double Findings::*figure) {
    const auto variant = [&](const char* text, Company company) {
        bench::add("slowest block", name, text, [=](benchmark::State& state) {
            slowest(state, company, figure);
        })->Iterations(1);
    };
    variant("alone", Company::None);
    variant("beside a busy core", Company::BusyCore);
    variant("beside starts and stops", Company::ControlThread);
}

}  // namespace

void registerBenchmarks() {
    add("slowest of 100 000", &Findings::slowest);
    add("slowest that kept its core", &Findings::slowestOnCore);
    add("blocks that waited for a lock", &Findings::waited);
    add("blocks that lost their core", &Findings::lostCore);
}
