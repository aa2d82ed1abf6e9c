#include <array>
#include <string>
#include <vector>

#include "CapturePathFixture.h"
#include "tq_capture.h"

// The rules that recordings may ask for.

namespace {

using testing::ElementsAre;
using testing::IsNull;
using testing::Not;

struct Rules : CapturePath {
    void TearDown() override {
        set(0, 0);
        CapturePath::TearDown();
    }
    static void set(std::uint32_t freesOwn, std::uint32_t endsDisposed) {
        tq_capture_rules rules{};
        rules.size = sizeof rules;
        rules.frees_own_number_only = freesOwn;
        rules.ends_disposed_units = endsDisposed;
        EXPECT_EQ(tq_capture_set_rules(&rules), TQ_OK);
    }
    /// What a program does that leaves the rest to the platform.
    static void disposeInitialised(HostUnit& host) {
        EXPECT_EQ(AudioComponentInstanceDispose(host.unit()), 0);
    }
};

/// The number of the third unit, disposed of, and those of two units that come after it.
std::vector<int> numbersAfterTheThirdHasGone() {
    HostUnit first;
    HostUnit second;
    {
        HostUnit third;
        third.prepare();
        third.uninitialize();
    }
    HostUnit fourth;
    HostUnit fifth;
    return {fourth.object()->trackId(), fifth.object()->trackId()};
}

TEST_F(Rules, ByDefaultAReleasedNumberIsTheMaskOfWhatBecomesFree) {
    EXPECT_THAT(numbersAfterTheThirdHasGone(), ElementsAre(1, 2));
}

TEST_F(Rules, ThatANumberFreesItselfAloneHolds) {
    set(1, 0);
    EXPECT_THAT(numbersAfterTheThirdHasGone(), ElementsAre(3, 4));
}

TEST_F(Rules, WithoutTheirEndAnEighthOfTheDisposedUnitsGetsNoNumber) {
    // Kept, because what ends a HostUnit uninitialises.
    std::array<HostUnit, 7> hosts;
    for (HostUnit& host : hosts) {
        host.play();
        disposeInitialised(host);
    }
    const HostUnit eighth;
    EXPECT_THAT(eighth.object(), IsNull());
}

TEST_F(Rules, DisposedUnitsAreEndedForEver) {
    set(1, 1);
    ASSERT_TRUE(startCapture());
    for (int i = 0; i < 100; ++i) {
        HostUnit passing;
        passing.play();
        ASSERT_THAT(passing.object(), Not(IsNull())) << i;
        ASSERT_TRUE(passing.object()->isCapturing()) << i;
        disposeInitialised(passing);
        ASSERT_THAT(passing.object(), IsNull()) << i;
    }
    EXPECT_EQ(manager().trackId(), 0);
}

TEST_F(Rules, AUnitWithoutACaptureObjectIsDisposedOfUntouched) {
    set(1, 1);
    HostUnit host;
    host.prepare();
    host.uninitialize();
    const std::size_t before = platform.count("AudioUnitUninitialize");
    disposeInitialised(host);
    EXPECT_EQ(platform.count("AudioUnitUninitialize"), before);
}

TEST_F(Rules, WhatEndsDisposedUnitsCanBeSwitchedOffAgain) {
    set(0, 1);
    set(0, 0);
    HostUnit host;
    host.play();
    disposeInitialised(host);
    EXPECT_THAT(host.object(), Not(IsNull()));
}

TEST_F(Rules, BadInputIsRefused) {
    EXPECT_EQ(tq_capture_set_rules(nullptr), TQ_ERROR_NULL);
    const tq_capture_rules none{};
    EXPECT_EQ(tq_capture_set_rules(&none), TQ_ERROR_SIZE);
}

TEST(RulesWithoutHooks, AreRefused) {
    tq_capture_rules rules{};
    rules.size = sizeof rules;
    EXPECT_EQ(tq_capture_set_rules(&rules), TQ_ERROR_HOOKS_NOT_WORKING);
}

}  // namespace
