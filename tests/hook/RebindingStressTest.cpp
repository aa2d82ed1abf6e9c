// Loading, unloading, binding and redirecting at the same time.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "HostRunner.h"
#include "hook/rebind/LoaderCalls.h"
#include "hook/rebind/Rebinder.h"
#include "hook/tq_hook.h"
#include "support/TemporaryFolder.h"

extern "C" {
#include "hosts/target.h"
}

#if defined(__SANITIZE_THREAD__)
// The loader guards its memory with a lock of its own that the sanitizer cannot see: what it
// allocates and frees itself looks unordered. What we read of it is not suppressed.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
    return "called_from_lib:ld-linux-x86-64.so.2\n"
           "called_from_lib:ld-linux-aarch64.so.1\n";
}
#endif

namespace {

using Add = int (*)(int, int);

constexpr int kLoads = 1500;

Add savedAdd = nullptr;
int hookedAdd(int a, int b) {
    return savedAdd(a, b) + 1000;
}

void rebindAdd() {
    tqhook_rebinding record{"t_add", reinterpret_cast<void*>(&hookedAdd),
                            reinterpret_cast<void**>(&savedAdd)};
    ASSERT_EQ(tqhook_rebind(&record, 1, nullptr), 0);
}

TEST(RebindingStress, EachLoadIsRedirectedWhileAnotherThreadLoadsUnseen) {
    rebindAdd();
    std::atomic<bool> isOver{false};
    // Loads that go past us: they come and go while the images are looked through.
    std::thread unseen([&isOver] {
        const tqhook::LoaderCalls& calls = *tqhook::loaderCalls();
        const std::string file = hostLibrary("plugin_now");
        while (!isOver.load()) {
            if (void* handle = calls.open(file.c_str(), RTLD_NOW)) {
                dlclose(handle);
            }
        }
    });
    std::thread scanning([&isOver] {
        while (!isOver.load()) {
            tqhook::Rebinder::shared().scan();
        }
    });
    const std::string file = hostLibrary("plugin_lazy");
    int redirected = 0;
    for (int i = 0; i < kLoads; ++i) {
        void* handle = dlopen(file.c_str(), RTLD_LAZY);
        if (handle == nullptr) {
            continue;
        }
        const Add call = reinterpret_cast<Add>(dlsym(handle, "p_call"));
        redirected += call != nullptr && call(1, 2) == 1003 ? 1 : 0;
        dlclose(handle);
    }
    isOver.store(true);
    unseen.join();
    scanning.join();
    EXPECT_EQ(redirected, kLoads);
}

TEST(RebindingStress, RequestsFromManyThreadsLoseNoReplacement) {
    static std::array<Add, 4> saved{};
    static constexpr std::array<Add, 4> kReplacements{
        [](int a, int b) { return saved[0](a, b) + 1; },
        [](int a, int b) { return saved[1](a, b) + 10; },
        [](int a, int b) { return saved[2](a, b) + 100; },
        [](int a, int b) { return saved[3](a, b) + 1000; }};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kReplacements.size(); ++i) {
        threads.emplace_back([i] {
            tqhook_rebinding record{"t_add", reinterpret_cast<void*>(kReplacements[i]),
                                    reinterpret_cast<void**>(&saved[i])};
            tqhook_rebind(&record, 1, nullptr);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(t_add(1, 2), 1114);
}

// Names of many lengths: a sanitizer watches memory by words, and a name that fills its last word
// shows what a shorter one hides.
TEST(RebindingStress, ImagesAreReadWhileManyThreadsLoad) {
    constexpr std::size_t kThreads = 9;
    constexpr int kRounds = 60;
    rebindAdd();
    const TemporaryFolder folder;
    std::atomic<std::size_t> running{kThreads};
    std::atomic<int> redirected{0};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        const std::string file = folder.file("lib" + std::string(i + 1, 'a') + ".so");
        std::filesystem::copy_file(hostLibrary("plugin_lazy"), file);
        threads.emplace_back([&running, &redirected, file] {
            for (int round = 0; round < kRounds; ++round) {
                void* handle = dlopen(file.c_str(), RTLD_LAZY | RTLD_LOCAL);
                const Add call =
                    handle != nullptr ? reinterpret_cast<Add>(dlsym(handle, "p_call")) : nullptr;
                redirected += call != nullptr && call(1, 2) == 1003 ? 1 : 0;
                if (handle != nullptr) {
                    dlclose(handle);
                }
            }
            --running;
        });
    }
    while (running.load() != 0) {
        tqhook::Rebinder::shared().scan();
        tqhook::Rebinder::shared().verify();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(redirected.load(), static_cast<int>(kThreads) * kRounds);
}

std::array<int (*)(), 64> savedRace{};

template <std::size_t kIndex>
int hookedRace() {
    return savedRace[kIndex]() + 1;
}

template <std::size_t... kIndices>
std::array<int (*)(), sizeof...(kIndices)> hooks(std::index_sequence<kIndices...> /*unused*/) {
    return {&hookedRace<kIndices>...};
}

TEST(RebindingStress, SlotsBoundWhileTheyAreRedirectedAreAllRedirectedInTheEnd) {
    constexpr int kRounds = 400;
    const std::string file = hostLibrary("race_plugin");
    // Keeps the functions where they are while the plug-in comes and goes.
    ASSERT_NE(dlopen(file.c_str(), RTLD_LAZY), nullptr) << dlerror();
    const auto replacements = hooks(std::make_index_sequence<64>());
    std::array<std::string, 64> names;
    std::array<tqhook_rebinding, 64> records{};
    for (std::size_t i = 0; i < records.size(); ++i) {
        names[i] = "race_" + std::to_string(i / 8) + std::to_string(i % 8);
        records[i] = {names[i].c_str(), reinterpret_cast<void*>(replacements[i]),
                      reinterpret_cast<void**>(&savedRace[i])};
    }
    ASSERT_EQ(tqhook_rebind(records.data(), records.size(), nullptr), 0);

    const tqhook::LoaderCalls& calls = *tqhook::loaderCalls();
    const std::string plugin = hostLibrary("race_plugin_copy");
    int redirected = 0;
    for (int round = 0; round < kRounds; ++round) {
        // Loaded unseen, so that the slots are fresh when the threads meet.
        void* handle = calls.open(plugin.c_str(), RTLD_LAZY);
        ASSERT_NE(handle, nullptr) << dlerror();
        const auto sum = reinterpret_cast<int (*)()>(calls.symbol(handle, "race_sum"));
        std::atomic<bool> mayStart{false};
        // A different head start each round: somewhere the two are at the same slots.
        std::thread calling([&mayStart, sum, round] {
            while (!mayStart.load()) {
            }
            std::atomic<int> spins{0};
            while (spins.fetch_add(1) < round * 60) {
            }
            EXPECT_GE(sum(), 64);
        });
        mayStart.store(true);
        tqhook::Rebinder::shared().scan();
        calling.join();
        // The calling thread is through: whatever binding took back is there to be seen.
        tqhook::Rebinder::shared().verify();
        redirected += sum() == 128 ? 1 : 0;
        dlclose(handle);
    }
    EXPECT_EQ(redirected, kRounds);
}

}  // namespace
