#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <utility>

/// Each program defines it and registers its benchmarks in it, with bench::add().
void registerBenchmarks();

namespace bench {

/// Registers one variant of one piece of work. `area` and `name` may hold blanks but no slash;
/// variants of the same area and name do the same work per iteration and are compared with each
/// other: "ours", the names of peers, and "limit" for a loop written by hand as the floor.
///
/// What counts is the processor time of an iteration; call UseRealTime() or UseManualTime() on the
/// answer where that is not it. What is no time goes into state.counters["value"], in the unit that
/// goals.json names.
template <class Body>
benchmark::internal::Benchmark* add(const std::string& area, const std::string& name,
                                    const std::string& variant, Body body) {
    return benchmark::RegisterBenchmark((area + "/" + name + "/" + variant).c_str(),
                                        std::move(body));
}

}  // namespace bench
