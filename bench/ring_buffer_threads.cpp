// Queues of bytes between two threads, as fast as they go: what a block costs when each cache line
// crosses from one core to the other.
#include <jack/ringbuffer.h>
#include <readerwriterqueue/readerwriterqueue.h>
#include <ring_buffer.h>
#include <boost/lockfree/spsc_queue.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "Bench.h"

namespace {

constexpr std::size_t kCapacity = 65536;
constexpr std::size_t kSize = 4096;

/// Waits for the other thread; gives the core away when that one seems not to have one.
class Patience {
  public:
    void wait() {
        constexpr int kSpins = 2000;
        if (++spins_ > kSpins) {
            spins_ = 0;
            std::this_thread::yield();
        }
#if defined(__x86_64__)
        __builtin_ia32_pause();
#endif
    }

  private:
    int spins_ = 0;
};

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

constexpr int kBlocks = 16;
constexpr std::size_t kChunks = 2000;
constexpr std::size_t kWarmChunks = 200;

enum class Statistic { Median, FastestTenth };

/// Nanoseconds a block of many short chunks. A machine that is also used by others takes a core
/// away now and then; the fastest tenth shows the queue, the median the queue on this machine.
template <class Queue>
double nanosecondsPerBlock(Statistic statistic) {
    using Clock = std::chrono::steady_clock;
    Queue queue;
    std::atomic<bool> isOver{false};
    std::thread writer([&] {
        Block block{};
        Patience patience;
        while (!isOver.load(std::memory_order_relaxed)) {
            if (!queue.write(block)) {
                patience.wait();
            }
        }
    });
    Block block{};
    Patience patience;
    std::vector<double> chunks;
    chunks.reserve(kChunks);
    for (std::size_t chunk = 0; chunk < kChunks + kWarmChunks; ++chunk) {
        const auto start = Clock::now();
        for (int i = 0; i < kBlocks; ++i) {
            while (!queue.read(block)) {
                patience.wait();
            }
            benchmark::DoNotOptimize(block);
        }
        if (chunk >= kWarmChunks) {
            const std::chrono::duration<double, std::nano> took = Clock::now() - start;
            chunks.push_back(took.count() / kBlocks);
        }
    }
    isOver = true;
    writer.join();
    const auto at = chunks.begin() + (statistic == Statistic::Median ? kChunks / 2 : kChunks / 10);
    std::nth_element(chunks.begin(), at, chunks.end());
    return *at;
}

template <class Queue>
void add(const char* variant) {
    const auto addOne = [&](const char* name, Statistic statistic) {
        bench::add("ring buffer", name, variant, [statistic](benchmark::State& state) {
            for (auto _ : state) {
                state.counters["value"] = nanosecondsPerBlock<Queue>(statistic);
            }
        })->Iterations(1);
    };
    addOne("4 KiB from thread to thread, median", Statistic::Median);
    addOne("4 KiB from thread to thread, fastest tenth", Statistic::FastestTenth);
}

}  // namespace

void registerBenchmarks() {
    add<Ours>("ours");
    add<Jack>("jack_ringbuffer");
    add<BoostQueue>("boost spsc_queue");
    add<ReaderWriterQueue>("ReaderWriterQueue");
}
