#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "CapturePathFixture.h"
#include "tq_capture.h"

// Every call of the interface at once, while the device renders and the program makes, starts and
// ends units: nothing hangs, and no callback comes behind the stop of its listener.

namespace {

struct Life {
    std::atomic<bool> isOver{false};
    std::atomic<int> calls{0};
    std::atomic<int> callsAfterTheEnd{0};

    void called() {
        ++calls;
        callsAfterTheEnd += isOver ? 1 : 0;
        tq_capture_state state{};
        state.size = sizeof state;
        EXPECT_EQ(tq_capture_get_state(&state), TQ_OK);
        tq_unit_counts counts{};
        counts.size = sizeof counts;
        EXPECT_EQ(tq_capture_get_unit_counts(&counts), TQ_OK);
    }
    template <class Told>
    static void hear(void* life, const Told* /*told*/) {
        static_cast<Life*>(life)->called();
    }
};

void listenOnce(std::atomic<int>& calls) {
    Life life;
    tq_listener wanted{};
    wanted.size = sizeof wanted;
    wanted.context = &life;
    wanted.on_mix = Life::hear<tq_block>;
    wanted.on_track = Life::hear<tq_block>;
    wanted.on_event = Life::hear<tq_event>;
    wanted.on_log = Life::hear<tq_log_line>;
    wanted.on_unit = Life::hear<tq_unit>;
    tq_listening* handle = nullptr;
    ASSERT_EQ(tq_capture_listen(&wanted, &handle), TQ_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    // Two threads stop it: one of them has.
    std::atomic<int> stops{0};
    const auto stop = [&] { stops += tq_capture_stop(handle) == TQ_OK ? 1 : 0; };
    std::thread other(stop);
    stop();
    other.join();
    EXPECT_EQ(stops, 1);
    life.isOver = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(life.callsAfterTheEnd, 0);
    calls += life.calls;
}

void turnVolume() {
    tq_volume* volume = nullptr;
    ASSERT_EQ(tq_volume_open(&volume), TQ_OK);
    tq_ducking ducking{};
    ducking.size = sizeof ducking;
    ASSERT_EQ(tq_ducking_defaults(&ducking), TQ_OK);
    (void)tq_volume_set_ducking(volume, &ducking);
    (void)tq_volume_set_ducking_level(volume, 0);
    EXPECT_EQ(tq_volume_close(volume), TQ_OK);
}

void askForAll() {
    EXPECT_EQ(tq_capture_units([](void*, const tq_unit*) {}, nullptr), TQ_OK);
    EXPECT_EQ(tq_capture_tracks([](void*, const tq_track*) {}, nullptr), TQ_OK);
    EXPECT_EQ(tq_capture_settle(), TQ_OK);
}

using CapiThreads = CapturePath;

TEST_F(CapiThreads, EverythingAtOnce) {
    std::atomic<bool> isOver{false};
    std::atomic<int> calls{0};
    const auto repeat = [&isOver](std::function<void()> body) {
        return std::thread([&isOver, body = std::move(body)] {
            while (!isOver) {
                body();
            }
        });
    };
    std::uint64_t now = 1'000'000'000;
    std::vector<std::thread> threads;
    threads.push_back(repeat([&now] {
        (void)TQManualDevicePump(480, now);
        now += 10'000'000;
    }));
    for (int i = 0; i < 2; ++i) {
        threads.push_back(repeat([&calls] { listenOnce(calls); }));
    }
    threads.push_back(repeat([] {
        HostUnit host;
        host.play();
        host.stop();
    }));
    threads.push_back(repeat([] {
        HostGraph graph;
        graph.play();
        graph.dispose();
    }));
    threads.push_back(repeat(turnVolume));
    threads.push_back(repeat(askForAll));
    threads.push_back(repeat([] {
        EXPECT_EQ(tq_capture_restart(), TQ_OK);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(calls, 0);
    EXPECT_EQ(tq_capture_settle(), TQ_OK);
    EXPECT_FALSE(manager().isCapturing());
}

}  // namespace
