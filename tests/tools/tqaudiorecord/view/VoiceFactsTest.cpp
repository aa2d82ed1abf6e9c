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
    EXPECT_EQ(facts.line(""), "");
}

TEST(VoiceFacts, SayWhyATrackIsSilent) {
    VoiceFacts facts(false);
    EXPECT_EQ(facts.line("usb"),
              "Microphone usb: there was none; tqplatform-devices lists what there is\n");
    hear(facts, 0);
    EXPECT_EQ(facts.line(""),
              "Microphone: it heard nothing at all; is it muted or switched off?\n");
    hear(facts, 0.5F);
    hear(facts, 0, false);
    EXPECT_EQ(facts.line(""), "Microphone: it was away for 1.0 s, which are silence\n");
}

TEST(VoiceFacts, SayWhyNothingWasDucked) {
    VoiceFacts facts(true);
    EXPECT_EQ(facts.line(""),
              "Microphone: there was none, so that nothing was ducked; "
              "tqplatform-devices lists what there is\n");
    hear(facts, 0);
    EXPECT_EQ(facts.line(""),
              "Microphone: it heard nothing at all, so that nothing was ducked; is "
              "it muted or switched off?\n");
    hear(facts, 0.5F);
    hear(facts, 0, false);
    EXPECT_EQ(facts.line(""), "Microphone: it was away for 1.0 s, in which nothing was ducked\n");
}

}  // namespace
