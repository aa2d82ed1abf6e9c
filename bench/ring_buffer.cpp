// Queues of bytes, one thread: what a block costs when the caches and the branches are warm, alone
// or beside a thread that keeps another core and the memory busy.
#include <jack/ringbuffer.h>
#include <readerwriterqueue/readerwriterqueue.h>
#include <ring_buffer.h>
#include <boost/lockfree/spsc_queue.hpp>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Bench.h"
#include "aligned.h"

namespace {

constexpr std::size_t kCapacity = 65536;
constexpr const char* kArea = "ring buffer";

template <std::size_t Size>
struct alignas(64) Block {
    std::array<char, Size> bytes;
};

/// The blocks of one side. Each lies a few cache lines further than the one before: a copy is
/// slower where source and target look alike to the processor, and a fixed place would favour some
/// variant.
template <std::size_t Size>
class Blocks {
  public:
    Block<Size>& next() {
        constexpr std::size_t kStep = 5 * sizeof(Block<1>);
        at_ = (at_ + kStep) % kPage;
        return *reinterpret_cast<Block<Size>*>(memory_.data() + at_);
    }

  private:
    static constexpr std::size_t kPage = 4096;
    bench::Vector<std::byte> memory_ = bench::Vector<std::byte>(kPage + sizeof(Block<Size>));
    std::size_t at_ = 0;
};

/// The two copies that any queue of bytes makes, into and out of storage as large as the queues'.
template <std::size_t Size>
void limit(benchmark::State& state) {
    auto storage = std::make_unique<Block<kCapacity>>();
    Blocks<Size> in;
    Blocks<Size> out;
    std::size_t at = 0;
    std::size_t size = Size;
    benchmark::DoNotOptimize(size);  // the library's copy, as queues call it
    for (auto _ : state) {
        Block<Size>& target = out.next();
        std::memcpy(storage->bytes.data() + at, in.next().bytes.data(), size);
        benchmark::ClobberMemory();
        std::memcpy(target.bytes.data(), storage->bytes.data() + at, size);
        benchmark::DoNotOptimize(target);
        at = (at + Size) % kCapacity;
    }
}

template <std::size_t Size>
void ours(benchmark::State& state) {
    korva_audio_utils::RingBuffer ring;
    ring.Init(kCapacity, 1, kCapacity);
    Blocks<Size> in;
    Blocks<Size> out;
    for (auto _ : state) {
        Block<Size>& target = out.next();
        ring.WriteBuffer(in.next().bytes.data(), Size);
        ring.ReadBuffer(nullptr, target.bytes.data(), Size);
        benchmark::DoNotOptimize(target);
    }
}

template <std::size_t Size>
void jack(benchmark::State& state) {
    const std::unique_ptr<jack_ringbuffer_t, decltype(&jack_ringbuffer_free)> ring(
        jack_ringbuffer_create(kCapacity), &jack_ringbuffer_free);
    Blocks<Size> in;
    Blocks<Size> out;
    for (auto _ : state) {
        Block<Size>& target = out.next();
        jack_ringbuffer_write(ring.get(), in.next().bytes.data(), Size);
        jack_ringbuffer_read(ring.get(), target.bytes.data(), Size);
        benchmark::DoNotOptimize(target);
    }
}

template <std::size_t Size>
void boostQueue(benchmark::State& state) {
    const auto ring =
        std::make_unique<boost::lockfree::spsc_queue<char, boost::lockfree::capacity<kCapacity>>>();
    Blocks<Size> in;
    Blocks<Size> out;
    for (auto _ : state) {
        Block<Size>& target = out.next();
        ring->push(in.next().bytes.data(), Size);
        ring->pop(target.bytes.data(), Size);
        benchmark::DoNotOptimize(target);
    }
}

template <std::size_t Size>
void readerWriterQueue(benchmark::State& state) {
    moodycamel::ReaderWriterQueue<Block<Size>> ring(kCapacity / Size);
    Blocks<Size> in;
    Blocks<Size> out;
    for (auto _ : state) {
        Block<Size>& target = out.next();
        ring.try_enqueue(in.next());
        ring.try_dequeue(target);
        benchmark::DoNotOptimize(target);
    }
}

template <std::size_t Size>
void addAll(const std::string& name) {
    bench::add(kArea, name, "ours", ours<Size>);
    bench::add(kArea, name, "jack_ringbuffer", jack<Size>);
    bench::add(kArea, name, "boost spsc_queue", boostQueue<Size>);
    bench::add(kArea, name, "ReaderWriterQueue", readerWriterQueue<Size>);
    bench::add(kArea, name, "limit", limit<Size>);
}

void copyForEver() {
    constexpr std::size_t kBytes = 1U << 20U;
    std::vector<char> from(kBytes);
    std::vector<char> to(kBytes);
    for (;;) {
        std::memcpy(to.data(), from.data(), kBytes);
        benchmark::ClobberMemory();
    }
}

}  // namespace

void registerBenchmarks() {
    const std::string name = "4 KiB written and read, one thread";
    if (TQ_BENCH_BESIDE_BUSY_CORE) {
        std::thread(copyForEver).detach();
        addAll<4096>(name + ", beside a busy core");
        return;
    }
    addAll<4096>(name);
    addAll<16>("16 B written and read, one thread");
}
