// Rebinding from inside the program whose own calls are redirected.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "HostRunner.h"
#include "common/Machine.h"
#include "hook/elf/LoadedImages.h"
#include "hook/rebind/Rebinder.h"
#include "hook/tq_hook.h"

extern "C" {
#include "hosts/target.h"
}

namespace {

using Add = int (*)(int, int);

Add savedFirst = nullptr;
Add savedSecond = nullptr;
Add savedLate = nullptr;

int first(int a, int b) {
    return savedFirst(a, b) + 1000;
}
int second(int a, int b) {
    return savedSecond(a, b) + 20000;
}
int late(int a, int b) {
    return savedLate(a, b) + 1000;
}
int unused(int /*a*/, int /*b*/) {
    return -1;
}

template <class Function>
void* address(Function* function) {
    return reinterpret_cast<void*>(function);
}

template <class Function>
tqhook_rebinding record(const char* symbol, Function* replacement, Function** saved) {
    return {symbol, address(replacement), reinterpret_cast<void**>(saved)};
}

int rebind(tqhook_rebinding rebinding) {
    return tqhook_rebind(&rebinding, 1, nullptr);
}

// The definition, asked for in a way that nothing redirects.
void* definitionOf(const char* library, const char* symbol) {
    const tqhook::LoaderCalls& calls = *tqhook::loaderCalls();
    void* handle = calls.open(hostLibrary(library).c_str(), RTLD_LAZY);
    return handle != nullptr ? calls.symbol(handle, symbol) : nullptr;
}

Add lookUp(void* scope, const char* symbol) {
    return reinterpret_cast<Add>(dlsym(scope, symbol));
}

TEST(Rebinding, ProgramsOwnCallsReachTheReplacement) {
    EXPECT_EQ(t_add(1, 2), 3);
    EXPECT_EQ(rebind(record("t_add", first, &savedFirst)), 0);
    EXPECT_EQ(t_add(1, 2), 1003);
    EXPECT_EQ(address(savedFirst), definitionOf("target", "t_add"));
}

TEST(Rebinding, DefiningLibraryKeepsItsInnerCalls) {
    rebind(record("t_add", first, &savedFirst));
    EXPECT_EQ(t_twice(1, 2), 6);
}

TEST(Rebinding, NewestReplacementRunsFirstAndCallsTheOneBefore) {
    rebind(record("t_add", first, &savedFirst));
    EXPECT_EQ(rebind(record("t_add", second, &savedSecond)), 0);
    EXPECT_EQ(address(savedSecond), address(first));
    EXPECT_EQ(t_add(1, 2), 21003);
    EXPECT_EQ(lookUp(RTLD_DEFAULT, "t_add"), second);
}

TEST(Rebinding, TwoReplacementsOfOneSymbolInOneRequestChain) {
    std::array both{record("t_add", first, &savedFirst), record("t_add", second, &savedSecond)};
    EXPECT_EQ(tqhook_rebind(both.data(), both.size(), nullptr), 0);
    EXPECT_EQ(address(savedSecond), address(first));
    EXPECT_EQ(t_add(1, 2), 21003);
}

TEST(Rebinding, ReplacementNamedAgainAnswersTheSameSavedFunction) {
    rebind(record("t_add", first, &savedFirst));
    Add again = nullptr;
    EXPECT_EQ(rebind(record("t_add", first, &again)), 0);
    EXPECT_EQ(again, savedFirst);
    EXPECT_EQ(t_add(1, 2), 1003);
}

TEST(Rebinding, MissingSymbolStopsNoOther) {
    Add nothing = unused;
    std::array records{record("t_defined_nowhere", unused, &nothing),
                       record("t_add", first, &savedFirst)};
    EXPECT_EQ(tqhook_rebind(records.data(), records.size(), nullptr), 0);
    EXPECT_EQ(nothing, nullptr);
    EXPECT_EQ(t_add(1, 2), 1003);
}

TEST(Rebinding, RecordWithoutSymbolOrReplacementIsRefusedAndTheOthersAreDone) {
    std::array<tqhook_rebinding, 4> records{tqhook_rebinding{nullptr, address(unused), nullptr},
                                            tqhook_rebinding{"t_add", nullptr, nullptr},
                                            tqhook_rebinding{"", address(unused), nullptr},
                                            record("t_add", first, &savedFirst)};
    EXPECT_EQ(tqhook_rebind(records.data(), records.size(), nullptr), -1);
    EXPECT_EQ(t_add(1, 2), 1003);
}

TEST(Rebinding, NoRecordsAreNoError) {
    EXPECT_EQ(tqhook_rebind(nullptr, 0, nullptr), 0);
    EXPECT_EQ(tqhook_rebind(nullptr, 1, nullptr), -1);
}

TEST(Rebinding, SavedFunctionNeedNotBeAskedFor) {
    EXPECT_EQ(rebind({"t_add", address(unused), nullptr}), 0);
    EXPECT_EQ(t_add(1, 2), -1);
}

TEST(Rebinding, SavedFunctionOfAnIndirectSymbolIsTheChosenOne) {
    int (*savedPick)() = nullptr;
    const int before = t_pick();
    static int (*keep)() = nullptr;
    int (*replacement)() = [] { return keep() + 1000; };
    EXPECT_EQ(rebind(record("t_pick", replacement, &savedPick)), 0);
    keep = savedPick;
    EXPECT_EQ(t_pick(), before + 1000);
}

class LateLibrary : public testing::TestWithParam<std::string> {};

TEST_P(LateLibrary, SymbolThatAppearsLaterIsRedirectedThen) {
    savedLate = unused;
    EXPECT_EQ(rebind(record("late_add", late, &savedLate)), 0);
    EXPECT_EQ(savedLate, nullptr);
    void* handle = dlopen(hostLibrary(GetParam()).c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    EXPECT_EQ(address(savedLate), definitionOf(GetParam().c_str(), "late_add"));
    Add found = lookUp(handle, "late_add");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found(1, 2), 1003);
}

INSTANTIATE_TEST_SUITE_P(Rebinding, LateLibrary,
                         testing::Values<std::string>("late_target", "late_target_sysv"),
                         [](const auto& each) { return each.param; });

TEST(Rebinding, DefiningLibraryIsNeverUnloadedAgain) {
    rebind(record("late_add", late, &savedLate));
    void* handle = dlopen(hostLibrary("late_target").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(savedLate, nullptr);
    dlclose(handle);
    EXPECT_EQ(late(1, 2), 1003);
}

TEST(Rebinding, LookupOfAVersionIsRedirectedToo) {
    constexpr const char* kVersion = tqcommon::kOldestLibcVersion;
    ASSERT_NE(dlvsym(RTLD_DEFAULT, "getppid", kVersion), nullptr);
    static pid_t (*saved)() = nullptr;
    pid_t (*replacement)() = [] { return saved() + 1; };
    rebind(record("getppid", replacement, &saved));
    EXPECT_EQ(dlvsym(RTLD_DEFAULT, "getppid", kVersion), address(replacement));
    EXPECT_EQ(dlvsym(RTLD_DEFAULT, "getppid", "GLIBC_0.0"), nullptr);
    EXPECT_NE(dlerror(), nullptr);
    EXPECT_EQ(getppid(), saved() + 1);
}

TEST(Rebinding, SavedFunctionIsTheOneThatCallersOfTodayReach) {
    // The only caller in sight is bound to the first version.
    ASSERT_NE(dlopen(hostLibrary("versioned_caller").c_str(), RTLD_NOW | RTLD_LOCAL), nullptr)
        << dlerror();
    int (*saved)() = nullptr;
    int (*replacement)() = [] { return 0; };
    EXPECT_EQ(rebind(record("v_changed", replacement, &saved)), 0);
    ASSERT_NE(saved, nullptr);
    EXPECT_EQ(saved(), 2);
}

TEST(Rebinding, PluginThatADefiningLibraryLoadsIsRedirected) {
    rebind(record("t_add", first, &savedFirst));
    void* backend = dlopen(hostLibrary("backend").c_str(), RTLD_LAZY | RTLD_LOCAL);
    ASSERT_NE(backend, nullptr) << dlerror();
    auto call = reinterpret_cast<int (*)(const char*, int, int)>(dlsym(backend, "b_callOfPlugin"));
    ASSERT_NE(call, nullptr);
    EXPECT_EQ(call(hostLibrary("plugin_lazy").c_str(), 1, 2), 1003);
}

TEST(Rebinding, LibraryThatComesToDefineASymbolLooksUpWhatItLookedUpBefore) {
    int (*savedPick)() = nullptr;
    int (*replacement)() = [] { return -1; };
    void* backend = dlopen(hostLibrary("backend").c_str(), RTLD_LAZY | RTLD_LOCAL);
    ASSERT_NE(backend, nullptr) << dlerror();
    const auto lookUp = reinterpret_cast<void* (*)(const char*)>(dlsym(backend, "b_lookUp"));
    ASSERT_NE(lookUp, nullptr);
    EXPECT_EQ(rebind(record("t_pick", replacement, &savedPick)), 0);
    EXPECT_EQ(lookUp("t_pick"), address(replacement)) << "its lookups were redirected first";
    rebind(record("t_add", first, &savedFirst));
    EXPECT_EQ(lookUp("t_pick"), address(savedPick)) << "it stands behind a redirected call now";
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "t_pick"), address(replacement));
}

TEST(Rebinding, LoaderFunctionsThatAreLookedUpLoadRedirectedPlugins) {
    rebind(record("t_add", first, &savedFirst));
    auto open = reinterpret_cast<void* (*)(const char*, int)>(dlsym(RTLD_DEFAULT, "dlopen"));
    auto symbol = reinterpret_cast<void* (*)(void*, const char*)>(dlsym(RTLD_DEFAULT, "dlsym"));
    void* handle = open(hostLibrary("plugin_lazy").c_str(), RTLD_LAZY);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(reinterpret_cast<Add>(symbol(handle, "p_call"))(1, 2), 1003);
    EXPECT_EQ(reinterpret_cast<Add>(symbol(RTLD_DEFAULT, "t_add")), first);
}

TEST(Rebinding, PluginLoadedIntoTheFirstNamespaceByNumberIsRedirected) {
    rebind(record("t_add", first, &savedFirst));
    void* handle = dlmopen(LM_ID_BASE, hostLibrary("plugin_lazy").c_str(), RTLD_LAZY);
    ASSERT_NE(handle, nullptr) << dlerror();
    EXPECT_EQ(lookUp(handle, "p_call")(1, 2), 1003);
}

TEST(Rebinding, LookupsThatDoNotConcernUsAnswerAsBefore) {
    void* const before = dlsym(RTLD_DEFAULT, "strlen");
    rebind(record("t_add", first, &savedFirst));
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "strlen"), before);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "t_defined_nowhere"), nullptr);
    EXPECT_NE(dlerror(), nullptr);
    EXPECT_EQ(dlopen("libhook_is_nowhere.so", RTLD_LAZY | RTLD_NOLOAD), nullptr);
    dlerror();
    void* program = dlopen(nullptr, RTLD_LAZY);
    EXPECT_NE(program, nullptr);
    EXPECT_EQ(dlerror(), nullptr);
}

TEST(Rebinding, RequestLeavesNoLoaderMessage) {
    std::array records{record("t_defined_nowhere", unused, static_cast<Add*>(nullptr)),
                       record("t_add", first, &savedFirst)};
    tqhook_rebind(records.data(), records.size(), nullptr);
    EXPECT_EQ(dlerror(), nullptr);
}

TEST(Rebinding, ReportCountsEachKindOfSlot) {
    tqhook_counts before{};
    tqhook_report(&before);
    EXPECT_EQ(before.images, 0U);
    rebind(record("t_add", first, &savedFirst));
    tqhook_counts loaded{};
    tqhook_report(&loaded);
    EXPECT_GT(loaded.images, 2U);
    void* handle = dlopen(hostLibrary("plugin_lazy").c_str(), RTLD_LAZY);
    ASSERT_NE(handle, nullptr);
    tqhook_counts after{};
    tqhook_report(&after);
    EXPECT_GE(after.images, loaded.images + 1);
    EXPECT_EQ(after.callSlots, loaded.callSlots + 2) << "t_add and dlsym";
    EXPECT_EQ(after.dataPointers, loaded.dataPointers + 2);
    EXPECT_EQ(after.refusedImages, 0U);
    tqhook_report(nullptr);
}

TEST(Rebinding, ChildProcessGoesOnRedirecting) {
    rebind(record("t_add", first, &savedFirst));
    const pid_t child = fork();
    if (child == 0) {
        void* handle = dlopen(hostLibrary("plugin_lazy").c_str(), RTLD_LAZY);
        const bool isRedirected =
            handle != nullptr && lookUp(handle, "p_call")(1, 2) == 1003 && t_add(1, 2) == 1003;
        _exit(isRedirected ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

// A second thread that lives through the test: only then can a slot be lost to lazy binding.
class SecondThread {
  public:
    SecondThread() : thread_([this] { wait(); }) {}
    ~SecondThread() {
        {
            const std::lock_guard lock(mutex_);
            isOver_ = true;
        }
        condition_.notify_one();
        thread_.join();
    }
    SecondThread(const SecondThread&) = delete;
    SecondThread& operator=(const SecondThread&) = delete;

  private:
    void wait() {
        std::unique_lock lock(mutex_);
        condition_.wait(lock, [this] { return isOver_; });
    }
    std::mutex mutex_;
    std::condition_variable condition_;
    bool isOver_ = false;
    std::thread thread_;
};

std::uintptr_t callSlotOf(const char* library, const char* symbol) {
    const tqhook::LoadedImages loaded = tqhook::loadedImages();
    std::uintptr_t address = 0;
    for (const tqhook::ImageLayout& layout : loaded.images) {
        if (!layout.name.ends_with(library)) {
            continue;
        }
        const tqhook::ElfImage image(layout);
        image.forEachSlot([&](const tqhook::Slot& slot) {
            if (slot.kind == tqhook::SlotKind::call && image.symbolName(slot.symbol) == symbol) {
                address = slot.address;
            }
        });
    }
    return address;
}

TEST(Rebinding, SlotThatLazyBindingTookBackIsRedirectedAgain) {
    const SecondThread other;
    rebind(record("t_add", first, &savedFirst));
    void* handle = dlopen(hostLibrary("plugin_lazy").c_str(), RTLD_LAZY);
    ASSERT_NE(handle, nullptr);
    const std::uintptr_t slot = callSlotOf("libhook_plugin_lazy.so", "t_add");
    ASSERT_NE(slot, 0U);
    ASSERT_EQ(tqhook::slotValue(slot), address(first));
    // What a thread does that was inside lazy binding when the slot was changed.
    *reinterpret_cast<void**>(slot) = address(savedFirst);
    EXPECT_EQ(lookUp(handle, "p_call")(1, 2), 3);
    tqhook::Rebinder::shared().verify();
    EXPECT_EQ(lookUp(handle, "p_call")(1, 2), 1003);
    EXPECT_GE(tqhook::Rebinder::shared().report().restoredSlots, 1U);
}

// Has lost its slot to lazy binding while more than one thread ran, and gets it back from nobody
// but the verifying thread.
bool isRestoredByItself(const char* plugin) {
    const SecondThread other;
    void* handle = dlopen(hostLibrary(plugin).c_str(), RTLD_LAZY);
    const std::uintptr_t slot =
        callSlotOf(("libhook_" + std::string(plugin) + ".so").c_str(), "t_add");
    if (handle == nullptr || slot == 0) {
        return false;
    }
    *reinterpret_cast<void**>(slot) = address(savedFirst);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (tqhook::slotValue(slot) != address(first)) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

TEST(Rebinding, ChildForkedDuringAVerificationVerifiesToo) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "this build starts no thread in the child of a program with threads";
#endif
    const SecondThread other;
    rebind(record("t_add", first, &savedFirst));
    ASSERT_NE(dlopen(hostLibrary("plugin_lazy").c_str(), RTLD_LAZY), nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(60);
        _exit(isRestoredByItself("plugin_sysv") ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST(Rebinding, VerificationComesToAnEnd) {
    const SecondThread other;
    rebind(record("t_add", first, &savedFirst));
    void* handle = dlopen(hostLibrary("plugin_lazy").c_str(), RTLD_LAZY);
    ASSERT_NE(handle, nullptr);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    bool goesOn = true;
    while (goesOn && std::chrono::steady_clock::now() < limit) {
        tqhook::Rebinder::shared().verify();
        goesOn = tqhook::Rebinder::shared().mustVerifyAgain();
    }
    EXPECT_FALSE(goesOn);
}

}  // namespace
