#include <chrono>
#include <thread>

#include "bridges/pulse/PulseFixture.h"
#include "support/ProgramRunner.h"

// When the server plays what it has been given, and stops, and starts again.

namespace bridgetests {
namespace {

using PulseStart = PulseCalls;

TEST_F(PulseStart, WhereTheServerStartsLateTheTrackHasNoHole) {
    stream->startsLate = true;
    play();
    write(noise.part(0, 4800));
    playOn(60);
    EXPECT_EQ(heard().frames(), 0U);
    stream->starts();
    write(noise.part(4800, 19200));
    endsWithTheNoise();
}

TEST_F(PulseStart, AServerThatNeverSaysThatItStartsIsWaitedForTwoSeconds) {
    stream->startsLate = true;
    play();
    write(noise);
    playOn(195);
    EXPECT_EQ(heard().frames(), 0U);
    playOn(20);
    endsWithTheNoise();
}

void countStarts(pa_stream* /*stream*/, void* counter) {
    ++*static_cast<int*>(counter);
}

TEST_F(PulseStart, TheProgramHearsOfTheStartAsWell) {
    int early = 0;
    pa_stream_set_started_callback(stream.get(), countStarts, &early);
    stream->startsLate = true;
    play();
    stream->starts();
    EXPECT_EQ(early, 1);
    int late = 0;
    pa_stream_set_started_callback(stream.get(), countStarts, &late);
    write(noise);
    stream->starts();
    EXPECT_EQ(early, 1);
    EXPECT_EQ(late, 1);
    pa_stream_set_started_callback(stream.get(), nullptr, nullptr);
    stream->starts();
    EXPECT_EQ(late, 1);
    endsWithTheNoise();
}

TEST_F(PulseStart, APrebufferThatIsNotFullIsPlayedOnRequest) {
    stream->attributes.prebuf = 48000 * kFrameBytes;
    for (const auto request : {&pa_stream_drain, &pa_stream_trigger}) {
        forget();
        play();
        write(noise);
        playOn(20);
        EXPECT_EQ(heard().frames(), 0U);
        (void)request(stream.get(), nullptr, nullptr);
        awaitGoingOn(firstName());
        pump(60);
        end();
        expectHeard(noise);
    }
}

TEST_F(PulseStart, APrebufferThatIsAskedForAgainIsFilledBeforeItPlaysOn) {
    stream->attributes.prebuf = 4800 * kFrameBytes;
    play();
    write(noise.part(0, 12000));
    playOn();
    // What the server has is less than the prebuffer: it stands still until the rest is there.
    (void)pa_stream_prebuf(stream.get(), nullptr, nullptr);
    write(noise.part(12000, 1200));
    playOn(40);
    EXPECT_EQ(heard().frames(), 12000U);
    write(noise.part(13200, 10800));
    pump(60);
    end();
    const auto found = differences(noise, heard());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NE(found[0].find("of silence inserted at frame 12000"), std::string::npos) << found[0];
}

TEST_F(PulseStart, APrebufferThatTheServerHasIsNotWaitedForAgain) {
    stream->attributes.prebuf = 4800 * kFrameBytes;
    play();
    write(noise);
    playOn(5);
    (void)pa_stream_prebuf(stream.get(), nullptr, nullptr);
    endsWithTheNoise();
}

TEST_F(PulseStart, WithoutAPrebufferTheServerPlaysOnWithoutSayingSo) {
    play();
    write(noise.part(0, 12000));
    playOn();
    stream->runsDry();
    write(noise.part(12000, 12000));
    pump(60);
    const Sound now = heard();
    ASSERT_GT(now.frames(), 24000U) << "before two seconds have gone by";
    EXPECT_EQ(now.part(now.frames() - 12000, 12000).bytes, noise.part(12000, 12000).bytes);
}

TEST_F(PulseStart, WhereTheServerHasRunDryTheTrackWaitsForItsNextStart) {
    stream->attributes.prebuf = kFrameBytes;
    play();
    write(noise.part(0, 12000));
    awaitGoingOn(firstName());
    playOn();
    stream->runsDry();
    stream->startsLate = true;
    for (std::size_t at = 12000; at < 24000; at += 1200) {
        write(noise.part(at, 1200));
        pump(10);
    }
    EXPECT_EQ(heard().frames(), 12000U) << "before the server plays";
    stream->starts();
    pump(60);
    end();
    const auto found = differences(noise, heard());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NE(found[0].find("of silence inserted at frame 12000"), std::string::npos) << found[0];
}

TEST_F(PulseStart, TheProgramHearsOfAnUnderflowAsWell) {
    int count = 0;
    pa_stream_set_underflow_callback(stream.get(), countStarts, &count);
    play();
    write(noise);
    playOn();
    stream->runsDry();
    EXPECT_EQ(count, 1);
    endsWithTheNoise();
}

TEST_F(PulseStart, WhatWasHeardBeforeAPauseIsOnTheTrackThoughTheStreamIsClosedInIt) {
    play();
    write(noise);
    playOn(20);
    const std::size_t played = heard().frames();
    ASSERT_GT(played, 0U);
    (void)pa_stream_cork(stream.get(), 1, nullptr, nullptr);
    end();
    // As far as the server is ahead of the unit.
    const Sound all = heard();
    EXPECT_GT(all.frames(), played + 1000);
    EXPECT_LE(all.frames(), played + kBehind + kSlice);
    EXPECT_EQ(differences(noise.part(0, all.frames()), all), kNothing);
}

TEST_F(PulseStart, WhatIsWrittenInAPauseAndClosedInItIsNotOnTheTrack) {
    play(PA_STREAM_START_CORKED);
    write(noise);
    awaitReport(firstName());
    pump(20);
    pa_stream_disconnect(stream.get());
    playOut(firstName());
    EXPECT_EQ(heard().frames(), 0U);
    const tq_stream last = reports(firstName()).back();
    EXPECT_EQ(last.written, noise.frames());
    EXPECT_EQ(last.dropped, noise.frames());
    EXPECT_NE(last.is_paused, 0U);
    EXPECT_EQ(tracks().count(firstName()), 0U) << "a track of silence";
}

TEST_F(PulseStart, WhatIsWrittenInAPauseIsCountedMeanwhile) {
    play(PA_STREAM_START_CORKED);
    for (std::size_t at = 0; at < 24000; at += 2400) {
        write(noise.part(at, 2400));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    EXPECT_TRUE(
        tqtest::eventually([&] { return reports(firstName()).back().written == noise.frames(); }));
    EXPECT_NE(reports(firstName()).back().is_paused, 0U);
}

TEST_F(PulseStart, AServerThatIsNotReachedIsNamedWithTheReason) {
    context->answer = -1;
    context->error = PA_ERR_CONNECTIONREFUSED;
    EXPECT_EQ(pa_context_connect(context, nullptr, PA_CONTEXT_NOFLAGS, nullptr), -1);
    awaitReport("pulse game (made up 6)", TQ_STREAM_NOT_OPENED, true);
    context->error = PA_ERR_TIMEOUT;
    context->state = PA_CONTEXT_FAILED;
    EXPECT_EQ(pa_context_get_state(context), PA_CONTEXT_FAILED);
    awaitReport("pulse game (made up 8)", TQ_STREAM_NOT_OPENED, true);
    context->error = PA_ERR_CONNECTIONTERMINATED;
    EXPECT_EQ(pa_context_get_state(context), PA_CONTEXT_FAILED);
    EXPECT_TRUE(reports("pulse game (made up 11)").empty()) << "it was there before";
}

}  // namespace
}  // namespace bridgetests
