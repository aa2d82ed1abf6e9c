#include "bridges/core/StreamLife.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "bridges/core/StreamFixture.h"
#include "support/ProgramRunner.h"
#include "support/sound/Comparison.h"

// Streams that come and go: which of them have a unit, and what is left of them.

namespace bridgetests {
namespace {

using tq::bridges::NativeFormat;
using tq::bridges::NativeSample;
using tq::bridges::NativeStream;
using tqtest::differences;
using tqtest::Encoding;
using tqtest::largestDifference;
using tqtest::markedNoise;
using tqtest::Sound;
using tqtest::SoundFormat;

/// How a track of such a stream reaches listeners.
SoundFormat heardFormat(SoundFormat format) {
    const bool isWide = format.encoding == Encoding::S24 || format.encoding == Encoding::S32;
    format.encoding = isWide ? Encoding::S32 : Encoding::S16;
    return format;
}

/// Whether a track is what was passed on. Floats reach listeners as 16-bit.
void expectSame(const Sound& passed, const Sound& heard, const std::string& what) {
    const auto channels = static_cast<std::size_t>(passed.format.channels);
    ASSERT_EQ(heard.frames(), passed.frames()) << what;
    if (passed.format.encoding != Encoding::F32) {
        Sound wanted{heard.format, std::string(heard.bytes.size(), '\0')};
        tq::bridges::toUnit(nativeFormat(passed.format).sample)(
            passed.bytes.data(), wanted.bytes.data(), passed.frames() * channels);
        EXPECT_EQ(differences(wanted, heard), kNothing) << what;
        return;
    }
    double farthest = 0;
    for (std::size_t i = 0; i < passed.frames() * channels; ++i) {
        farthest = std::max(farthest, std::abs(passed.value(i / channels, i % channels) -
                                               heard.value(i / channels, i % channels)));
    }
    EXPECT_LT(farthest, 1.6 / 32768) << what;
}

struct StreamLifeTest : NativeStreams {
    /// Whether the sound is in the track, whole and without a break.
    [[nodiscard]] bool holds(const Sound& got, const Sound& wanted) const {
        const std::size_t at = tqtest::beginningOf(wanted, got);
        return at < got.frames() && got.part(at, wanted.frames()).bytes == wanted.bytes;
    }
};

TEST_F(StreamLifeTest, FiftyShortStreamsOverMusicAreWholeAndTheMusicIsNotInterrupted) {
    const Sound music = markedNoise({}, 48000 * 10, 99);
    MadeUpPcm player({}, "music");
    std::size_t written = 0;
    const auto playOn = [&](int slices) {
        for (int i = 0; i < slices; ++i) {
            player.write(music.part(written, kSlice));
            written += kSlice;
            pump();
        }
    };
    player.write(music.part(0, 9600));
    written = 9600;
    awaitReport("madeup-1 music");
    for (unsigned i = 0; i < 50; ++i) {
        MadeUpPcm shot({}, "shot");
        shot.write(markedNoise({}, 2400 + 10 * i, i + 1));
        awaitReports(" shot", false, i + 1);
        playOn(4);
        shot.close();
        playOn(14);
        awaitReports(" shot", true, i < 2 ? 0 : i - 2);
    }
    player.write(music.part(written, music.frames() - written));
    player.close();
    playOut("madeup-1 music");
    EXPECT_EQ(differences(music, track("madeup-1 music").trimmed()), kNothing);
    Sound shots{{}, {}};
    for (const auto& [name, heard] : tracks()) {
        if (name.ends_with(" shot")) {
            shots.bytes += heard.bytes;
        }
    }
    for (unsigned i = 0; i < 50; ++i) {
        EXPECT_TRUE(holds(shots, markedNoise({}, 2400 + 10 * i, i + 1))) << i;
    }
}

TEST_F(StreamLifeTest, AStreamThatIsOpenedAnewBeforeItsFirstFrameKeepsItsName) {
    MadeUpPcm pcm({.rate = 44100}, "music");
    pcm.open("music");
    pcm.open("music");
    const Sound noise = markedNoise({.rate = 44100}, 9600);
    pcm.write(noise);
    awaitReport("madeup-1 music");
    pcm.close();
    playOut("madeup-1 music");
    EXPECT_EQ(differences(noise, track("madeup-1 music", noise.format).trimmed()), kNothing);
}

TEST_F(StreamLifeTest, OfTenStreamsSevenAreRecordedAndOneMoreWhenOneOfThemEnds) {
    std::vector<std::unique_ptr<MadeUpPcm>> streams;
    for (unsigned i = 0; i < 10; ++i) {
        streams.push_back(std::make_unique<MadeUpPcm>(SoundFormat{}, ""));
        streams.back()->write(markedNoise({}, 9600, i + 1));
        awaitReport("madeup-" + std::to_string(i + 1),
                    i < 7 ? TQ_STREAM_RECORDED : TQ_STREAM_NO_UNIT_FREE);
    }
    streams[2].reset();
    playOut("madeup-3");
    const auto isRecorded = [&](unsigned number) {
        const auto all = reports("madeup-" + std::to_string(number));
        return all.back().fate == TQ_STREAM_RECORDED && all.back().is_closed == 0;
    };
    std::vector<unsigned> later;
    for (int i = 0; i < 1000 && later.empty(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        for (unsigned number = 8; number <= 10; ++number) {
            if (isRecorded(number)) {
                later.push_back(number);
            }
        }
    }
    ASSERT_EQ(later.size(), 1U);
    const std::string name = "madeup-" + std::to_string(later[0]);
    const Sound more = markedNoise({}, 9600, 50);
    streams[later[0] - 1]->write(more);
    streams[later[0] - 1]->close();
    playOut(name);
    EXPECT_EQ(differences(more, track(name).trimmed()), kNothing);
    EXPECT_EQ(reports(name).back().lost, 9600U);
}

TEST_F(StreamLifeTest, ShortStreamsOneAfterTheOtherAreWholeAndInOrderHoweverFastTheyCome) {
    constexpr unsigned kStreams = 60;
    for (unsigned i = 0; i < kStreams; ++i) {
        MadeUpPcm shot({}, "shot");
        shot.write(markedNoise({}, 4800, i + 1));
    }
    for (int i = 0; i < 5000; ++i) {
        if (countReports(" shot", true) == kStreams) {
            break;
        }
        pump();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(countReports(" shot", true), kStreams);
    EXPECT_LE(tracks().size(), 8U) << "a track for each stream";
    std::map<std::string, std::size_t> ends;
    for (unsigned i = 0; i < kStreams; ++i) {
        const Sound sound = markedNoise({}, 4800, i + 1);
        int found = 0;
        for (const auto& [name, heard] : tracks()) {
            const Sound got{{}, heard.bytes};
            const std::size_t at = name == "mix" ? got.frames() : tqtest::beginningOf(sound, got);
            if (at < got.frames() && got.part(at, sound.frames()).bytes == sound.bytes) {
                ++found;
                EXPECT_GE(at, ends[name]) << i << " is played before those that came earlier";
                ends[name] = at + sound.frames();
            }
        }
        EXPECT_EQ(found, 1) << i;
    }
}

TEST_F(StreamLifeTest, AStreamThatWaitsForAClosedOneIsDuckedAsItIsWritten) {
    duckingBegins();
    const Sound sound = markedNoise({}, 9600);
    for (int i = 0; i < 7; ++i) {
        MadeUpPcm({}, "shot").write(sound);
    }
    MadeUpPcm eighth({}, "eighth");
    eighth.write(sound);
    EXPECT_NEAR(eighth.passed().value(9599, 0), sound.value(9599, 0) / 10, 0.001);
    eighth.close();
    playOut("madeup-8 eighth");
    EXPECT_EQ(differences(eighth.passed(), track("madeup-8 eighth").trimmed()), kNothing);
}

TEST_F(StreamLifeTest, StreamsThatHaveNoUnitAreDuckedFromTheirFirstFrameOn) {
    const SoundFormat mono{.rate = 44100, .channels = 1, .encoding = Encoding::F32};
    const Sound sound = markedNoise(mono, 9600);
    std::vector<std::unique_ptr<MadeUpPcm>> streams;
    duckingBegins(kEndlessAttack);
    for (int i = 0; i < 8; ++i) {
        streams.push_back(std::make_unique<MadeUpPcm>(mono, ""));
        streams.back()->write(sound);
        EXPECT_LE(largestDifference(sound, streams.back()->passed(), 0.1), kRounding) << i;
        awaitReport("madeup-" + std::to_string(i + 1),
                    i < 7 ? TQ_STREAM_RECORDED : TQ_STREAM_NO_UNIT_FREE);
    }
    // What the interface refused is not ducked twice.
    streams[7]->write(sound, 4800);
    streams[7]->write(sound.part(4800, 4800));
    EXPECT_LE(largestDifference(sound, streams[7]->passed().part(9600, 9600), 0.1), kRounding);
    // It goes on in the same way when it gets a unit.
    streams[0].reset();
    playOut("madeup-1");
    awaitReport("madeup-8", TQ_STREAM_RECORDED);
    streams[7]->write(sound);
    EXPECT_LE(largestDifference(sound, streams[7]->passed().part(19200, 9600), 0.1), kRounding);
    streams[7]->close();
    playOut("madeup-8");
    EXPECT_LE(largestDifference(streams[7]->passed().part(19200, 9600),
                                track("madeup-8", {.rate = 44100, .channels = 1}).trimmed()),
              kRounding);
}

/// What is called so is not wanted.
void leaveOut() {
    tq_bridges attendant{};
    attendant.size = sizeof attendant;
    attendant.is_wanted = [](void* /*context*/, const char* name) -> std::uint32_t {
        return std::string_view(name).ends_with(" unwanted") ? 0 : 1;
    };
    NativeStream::attend(attendant);
}

TEST_F(StreamLifeTest, AStreamThatIsNotWantedPlaysDuckedAndHasNoTrack) {
    leaveOut();
    duckingBegins(kEndlessAttack);
    const Sound sound = markedNoise({}, 9600);
    MadeUpPcm pcm({}, "unwanted");
    pcm.write(sound);
    awaitReport("madeup-1 unwanted", TQ_STREAM_EXCLUDED);
    EXPECT_LE(largestDifference(sound, pcm.passed(), 0.1), kRounding);
    pump(60);
    pcm.close();
    awaitReport("madeup-1 unwanted", TQ_STREAM_EXCLUDED, true);
    EXPECT_FALSE(tracks().contains("madeup-1 unwanted"));
    EXPECT_EQ(reports("madeup-1 unwanted").back().written, 9600U);
}

TEST_F(StreamLifeTest, OneThatIsNotWantedAndIsClosedAtOnceIsNamedOnce) {
    leaveOut();
    MadeUpPcm pcm({}, "unwanted");
    pcm.write(markedNoise({}, 480));
    pcm.close();
    awaitReport("madeup-1 unwanted", TQ_STREAM_EXCLUDED, true);
    // By the time that another one has come and gone.
    MadeUpPcm next({}, "wanted");
    next.write(markedNoise({}, 9600));
    next.close();
    playOut("madeup-1 wanted");
    EXPECT_EQ(countReports("unwanted", true), 1U);
}

TEST_F(StreamLifeTest, StreamsThatAreNotWantedTakeNoPlaceOfThoseThatAre) {
    leaveOut();
    std::vector<std::unique_ptr<MadeUpPcm>> streams;
    for (unsigned i = 0; i < 14; ++i) {
        const bool isWanted = i % 2 == 1;
        streams.push_back(
            std::make_unique<MadeUpPcm>(SoundFormat{}, isWanted ? "wanted" : "unwanted"));
        streams.back()->write(markedNoise({}, 9600, i + 1));
        awaitReport("madeup-" + std::to_string(i + 1) + (isWanted ? " wanted" : " unwanted"),
                    isWanted ? TQ_STREAM_RECORDED : TQ_STREAM_EXCLUDED);
    }
    pump(60);
    EXPECT_EQ(tracks().size(), 8U) << "seven and the mix";
}

TEST_F(StreamLifeTest, WhoeverDucksLaterDucksStreamsThatHaveNoUnitAsWell) {
    std::vector<std::unique_ptr<MadeUpPcm>> streams;
    const Sound sound = markedNoise({}, 9600);
    for (int i = 0; i < 8; ++i) {
        streams.push_back(std::make_unique<MadeUpPcm>(SoundFormat{}, ""));
        streams.back()->write(sound);
    }
    EXPECT_EQ(differences(sound, streams[7]->passed()), kNothing);
    duckingBegins();
    streams[7]->write(sound);
    EXPECT_NEAR(streams[7]->passed().value(9600 + 9599, 0), sound.value(9599, 0) / 10, 0.001);
    duckingLevel(-80);
    for (int i = 0; i < 20; ++i) {
        streams[7]->write(sound);
    }
    EXPECT_NEAR(streams[7]->passed().value(22 * 9600 - 1, 0), sound.value(9599, 0), 0.001);
}

TEST_F(StreamLifeTest, AStreamOfAnotherFormatWaitsForTheFirstUnitThatIsFree) {
    for (int i = 0; i < 7; ++i) {
        MadeUpPcm({}, "shot").write(markedNoise({}, 9600));
    }
    const SoundFormat mono{.rate = 44100, .channels = 1};
    const Sound sound = markedNoise(mono, 9600);
    MadeUpPcm eighth(mono, "eighth");
    eighth.write(sound);
    eighth.close();
    playOut("madeup-8 eighth");
    EXPECT_EQ(differences(sound, track("madeup-8 eighth", mono).trimmed()), kNothing);
}

TEST_F(StreamLifeTest, AClosedStreamWhoseUnitDoesNotStartIsGivenUp) {
    platform.fail("AudioOutputUnitStart", -1);
    MadeUpPcm pcm({}, "silent");
    pcm.write(markedNoise({}, 4800));
    pcm.close();
    awaitReport("madeup-1 silent", TQ_STREAM_RECORDED, true);
    EXPECT_EQ(reports("madeup-1 silent").back().lost, 4800U);
    platform.heal();
    const Sound sound = markedNoise({}, 4800, 2);
    MadeUpPcm next({}, "next");
    next.write(sound);
    awaitReport("madeup-1 next");
    next.close();
    playOut("madeup-1 next");
    EXPECT_EQ(differences(sound, track("madeup-1 next").trimmed()), kNothing);
}

TEST_F(StreamLifeTest, StreamsThatWereOpenedToLookGiveWay) {
    std::vector<std::unique_ptr<MadeUpPcm>> streams;
    for (int i = 0; i < 9; ++i) {
        streams.push_back(std::make_unique<MadeUpPcm>(SoundFormat{}, "look"));
    }
    MadeUpPcm player({}, "play");
    const Sound sound = markedNoise({}, 9600);
    player.write(sound);
    awaitReport("madeup-10 play");
    player.close();
    playOut("madeup-10 play");
    EXPECT_EQ(differences(sound, track("madeup-10 play").trimmed()), kNothing);
    // And one of them that plays after all.
    streams[0]->write(sound);
    awaitReport("madeup-1 look", TQ_STREAM_RECORDED);
}

TEST_F(StreamLifeTest, AStreamThatGaveWayIsWholeAndDuckedWhenItPlaysAfterAll) {
    std::vector<std::unique_ptr<MadeUpPcm>> streams;
    for (int i = 0; i < 8; ++i) {
        streams.push_back(std::make_unique<MadeUpPcm>(SoundFormat{}, "look"));
    }
    duckingBegins(kEndlessAttack);
    const Sound sound = markedNoise({}, 24000);
    streams[0]->write(sound.part(0, 12000));
    streams[0]->write(sound.part(12000, 12000));
    EXPECT_LE(largestDifference(sound, streams[0]->passed(), 0.1), kRounding);
    awaitReport("madeup-1 look");
    streams[0]->close();
    playOut("madeup-1 look");
    EXPECT_EQ(differences(streams[0]->passed(), track("madeup-1 look").trimmed()), kNothing);
    EXPECT_EQ(reports("madeup-1 look").back().lost, 0U);
}

TEST_F(StreamLifeTest, OfStreamsThatGaveWayThoseThatFindNoUnitAreNamedAndLost) {
    std::vector<std::unique_ptr<MadeUpPcm>> streams;
    for (int i = 0; i < 9; ++i) {
        streams.push_back(std::make_unique<MadeUpPcm>(SoundFormat{}, ""));
    }
    const Sound sound = markedNoise({}, 9600);
    for (const auto& stream : streams) {
        stream->write(sound);
    }
    const auto namesOf = [&](tq_stream_fate fate) {
        std::set<std::string> names;
        for (int i = 1; i <= 9; ++i) {
            const std::string name = "madeup-" + std::to_string(i);
            const auto all = reports(name);
            if (!all.empty() && all.back().fate == fate) {
                names.insert(name);
            }
        }
        return names;
    };
    EXPECT_TRUE(tqtest::eventually([&] {
        return namesOf(TQ_STREAM_NO_UNIT_FREE).size() == 2 &&
               namesOf(TQ_STREAM_RECORDED).size() == 7;
    }));
    // While the nine are closed one of these may still get a unit: for what it has lost, too late.
    const std::set<std::string> withoutUnit = namesOf(TQ_STREAM_NO_UNIT_FREE);
    streams.clear();
    for (int i = 1; i <= 9; ++i) {
        const std::string name = "madeup-" + std::to_string(i);
        playOut(name);
        const tq_stream end = reports(name).back();
        EXPECT_EQ(end.lost, withoutUnit.contains(name) ? 9600U : 0U) << name;
        EXPECT_EQ(end.dropped, 0U) << name;
    }
}

TEST_F(StreamLifeTest, AHandleThatComesBackIsAnotherStream) {
    const Sound first = markedNoise({}, 9600, 1);
    const Sound second = markedNoise({}, 9600, 2);
    MadeUpPcm pcm({}, "first");
    pcm.write(first);
    awaitReport("madeup-1 first");
    pcm.close();
    pcm.open("second");
    pcm.write(second);
    awaitReport("madeup-2 second");
    pcm.open("third");
    pcm.write(first);
    pcm.close();
    playOut("madeup-1 first");
    playOut("madeup-2 second");
    playOut("madeup-3 third");
    EXPECT_EQ(differences(first, track("madeup-1 first").trimmed()), kNothing);
    EXPECT_EQ(differences(second, track("madeup-2 second").trimmed()), kNothing);
    EXPECT_EQ(differences(first, track("madeup-3 third").trimmed()), kNothing);
}

TEST_F(StreamLifeTest, FormatAfterFormatIsPlayedInItsOwn) {
    unsigned number = 0;
    for (const int channels : {2, 1, 6}) {
        for (const Encoding encoding :
             {Encoding::S16, Encoding::F32, Encoding::S24, Encoding::U8, Encoding::S32}) {
            for (const bool isDucked : {false, true}) {
                const SoundFormat format{.channels = channels, .encoding = encoding};
                const std::string own = "f" + std::to_string(++number);
                const std::string name = "madeup-1 " + own;
                if (isDucked) {
                    duckingBegins();
                }
                MadeUpPcm pcm(format, own);
                pcm.write(markedNoise(format, 9600, number));
                awaitReport(name);
                pcm.close();
                playOut(name);
                duckingEnds();
                const Sound all = track(name, heardFormat(format));
                expectSame(pcm.passed(),
                           all.part(all.silenceAtStart() - pcm.passed().silenceAtStart(), 9600),
                           name + ": " + std::string(pulseName(encoding)));
                const double last = pcm.passed().value(9599, 0);
                const double written = markedNoise(format, 9600, number).value(9599, 0);
                EXPECT_NEAR(last, isDucked ? written / 10 : written, 0.009) << name;
            }
        }
    }
}

TEST_F(StreamLifeTest, WhatNoUnitPlaysIsSaidAndLeftAlone) {
    NativeStream::open(this, {NativeSample::kNotPcm, 2, 48000}, "madeup", "coded");
    EXPECT_FALSE(NativeStream::Use(this));
    ASSERT_EQ(reports("madeup-1 coded").size(), 1U);
    EXPECT_EQ(reports("madeup-1 coded")[0].fate, TQ_STREAM_NOT_PCM);
    NativeStream::open(this, {NativeSample::kS16, 9, 48000}, "madeup", "wide");
    EXPECT_FALSE(NativeStream::Use(this));
    ASSERT_EQ(reports("madeup-1 wide").size(), 1U);
    EXPECT_EQ(reports("madeup-1 wide")[0].fate, TQ_STREAM_FORMAT);
}

}  // namespace
}  // namespace bridgetests
