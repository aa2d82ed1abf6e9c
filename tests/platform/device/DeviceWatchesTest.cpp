// What looks see of a device's requests and of its place, without a device.

#include <gtest/gtest.h>

#include <cstdint>

#include "device/handover/PlaceWatch.h"
#include "device/handover/RequestWatch.h"

namespace tqplatform {
namespace {

/// Looks without a request, until it is told that the device stands still.
int looksUntilTold(RequestWatch& watch, std::uint64_t requests, bool isToPlay) {
    for (int looks = 1; looks < 100; ++looks) {
        if (watch.look(requests, false, isToPlay).isNews) {
            return looks;
        }
    }
    return 0;
}

TEST(RequestWatch, OneThatAsksIsNothingToTell) {
    RequestWatch watch;
    for (std::uint64_t requests = 1; requests < 100; ++requests) {
        const RequestWatch::Seen seen = watch.look(requests, false, true);
        EXPECT_FALSE(seen.isNews || seen.standsStill || seen.isGone || seen.isQuiet);
        EXPECT_TRUE(watch.asks());
    }
}

TEST(RequestWatch, OneThatStandsStillIsToldOnceAfterASecondAndOnceThatItGoesOn) {
    RequestWatch watch;
    static_cast<void>(watch.look(1, false, true));
    EXPECT_EQ(looksUntilTold(watch, 1, true), 4);
    EXPECT_TRUE(watch.standsStill());
    EXPECT_FALSE(watch.look(1, false, true).isNews);
    const RequestWatch::Seen seen = watch.look(2, false, true);
    EXPECT_TRUE(seen.isNews);
    EXPECT_FALSE(seen.standsStill);
    EXPECT_FALSE(watch.look(3, false, true).isNews);
}

TEST(RequestWatch, ARequestThatTheProgramHoldsIsNoStandstill) {
    RequestWatch watch;
    for (int look = 0; look < 100; ++look) {
        const RequestWatch::Seen seen = watch.look(1, true, true);
        EXPECT_FALSE(seen.isNews || seen.isGone || seen.isQuiet);
    }
}

TEST(RequestWatch, OfAMicrophoneAloneItIsNotToldAndItIsNeverGone) {
    RequestWatch watch;
    EXPECT_EQ(looksUntilTold(watch, 0, false), 0);
    const RequestWatch::Seen seen = watch.look(0, false, false);
    EXPECT_FALSE(seen.isGone);
    EXPECT_TRUE(seen.isQuiet) << "the clock drives meanwhile";
}

TEST(RequestWatch, TheClockDrivesAfterASecondButNotBeforeASinkHadItsTimeToWake) {
    RequestWatch watch;
    for (int look = 1; look <= 12; ++look) {
        EXPECT_FALSE(watch.look(0, false, true).isQuiet) << look;
    }
    EXPECT_TRUE(watch.look(0, false, true).isQuiet);
    EXPECT_FALSE(watch.look(1, false, true).isQuiet);
    for (int look = 1; look < 4; ++look) {
        EXPECT_FALSE(watch.look(1, false, true).isQuiet) << look;
    }
    EXPECT_TRUE(watch.look(1, false, true).isQuiet);
}

TEST(RequestWatch, OneThatStandsStillForTenSecondsIsGone) {
    RequestWatch watch;
    for (int look = 1; look < 40; ++look) {
        EXPECT_FALSE(watch.look(0, false, true).isGone) << look;
    }
    const RequestWatch::Seen seen = watch.look(0, false, true);
    EXPECT_TRUE(seen.isGone);
    EXPECT_FALSE(seen.isQuiet);
}

/// Stands still until it is gone; gives how many looks that took.
int looksUntilGone(RequestWatch& watch, std::uint64_t requests) {
    for (int looks = 1; looks < 10'000; ++looks) {
        if (watch.look(requests, false, true).isGone) {
            return looks;
        }
    }
    return 0;
}

TEST(RequestWatch, OneThatIsOpenedInHopeStandsStillUntilItAsksForMoreThanItHasInHand) {
    RequestWatch watch;
    looksUntilGone(watch, 0);
    watch.restart();
    // What it has in hand was asked for at once.
    for (int look = 1; look < 12; ++look) {
        const RequestWatch::Seen seen = watch.look(4, false, true);
        EXPECT_TRUE(seen.isQuiet) << "the clock drives at once: " << look;
        EXPECT_FALSE(seen.isNews) << look;
        EXPECT_TRUE(watch.standsStill());
    }
    const RequestWatch::Seen seen = watch.look(5, false, true);
    EXPECT_TRUE(seen.isNews);
    EXPECT_FALSE(seen.standsStill);
    EXPECT_FALSE(seen.isQuiet);
}

TEST(RequestWatch, OneThatStandsStillForLongIsOpenedAnewMoreAndMoreSeldom) {
    RequestWatch watch;
    looksUntilGone(watch, 0);
    for (const int looks : {80, 160, 320, 640, 1200, 1200}) {
        watch.restart();
        EXPECT_EQ(looksUntilGone(watch, 4), looks);
    }
    watch.restart();
    static_cast<void>(watch.look(4, false, true));
    static_cast<void>(watch.look(5, false, true));
    EXPECT_EQ(looksUntilGone(watch, 5), 40) << "it has played meanwhile";
}

TEST(RequestWatch, HopeLastsUntilItAsksHoweverOftenItIsOpened) {
    RequestWatch watch;
    looksUntilGone(watch, 0);
    for (int opening = 0; opening < 3; ++opening) {
        EXPECT_TRUE(watch.isInHope());
        watch.restart();
        EXPECT_TRUE(watch.look(4, false, true).isQuiet);
        EXPECT_TRUE(watch.standsStill());
    }
    static_cast<void>(watch.look(5, false, true));
    EXPECT_FALSE(watch.isInHope());
}

TEST(RequestWatch, WhoWasToldThatItIsThereIsToldOnlyIfItIsNot) {
    RequestWatch watch;
    looksUntilGone(watch, 0);
    watch.restart();
    watch.toldThere();
    static_cast<void>(watch.look(4, false, true));
    EXPECT_FALSE(watch.look(5, false, true).isNews);
    looksUntilGone(watch, 5);
    watch.restart();
    watch.toldThere();
    EXPECT_EQ(looksUntilTold(watch, 4, true), 4);
}

TEST(RequestWatch, OneThatIsOpenedAnewForAnotherReasonHasItsTimeToWake) {
    RequestWatch watch;
    EXPECT_EQ(looksUntilTold(watch, 0, true), 4);
    watch.restart();
    EXPECT_FALSE(watch.look(0, false, true).isQuiet);
    EXPECT_FALSE(watch.standsStill());
}

const HeardEnd kOne{"one", 44100, 2, true};
const HeardEnd kTwo{"two", 48000, 2, true};

TEST(PlaceWatch, WhatADeviceIsFoundOnFirstIsNoNews) {
    PlaceWatch watch;
    EXPECT_FALSE(watch.hasSettled({kOne, {}}, false));
    EXPECT_FALSE(watch.hasSettled({kOne, {}}, false));
}

TEST(PlaceWatch, AMoveIsToldOnceWhenItHasSettled) {
    PlaceWatch watch;
    static_cast<void>(watch.hasSettled({kOne, {}}, false));
    EXPECT_FALSE(watch.hasSettled({kTwo, {}}, false));
    EXPECT_FALSE(watch.hasSettled({kOne, {}}, false)) << "it moves on";
    EXPECT_TRUE(watch.hasSettled({kOne, {}}, false));
    EXPECT_FALSE(watch.hasSettled({kOne, {}}, false));
}

TEST(PlaceWatch, AMicrophoneThatIsHeardAgainIsNoOtherPlace) {
    PlaceWatch watch;
    static_cast<void>(watch.hasSettled({{}, kOne}, true));
    static_cast<void>(watch.hasSettled({{}, kOne}, false));
    EXPECT_FALSE(watch.hasSettled({{}, kTwo}, true));
    EXPECT_FALSE(watch.hasSettled({{}, kTwo}, true));
    static_cast<void>(watch.hasSettled({{}, kOne}, true));
    EXPECT_TRUE(watch.hasSettled({{}, kOne}, true)) << "while it is heard it is";
}

TEST(PlaceWatch, OneThatAProgramChoseIsToldLikeTheSystems) {
    PlaceWatch watch;
    static_cast<void>(watch.hasSettled({kOne, kOne}, true));
    watch.move();
    EXPECT_TRUE(watch.hasSettled({kOne, kOne}, true));
}

TEST(PlaceWatch, WhatPlaysIsOutdatedByAnotherRateOfTheDefaultAlone) {
    const DeviceFormat format{44100, 2, 1, 4096, 256};
    EXPECT_TRUE(PlaceWatch::isStale({kTwo, {}}, {}, format));
    EXPECT_FALSE(PlaceWatch::isStale({kOne, {}}, {}, format));
    EXPECT_FALSE(PlaceWatch::isStale({{"two", 48000, 2, false}, {}}, {}, format));
    EXPECT_FALSE(PlaceWatch::isStale({kTwo, {}}, {.sampleRate = 44100}, format))
        << "the program prefers it";
    EXPECT_FALSE(PlaceWatch::isStale({kTwo, {}}, {.isToPlay = false}, format));
}

TEST(PlaceWatch, WhatListensIsOutdatedByOtherChannelsButNotOfOneThatWasChosenBesideSpeakers) {
    const DeviceFormat format{44100, 2, 1, 4096, 256};
    const HeardPlace stereo{{}, kTwo};
    EXPECT_TRUE(PlaceWatch::isStale(stereo, {}, format));
    EXPECT_FALSE(PlaceWatch::isStale(stereo, {.microphone = "two"}, format));
    EXPECT_TRUE(PlaceWatch::isStale(stereo, {.microphone = "two", .isToPlay = false}, format));
    EXPECT_FALSE(PlaceWatch::isStale({}, {}, format));
}

}  // namespace
}  // namespace tqplatform
