// What is told of an opening: each row of the table, and which of two that hold comes first.

#include "device/handover/OpeningNotice.h"

#include <gtest/gtest.h>

namespace tqplatform {

namespace {

OpeningFacts opened() {
    return {
        .isThere = true, .isToPlay = true, .isHeard = true, .hasRun = true, .hasBeenThere = true};
}

OpeningFacts failed() {
    return {.isToPlay = true, .isHeard = true, .hasRun = true, .hasBeenThere = true};
}

TEST(OpeningNotice, WhatOpensAsItIsAskedForIsNothingToTell) {
    EXPECT_EQ(noticeOf(opened()), OpeningNotice::nothing);
}

TEST(OpeningNotice, AnInterruptionEndsWhateverElseHolds) {
    OpeningFacts facts = opened();
    facts.isInterrupted = facts.wasLost = facts.wasOutdated = facts.wasDeaf = true;
    facts.hasOtherLength = facts.heardAlone = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::interruptionEnds);
}

TEST(OpeningNotice, WhoResumesAtTheEndKnowsWhatWith) {
    OpeningFacts facts = opened();
    facts.isInterrupted = facts.isNewFormat = facts.wasLost = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::newFormatThenInterruptionEnds);
}

TEST(OpeningNotice, ADeviceThatWasLostHasGoneAlsoWhereTheNextHasAnotherFormat) {
    OpeningFacts facts = opened();
    facts.wasLost = facts.isNewFormat = facts.wasOutdated = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::deviceHasGone);
}

TEST(OpeningNotice, OfOneThatStoodStillTheGoingWasToldAndTheNextIsNew) {
    OpeningFacts facts = opened();
    facts.wasStill = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::newDevice);
    facts.wasLost = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::newDevice);
}

TEST(OpeningNotice, OneThatIsOpenedInHopeIsNewOnlyWhenItPlays) {
    OpeningFacts facts = opened();
    facts.wasStill = facts.wasLost = facts.isInHope = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::nothing);
}

TEST(OpeningNotice, OneThatHadToBeOpenedAnewIsANewDevice) {
    OpeningFacts facts = opened();
    facts.wasOutdated = facts.isNewFormat = facts.hasOtherLength = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::newDevice);
}

TEST(OpeningNotice, AnotherMicrophoneThatIsPreferredIsANewDevice) {
    OpeningFacts facts = opened();
    facts.isOtherMicrophone = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::newDevice);
}

TEST(OpeningNotice, AMicrophoneAloneThatStoodStillIsToldWithItsNextBlock) {
    OpeningFacts facts = opened();
    facts.isToPlay = facts.isHeard = false;
    facts.awaitsFirstBlock = facts.wasOutdated = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::nothing);
    facts.wasLost = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::nothing);
}

TEST(OpeningNotice, AMicrophoneThatCouldNotBeOpenedAloneIsThereAtLast) {
    OpeningFacts facts = opened();
    facts.isToPlay = facts.isHeard = false;
    facts.wasDeaf = facts.isNewFormat = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::microphoneIsThere);
    facts.isToPlay = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::newFormat) << "speakers beside it are more";
}

TEST(OpeningNotice, AFormatThatNobodyElseTellsIsTold) {
    OpeningFacts facts = opened();
    facts.isNewFormat = facts.hasOtherLength = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::newFormat);
}

TEST(OpeningNotice, WhoListenedAloneHasMissedSomethingWhereSpeakersCome) {
    OpeningFacts facts = opened();
    facts.heardAlone = facts.hasOtherLength = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::newFormat);
    facts.isToPlay = false;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::newLength);
}

TEST(OpeningNotice, AnotherLengthIsTold) {
    OpeningFacts facts = opened();
    facts.hasOtherLength = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::newLength);
}

TEST(OpeningNotice, WhoOnlyListensIsToldThatNothingIsHeard) {
    OpeningFacts facts = failed();
    facts.isHeard = false;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::microphoneIsNot);
    facts.isInterrupted = facts.wasLost = facts.hasOtherLength = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::microphoneIsNot) << "what failed ends nothing";
}

TEST(OpeningNotice, WhatHasPlayedIsInterrupted) {
    OpeningFacts facts = failed();
    EXPECT_EQ(noticeOf(facts), OpeningNotice::interruption);
    facts.wasLost = facts.wasOutdated = facts.heardAlone = true;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::interruption);
}

TEST(OpeningNotice, WhatNeverPlayedIsNotInterruptedThoughSomethingAnswers) {
    OpeningFacts facts = failed();
    facts.hasRun = false;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::cannotPlay);
}

TEST(OpeningNotice, WhereNothingEverAnsweredProgramsAreToldNothing) {
    OpeningFacts facts = failed();
    facts.hasRun = facts.hasBeenThere = false;
    EXPECT_EQ(noticeOf(facts), OpeningNotice::nothing);
}

}  // namespace
}  // namespace tqplatform
