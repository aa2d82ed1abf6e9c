// Ducking and compression as a recording asks for them.

#include <TQAudioRecord/tq_events.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <cmath>
#include <string>
#include <vector>

#include "SessionFixture.h"

namespace {

using namespace tqrecorder;

using End = RecordingResult::End;

/// One second of a loud tone.
void writeVoice(const std::string& path, float amplitude = 0.5F) {
    SF_INFO info{};
    info.samplerate = 16000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    std::vector<float> samples(16000);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = std::sin(static_cast<float>(i) * 0.2F) * amplitude;
    }
    sf_write_float(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
}

TEST_F(Session, DuckingIsHeardInTheTracksAndTheMixIsFromBeforeIt) {
    options.duck = true;
    options.duckDecibels = -20;
    record({kHost, "tone", "1.5"});
    const auto track = sink.only().streams.at(1).samples(0);
    ASSERT_GT(track.size(), 60000U);
    const std::vector<double> late(track.begin() + 48000, track.end());
    EXPECT_NEAR(amplitudeAt(late, 48000, 700), 0.05, 0.01);
    const auto mix = sink.only().streams.at(0).samples(0);
    ASSERT_GT(mix.size(), 50000U);
    EXPECT_NEAR(amplitudeAt({mix.begin() + 44100, mix.begin() + 50000}, 44100, 700), 0.5, 0.03);
}

TEST_F(Session, DuckingFollowsTheLevelOfAFile) {
    // Loud from 0.0 to 1.0 seconds, then silent for good.
    const std::string path = (caches / "voice.wav").string();
    writeVoice(path);
    options.duck = true;
    options.duckDecibels = -40;
    options.duckOn = path;
    record({kHost, "tone", "5"});
    const auto track = sink.only().streams.at(1).samples(0);
    ASSERT_GT(track.size(), 220000U);
    const auto part = [&track](double from, double to) {
        return amplitudeAt({track.begin() + static_cast<long>(from * 48000),
                            track.begin() + static_cast<long>(to * 48000)},
                           48000, 700);
    };
    EXPECT_LT(part(0.5, 0.8), 0.05);
    EXPECT_GT(part(4.2, 4.5), 0.4) << "let go of after the hold";
}

TEST_F(Session, AFileOfSilenceDucksNothingAndSaysSo) {
    const std::string path = (caches / "voice.wav").string();
    writeVoice(path, 0);
    options.duck = true;
    options.duckOn = path;
    options.command = {kHost, "tone", "1"};
    RecordingSession session(options, sink, TQ_RECORDER_GATE);
    std::string error;
    ASSERT_TRUE(session.prepare(error)) << error;
    EXPECT_THAT(session.warnings(), testing::Contains(path + ": holds nothing but silence, so that "
                                                             "nothing is ducked"));
}

TEST_F(Session, ADuckSourceThatCannotBeReadKeepsTheHostFromStarting) {
    options.duck = true;
    options.duckOn = (caches / "none.wav").string();
    const RecordingResult result = record({kHost, "tone", "60"});
    EXPECT_EQ(result.end, End::kNotStarted);
    EXPECT_THAT(result.message, testing::HasSubstr("none.wav"));
}

TEST_F(Session, TheMicrophoneOfADeviceWithoutOneIsSilenceAndDucksNothing) {
    options.duck = true;
    options.duckOn = "microphone";
    options.command = {kHost, "tone", "1"};
    RecordingSession session(options, sink, kGate);
    ASSERT_EQ(session.run().message, "");
    EXPECT_THAT(session.warnings(),
                testing::Contains("there is no microphone, since TQ_AUDIO_DEVICE=null chooses a "
                                  "device without one; one that comes later is not heard. Nothing "
                                  "is ducked"));
    EXPECT_NEAR(amplitudeAt(sink.only().streams.at(1).samples(0), 48000, 700), 0.5, 0.01);
}

TEST_F(Session, DuckingThatCannotBeSwitchedOnIsAFailure) {
    options.duck = true;
    options.armGuard = false;
    record({kHost, "tone", "0.5"});
    ASSERT_EQ(sink.processes.size(), 1U);
    const auto& events = sink.processes.begin()->second.events;
    ASSERT_THAT(events, testing::Not(testing::IsEmpty()));
    const auto& refused = events.front();
    EXPECT_EQ(refused.message, "ducking or compression could not be switched on");
    EXPECT_EQ(tq_event_kind_of(refused.category, refused.code), TQ_EVENT_KIND_FAILURE);
    EXPECT_STREQ(tq_event_text(refused.category, refused.code), refused.message.c_str());
}

TEST_F(Session, CompressionIsHeardInTheTracks) {
    options.compress = true;
    options.compressThresholdDecibels = -30;
    record({kHost, "tone", "1"});
    const auto track = sink.only().streams.at(1).samples(0);
    ASSERT_GT(track.size(), 40000U);
    EXPECT_LT(amplitudeAt({track.begin() + 24000, track.begin() + 40000}, 48000, 700), 0.4);
}

}  // namespace
