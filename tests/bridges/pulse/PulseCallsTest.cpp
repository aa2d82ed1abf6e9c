#include <array>
#include <memory>

#include "bridges/core/NativeCalls.h"
#include "bridges/pulse/FakePulse.h"

// Calls of a program into a made-up libpulse, with the whole library behind them.

namespace bridgetests {
namespace {

constexpr std::size_t kFrameBytes = 4;
/// Frames by which the unit may be behind the server, on this device.
constexpr std::size_t kBehind = 3840;

/// A program with one stream of 48 kHz, 16 bits, stereo.
class PulseCalls : public NativeCalls {
  protected:
    PulseCalls() : NativeCalls(tq::bridges::pulseApi(), "pulse-1 game: music") {}
    void SetUp() override {
        NativeCalls::SetUp();
        context = pa_context_new(nullptr, "game");
        stream = make("music");
    }
    void TearDown() override {
        pa_stream_disconnect(stream.get());
        pa_stream_unref(stream.get());
        pa_context_unref(context);
        NativeCalls::TearDown();
    }

    [[nodiscard]] std::unique_ptr<pa_stream> make(const char* name) const {
        const pa_sample_spec spec{PA_SAMPLE_S16NE, 48000, 2};
        return std::unique_ptr<pa_stream>(pa_stream_new(context, name, &spec, nullptr));
    }
    static void becomesReady(pa_stream& one) {
        one.state = PA_STREAM_READY;
        EXPECT_EQ(pa_stream_get_state(&one), PA_STREAM_READY);
    }
    void play(pa_stream_flags_t flags = PA_STREAM_NOFLAGS) {
        ASSERT_EQ(
            pa_stream_connect_playback(stream.get(), nullptr, nullptr, flags, nullptr, nullptr), 0);
        becomesReady(*stream);
    }
    void write(const Sound& sound, std::int64_t frames = 0,
               pa_seek_mode_t seek = PA_SEEK_RELATIVE) {
        ASSERT_EQ(pa_stream_write(stream.get(), sound.bytes.data(), sound.bytes.size(), nullptr,
                                  frames * static_cast<std::int64_t>(kFrameBytes), seek),
                  0);
    }
    void end() {
        pa_stream_disconnect(stream.get());
        playOut(firstName());
    }
    /// The noise is written; it plays and is on the track, alone and whole.
    void endsWithTheNoise() {
        playOn();
        end();
        expectHeard(noise);
    }

    const Sound noise = markedNoise({}, 24000);
    pa_context* context = nullptr;
    std::unique_ptr<pa_stream> stream;
};

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
    pump(60);
    end();
    expectHeard(noise);
}

TEST_F(PulseCalls, WhereTheServerStartsLateTheTrackHasNoHole) {
    stream->startsLate = true;
    play();
    write(noise.part(0, 4800));
    playOn(60);
    EXPECT_EQ(heard().frames(), 0U);
    stream->starts();
    write(noise.part(4800, 19200));
    endsWithTheNoise();
}

TEST_F(PulseCalls, AServerThatNeverSaysThatItStartsIsWaitedForTwoSeconds) {
    stream->startsLate = true;
    play();
    write(noise);
    playOn(195);
    EXPECT_EQ(heard().frames(), 0U);
    endsWithTheNoise();
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

void countStarts(pa_stream* /*stream*/, void* counter) {
    ++*static_cast<int*>(counter);
}

TEST_F(PulseCalls, TheProgramHearsOfTheStartAsWell) {
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

TEST_F(PulseCalls, APrebufferThatIsNotFullIsPlayedOnRequest) {
    stream->attributes.prebuf = 48000 * kFrameBytes;
    for (const auto request : {&pa_stream_drain, &pa_stream_trigger}) {
        forget();
        play();
        write(noise);
        playOn(20);
        EXPECT_EQ(heard().frames(), 0U);
        (void)request(stream.get(), nullptr, nullptr);
        pump(60);
        end();
        expectHeard(noise);
    }
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
