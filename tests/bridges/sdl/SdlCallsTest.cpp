#include <SDL.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "bridges/core/NativeCalls.h"
#include "bridges/core/SampleLayouts.h"
#include "bridges/sdl/FakeSdl.h"

// Calls of a program into a made-up SDL, with the whole library behind them.

namespace bridgetests {
namespace {

using tq::bridges::NativeSample;
using tqtest::silence;

/// What the program's callback plays from.
struct Source {
    std::string bytes;
    std::size_t place = 0;

    static void fill(void* self, Uint8* buffer, int length) {
        auto& source = *static_cast<Source*>(self);
        const auto wanted = static_cast<std::size_t>(length);
        const std::size_t part = std::min(wanted, source.bytes.size() - source.place);
        std::memcpy(buffer, source.bytes.data() + source.place, part);
        std::memset(buffer + part, 0, wanted - part);
        source.place += part;
    }
};

struct SdlCalls : NativeCalls {
    SdlCalls() : NativeCalls(tq::bridges::sdlApi(), "sdl-1") {}
    void SetUp() override {
        sdl = {};
        NativeCalls::SetUp();
    }
    void TearDown() override {
        SDL_Quit();
        NativeCalls::TearDown();
    }

    static SDL_AudioSpec spec(Source* source, SDL_AudioFormat format = AUDIO_S16LSB,
                              Uint8 channels = 2, int rate = 48000) {
        SDL_AudioSpec wanted{};
        wanted.freq = rate;
        wanted.format = format;
        wanted.channels = channels;
        wanted.samples = kBuffer;
        wanted.callback = source == nullptr ? nullptr : &Source::fill;
        wanted.userdata = source;
        return wanted;
    }
    static SDL_AudioDeviceID open(const SDL_AudioSpec& wanted, const char* name = nullptr) {
        const SDL_AudioDeviceID id = SDL_OpenAudioDevice(name, 0, &wanted, nullptr, 0);
        EXPECT_NE(id, 0U);
        SDL_PauseAudioDevice(id, 0);
        return id;
    }
    /// The device's thread asks that often.
    std::string play(SDL_AudioDeviceID id, std::size_t buffers) {
        std::string played;
        for (std::size_t i = 0; i < buffers; ++i) {
            played += sdl.play(id);
        }
        return played;
    }
    static int queue(SDL_AudioDeviceID id, std::string_view bytes) {
        return SDL_QueueAudio(id, bytes.data(), static_cast<Uint32>(bytes.size()));
    }
    void close(SDL_AudioDeviceID id) {
        SDL_CloseAudioDevice(id);
        playOut(firstName());
    }

    static constexpr Uint16 kBuffer = 1000;
    static constexpr std::size_t kBuffers = 24;
    FakeSdl& sdl = FakeSdl::shared();
    const Sound noise = markedNoise({}, kBuffers* kBuffer);
    Source source{noise.bytes};
};

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

/// Parts of a million by which the sound device is faster than the one of the tracks.
class SdlDrift : public SdlCalls, public testing::WithParamInterface<int> {};

TEST_P(SdlDrift, LosesNothingAndLeavesFewHoles) {
    constexpr std::size_t kSeconds = 120;
    const Sound sound = markedNoise({}, kSeconds * 48000);
    source.bytes = sound.bytes;
    const SDL_AudioDeviceID id = open(spec(&source));
    (void)play(id, 1);
    awaitReport(firstName());
    const double faster = 1 + 1e-6 * GetParam();
    for (double due = 0; source.place < source.bytes.size(); due += kFrames * faster) {
        for (; due >= kBuffer; due -= kBuffer) {
            (void)sdl.play(id);
        }
        pump();
    }
    close(id);
    const auto found = differences(sound, heard());
    // A device that is slow runs dry once for each margin that it has lost: 144 ms are two or
    // three.
    EXPECT_LE(found.size(), GetParam() < 0 ? 4U : 0U);
    for (const std::string& each : found) {
        EXPECT_NE(each.find("frames of silence inserted"), std::string::npos) << each;
    }
}

INSTANTIATE_TEST_SUITE_P(Ppm, SdlDrift, testing::Values(-1200, -1000, 0, 1000));

/// What SDL calls a layout, and what it is on a machine whose lowest byte is the first.
using Layout = std::pair<SDL_AudioFormat, NativeSample>;
class SdlLayouts : public SdlCalls, public testing::WithParamInterface<Layout> {};

TEST_P(SdlLayouts, AreOnTheTrackWithTheirValuesAndPlayedAsTheyAre) {
    const auto [format, sample] = GetParam();
    const NoiseIn sound(sample);
    source.bytes = sound.written();
    const SDL_AudioDeviceID id = open(spec(&source, format));
    std::string played;
    while (source.place != source.bytes.size()) {
        played += sdl.play(id);
    }
    EXPECT_EQ(played.substr(0, source.bytes.size()), source.bytes);
    playOn();
    close(id);
    const Sound all = heard(sound.heardAs());
    sound.expectIs(all.part(0, NoiseIn::kFrames));
}

INSTANTIATE_TEST_SUITE_P(All, SdlLayouts,
                         testing::Values(Layout{AUDIO_U8, NativeSample::kU8},
                                         Layout{AUDIO_S8, NativeSample::kS8},
                                         Layout{AUDIO_U16LSB, NativeSample::kU16},
                                         Layout{AUDIO_U16MSB, NativeSample::kU16Swapped},
                                         Layout{AUDIO_S16LSB, NativeSample::kS16},
                                         Layout{AUDIO_S16MSB, NativeSample::kS16Swapped},
                                         Layout{AUDIO_S32LSB, NativeSample::kS32},
                                         Layout{AUDIO_S32MSB, NativeSample::kS32Swapped},
                                         Layout{AUDIO_F32LSB, NativeSample::kF32},
                                         Layout{AUDIO_F32MSB, NativeSample::kF32Swapped}));

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
