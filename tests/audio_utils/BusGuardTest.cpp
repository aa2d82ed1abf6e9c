#include "bus_guard.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <thread>
#include <utility>

#include "CutPage.h"

namespace korva_audio_utils {
namespace {

TEST(BusGuardTest, AnAccessToACutFileFindsZerosAndGoesOn) {
    volatile char* const page = CutPage();
    const BusGuard guard(Address(page), kPage);
    EXPECT_FALSE(guard.isCutOff());
    page[5] = 7;
    EXPECT_TRUE(guard.isCutOff());
    EXPECT_EQ(page[5], 7);
    EXPECT_EQ(page[6], 0);
}

TEST(BusGuardTest, TheGuardGoesWithItsObject) {
    volatile char* const page = CutPage();
    BusGuard first(Address(page), kPage);
    BusGuard second;
    second = std::move(first);
    first = BusGuard();
    page[0] = 1;
    EXPECT_TRUE(second.isCutOff());
    EXPECT_FALSE(first.isCutOff());
}

TEST(BusGuardDeathTest, AnyOtherPageStillKillsByTheSameSignal) {
    const auto child = [] {
        std::signal(SIGBUS, SIG_DFL);  // a sanitizer's report would end the child with a code
        volatile char* const guarded = CutPage();
        volatile char* const other = CutPage();
        const BusGuard guard(Address(guarded), kPage);
        other[0] = 1;
        std::_Exit(0);
    };
    EXPECT_EXIT(child(), testing::KilledBySignal(SIGBUS), "");
}

TEST(BusGuardDeathTest, ASignalThatWasSentStillKills) {
    const auto child = [] {
        std::signal(SIGBUS, SIG_DFL);
        volatile char* const guarded = CutPage();
        const BusGuard guard(Address(guarded), kPage);
        std::raise(SIGBUS);
        std::_Exit(0);
    };
    EXPECT_EXIT(child(), testing::KilledBySignal(SIGBUS), "");
}

TEST(BusGuardDeathTest, AHandlerThatWasThereBeforeGetsWhatIsNotGuarded) {
    const auto child = [] {
        std::signal(SIGBUS, [](int) { std::_Exit(42); });
        volatile char* const guarded = CutPage();
        volatile char* const other = CutPage();
        const BusGuard guard(Address(guarded), kPage);
        guarded[0] = 1;
        other[0] = 1;
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(42), "");
}

TEST(BusGuardDeathTest, AThreadThatBlocksTheSignalLetsItThroughOnce) {
    const auto child = [](bool lets) {
        std::signal(SIGBUS, SIG_DFL);
        volatile char* const guarded = CutPage();
        const BusGuard guard(Address(guarded), kPage);
        std::thread([guarded, lets] {
            sigset_t all;
            sigfillset(&all);
            pthread_sigmask(SIG_SETMASK, &all, nullptr);
            if (lets) {
                BusGuard::letThrough();
            }
            guarded[0] = 1;
        }).join();
        std::_Exit(44);
    };
    EXPECT_EXIT(child(true), testing::ExitedWithCode(44), "");
    EXPECT_EXIT(child(false), testing::KilledBySignal(SIGBUS), "");
}

TEST(BusGuardDeathTest, AMappingIsNoLongerGuardedAfterItsGuard) {
    const auto child = [] {
        std::signal(SIGBUS, SIG_DFL);
        volatile char* const page = CutPage();
        { const BusGuard guard(Address(page), kPage); }
        page[0] = 1;
        std::_Exit(0);
    };
    EXPECT_EXIT(child(), testing::KilledBySignal(SIGBUS), "");
}

}  // namespace
}  // namespace korva_audio_utils
