#include <array>

#include "bridges/sdl/SdlFixture.h"

// Calls of a program into a made-up SDL, with the whole library behind them.

namespace bridgetests {
namespace {

TEST_F(SdlCalls, WhatACallbackFillsIsPlayedAsItIsAndOnTheTrack) {
    const SDL_AudioDeviceID id = open(spec(&source));
    EXPECT_EQ(play(id, kBuffers), noise.bytes);
    playOn();
    close(id);
    expectHeard(noise);
}

TEST_F(SdlCalls, UnderDuckingTheBufferIsLowerFromTheFirstBlockOn) {
    duckingBegins(kEndlessAttack);
    const SDL_AudioDeviceID id = open(spec(&source));
    const Sound played{noise.format, play(id, kBuffers)};
    EXPECT_LE(largestDifference(noise, played, 0.1), kRounding);
    EXPECT_EQ(source.bytes, noise.bytes) << "the program's own memory was changed";
    playOn();
    close(id);
    expectHeard(played);
}

TEST_F(SdlCalls, TheProgramFindsItsOwnCallbackInWhatItIsTold) {
    const SDL_AudioSpec wanted = spec(&source, AUDIO_F32LSB, 6);
    SDL_AudioSpec told{};
    ASSERT_NE(SDL_OpenAudioDevice(nullptr, 0, &wanted, &told, 0), 0U);
    EXPECT_EQ(told.callback, &Source::fill);
    EXPECT_EQ(told.userdata, &source);
    EXPECT_EQ(told.size, kBuffer * 6U * 4U);
    EXPECT_NE(sdl.devices[2].spec.callback, &Source::fill);
}

TEST_F(SdlCalls, WhereChangesAreAllowedTheTrackHasWhatTheDeviceOpened) {
    sdl.hasInstead = spec(nullptr, AUDIO_S16LSB, 1, 44100);
    const SDL_AudioSpec wanted = spec(&source, AUDIO_F32LSB, 6);
    SDL_AudioSpec told{};
    const auto id = SDL_OpenAudioDevice(nullptr, 0, &wanted, &told, SDL_AUDIO_ALLOW_ANY_CHANGE);
    EXPECT_EQ(told.freq, 44100);
    EXPECT_EQ(told.channels, 1);
    SDL_PauseAudioDevice(id, 0);
    const Sound mono = markedNoise({44100, 1}, 20 * kBuffer);
    source.bytes = mono.bytes;
    EXPECT_EQ(play(id, 20), mono.bytes);
    playOn();
    close(id);
    expectHeard(mono);
}

TEST_F(SdlCalls, WhatIsQueuedAheadIsOnTheTrackWhenItIsPlayed) {
    const SDL_AudioDeviceID id = open(spec(nullptr));
    EXPECT_EQ(queue(id, noise.bytes), 0);
    EXPECT_EQ(SDL_GetQueuedAudioSize(id), noise.bytes.size());
    EXPECT_EQ(play(id, 10), noise.part(0, 10 * kBuffer).bytes);
    EXPECT_EQ(SDL_GetQueuedAudioSize(id), noise.bytes.size() - 10 * sdl.devices[id].spec.size);
    playOn();
    EXPECT_EQ(heard().frames(), 10U * kBuffer);
    EXPECT_EQ(play(id, 14), noise.part(10 * kBuffer, 14 * kBuffer).bytes);
    pump(60);
    close(id);
    const auto found = differences(noise, heard());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NE(found[0].find("silence inserted at frame 10000"), std::string::npos) << found[0];
}

TEST_F(SdlCalls, PiecesOfAnySizeAreQueuedInOrder) {
    const SDL_AudioDeviceID id = open(spec(nullptr));
    std::size_t piece = 4;
    for (std::size_t at = 0; at < noise.bytes.size(); at += piece) {
        piece = std::min((piece * 7 + 4) % 9000 / 4 * 4 + 4, noise.bytes.size() - at);
        EXPECT_EQ(queue(id, std::string_view(noise.bytes).substr(at, piece)), 0);
    }
    EXPECT_EQ(play(id, kBuffers), noise.bytes);
    playOn();
    close(id);
    expectHeard(noise);
}

TEST_F(SdlCalls, WhatIsClearedIsNeitherPlayedNorOnTheTrack) {
    const SDL_AudioDeviceID id = open(spec(nullptr));
    EXPECT_EQ(queue(id, std::string(50000, '\x55')), 0);
    SDL_ClearQueuedAudio(id);
    EXPECT_EQ(SDL_GetQueuedAudioSize(id), 0U);
    EXPECT_EQ(queue(id, noise.bytes), 0);
    EXPECT_EQ(play(id, kBuffers), noise.bytes);
    playOn();
    close(id);
    expectHeard(noise);
}

TEST_F(SdlCalls, AnEmptyQueueIsSilenceAndAPieceOfABufferIsFilledUp) {
    const SDL_AudioDeviceID id = open(spec(nullptr, AUDIO_U8));
    const std::string quiet(2 * kBuffer, '\x80');
    EXPECT_EQ(play(id, 1), quiet);
    EXPECT_EQ(queue(id, std::string(500, '\x20')), 0);
    EXPECT_EQ(play(id, 1), std::string(500, '\x20') + quiet.substr(500));
    EXPECT_TRUE(tracks().empty() || !tracks().contains(firstName()));
    awaitReport(firstName());
    pump(20);
    close(id);
    EXPECT_EQ(heard().frames(), 250U);
}

TEST_F(SdlCalls, ADeviceWithACallbackTakesNoQueue) {
    const SDL_AudioDeviceID id = open(spec(&source));
    EXPECT_EQ(queue(id, "none"), -1);
    EXPECT_EQ(SDL_GetQueuedAudioSize(id), 0U);
    SDL_ClearQueuedAudio(id);
}

TEST_F(SdlCalls, CallsOnADeviceThatIsNotKnownAreSdls) {
    EXPECT_EQ(queue(9, "nine"), 0);
    EXPECT_EQ(SDL_GetQueuedAudioSize(9), 4U);
    SDL_PauseAudioDevice(9, 1);
    SDL_ClearQueuedAudio(9);
    EXPECT_EQ(sdl.devices[9].queue, "");
    SDL_CloseAudioDevice(9);
}

TEST_F(SdlCalls, LocksAreSdlsAndAreGivenBack) {
    const SDL_AudioDeviceID id = open(spec(nullptr));
    (void)queue(id, noise.bytes);
    (void)SDL_GetQueuedAudioSize(id);
    SDL_ClearQueuedAudio(id);
    (void)play(id, 2);
    EXPECT_EQ(sdl.devices[id].locks, 0);
}

TEST_F(SdlCalls, TheOldOpenFillsInWhatItChoseAndPlaysFromItsCallback) {
    SDL_AudioSpec desired = spec(&source);
    ASSERT_EQ(SDL_OpenAudio(&desired, nullptr), 0);
    EXPECT_EQ(desired.size, kBuffer * 4U);
    EXPECT_EQ(desired.callback, &Source::fill);
    EXPECT_EQ(desired.userdata, &source);
    SDL_PauseAudio(0);
    EXPECT_EQ(play(1, kBuffers), noise.bytes);
    playOn();
    SDL_CloseAudio();
    playOut(firstName());
    expectHeard(noise);
}

TEST_F(SdlCalls, TheOldOpenMayChangeTheFormatWhereItIsAskedWhatItGot) {
    sdl.hasInstead = spec(nullptr, AUDIO_S16LSB, 1, 44100);
    SDL_AudioSpec desired = spec(nullptr, AUDIO_F32LSB, 6);
    SDL_AudioSpec told{};
    ASSERT_EQ(SDL_OpenAudio(&desired, &told), 0);
    EXPECT_EQ(told.freq, 44100);
    EXPECT_EQ(told.callback, nullptr);
    EXPECT_EQ(desired.size, 0U) << "there it is left alone";
    SDL_PauseAudio(0);
    const Sound mono = markedNoise({44100, 1}, 20 * kBuffer);
    EXPECT_EQ(queue(1, mono.bytes), 0);
    EXPECT_EQ(play(1, 20), mono.bytes);
    playOn();
    SDL_CloseAudio();
    playOut(firstName());
    expectHeard(mono);
}

TEST_F(SdlCalls, AnOpenThatFailsLeavesNothingBehind) {
    sdl.fails = true;
    SDL_AudioSpec wanted = spec(&source);
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(SDL_OpenAudioDevice(nullptr, 0, &wanted, nullptr, 0), 0U);
        EXPECT_EQ(SDL_OpenAudio(&wanted, nullptr), -1);
    }
    EXPECT_EQ(wanted.callback, &Source::fill);
    EXPECT_EQ(SDL_OpenAudioDevice(nullptr, 0, nullptr, nullptr, 0), 0U) << "nothing is wanted";
    sdl.fails = false;
    const SDL_AudioDeviceID id = open(wanted);
    EXPECT_EQ(play(id, kBuffers), noise.bytes);
    playOn();
    close(id);
    expectHeard(noise);
}

TEST_F(SdlCalls, SeveralDevicesAreTracksOfTheirOwnAndEndByThemselves) {
    std::array<SDL_AudioDeviceID, 3> ids{};
    std::array<Source, 3> sources;
    for (unsigned i = 0; i < 3; ++i) {
        sources.at(i).bytes = markedNoise({}, kBuffers * kBuffer, i + 1).bytes;
        ids.at(i) = open(spec(&sources.at(i)), "speakers");
        EXPECT_EQ(play(ids.at(i), kBuffers), sources.at(i).bytes);
        awaitReport("sdl-" + std::to_string(i + 1) + " speakers");
    }
    pump(20);
    SDL_CloseAudioDevice(ids[1]);
    playOut("sdl-2 speakers");
    EXPECT_EQ(reports("sdl-1 speakers").back().is_closed, 0U);
    pump(40);
    for (unsigned i = 0; i < 3; ++i) {
        const Sound wanted = markedNoise({}, kBuffers * kBuffer, i + 1);
        EXPECT_EQ(
            differences(wanted, track("sdl-" + std::to_string(i + 1) + " speakers").trimmed()),
            kNothing);
    }
}

TEST_F(SdlCalls, ATrackIsCalledByTheProgramsNameForItsSound) {
    sdl.streamName = "voices";
    const SDL_AudioDeviceID id = open(spec(&source), "speakers");
    (void)play(id, kBuffers);
    awaitReport("sdl-1 voices");
}

TEST_F(SdlCalls, InAPauseNothingIsAskedForAndWhatWasTakenIsPlayedOut) {
    const SDL_AudioDeviceID id = open(spec(&source));
    (void)play(id, 2);
    SDL_PauseAudioDevice(id, 1);
    (void)play(id, 5);
    EXPECT_EQ(source.place, 2U * kBuffer * 4);
    playOn(20);
    EXPECT_EQ(heard().frames(), 2U * kBuffer);
    SDL_PauseAudioDevice(id, 0);
    (void)play(id, kBuffers - 2);
    pump(60);
    close(id);
    const auto found = differences(noise, heard());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NE(found[0].find("frames of silence inserted at frame 2000"), std::string::npos)
        << found[0];
}

/// Closes its own device when it is asked for the last time.
struct Closing {
    SDL_AudioDeviceID id = 0;
    Source source;

    static void fill(void* self, Uint8* buffer, int length) {
        auto& closing = *static_cast<Closing*>(self);
        Source::fill(&closing.source, buffer, length);
        if (closing.source.place == closing.source.bytes.size()) {
            SDL_CloseAudioDevice(closing.id);
        }
    }
};

TEST_F(SdlCalls, ADeviceThatItsOwnCallbackClosesIsPlayedOut) {
    Closing closing{0, {noise.bytes}};
    SDL_AudioSpec wanted = spec(&source);
    wanted.callback = &Closing::fill;
    wanted.userdata = &closing;
    closing.id = open(wanted);
    EXPECT_EQ(play(closing.id, kBuffers), noise.bytes);
    playOut(firstName());
    // The last buffer came back to SDL behind the end of the device.
    expectHeard(noise.part(0, (kBuffers - 1) * kBuffer));
    const SDL_AudioDeviceID again = open(spec(nullptr));
    EXPECT_EQ(queue(again, "abcd"), 0);
    EXPECT_EQ(play(again, 1).substr(0, 4), "abcd");
}

TEST_F(SdlCalls, AMicrophoneIsLeftAlone) {
    const SDL_AudioSpec wanted = spec(&source);
    const SDL_AudioDeviceID id = SDL_OpenAudioDevice(nullptr, 1, &wanted, nullptr, 0);
    EXPECT_EQ(sdl.devices[id].spec.callback, &Source::fill);
    EXPECT_EQ(sdl.devices[id].spec.userdata, &source);
}

TEST_F(SdlCalls, WhatEndsSdlsSoundEndsAllDevices) {
    const auto quitAudio = [] { SDL_QuitSubSystem(SDL_INIT_AUDIO); };
    const auto begin = [] { SDL_AudioInit("made up"); };
    for (void (*const end)() : {+quitAudio, +begin, &SDL_AudioQuit, &SDL_Quit}) {
        forget();
        sdl.driver = "made up";
        source.place = 0;
        const SDL_AudioDeviceID id = open(spec(&source));
        (void)play(id, kBuffers);
        awaitReport(firstName());
        end();
        playOut(firstName());
        expectHeard(noise);
    }
}

TEST_F(SdlCalls, TheEndOfAnotherPartOfSdlEndsNoDevice) {
    const SDL_AudioDeviceID id = open(spec(&source));
    (void)play(id, 12);
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
    (void)play(id, kBuffers - 12);
    playOn();
    close(id);
    expectHeard(noise);
}

TEST_F(SdlCalls, WhereTheProgramLeavesTheFormatToSdlAndDoesNotAskTheTrackHasSdlsOwn) {
    SDL_AudioSpec desired = spec(&source, 0, 0, 0);
    ASSERT_EQ(SDL_OpenAudio(&desired, nullptr), 0);
    SDL_PauseAudio(0);
    const Sound own = markedNoise({.rate = 22050}, 20 * kBuffer);
    source.bytes = own.bytes;
    EXPECT_EQ(play(1, 20), own.bytes);
    playOn();
    SDL_CloseAudio();
    playOut(firstName());
    EXPECT_EQ(reports(firstName()).back().sample_rate, 22050);
    expectHeard(own);
}

TEST_F(SdlCalls, ADeviceThatCannotBeOpenedIsNamedWithSdlsMessage) {
    sdl.fails = true;
    const SDL_AudioSpec wanted = spec(&source);
    EXPECT_EQ(SDL_OpenAudioDevice("speakers", 0, &wanted, nullptr, 0), 0U);
    SDL_AudioSpec old = wanted;
    EXPECT_LT(SDL_OpenAudio(&old, nullptr), 0);
    EXPECT_EQ(countReports("speakers (no such thing)", true), 1U);
    EXPECT_EQ(reports("sdl made up (no such thing)").back().fate, TQ_STREAM_NOT_OPENED);
}

}  // namespace
}  // namespace bridgetests
