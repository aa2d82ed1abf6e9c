#include <algorithm>
#include <thread>

#include "bridges/core/FrameFifo.h"

namespace tq::bridges {
namespace {

using Counted = std::vector<std::uint32_t>;

/// Reads until the writer has ended and nothing waits; frames count up, and never come twice.
void readRising(FrameFifo& fifo, const std::atomic<bool>& hasEnded) {
    std::uint32_t last = 0;
    Counted pre(64);
    Counted post(64);
    for (;;) {
        const bool isLast = hasEnded.load();
        const std::size_t count = fifo.read(pre.data(), post.data(), pre.size());
        for (std::size_t i = 0; i < count; ++i) {
            if (pre[i] != 0) {
                ASSERT_GT(pre[i], last);
                ASSERT_TRUE(post[i] == pre[i] || post[i] == ~pre[i]);
                last = pre[i];
            }
        }
        if (count == 0 && isLast) {
            return;
        }
    }
}

TEST(FrameFifoThreads, FramesStayInOrderWhileOthersFlushAndTheWriterTakesBack) {
    auto fifo = FrameFifo::tryMake(4, 100);
    std::atomic<bool> hasEnded = false;
    std::jthread reader([&] { readRising(*fifo, hasEnded); });
    std::jthread flusher([&] {
        while (!hasEnded.load()) {
            fifo->flush();
            std::this_thread::yield();
        }
    });
    std::uint32_t next = 1;
    Counted pre(90);
    Counted post(90);
    for (unsigned i = 0; i < 20000; ++i) {
        const std::size_t count = i % 90 + 1;
        for (std::size_t frame = 0; frame < count; ++frame) {
            pre[frame] = next++;
            post[frame] = ~pre[frame];
        }
        fifo->write(pre.data(), i % 7 < 3 ? post.data() : nullptr, count);
        if (i % 5 == 0) {
            // What is taken back is not written again, so a frame that comes is never too late.
            fifo->takeBack(i % 40);
        }
    }
    hasEnded = true;
    flusher.join();
    reader.join();
    const FrameCounts counts = fifo->counts();
    EXPECT_EQ(counts.waiting, 0u);
    EXPECT_EQ(counts.written, counts.read + counts.flushed + counts.takenBack);
}

TEST(FrameFifoThreads, SoundThatTakesThePlaceOfSilenceIsNeverCut) {
    auto fifo = FrameFifo::tryMake(4, 100);
    std::atomic<bool> hasEnded = false;
    std::uint64_t heard = 0;
    std::jthread reader([&] {
        Counted pre(64);
        for (;;) {
            const bool isLast = hasEnded.load();
            fifo->cutSilence(100);
            const std::size_t count = fifo->read(pre.data(), nullptr, pre.size());
            heard += static_cast<std::uint64_t>(
                std::count_if(pre.begin(), pre.begin() + static_cast<std::ptrdiff_t>(count),
                              [](std::uint32_t frame) { return frame != 0; }));
            if (count == 0 && isLast) {
                return;
            }
        }
    });
    const Counted silence(100, 0);
    const Counted sound(100, 1);
    std::uint64_t written = 0;
    for (unsigned i = 0; i < 100000; ++i) {
        fifo->write(silence.data(), nullptr, 100);
        const std::size_t room = fifo->takeBack(100);
        const std::uint64_t lost = fifo->counts().lost;
        fifo->write(sound.data(), nullptr, room);
        written += room - (fifo->counts().lost - lost);
    }
    hasEnded = true;
    reader.join();
    EXPECT_EQ(heard, written);
    const FrameCounts counts = fifo->counts();
    EXPECT_EQ(counts.written, counts.read + counts.cut + counts.takenBack);
}

}  // namespace
}  // namespace tq::bridges
