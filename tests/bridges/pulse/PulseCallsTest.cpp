#include <array>
#include <memory>

#include "bridges/pulse/PulseFixture.h"

// Calls of a program into a made-up libpulse, with the whole library behind them.

namespace bridgetests {
namespace {

TEST_F(PulseCalls, WhatIsWrittenIsPassedOnAsItIsAndOnTheTrack) {
    play();
    write(noise.part(0, 10000));
    EXPECT_EQ(stream->taken, noise.part(0, 10000).bytes);
    write(noise.part(10000, 14000));
    endsWithTheNoise();
    EXPECT_EQ(stream->taken, noise.bytes);
}

TEST_F(PulseCalls, AStreamThatNobodyAskedForItsStateIsOpenedByItsFirstWrite) {
    ASSERT_EQ(pa_stream_connect_playback(stream.get(), nullptr, nullptr, PA_STREAM_NOFLAGS, nullptr,
                                         nullptr),
              0);
    stream->state = PA_STREAM_READY;
    write(noise);
    endsWithTheNoise();
}

TEST_F(PulseCalls, AWriteThatFailsIsNotOnTheTrack) {
    play();
    write(noise.part(0, 12000));
    stream->answer = -PA_ERR_INVALID;
    EXPECT_EQ(pa_stream_write(stream.get(), noise.bytes.data(), 400, nullptr, 0, PA_SEEK_RELATIVE),
              -PA_ERR_INVALID);
    stream->answer = 0;
    write(noise.part(12000, 12000));
    endsWithTheNoise();
}

TEST_F(PulseCalls, UnderDuckingTheBlockOfBeginWriteIsChangedInPlaceFromItsFirstFrameOn) {
    duckingBegins(kEndlessAttack);
    play();
    void* block = nullptr;
    std::size_t bytes = noise.bytes.size();
    ASSERT_EQ(pa_stream_begin_write(stream.get(), &block, &bytes), 0);
    noise.bytes.copy(static_cast<char*>(block), bytes);
    ASSERT_EQ(pa_stream_write(stream.get(), block, bytes, nullptr, 0, PA_SEEK_RELATIVE), 0);
    EXPECT_EQ(stream->passed, block);
    const Sound passed{noise.format, stream->taken};
    EXPECT_LE(largestDifference(noise, passed, 0.1), kRounding);
    playOn(60);
    end();
    expectHeard(passed);
}

TEST_F(PulseCalls, TheFirstBlockOfAStreamThatNobodyAskedForItsStateIsPassedOnWhereItLies) {
    duckingBegins();
    ASSERT_EQ(pa_stream_connect_playback(stream.get(), nullptr, nullptr, PA_STREAM_NOFLAGS, nullptr,
                                         nullptr),
              0);
    stream->state = PA_STREAM_READY;
    void* block = nullptr;
    std::size_t bytes = noise.bytes.size();
    ASSERT_EQ(pa_stream_begin_write(stream.get(), &block, &bytes), 0);
    noise.bytes.copy(static_cast<char*>(block), bytes);
    EXPECT_EQ(pa_stream_write(stream.get(), block, bytes, nullptr, 0, PA_SEEK_RELATIVE), 0);
    EXPECT_EQ(stream->passed, block);
    const Sound passed{noise.format, stream->taken};
    playOn(60);
    end();
    expectHeard(passed);
}

TEST_F(PulseCalls, AfterACancelledBlockTheSameMemoryIsNotChanged) {
    duckingBegins();
    play();
    void* block = nullptr;
    std::size_t bytes = noise.bytes.size();
    ASSERT_EQ(pa_stream_begin_write(stream.get(), &block, &bytes), 0);
    noise.bytes.copy(static_cast<char*>(block), bytes);
    ASSERT_EQ(pa_stream_cancel_write(stream.get()), 0);
    ASSERT_EQ(pa_stream_write(stream.get(), block, bytes, nullptr, 0, PA_SEEK_RELATIVE), 0);
    EXPECT_NE(stream->passed, block);
    EXPECT_EQ(std::string(stream->block.data(), bytes), noise.bytes);
}

void count(void* counter) {
    ++*static_cast<int*>(counter);
}

TEST_F(PulseCalls, WhereACopyIsPassedTheProgramsMemoryIsReleasedAfterIt) {
    duckingBegins();
    play();
    int released = 0;
    ASSERT_EQ(pa_stream_write_ext_free(stream.get(), noise.bytes.data(), noise.bytes.size(), count,
                                       &released, 0, PA_SEEK_RELATIVE),
              0);
    EXPECT_NE(stream->passed, noise.bytes.data());
    EXPECT_FALSE(stream->hasRelease);
    EXPECT_EQ(released, 1);
    std::array<int, 2> own{};
    ASSERT_EQ(pa_stream_write(stream.get(), own.data(), sizeof own, count, 0, PA_SEEK_RELATIVE), 0);
    EXPECT_EQ(own[0], 1);
    stream->answer = -PA_ERR_INVALID;
    EXPECT_NE(pa_stream_write(stream.get(), own.data(), sizeof own, count, 0, PA_SEEK_RELATIVE), 0);
    EXPECT_EQ(own[0], 1) << "what is not taken stays the program's";
}

TEST_F(PulseCalls, AWriteLongerThanAStreamHoldsIsDuckedInPartsAndReleasedOnce) {
    duckingBegins();
    play();
    const Sound longer = markedNoise({}, std::size_t{12} * 48000);
    int released = 0;
    ASSERT_EQ(pa_stream_write_ext_free(stream.get(), longer.bytes.data(), longer.bytes.size(),
                                       count, &released, 0, PA_SEEK_RELATIVE),
              0);
    EXPECT_EQ(released, 1);
    const Sound passed{longer.format, stream->taken};
    ASSERT_EQ(passed.frames(), longer.frames());
    for (const std::size_t frame : {std::size_t{48000}, std::size_t{480000}, longer.frames() - 1}) {
        EXPECT_NEAR(passed.value(frame, 0), longer.value(frame, 0) / 10, 0.001) << frame;
    }
}

TEST_F(PulseCalls, WhereTheProgramsMemoryIsPassedTheLibraryReleasesIt) {
    play();
    int released = 0;
    ASSERT_EQ(pa_stream_write_ext_free(stream.get(), noise.bytes.data(), noise.bytes.size(), count,
                                       &released, 0, PA_SEEK_RELATIVE),
              0);
    EXPECT_EQ(stream->passed, noise.bytes.data());
    EXPECT_TRUE(stream->hasRelease);
    EXPECT_EQ(released, 0);
}

TEST_F(PulseCalls, AStreamThatBeginsCorkedIsSilentUntilItGoesOn) {
    play(PA_STREAM_START_CORKED);
    write(noise);
    playOn(40);
    EXPECT_EQ(heard().frames(), 0U);
    (void)pa_stream_cork(stream.get(), 0, nullptr, nullptr);
    awaitGoingOn(firstName());
    pump(60);
    end();
    expectHeard(noise);
}

TEST_F(PulseCalls, OfWhatIsFlushedOnlyWhatTheServerHasPlayedIsOnTheTrack) {
    for (const bool isCorked : {false, true}) {
        forget();
        play();
        write(noise);
        playOn(20);
        const std::size_t before = heard().frames();
        if (isCorked) {
            (void)pa_stream_cork(stream.get(), 1, nullptr, nullptr);
        }
        (void)pa_stream_flush(stream.get(), nullptr, nullptr);
        pump(20);
        const Sound more = markedNoise({}, 9600, 2);
        write(more);
        (void)pa_stream_cork(stream.get(), 0, nullptr, nullptr);
        pump(60);
        end();
        const Sound all = heard();
        ASSERT_GT(all.frames(), more.frames());
        EXPECT_EQ(differences(more, all.part(all.frames() - more.frames(), more.frames())),
                  kNothing);
        const Sound first = all.part(0, all.frames() - more.frames()).trimmed();
        EXPECT_GE(first.frames(), before + kBehind);
        EXPECT_LE(first.frames(), before + kBehind + 2 * kSlice);
        EXPECT_EQ(differences(noise.part(0, first.frames()), first), kNothing);
    }
}

TEST_F(PulseCalls, WhatIsFlushedBeforeTheServerPlaysIsNotOnTheTrack) {
    play(PA_STREAM_START_CORKED);
    write(markedNoise({}, 9600, 2));
    playOn(20);
    (void)pa_stream_flush(stream.get(), nullptr, nullptr);
    pump(10);
    (void)pa_stream_cork(stream.get(), 0, nullptr, nullptr);
    write(noise);
    awaitGoingOn(firstName());
    pump(60);
    end();
    expectHeard(noise);
}

TEST_F(PulseCalls, WhatIsWrittenInAPauseAndFlushedIsNotOnTheTrack) {
    play();
    write(noise.part(0, 6000));
    playOn(14);
    (void)pa_stream_cork(stream.get(), 1, nullptr, nullptr);
    write(markedNoise({}, 9600, 2));
    for (int times = 0; times < 2; ++times) {
        (void)pa_stream_flush(stream.get(), nullptr, nullptr);
        pump(10);
    }
    (void)pa_stream_cork(stream.get(), 0, nullptr, nullptr);
    write(noise.part(6000, 18000));
    pump(60);
    end();
    Sound all = heard();
    EXPECT_EQ(differences(noise.part(0, 6000), all.part(0, 6000)), kNothing);
    EXPECT_EQ(differences(noise.part(6000, 18000), all.part(all.frames() - 18000, 18000)),
              kNothing);
    EXPECT_EQ(all.part(6000, all.frames() - 24000).trimmed().frames(), 0U);
}

TEST_F(PulseCalls, NothingIsHeardBeforeThePrebufferIsFull) {
    stream->attributes.prebuf = 20000 * kFrameBytes;
    play();
    write(noise.part(0, 12000));
    playOn(40);
    EXPECT_EQ(heard().frames(), 0U);
    write(noise.part(12000, 12000));
    awaitGoingOn(firstName());
    pump(60);
    end();
    expectHeard(noise);
}

TEST_F(PulseCalls, WhatIsFlushedBeforeTheServerStartsIsNotOnTheTrack) {
    stream->startsLate = true;
    play();
    write(markedNoise({}, 9600, 2));
    playOn(20);
    (void)pa_stream_flush(stream.get(), nullptr, nullptr);
    write(noise);
    stream->starts();
    endsWithTheNoise();
}

TEST_F(PulseCalls, WhatIsWrittenOverIsNotHeard) {
    const Sound other = markedNoise({}, 24000, 2);
    play();
    write(other);
    write(noise.part(0, 6000), -24000);
    write(noise.part(12000, 12000), 12000, PA_SEEK_ABSOLUTE);
    write(noise.part(6000, 18000), 6000, PA_SEEK_ABSOLUTE);
    endsWithTheNoise();
}

TEST_F(PulseCalls, AGapIsSilenceOfItsLength) {
    play();
    write(noise.part(0, 12000));
    write(noise.part(12000, 12000), 3000, PA_SEEK_RELATIVE_END);
    playOn(70);
    end();
    Sound wanted = noise.part(0, 12000);
    wanted.bytes += tqtest::silence({}, 3000).bytes + noise.part(12000, 12000).bytes;
    EXPECT_EQ(heard().bytes, wanted.bytes);
}

TEST_F(PulseCalls, WhatIsWrittenWhereTheStreamHasPlayedIsNotHeard) {
    play();
    write(noise);
    playOn(20);
    const std::size_t played = reports(firstName()).empty() ? 0 : heard().frames();
    write(noise, 0, PA_SEEK_ABSOLUTE);
    pump(60);
    end();
    ASSERT_GT(played, 0U);
    expectHeard(noise);
}

TEST_F(PulseCalls, WhatADisconnectedStreamHasFarAheadIsNotHeard) {
    play();
    write(noise);
    playOn(20);
    end();
    const Sound all = heard();
    EXPECT_LT(all.frames(), 20 * kSlice + 4800);
    EXPECT_GE(all.frames(), 14 * kSlice);
    EXPECT_EQ(differences(noise.part(0, all.frames()), all), kNothing);
}

TEST_F(PulseCalls, AConnectedStreamThatTheProgramLetsGoPlaysOnUntilItsContextEnds) {
    play();
    write(noise);
    playOn(5);
    pa_stream_unref(stream.get());
    pump(60);
    expectHeard(noise);
    EXPECT_EQ(reports(firstName()).back().is_closed, 0U);
    pa_context_disconnect(context);
    playOut(firstName());
}

TEST_F(PulseCalls, UploadsAndRecordingsAreNoStreams) {
    const auto upload = make("upload");
    ASSERT_EQ(pa_stream_connect_upload(upload.get(), noise.bytes.size()), 0);
    becomesReady(*upload);
    ASSERT_EQ(pa_stream_write(upload.get(), noise.bytes.data(), noise.bytes.size(), nullptr, 0,
                              PA_SEEK_RELATIVE),
              0);
    const auto recording = make("recording");
    ASSERT_EQ(pa_stream_connect_record(recording.get(), nullptr, nullptr, PA_STREAM_NOFLAGS), 0);
    becomesReady(*recording);
    play();
    write(noise);
    awaitReport(firstName());
    EXPECT_EQ(upload->taken, noise.bytes);
    EXPECT_TRUE(reports("pulse-2 game: upload").empty());
}

TEST_F(PulseCalls, AtAnotherRateItIsAnotherStreamAndBothAreWhole) {
    play();
    write(noise.part(0, 12000));
    (void)pa_stream_update_sample_rate(stream.get(), 32000, nullptr, nullptr);
    write(noise.part(12000, 12000));
    awaitReport("pulse-2 game: music");
    EXPECT_EQ(reports("pulse-2 game: music").back().sample_rate, 32000);
    pump(60);
    EXPECT_EQ(stream->taken, noise.bytes);
    expectHeard(noise.part(0, 12000));
    EXPECT_EQ(differences(noise.part(12000, 12000), track("pulse-2 game: music").trimmed()),
              kNothing);
}

TEST_F(PulseCalls, AStreamThatWaitsCorkedAtAnotherRateWaitsOn) {
    play(PA_STREAM_START_CORKED);
    (void)pa_stream_update_sample_rate(stream.get(), 32000, nullptr, nullptr);
    write(noise);
    playOn(20);
    EXPECT_EQ(heard().frames(), 0U);
    (void)pa_stream_cork(stream.get(), 0, nullptr, nullptr);
    awaitGoingOn(firstName());
    pump(80);
    end();
    expectHeard(noise);
}

TEST_F(PulseCalls, ARateThatIsAdjustedALittleIsTheSameStream) {
    play();
    write(noise.part(0, 12000));
    for (const unsigned rate : {48100U, 47900U, 48000U}) {
        (void)pa_stream_update_sample_rate(stream.get(), rate, nullptr, nullptr);
    }
    write(noise.part(12000, 12000));
    endsWithTheNoise();
}

TEST_F(PulseCalls, CodedSoundIsReportedAndPassedOn) {
    stream->format.encoding = PA_ENCODING_AC3_IEC61937;
    play();
    write(noise);
    awaitReport(firstName(), TQ_STREAM_NOT_PCM);
    EXPECT_EQ(stream->taken, noise.bytes);
}

}  // namespace
}  // namespace bridgetests
