// What units are called by whoever made them.

#include <TQAudioRecord/tq_capture.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SessionFixture.h"

namespace {

using namespace tqrecorder;

const std::string kBridge = TQ_BRIDGE_HOST;

TEST_F(Session, AUnitsOwnNameComesWithItsBlocks) {
    EXPECT_EQ(record({kBridge, "play", "0.3", "alsa-1 default"}).hostExitCode, 0);
    const auto& track = sink.only().streams.at(1);
    EXPECT_EQ(track.unit, "alsa-1 default");
    EXPECT_NEAR(amplitudeAt(track.samples(0), 48000, 700), 16000 / 32768.0, 0.01)
        << "the name is no sound";
    EXPECT_EQ(sink.only().streams.at(0).unit, "");
    ASSERT_FALSE(sink.only().numbers.empty());
    EXPECT_EQ(sink.only().numbers.front().unit, "alsa-1 default");
}

TEST_F(Session, AUnitsOwnNameSteersNoTerminalAndIsBounded) {
    EXPECT_EQ(record({kBridge, "play", "0.2", "pulse-1 \x1b[2J\xff" + std::string(500, 'x')})
                  .hostExitCode,
              0);
    EXPECT_EQ(sink.only().streams.at(1).unit, "pulse-1  [2J?" + std::string(82, 'x'));
}

TEST_F(Session, WhatBecameOfAStreamArrives) {
    record({kBridge, "report", std::to_string(TQ_STREAM_NOT_PCM), "480", "alsa-1 iec958\n"});
    StreamFacts facts{1, "alsa-1 iec958 ", TQ_STREAM_NOT_PCM, false, 2, 48000, 480, 240, 120, 3};
    std::vector<StreamFacts> expected{facts};
    facts.isClosed = true;
    expected.push_back(facts);
    ASSERT_EQ(sink.processes.size(), 1U);
    EXPECT_EQ(sink.processes.at(1).streamFacts, expected);
}

}  // namespace
