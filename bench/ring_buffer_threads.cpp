// Queues of bytes between two threads, as fast as they go: what a block costs when each cache line
// crosses from one core to the other.
#include <jack/ringbuffer.h>
#include <readerwriterqueue/readerwriterqueue.h>
#include <ring_buffer.h>
#include <boost/lockfree/spsc_queue.hpp>

#include <array>
#include <atomic>
#include <memory>
#include <thread>

#include "Bench.h"

namespace {

constexpr std::size_t kCapacity = 65536;
constexpr std::size_t kSize = 4096;

struct alignas(64) Block {
    std::array<char, kSize> bytes;
};

struct Ours {
    Ours() { ring.Init(kCapacity, 1, kCapacity); }
    bool write(const Block& block) { return ring.WriteBuffer(block.bytes.data(), kSize) != 0; }
    bool read(Block& block) { return ring.ReadBuffer(nullptr, block.bytes.data(), kSize) != 0; }
    korva_audio_utils::RingBuffer ring;
};

struct Jack {
    bool write(const Block& block) {
        return jack_ringbuffer_write_space(ring.get()) >= kSize &&
               jack_ringbuffer_write(ring.get(), block.bytes.data(), kSize) != 0;
    }
    bool read(Block& block) {
        return jack_ringbuffer_read_space(ring.get()) >= kSize &&
               jack_ringbuffer_read(ring.get(), block.bytes.data(), kSize) != 0;
    }
    std::unique_ptr<jack_ringbuffer_t, decltype(&jack_ringbuffer_free)> ring{
        jack_ringbuffer_create(kCapacity), &jack_ringbuffer_free};
};

struct BoostQueue {
    bool write(const Block& block) {
        return ring->write_available() >= kSize && ring->push(block.bytes.data(), kSize) != 0;
    }
    bool read(Block& block) {
        return ring->read_available() >= kSize && ring->pop(block.bytes.data(), kSize) != 0;
    }
    using Queue = boost::lockfree::spsc_queue<char, boost::lockfree::capacity<kCapacity>>;
    std::unique_ptr<Queue> ring = std::make_unique<Queue>();
};

struct ReaderWriterQueue {
    bool write(const Block& block) { return ring.try_enqueue(block); }
    bool read(Block& block) { return ring.try_dequeue(block); }
    moodycamel::ReaderWriterQueue<Block> ring{kCapacity / kSize};
};

/// One iteration moves this many blocks, so that a wait of the other thread is part of the figure.
constexpr int kBlocks = 64;

template <class Queue>
void transfer(benchmark::State& state) {
    Queue queue;
    std::atomic<bool> isOver{false};
    std::thread writer([&] {
        Block block{};
        while (!isOver.load(std::memory_order_relaxed)) {
            queue.write(block);
        }
    });
    Block block{};
    for (auto _ : state) {
        for (int i = 0; i < kBlocks; ++i) {
            while (!queue.read(block)) {
            }
            benchmark::DoNotOptimize(block);
        }
    }
    isOver = true;
    writer.join();
    state.counters["blocks"] = kBlocks;
}

template <class Queue>
void add(const char* variant) {
    bench::add("ring buffer", "64 blocks of 4 KiB from thread to thread", variant, transfer<Queue>)
        ->UseRealTime();
}

}  // namespace

void registerBenchmarks() {
    add<Ours>("ours");
    add<Jack>("jack_ringbuffer");
    add<BoostQueue>("boost spsc_queue");
    add<ReaderWriterQueue>("ReaderWriterQueue");
}
