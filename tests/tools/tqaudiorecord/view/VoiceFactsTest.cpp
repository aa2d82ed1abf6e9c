#include "view/VoiceFacts.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using tqrecorder::VoiceFacts;

/// One second.
void hear(VoiceFacts& facts, float sample, bool isOpen = true) {
    const std::vector<float> samples(44100, sample);
    facts.add({0, 1, samples, isOpen});
}

TEST(VoiceFacts, OneThatWasHeardIsNotSpokenOf) {
    VoiceFacts facts(true);
    hear(facts, 0.5F);
    hear(facts, 0);
    EXPECT_EQ(facts.lines("", 0), "");
}

TEST(VoiceFacts, SayWhyATrackIsSilent) {
    VoiceFacts facts(false);
    EXPECT_EQ(facts.lines("usb", 0),
              "Microphone usb: there was none; tqplatform-devices lists what there is\n");
    hear(facts, 0);
    EXPECT_EQ(facts.lines("", 0),
              "Microphone: it heard nothing at all; is it muted or switched off?\n");
    hear(facts, 0.5F);
    hear(facts, 0, false);
    EXPECT_EQ(facts.lines("", 0), "Microphone: it was away for 1.0 s, which are silence\n");
}

TEST(VoiceFacts, SayWhyNothingWasDucked) {
    VoiceFacts facts(true);
    EXPECT_EQ(facts.lines("", 0),
              "Microphone: there was none, so that nothing was ducked; "
              "tqplatform-devices lists what there is\n");
    hear(facts, 0);
    EXPECT_EQ(facts.lines("", 0),
              "Microphone: it heard nothing at all, so that nothing was ducked; is "
              "it muted or switched off?\n");
    hear(facts, 0.5F);
    hear(facts, 0, false);
    EXPECT_EQ(facts.lines("", 0),
              "Microphone: it was away for 1.0 s, in which nothing was ducked\n");
}

TEST(VoiceFacts, SayWhatIsInNoFile) {
    VoiceFacts facts(false);
    hear(facts, 0.5F);
    EXPECT_EQ(facts.lines("", 34.21),
              "Microphone: 34.2 s that it heard while nothing played are in no file\n");
    facts.add({0, 1, std::vector<float>(441), false, 22050});
    EXPECT_EQ(facts.lines("usb", 0),
              "Microphone usb: 0.5 s were lost while the recorder was held up\n");
}

TEST(VoiceFacts, TheTimeBeforeItWasPluggedInCountsAsAway) {
    const std::vector<float> samples(44100, 0.5F);
    VoiceFacts facts(false);
    facts.begin(5'000'000);
    facts.add({125'000'000, 1, samples, true});
    EXPECT_EQ(facts.lines("", 0), "Microphone: it was away for 120.0 s, which are silence\n");
    facts.add({126'000'000, 1, samples, true});
    EXPECT_EQ(facts.lines("", 0), "Microphone: it was away for 120.0 s, which are silence\n");
}

TEST(VoiceFacts, WhatIsLateOrWasLostIsNotAway) {
    const std::vector<float> samples(44100, 0.5F);
    VoiceFacts facts(false);
    facts.begin(5'000'000);
    facts.add({5'900'000, 1, samples, true});
    facts.add({9'900'000, 1, samples, true, 3 * 44100});
    EXPECT_EQ(facts.lines("", 0), "Microphone: 3.0 s were lost while the recorder was held up\n");
}

TEST(VoiceFacts, ASilentOneIsNotMissedWhereNothingPlayed) {
    VoiceFacts facts(false);
    hear(facts, 0);
    EXPECT_EQ(facts.lines("", 34.2),
              "Microphone: it heard nothing at all; is it muted or switched off?\n");
}

}  // namespace
