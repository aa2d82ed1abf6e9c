#include "bridges/core/NativeStream.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>

#include "bridges/core/StreamFixture.h"
#include "support/sound/Comparison.h"

// What a program writes through a made-up interface is on its track, once and in order.

namespace bridgetests {
namespace {

using tqtest::differences;
using tqtest::markedNoise;
using tqtest::Sound;
using tqtest::SoundFormat;

/// Of the clock that streams note what is heard by.
std::uint64_t nanoseconds() {
    return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch() /
                                      std::chrono::nanoseconds(1));
}

class Pieces : public NativeStreams, public testing::WithParamInterface<std::size_t> {};

TEST_P(Pieces, AreOnTheTrackOnceAndInOrder) {
    const std::size_t piece = GetParam();
    const std::size_t count = std::max<std::size_t>(3 * piece, 9600) / piece * piece;
    const Sound sound = markedNoise({}, count);
    MadeUpPcm pcm({}, "");
    std::size_t written = 0;
    // As a program that is paced: there is always a piece more than the device needs.
    for (std::size_t due = piece + 4 * kSlice; written < count; due += kSlice) {
        while (written < std::min(due, count)) {
            pcm.write(sound.part(written, piece));
            written += piece;
        }
        awaitReport("madeup-1");
        pump();
    }
    pcm.close();
    playOut("madeup-1");
    EXPECT_EQ(differences(sound, track("madeup-1").trimmed()), kNothing);
    EXPECT_EQ(pcm.passed().bytes, sound.bytes);
    const tq_stream end = reports("madeup-1").back();
    EXPECT_EQ(end.written, count);
    EXPECT_EQ(end.played, count);
    EXPECT_EQ(end.dropped + end.lost, 0U);
}

INSTANTIATE_TEST_SUITE_P(Of, Pieces, testing::Values(1, 7, 441, 2205, 48000, 200000));

struct NativeStreamTest : NativeStreams {};

TEST_F(NativeStreamTest, APauseIsSilenceOfItsLengthAndLosesNothing) {
    const Sound sound = markedNoise({}, 48000);
    MadeUpPcm pcm({}, "");
    pcm.write(sound);
    awaitReport("madeup-1");
    pump(40);
    pcm.use()->frozen(true);
    pump(50);
    pcm.use()->frozen(false);
    pump(10);
    pcm.close();
    playOut("madeup-1");
    const Sound heard = track("madeup-1").trimmed();
    EXPECT_EQ(heard.frames(), sound.frames() + 50 * kSlice);
    const auto found = differences(sound, heard);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_TRUE(found[0].starts_with("24000 frames of silence inserted")) << found[0];
}

TEST_F(NativeStreamTest, SoundIsAsMuchLaterOnTheTrackThanItIsHeardAsAllOther) {
    for (const int milliseconds : {0, 20}) {
        forget();
        MadeUpPcm pcm({}, "");
        pcm.use()->heardIn(std::chrono::milliseconds(milliseconds));
        const std::uint64_t before = nanoseconds();
        pcm.write(markedNoise({}, 9600));
        const std::uint64_t after = nanoseconds();
        awaitReport("madeup-1");
        hostTime = after + 30'000'000;
        pump(60);
        pcm.close();
        playOut("madeup-1");
        const std::size_t writing = (after - before) * 48 / 1'000'000;
        const std::size_t wanted = 48 * static_cast<std::size_t>(50 + milliseconds);
        // The track is read in blocks that lie apart from the device's by less than one.
        EXPECT_LE(track("madeup-1").silenceAtStart(), wanted + kSlice);
        EXPECT_GE(track("madeup-1").silenceAtStart() + writing + kSlice, wanted);
    }
}

TEST_F(NativeStreamTest, WhatWaitsForAStartIsPlayedFromThenOnAndWhatWasThereBeforeAtOnce) {
    const Sound sound = markedNoise({}, 24000);
    MadeUpPcm pcm({}, "");
    pcm.write(sound.part(0, 9600));
    pcm.use()->waitsFor(tq::bridges::NativeStream::Start::kToCome);
    pcm.write(sound.part(9600, 14400));
    pcm.write(markedNoise({}, 4800, 2));
    EXPECT_EQ(pcm.use()->takenBack(4800), 4800U);
    EXPECT_EQ(pcm.use()->unstarted(), 14400U);
    awaitReport("madeup-1");
    for (int i = 0; i < 2000 && tracks().count("madeup-1") == 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        pump(1);
    }
    pump(60);
    EXPECT_EQ(differences(sound.part(0, 9600), track("madeup-1").trimmed()), kNothing);
    pcm.use()->started();
    pcm.close();
    playOut("madeup-1");
    const auto found = differences(sound, track("madeup-1").trimmed());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NE(found[0].find("frames of silence inserted at frame 9600"), std::string::npos)
        << found[0];
}

TEST_F(NativeStreamTest, BehindALongSilenceOfTheProgramsASoundIsWhereItWasWritten) {
    constexpr int kSlices = 6000;  // a minute
    const Sound before = markedNoise({}, 9600, 1);
    const Sound behind = markedNoise({}, 9600, 2);
    MadeUpPcm pcm({}, "");
    pcm.write(before);
    awaitReport("madeup-1");
    pump(kSlices);
    pcm.write(behind);
    pump(40);
    pcm.close();
    playOut("madeup-1");
    const Sound heard = track("madeup-1");
    const std::size_t first = tqtest::beginningOf(before, heard);
    const std::size_t second = tqtest::beginningOf(behind, heard);
    ASSERT_LT(second, heard.frames());
    EXPECT_EQ(differences(behind, heard.part(second, 9600)), kNothing);
    EXPECT_NEAR(static_cast<double>(second - first), kSlices * double{kSlice}, double{kSlice});
    // The mix has the same distance, at its own rate.
    const Sound all = mix().trimmed();
    EXPECT_NEAR(static_cast<double>(all.frames()), (kSlices * double{kSlice} + 9600) * 0.91875,
                2.0 * kSlice);
}

TEST_F(NativeStreamTest, AGapThatIsSkippedBehindASilenceBeginsAsMuchLaterAsASound) {
    constexpr std::size_t kGap = 4800;
    constexpr int kSlices = 100;
    constexpr std::uint64_t kAhead = 10'000'000'000;  // ns; far beyond a lead
    const Sound before = markedNoise({}, 9600, 1);
    const Sound behind = markedNoise({}, 9600, 2);
    MadeUpPcm pcm({}, "");
    const std::uint64_t first = nanoseconds();
    pcm.write(before);
    hostTime = nanoseconds();
    std::uint64_t writing = hostTime - first;
    awaitReport("madeup-1");
    pump(kSlices);
    pcm.use()->heardIn(std::chrono::nanoseconds(kAhead));
    hostTime = nanoseconds() + kAhead;
    pcm.use()->skipped(kGap);
    pcm.write(behind);
    writing += nanoseconds() + kAhead - hostTime;
    pump(40);
    pcm.close();
    playOut("madeup-1");
    const Sound heard = track("madeup-1");
    const std::size_t end = tqtest::beginningOf(behind, heard);
    ASSERT_LT(end, heard.frames());
    const std::size_t distance = end - tqtest::beginningOf(before, heard);
    const std::size_t wanted = kSlices * kSlice + kGap;
    EXPECT_GE(distance + 2 * kSlice, wanted) << "the gap began without its lead";
    EXPECT_LE(distance, wanted + 2 * kSlice + writing * 48 / 1'000'000);
}

TEST_F(NativeStreamTest, WhatIsFlushedIsNotOnTheTrackAndWhatFollowsIs) {
    const Sound before = markedNoise({}, 48000, 1);
    const Sound behind = markedNoise({}, 24000, 2);
    MadeUpPcm pcm({}, "");
    pcm.write(before);
    awaitReport("madeup-1");
    pump(40);
    pcm.use()->flushed();
    pcm.write(behind);
    pump(60);
    pcm.close();
    playOut("madeup-1");
    const Sound heard = track("madeup-1").trimmed();
    const std::size_t at = tqtest::beginningOf(behind, heard);
    EXPECT_EQ(differences(behind, heard.part(at, heard.frames() - at)), kNothing);
    const Sound first = heard.part(0, at).trimmed();
    EXPECT_EQ(differences(before.part(0, first.frames()), first), kNothing);
    const tq_stream end = reports("madeup-1").back();
    EXPECT_EQ(first.frames() + behind.frames(), end.played);
    EXPECT_EQ(end.dropped, before.frames() - first.frames());
}

TEST_F(NativeStreamTest, WhatIsTakenBackIsReplacedByWhatIsWrittenNext) {
    const Sound before = markedNoise({}, 48000, 1);
    const Sound behind = markedNoise({}, 20000, 2);
    MadeUpPcm pcm({}, "");
    pcm.write(before);
    awaitReport("madeup-1");
    pump(20);
    pcm.use()->takenBack(10000);
    pcm.write(behind);
    pcm.close();
    playOut("madeup-1");
    Sound wanted = before.part(0, 38000);
    wanted.bytes += behind.bytes;
    EXPECT_EQ(differences(wanted, track("madeup-1").trimmed()), kNothing);
}

TEST_F(NativeStreamTest, OnlyWhatTheInterfaceTookIsOnTheTrack) {
    const Sound sound = markedNoise({}, 30000);
    for (const bool isDucked : {false, true}) {
        const std::string name = isDucked ? "madeup-1 ducked" : "madeup-1 plain";
        MadeUpPcm pcm({}, name.substr(9));
        if (isDucked) {
            duckingBegins();
        }
        std::size_t at = 0;
        for (const std::size_t taken : {1000U, 0U, 3U, 997U, 0U, 8000U, 10000U, 10000U}) {
            pcm.write(sound.part(at, 10000), std::min<std::size_t>(taken, sound.frames() - at));
            at += taken;
        }
        awaitReport(name);
        pcm.close();
        playOut(name);
        ASSERT_EQ(pcm.passed().frames(), 30000U);
        EXPECT_EQ(differences(pcm.passed(), track(name).trimmed()), kNothing) << name;
        if (!isDucked) {
            EXPECT_EQ(pcm.passed().bytes, sound.bytes);
        }
    }
}

TEST_F(NativeStreamTest, AProgramThatThinksBetterOfARefusedPieceIsFollowed) {
    const Sound first = markedNoise({}, 9600, 1);
    const Sound other = markedNoise({}, 9600, 2);
    duckingBegins();
    MadeUpPcm pcm({}, "");
    pcm.write(first, 4000);
    pcm.write(other);
    awaitReport("madeup-1");
    pcm.close();
    playOut("madeup-1");
    EXPECT_EQ(differences(pcm.passed(), track("madeup-1").trimmed()), kNothing);
    EXPECT_NEAR(pcm.passed().value(13599, 0), other.value(9599, 0) / 10, 1e-3);
}

TEST_F(NativeStreamTest, WhileDuckedTheTrackIsWhatIsPlayedAndTheMixWhatIsWritten) {
    constexpr SoundFormat kMixFormat{.rate = 44100};
    ASSERT_EQ(TQManualDeviceSetSampleRate(44100), 0);
    const Sound sound = markedNoise(kMixFormat, 88200);
    MadeUpPcm pcm(kMixFormat, "");
    for (std::size_t at = 0; at < sound.frames(); at += 4410) {
        if (at == 22050) {
            duckingBegins();
        }
        if (at == 66150) {
            duckingEnds();
        }
        const auto memory =
            at % 8820 == 0 ? MadeUpPcm::Memory::kConstant : MadeUpPcm::Memory::kChangeable;
        pcm.write(sound.part(at, 4410), 4410, memory);
    }
    awaitReport("madeup-1");
    pcm.close();
    playOut("madeup-1");
    pump(20);
    EXPECT_EQ(differences(pcm.passed(), track("madeup-1", kMixFormat).trimmed()), kNothing);
    EXPECT_EQ(differences(sound, mix().trimmed()), kNothing);
    EXPECT_EQ(pcm.passed().part(0, 22050).bytes, sound.part(0, 22050).bytes);
    EXPECT_EQ(pcm.passed().part(66150, 22050).bytes, sound.part(66150, 22050).bytes);
    EXPECT_NEAR(pcm.passed().value(44100, 1), sound.value(44100, 1) / 10, 1e-3);
}

TEST_F(NativeStreamTest, DuckingIsThereFromTheFirstFrame) {
    duckingBegins(kEndlessAttack);
    const Sound sound = markedNoise({}, 9600);
    MadeUpPcm pcm({}, "");
    pcm.write(sound);
    EXPECT_LE(largestDifference(sound, pcm.passed(), 0.1), kRounding);
}

TEST_F(NativeStreamTest, ASoundThatPlaysWhenDuckingBeginsSlidesToTheLevel) {
    const Sound sound = markedNoise({}, 9600);
    MadeUpPcm pcm({}, "");
    pcm.write(sound.part(0, 4800));
    duckingBegins(kEndlessAttack);
    pcm.write(sound.part(4800, 4800));
    EXPECT_LE(largestDifference(sound, pcm.passed()), 0.001);
}

TEST_F(NativeStreamTest, AStreamThatBeginsWhenNobodyDucksAnyMoreIsAsLoudAsItIsWritten) {
    const Sound sound = markedNoise({}, 9600);
    duckingBegins(kEndlessAttack);
    MadeUpPcm ducked({}, "");
    ducked.write(sound);
    awaitReport("madeup-1");
    ducked.close();
    playOut("madeup-1");
    duckingLevel(-80);
    MadeUpPcm next({}, "");
    next.write(sound);
    EXPECT_EQ(next.passed().bytes, sound.bytes);
}

TEST_F(NativeStreamTest, AProgramThatIsTooSlowLeavesOnlySilenceBetween) {
    const Sound sound = markedNoise({}, std::size_t{48000} * 90);
    MadeUpPcm pcm({}, "");
    double due = 480;
    for (std::size_t written = 0; written + 480 <= sound.frames();) {
        for (; static_cast<double>(written) + 480 <= due && written + 480 <= sound.frames();
             written += 480) {
            pcm.write(sound.part(written, 480));
        }
        awaitReport("madeup-1");
        pump();
        due += 480 * 0.999;
    }
    pcm.close();
    playOut("madeup-1");
    const auto found = differences(sound, track("madeup-1").trimmed());
    EXPECT_EQ(found.size(), 1U) << "4320 frames too few, 3840 in what is waited for";
    for (const std::string& each : found) {
        EXPECT_NE(each.find("of silence inserted"), std::string::npos) << each;
    }
}

TEST_F(NativeStreamTest, AProgramThatIsTooFastIsCutInItsOwnSilenceOnly) {
    Sound sound{{}, {}};
    Sound loud{{}, {}};
    for (unsigned i = 0; i < 30; ++i) {
        const Sound phrase = markedNoise({}, 2 * 48000, i + 1);
        sound.bytes += phrase.bytes;
        loud.bytes += phrase.bytes;
        sound.bytes += tqtest::silence({}, 48000).bytes;
    }
    MadeUpPcm pcm({}, "");
    double due = 4800;
    std::size_t written = 0;
    std::size_t pumped = 0;
    while (written + 480 <= sound.frames()) {
        for (; static_cast<double>(written) + 480 <= due && written + 480 <= sound.frames();
             written += 480) {
            pcm.write(sound.part(written, 480));
        }
        awaitReport("madeup-1");
        pump();
        pumped += kSlice;
        due += 480 * 1.001;
    }
    const std::size_t lead = sound.frames() - pumped;
    EXPECT_GT(lead, 8000U) << "a tenth of a second and 1000 ppm of 90 s";
    pcm.close();
    playOut("madeup-1");
    const Sound heard = track("madeup-1").trimmed();
    Sound got{{}, {}};
    for (std::size_t at = 0; at < heard.frames(); ++at) {
        if (!heard.isSilent(at)) {
            got.bytes += heard.frame(at);
        }
    }
    EXPECT_EQ(differences(loud, got), kNothing);
    EXPECT_LT(heard.frames() + 3000, sound.frames()) << "nothing was cut";
}

TEST_F(NativeStreamTest, AnExpectedStartThatNobodyTellsOfIsWaitedForTwoSecondsOnce) {
    const Sound sound = markedNoise({}, 24000);
    MadeUpPcm pcm({}, "");
    pcm.use()->waitsFor(tq::bridges::NativeStream::Start::kExpected);
    pcm.write(sound.part(0, 12000));
    awaitReport("madeup-1");
    pump(150);
    EXPECT_EQ(track("madeup-1").trimmed().frames(), 0U);
    pump(100);
    EXPECT_EQ(track("madeup-1").trimmed().frames(), 12000U);
    pcm.write(sound.part(12000, 12000));
    pcm.close();
    playOut("madeup-1");
    EXPECT_LT(track("madeup-1").trimmed().frames(), 48000U) << "it was waited for again";
}

TEST_F(NativeStreamTest, AStreamThatIsPausedFromItsFirstSoundOnMakesNoTrack) {
    MadeUpPcm pcm({}, "");
    pcm.use()->frozen(true);
    pcm.write(markedNoise({}, 4800));
    awaitReport("madeup-1");
    pump(30);
    EXPECT_EQ(reports("madeup-1").back().is_paused, 1U);
    pcm.close();
    playOut("madeup-1");
    EXPECT_FALSE(tracks().contains("madeup-1"));
    EXPECT_EQ(reports("madeup-1").back().dropped, 4800U);
}

TEST_F(NativeStreamTest, OfAStreamThatNothingIsWrittenToThatIsSaid) {
    MadeUpPcm pcm({}, "");
    awaitReport("madeup-1", TQ_STREAM_NOTHING_WRITTEN);
    pcm.write(markedNoise({}, 4800));
    awaitReport("madeup-1");
    pcm.close();
    playOut("madeup-1");
    MadeUpPcm({}, "looks").close();
    awaitReport("madeup-1 looks", TQ_STREAM_NOTHING_WRITTEN, true);
}

}  // namespace
}  // namespace bridgetests
