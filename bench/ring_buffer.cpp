// Queues of bytes, one thread: what a block costs when the caches and the branches are warm.
#include <jack/ringbuffer.h>
#include <readerwriterqueue/readerwriterqueue.h>
#include <ring_buffer.h>
#include <boost/lockfree/spsc_queue.hpp>

#include <array>
#include <cstring>
#include <memory>

#include "Bench.h"

namespace {

constexpr std::size_t kCapacity = 65536;
constexpr const char* kArea = "ring buffer";

template <std::size_t Size>
struct alignas(64) Block {
    std::array<char, Size> bytes;
};

/// The two copies that any queue of bytes makes, into and out of storage as large as the queues'.
template <std::size_t Size>
void limit(benchmark::State& state) {
    auto storage = std::make_unique<Block<kCapacity>>();
    Block<Size> in{};
    Block<Size> out{};
    std::size_t at = 0;
    std::size_t size = Size;
    benchmark::DoNotOptimize(size);  // the library's copy, as queues call it
    for (auto _ : state) {
        std::memcpy(storage->bytes.data() + at, in.bytes.data(), size);
        benchmark::ClobberMemory();
        std::memcpy(out.bytes.data(), storage->bytes.data() + at, size);
        benchmark::DoNotOptimize(out);
        at = (at + Size) % kCapacity;
    }
}

template <std::size_t Size>
void ours(benchmark::State& state) {
    korva_audio_utils::RingBuffer ring;
    ring.Init(kCapacity, 1, kCapacity);
    Block<Size> in{};
    Block<Size> out{};
    for (auto _ : state) {
        ring.WriteBuffer(in.bytes.data(), Size);
        ring.ReadBuffer(nullptr, out.bytes.data(), Size);
        benchmark::DoNotOptimize(out);
    }
}

template <std::size_t Size>
void jack(benchmark::State& state) {
    const std::unique_ptr<jack_ringbuffer_t, decltype(&jack_ringbuffer_free)> ring(
        jack_ringbuffer_create(kCapacity), &jack_ringbuffer_free);
    Block<Size> in{};
    Block<Size> out{};
    for (auto _ : state) {
        jack_ringbuffer_write(ring.get(), in.bytes.data(), Size);
        jack_ringbuffer_read(ring.get(), out.bytes.data(), Size);
        benchmark::DoNotOptimize(out);
    }
}

template <std::size_t Size>
void boostQueue(benchmark::State& state) {
    const auto ring =
        std::make_unique<boost::lockfree::spsc_queue<char, boost::lockfree::capacity<kCapacity>>>();
    Block<Size> in{};
    Block<Size> out{};
    for (auto _ : state) {
        ring->push(in.bytes.data(), Size);
        ring->pop(out.bytes.data(), Size);
        benchmark::DoNotOptimize(out);
    }
}

template <std::size_t Size>
void readerWriterQueue(benchmark::State& state) {
    moodycamel::ReaderWriterQueue<Block<Size>> ring(kCapacity / Size);
    Block<Size> in{};
    Block<Size> out{};
    for (auto _ : state) {
        ring.try_enqueue(in);
        ring.try_dequeue(out);
        benchmark::DoNotOptimize(out);
    }
}

template <std::size_t Size>
void addAll(const char* name) {
    bench::add(kArea, name, "ours", ours<Size>);
    bench::add(kArea, name, "jack_ringbuffer", jack<Size>);
    bench::add(kArea, name, "boost spsc_queue", boostQueue<Size>);
    bench::add(kArea, name, "ReaderWriterQueue", readerWriterQueue<Size>);
    bench::add(kArea, name, "limit", limit<Size>);
}

}  // namespace

void registerBenchmarks() {
    addAll<4096>("4 KiB written and read, one thread");
    addAll<16>("16 B written and read, one thread");
}
