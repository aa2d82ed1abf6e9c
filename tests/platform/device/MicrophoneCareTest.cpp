// What becomes of a microphone, look by look, without a device.

#include "device/handover/MicrophoneCare.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace tqplatform {
namespace {

constexpr MicrophoneSeen kBeside{.isHeard = true, .hasAsked = true};
constexpr MicrophoneSeen kGoneBeside{.hasAsked = true};
constexpr MicrophoneSeen kStillBeside{.isStill = true, .hasAsked = true};
constexpr MicrophoneSeen kAlone{.isAlone = true, .isHeard = true, .hasAsked = true};
constexpr MicrophoneSeen kStillAlone{.isAlone = true, .isStill = true, .hasAsked = true};
constexpr MicrophoneSeen kOpenedAlone{.isAlone = true, .isHeard = true};

/// After how many looks each it is tried again.
std::vector<int> tries(MicrophoneCare& care, const MicrophoneSeen& seen, std::size_t count) {
    std::vector<int> looks;
    for (int look = 1; looks.size() < count; ++look) {
        if (care.isToTryAgain(seen)) {
            looks.push_back(look);
            look = 0;
        }
    }
    return looks;
}

/// Open, and programs know that it is.
MicrophoneCare listening(const MicrophoneSeen& seen) {
    MicrophoneCare care;
    care.restart();
    care.opened(seen);
    EXPECT_TRUE(care.isToSwitch(true));
    care.switched(seen);
    care.looked(true, !seen.isAlone, true);
    return care;
}

TEST(MicrophoneCare, TheDeviceIsAskedToListenOnceAndOnceNoMore) {
    MicrophoneCare care;
    EXPECT_TRUE(care.isToSwitch(true));
    EXPECT_FALSE(care.isToSwitch(true));
    EXPECT_TRUE(care.isListening());
    EXPECT_TRUE(care.isToSwitch(false));
    EXPECT_FALSE(care.isToSwitch(false));
    EXPECT_TRUE(care.isToSwitch(true));
    care.restart();
    EXPECT_TRUE(care.isToSwitch(true)) << "another device listens to nothing yet";
}

TEST(MicrophoneCare, WhoBeginsToListenIsToldNothing) {
    EXPECT_EQ(listening(kBeside).news(true), std::nullopt);
    EXPECT_EQ(listening(kGoneBeside).news(false), std::nullopt);
}

TEST(MicrophoneCare, OneThatGoesAndComesIsToldOnceEach) {
    MicrophoneCare care = listening(kBeside);
    EXPECT_EQ(care.news(false), false);
    EXPECT_EQ(care.news(false), std::nullopt);
    EXPECT_EQ(care.news(true), true);
    EXPECT_EQ(care.news(true), std::nullopt);
}

TEST(MicrophoneCare, WhoStopsListeningKnowsNothingAnyMore) {
    MicrophoneCare care = listening(kBeside);
    care.looked(false, true, true);
    EXPECT_EQ(care.news(false), std::nullopt);
}

TEST(MicrophoneCare, OneThatHasGoneIsTriedEachHalfSecond) {
    MicrophoneCare care = listening(kBeside);
    EXPECT_EQ(tries(care, kGoneBeside, 3), (std::vector<int>{2, 2, 2}));
}

TEST(MicrophoneCare, OneThatStandsStillIsTriedMoreAndMoreSeldom) {
    MicrophoneCare care = listening(kBeside);
    EXPECT_EQ(tries(care, kStillBeside, 6), (std::vector<int>{12, 24, 48, 96, 120, 120}));
    EXPECT_FALSE(care.isToTryAgain(kBeside));
    EXPECT_EQ(tries(care, kStillBeside, 1), std::vector<int>{12}) << "from the first again";
}

TEST(MicrophoneCare, AnotherThatIsChosenIsWaitedForAnew) {
    MicrophoneCare care = listening(kBeside);
    EXPECT_EQ(tries(care, kStillBeside, 2), (std::vector<int>{12, 24}));
    static_cast<void>(care.chosen(kStillBeside));
    EXPECT_EQ(tries(care, kStillBeside, 1), std::vector<int>{12});
}

TEST(MicrophoneCare, AnotherThatIsChosenIsAnotherPlaceOnlyWhereBothAreHeard) {
    EXPECT_TRUE(listening(kBeside).chosen(kBeside));
    EXPECT_FALSE(listening(kBeside).chosen(kGoneBeside)) << "told as one that has gone";
    EXPECT_FALSE(listening(kGoneBeside).chosen(kBeside)) << "told as one that is there";
    MicrophoneCare care = listening(kBeside);
    EXPECT_TRUE(care.isToSwitch(false));
    EXPECT_FALSE(care.chosen(kBeside)) << "nobody listens";
}

TEST(MicrophoneCare, OneThatStoodStillAloneCountsAgainWithItsFirstBlock) {
    MicrophoneCare care = listening(kAlone);
    EXPECT_EQ(care.news(care.hears(kStillAlone)), false);
    EXPECT_EQ(tries(care, kStillAlone, 1), std::vector<int>{12});
    EXPECT_TRUE(care.wasStill());
    care.restart();
    care.opened(kOpenedAlone);
    care.looked(true, false, true);
    EXPECT_TRUE(care.isToSwitch(true));
    care.switched(kOpenedAlone);
    EXPECT_FALSE(care.hears(kOpenedAlone)) << "it has brought nothing";
    EXPECT_EQ(care.news(care.hears(kOpenedAlone)), std::nullopt);
    EXPECT_EQ(tries(care, kOpenedAlone, 1), std::vector<int>{24}) << "it stands still as before";
    EXPECT_TRUE(care.hears(kAlone));
    EXPECT_EQ(care.news(care.hears(kAlone)), true);
    EXPECT_FALSE(care.isToTryAgain(kAlone));
    EXPECT_FALSE(care.wasStill());
}

TEST(MicrophoneCare, OneThatStoodStillAloneIsHeardAtOnceBesideSpeakersAndWhenItWasAway) {
    MicrophoneCare beside = listening(kAlone);
    EXPECT_FALSE(beside.isToTryAgain(kStillAlone));
    ASSERT_TRUE(beside.wasStill());
    MicrophoneCare away = beside;
    beside.restart();
    beside.opened({.isHeard = true});
    EXPECT_TRUE(beside.hears({.isHeard = true}));
    away.looked(true, false, false);
    EXPECT_TRUE(away.hears(kOpenedAlone));
}

TEST(MicrophoneCare, OneThatCannotBeOpenedAloneIsRememberedUntilItCan) {
    MicrophoneCare care = listening(kAlone);
    care.restart();
    care.looked(true, true, false);
    EXPECT_FALSE(care.isDeafAlone()) << "somebody is to be heard: an interruption";
    care.looked(true, false, false);
    EXPECT_TRUE(care.isDeafAlone());
    EXPECT_EQ(care.news(false), false);
    care.opened(kOpenedAlone);
    EXPECT_EQ(care.news(true), true) << "it is not taken for known";
    care.looked(true, false, true);
    EXPECT_FALSE(care.isDeafAlone());
}

}  // namespace
}  // namespace tqplatform
