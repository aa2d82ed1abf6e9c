// Float samples to 16-bit ones, one block at a time as the reader of a track does it.
#include <sample_conversion.h>
#include <samplerate.h>

#include <cmath>
#include <cstdint>
#include <string>

#include "Bench.h"
#include "aligned.h"
#include "conversion_peers.h"
#include "hand_loops.h"

namespace {

constexpr const char* kArea = "conversion";

/// A sine of -1 dBFS.
bench::Vector<float> samples(std::size_t count) {
    bench::Vector<float> block(count);
    for (std::size_t i = 0; i < count; ++i) {
        block[i] = 0.89F * std::sin(0.13F * static_cast<float>(i));
    }
    return block;
}

template <class Convert>
auto body(std::size_t count, Convert convert) {
    return [count, convert](benchmark::State& state) mutable {
        const bench::Vector<float> in = samples(count);
        bench::Vector<std::int16_t> out(count);
        for (auto _ : state) {
            convert(in.data(), out.data(), count);
            benchmark::DoNotOptimize(out.data());
            benchmark::ClobberMemory();
        }
    };
}

void addAll(std::size_t count) {
    const std::string name = std::to_string(count) + " samples to 16-bit";
    bench::add(kArea, name, "ours", body(count, korva_audio_utils::ConvertFloatToInt16));
    if (hand::hasAvx2()) {
        bench::add(kArea, name, "limit AVX2", body(count, hand::convertAvx2));
    }
    bench::add(kArea, name, "libsamplerate",
               body(count, [](const float* in, std::int16_t* out, std::size_t n) {
                   src_float_to_short_array(in, out, static_cast<int>(n));
               }));
    bench::add(kArea, name, "swresample", [count](benchmark::State& state) {
        SwresampleToInt16 peer;
        body(count, [&](const float* in, std::int16_t* out, std::size_t n) {
            peer.convert(in, out, n);
        })(state);
    });
    bench::add(kArea, name, "SDL", [count](benchmark::State& state) {
        SdlToInt16 peer(count);
        body(count, [&](const float* in, std::int16_t* out, std::size_t n) {
            peer.convert(in, out, n);
        })(state);
    });
    // What a machine without AVX2 runs.
    bench::add(kArea, name + ", no AVX2", "ours",
               body(count, korva_audio_utils::ConvertFloatToInt16Baseline));
    bench::add(kArea, name + ", no AVX2", "limit", body(count, hand::convertBaseline));
}

}  // namespace

void registerBenchmarks() {
    addAll(1024);
    addAll(8192);
}
