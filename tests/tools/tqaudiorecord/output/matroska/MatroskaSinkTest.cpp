// Mix and tracks in one file.

#include "output/matroska/MatroskaSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "tools/tqaudiorecord/output/DecodedFile.h"
#include "tools/tqaudiorecord/output/SinkFixture.h"

namespace tqrecorder::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr BlockFormat kMusic{48000, 2, 32, true};
constexpr BlockFormat kVoice{22050, 1, 16, false};

class MatroskaSinkTest : public SinkFixture {
  protected:
    std::unique_ptr<MatroskaSink> matroskaSink(const char* kind = "mka",
                                               std::optional<double> maximum = {}) {
        auto sink = std::make_unique<MatroskaSink>(
            FileSeries::Plan{path_, formatNamed(kind), maximum}, names_);
        EXPECT_TRUE(sink->open());
        return sink;
    }
    /// The mix and what `tracks` does of every turn of 10 ms, up to that many seconds.
    template <typename Tracks>
    void playTurns(Sink& sink, double from, double to, const Tracks& tracks) {
        const auto last = static_cast<std::size_t>(std::lround(to * 100));
        for (auto turn = static_cast<std::size_t>(std::lround(from * 100)); turn < last; ++turn) {
            play(sink, game_, turn * 441, (turn + 1) * 441);
            tracks(turn);
            sink.tick(turn * 10'000);
        }
    }
    void playMusic(Sink& sink, std::size_t turn, const char* unit = "music", int track = 1) {
        const auto bytes = tone<float>(480, kMusic, 480, turn * 480);
        sink.block(game_, {track, unit, kMusic, at(turn * 480, 48000), bytes});
    }
    const std::string path_ = folder_.file("game.mka");
};

void expectCounting(const DecodedStream& mix, std::size_t first, std::size_t frames) {
    ASSERT_EQ(mix.frames(), frames);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        ASSERT_EQ(mix.numberAt(frame), static_cast<int>((first + frame) % 30000 + 1)) << frame;
    }
}

TEST_F(MatroskaSinkTest, MixAndTracksAreStreamsWithTheirNamesAndTimes) {
    auto sink = matroskaSink();
    playTurns(*sink, 0, 3, [&](std::size_t turn) {
        if (turn >= 50) {
            playMusic(*sink, turn);
        }
        if (turn >= 140) {
            const auto voice = tone<std::int16_t>(441, kVoice, 220, turn * 220);
            sink->block(game_, {2, "voice", kVoice, kStart + turn * 10'000, voice});
        }
    });
    sink->finish();
    EXPECT_THAT(sink->problems(), IsEmpty());
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"game.mka"}));
    const DecodedFile file(path_);
    EXPECT_THAT(file.complaints, IsEmpty());
    ASSERT_THAT(file.titles(), ElementsAre("mix", "music", "voice"));
    EXPECT_NEAR(file.seconds, 3, 0.02);
    expectCounting(file.streams[0], 0, 3 * 44'100);
    EXPECT_EQ(file.streams[0].start, 0);
    const DecodedStream& music = file.streams[1];
    EXPECT_EQ(music.codec, "flac");
    EXPECT_EQ(music.bits, 24);
    EXPECT_NEAR(music.start, 0.5, 1e-5);
    ASSERT_EQ(music.frames(), 120'000U);
    for (std::size_t frame = 0; frame < music.frames(); ++frame) {
        const double expected = 0.5 * std::sin(2 * std::numbers::pi * 480 *
                                               static_cast<double>(frame + 24'000) / 48000);
        ASSERT_NEAR(music.at(frame), expected, 1.0 / (1 << 23)) << frame;
    }
    EXPECT_NEAR(file.streams[2].start, 1.4, 1e-5);
    EXPECT_NEAR(file.streams[2].amplitude(441, 0.1, 1.5), 0.5, 0.01);
    for (const DecodedStream& stream : file.streams) {
        EXPECT_LT(stream.worstJump, 2e-5) << stream.title;
    }
    ASSERT_EQ(sink->files().size(), 1U);
    EXPECT_EQ(sink->files()[0].text, "Matroska, FLAC, the mix and 2 tracks");
}

TEST_F(MatroskaSinkTest, WhereAUnitDoesNotPlayThereIsSilenceOfThatLength) {
    auto sink = matroskaSink();
    // Plays in the first second and in the fifth.
    playTurns(*sink, 0, 5, [&](std::size_t turn) {
        if (turn < 100 || turn >= 400) {
            playMusic(*sink, turn);
        }
        if (turn == 350) {
            // What was written keeps up with the mix, so that players find it there.
            const DecodedFile soFar(path_);
            EXPECT_GT(soFar.stream("music").seconds(), 1.9);
        }
    });
    sink->finish();
    const DecodedFile file(path_);
    const DecodedStream& music = file.stream("music");
    ASSERT_NEAR(static_cast<double>(music.frames()), 5 * 48'000, 1);
    EXPECT_NEAR(music.amplitude(480, 0, 0.99), 0.5, 0.01);
    EXPECT_LT(music.amplitude(480, 1.01, 3.99), 1e-4);
    EXPECT_NEAR(music.amplitude(480, 4.01, 4.99), 0.5, 0.01);
    EXPECT_LT(music.worstJump, 2e-5);
    EXPECT_EQ(sink->files().at(0).gaps, 1U);
}

TEST_F(MatroskaSinkTest, LongSilenceIsWrittenALittleInEveryTurnAlsoBehindASplit) {
    // What waits to be coded or sorted is in no file's length yet: samples as they are show all.
    for (const bool isSplit : {false, true}) {
        auto sink = matroskaSink("mka-pcm");
        playTurns(*sink, 0, 1, [&](std::size_t turn) { playMusic(*sink, turn); });
        if (isSplit) {
            ASSERT_EQ(split(*sink).size(), 1U);
        }
        for (std::size_t turn = 6100; turn < 6200; ++turn) {
            playMusic(*sink, turn);
            play(*sink, game_, turn * 441, (turn + 1) * 441);
        }
        EXPECT_LT(sink->files().back().seconds, 2) << "blocks must not wait for the silence";
        double written = -1;
        for (std::uint64_t elapsed = 10'000'000; sink->files().back().seconds > written;
             elapsed += kRefreshMicroseconds) {
            written = sink->files().back().seconds;
            sink->tick(elapsed);
        }
        EXPECT_NEAR(written, isSplit ? 61 : 62, 0.2);
        sink->finish();
        EXPECT_THAT(sink->problems(), IsEmpty());
        const DecodedFile file(sink->files().back().path);
        const std::size_t before = isSplit ? 0 : 44'100;
        const DecodedStream& mix = file.stream("mix");
        ASSERT_EQ(mix.frames(), before + 61 * 44'100);
        EXPECT_EQ(mix.numberAt(before + 60 * 44'100 - 1), 0);
        EXPECT_EQ(mix.numberAt(before + 60 * 44'100), 61 * 44'100 % 30'000 + 1);
        const DecodedStream& music = file.stream("music");
        EXPECT_LT(music.worstJump, 2e-5);
        EXPECT_NEAR(music.amplitude(480, music.seconds() - 0.99, music.seconds() - 0.01), 0.5,
                    0.02);
        for (const std::string& name : folder_.names()) {
            std::filesystem::remove(folder_.file(name));
        }
    }
}

TEST_F(MatroskaSinkTest, ASplitBehindLongSilenceIsDoneOnceThatIsWritten) {
    constexpr std::size_t kBack = 60 * 44'100;
    auto sink = matroskaSink("mka-pcm");
    playTurns(*sink, 0, 1, [](std::size_t) {});
    play(*sink, game_, kBack, kBack + 4410);
    const auto done = std::make_shared<std::vector<WrittenFile>>();
    sink->split(done);
    play(*sink, game_, kBack + 4410, kBack + 8820);
    EXPECT_LT(sink->files().at(0).seconds, 2);
    workUntil(*sink, [&done] { return done.use_count() == 1; });
    ASSERT_EQ(done->size(), 1U);
    EXPECT_EQ(done->at(0).path, path_);
    sink->finish();
    EXPECT_THAT(sink->problems(), IsEmpty());
    const DecodedFile first(path_);
    ASSERT_EQ(first.stream("mix").frames(), kBack + 4410);
    EXPECT_EQ(first.stream("mix").numberAt(kBack), kBack % 30'000 + 1);
    expectCounting(DecodedFile(folder_.file("game-002.mka")).stream("mix"), kBack + 4410, 4410);
}

TEST_F(MatroskaSinkTest, LostBlocksBecomeSilenceOfTheirLength) {
    auto sink = matroskaSink();
    play(*sink, game_, 0, 4700);
    const std::vector<std::byte> bytes = counting(470, 5640);
    Block behind = mixBlock(bytes, at(5640));
    behind.lostFrames = 940;
    sink->block(game_, behind);
    play(*sink, game_, 6110, 9400);
    sink->finish();
    const DecodedFile file(path_);
    const DecodedStream& mix = file.stream("mix");
    ASSERT_NEAR(static_cast<double>(mix.frames()), 9400, 1);
    EXPECT_EQ(mix.numberAt(4699), 4700);
    EXPECT_EQ(mix.numberAt(4700), 0);
    EXPECT_NEAR(mix.numberAt(9000), 9001, 1);
}

TEST_F(MatroskaSinkTest, IsPlayableWhileItIsWrittenAlsoWithATrackThatHasJustBegun) {
    auto sink = matroskaSink();
    playTurns(*sink, 0, 4, [&](std::size_t turn) {
        if (turn >= 300) {
            playMusic(*sink, turn);
        }
    });
    // As a killed recorder leaves it.
    const DecodedFile file(path_);
    EXPECT_THAT(file.complaints, IsEmpty());
    ASSERT_THAT(file.titles(), ElementsAre("mix", "music"));
    EXPECT_GT(file.streams[0].seconds(), 3.4);
    EXPECT_GT(file.streams[1].seconds(), 0.4);
    EXPECT_NEAR(file.streams[1].start, 3, 1e-5);
    EXPECT_GT(file.seconds, 3.4);
    sink->finish();
}

TEST_F(MatroskaSinkTest, IsReadableBeforeAnySoundOfItIsOnTheDisk) {
    auto sink = matroskaSink();
    play(*sink, game_, 0, 470);
    const DecodedFile file(path_);
    EXPECT_TRUE(file.opened);
    EXPECT_THAT(file.complaints, IsEmpty());
    EXPECT_THAT(file.titles(), ElementsAre("mix"));
}

TEST_F(MatroskaSinkTest, ATrackThatGoesOnInAnotherFormatGoesOnInAnotherStream) {
    auto sink = matroskaSink();
    playTurns(*sink, 0, 3, [&](std::size_t turn) {
        if (turn < 100 || turn >= 200) {
            playMusic(*sink, turn);
        } else {
            const auto bytes = tone<std::int16_t>(441, kVoice, 220, turn * 220);
            sink->block(game_, {1, "music", kVoice, kStart + turn * 10'000, bytes});
        }
    });
    sink->finish();
    const DecodedFile file(path_);
    ASSERT_THAT(file.titles(), ElementsAre("mix", "music", "music (2)"));
    EXPECT_EQ(file.streams[2].rate, 22050);
    EXPECT_NEAR(file.streams[2].start, 1, 1e-5);
    // Back in the first format it goes on in the first stream.
    EXPECT_NEAR(static_cast<double>(file.streams[1].frames()), 3 * 48'000, 1);
    EXPECT_LT(file.streams[1].amplitude(480, 1.01, 1.99), 1e-4);
    EXPECT_NEAR(file.streams[1].amplitude(480, 2.01, 2.99), 0.5, 0.01);
}

TEST_F(MatroskaSinkTest, ManyFilesHaveNoFrameLostOrTwice) {
    auto sink = matroskaSink("mka", 1.0);
    std::vector<std::int32_t> sent;
    const BlockFormat deep{48000, 1, 24, false};
    playTurns(*sink, 0, 2.5, [&](std::size_t turn) {
        std::vector<std::byte> bytes;
        for (std::size_t frame = turn * 480; frame < (turn + 1) * 480; ++frame) {
            sent.push_back(static_cast<std::int32_t>(frame * 50 + 1));
            for (unsigned byte = 0; byte < 3; ++byte) {
                bytes.push_back(static_cast<std::byte>(sent.back() >> (8 * byte)));
            }
        }
        sink->block(game_, {1, "deep", deep, at(turn * 480, 48000), bytes});
    });
    sink->finish();
    EXPECT_EQ(folder_.names(),
              (std::vector<std::string>{"game-001.mka", "game-002.mka", "game-003.mka"}));
    std::size_t mixFrames = 0;
    std::vector<std::int32_t> received;
    for (const WrittenFile& written : sink->files()) {
        const DecodedFile file(written.path);
        ASSERT_THAT(file.titles(), ElementsAre("mix", "deep"));
        const DecodedStream& mix = file.stream("mix");
        expectCounting(mix, mixFrames, mixFrames == 88'200 ? 22'050 : 44'100);
        mixFrames += mix.frames();
        const DecodedStream& track = file.stream("deep");
        // What both rendered at one time lies at one time.
        const double mixBegin = static_cast<double>(mixFrames - mix.frames()) / 44'100;
        const double trackBegin = static_cast<double>(received.size()) / 48'000;
        EXPECT_NEAR(mix.start - track.start, mixBegin - trackBegin, 2e-5);
        for (std::size_t frame = 0; frame < track.frames(); ++frame) {
            received.push_back(static_cast<std::int32_t>(std::lround(track.at(frame) * (1 << 23))));
        }
    }
    EXPECT_EQ(received, sent);
}

TEST_F(MatroskaSinkTest, AUnitThatPlaysNoMoreKeepsNoFileFromBeginningWithItsMix) {
    auto sink = matroskaSink("mka", 0.5);
    playTurns(*sink, 0, 3.9, [&](std::size_t turn) {
        if (turn < 70 || turn >= 360) {
            playMusic(*sink, turn);
        }
    });
    sink->finish();
    ASSERT_EQ(sink->files().size(), 8U);
    for (const WrittenFile& written : sink->files()) {
        const DecodedFile file(written.path);
        EXPECT_EQ(file.titles().at(0), "mix") << written.path;
        EXPECT_NEAR(file.streams.at(0).start, 0, 0.02) << written.path;
        EXPECT_LT(file.seconds, 0.52) << written.path;
    }
    // It is back at its time.
    const DecodedFile last(sink->files().back().path);
    const DecodedStream& music = last.stream("music");
    EXPECT_LT(music.amplitude(480, 0, 0.09 - music.start), 0.01);
    EXPECT_NEAR(music.amplitude(480, 0.11 - music.start, 0.38 - music.start), 0.5, 0.02);
}

TEST_F(MatroskaSinkTest, TheMixIsTheFirstStreamAlsoWhereATrackPlaysFirst) {
    auto sink = matroskaSink();
    const auto playBoth = [&](std::size_t from, std::size_t to) {
        for (std::size_t turn = from; turn < to; ++turn) {
            playMusic(*sink, turn);
            play(*sink, game_, turn * 441, (turn + 1) * 441);
        }
    };
    playBoth(0, 100);
    ASSERT_EQ(split(*sink).size(), 1U);
    playBoth(100, 200);
    sink->finish();
    for (const WrittenFile& written : sink->files()) {
        const DecodedFile file(written.path);
        EXPECT_THAT(file.complaints, IsEmpty());
        EXPECT_THAT(file.titles(), ElementsAre("mix", "music"));
        expectCounting(file.streams.at(0), written.path == path_ ? 0 : 44'100, 44'100);
        EXPECT_EQ(written.text, "Matroska, FLAC, the mix and 1 track");
    }
    EXPECT_EQ(sink->files().size(), 2U);
}

TEST_F(MatroskaSinkTest, ASplitNamesTheFileThatIsCompleteAndGoesOnInTheNext) {
    auto sink = matroskaSink();
    EXPECT_THAT(split(*sink), IsEmpty());
    playTurns(*sink, 0, 1, [&](std::size_t turn) { playMusic(*sink, turn); });
    const std::vector<WrittenFile> done = split(*sink);
    ASSERT_EQ(done.size(), 1U);
    EXPECT_EQ(done[0].path, path_);
    playTurns(*sink, 1, 2, [&](std::size_t turn) { playMusic(*sink, turn); });
    sink->finish();
    const DecodedFile first(path_);
    const DecodedFile second(folder_.file("game-002.mka"));
    expectCounting(first.stream("mix"), 0, 44'100);
    expectCounting(second.stream("mix"), 44'100, 44'100);
    EXPECT_EQ(first.stream("music").frames() + second.stream("music").frames(), 96'000U);
}

TEST_F(MatroskaSinkTest, UnitsThatFindNoRoomInAFileGoOnInTheNext) {
    auto sink = matroskaSink();
    constexpr std::size_t kUnits = 150;
    playTurns(*sink, 0, 3, [&](std::size_t turn) {
        if (turn < 2 * kUnits && turn % 2 == 0) {
            playMusic(*sink, turn, ("effect " + std::to_string(turn / 2)).c_str());
        }
    });
    sink->finish();
    EXPECT_THAT(sink->problems(), IsEmpty());
    std::vector<std::string> titles;
    std::size_t mixFrames = 0;
    ASSERT_EQ(sink->files().size(), 2U);
    for (const WrittenFile& written : sink->files()) {
        const DecodedFile file(written.path);
        EXPECT_THAT(file.complaints, IsEmpty());
        const std::vector<std::string> all = file.titles();
        ASSERT_THAT(all, Contains("mix"));
        EXPECT_EQ(all[0], "mix");
        titles.insert(titles.end(), all.begin() + 1, all.end());
        mixFrames += file.stream("mix").frames();
    }
    std::vector<std::string> expected;
    for (std::size_t unit = 0; unit < kUnits; ++unit) {
        expected.push_back("effect " + std::to_string(unit));
    }
    EXPECT_EQ(titles, expected);
    EXPECT_EQ(mixFrames, 3U * 44'100);
}

TEST_F(MatroskaSinkTest, OnAFullDiskTheFileEndsWholeAndIsSaidToBeCut) {
    std::signal(SIGXFSZ, SIG_IGN);
    auto sink = matroskaSink("mka-pcm");
    const rlimit limit{700'003, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    playTurns(*sink, 0, 4, [&](std::size_t turn) { playMusic(*sink, turn); });
    sink->finish();
    const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
    ASSERT_EQ(sink->problems().size(), 1U);
    EXPECT_THAT(sink->problems()[0], HasSubstr("game.mka: File too large; the file ends there"));
    const DecodedFile file(path_);
    EXPECT_THAT(file.complaints, IsEmpty());
    expectCounting(file.stream("mix"), 0, file.stream("mix").frames());
    EXPECT_GT(file.stream("mix").seconds(), 0.7);
    EXPECT_GT(file.stream("music").seconds(), 0.7);
    EXPECT_EQ(sink->files().size(), 1U);
}

TEST_F(MatroskaSinkTest, SilenceTakesNoNameThatIsTaken) {
    std::ofstream(path_) << "precious";
    auto sink = std::make_unique<MatroskaSink>(
        FileSeries::Plan{path_, formatNamed("mka"), {}, true}, names_);
    ASSERT_TRUE(sink->open());
    const std::vector<std::byte> silence(44'100 * 4);
    sink->block(game_, mixBlock(silence, kStart));
    sink->finish();
    EXPECT_EQ(contentOf(path_), "precious");
    EXPECT_THAT(sink->files(), IsEmpty());
    ASSERT_EQ(sink->problems().size(), 1U);
    EXPECT_THAT(sink->problems()[0], HasSubstr("stays as it was"));
}

TEST_F(MatroskaSinkTest, ADeletedFileIsNoSuccess) {
    auto sink = matroskaSink();
    play(*sink, game_, 0, 44'100);
    std::filesystem::remove(path_);
    sink->finish();
    EXPECT_THAT(sink->files(), IsEmpty());
    ASSERT_EQ(sink->problems().size(), 1U);
    EXPECT_THAT(sink->problems()[0], HasSubstr("was deleted"));
}

TEST_F(MatroskaSinkTest, EveryProcessHasAFileOfItsOwn) {
    auto sink = matroskaSink();
    play(*sink, game_, 0, 4700);
    play(*sink, process(2, "chat"), 0, 470);
    sink->finish();
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"game-chat.mka", "game.mka"}));
    EXPECT_EQ(sink->files().at(0).path, path_);
    EXPECT_EQ(DecodedFile(folder_.file("game-chat.mka")).stream("mix").frames(), 470U);
}

TEST_F(MatroskaSinkTest, ALauncherThatIsSilentGivesTheNameToTheFirstThatSounds) {
    auto sink = matroskaSink();
    playSilence(*sink, launcher_);
    playSilence(*sink, game_);
    names_->hear(game_);
    play(*sink, game_, 4410, 9400);
    sink->finish();
    EXPECT_THAT(sink->problems(), IsEmpty());
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"game-launcher.mka", "game.mka"}));
    EXPECT_EQ(DecodedFile(path_).stream("mix").frames(), 9400U);
}

/// A voice that was recorded beside the launcher has given the file its name.
TEST_F(MatroskaSinkTest, WhatASilentLauncherHasWrittenIsMovedWithIt) {
    auto sink = matroskaSink();
    const auto voice = tone<std::int16_t>(440, kVoice, 2205);
    playSilence(*sink, launcher_);
    sink->block(launcher_, {kMicrophoneTrack, "microphone", kVoice, kStart, voice});
    ASSERT_TRUE(std::filesystem::exists(path_));
    names_->hear(game_);
    play(*sink, game_, 0, 4700);
    sink->block(launcher_, {kMicrophoneTrack, "microphone", kVoice, kStart + 100'000, voice});
    sink->finish();
    EXPECT_THAT(sink->problems(), IsEmpty());
    EXPECT_EQ(DecodedFile(path_).stream("mix").frames(), 4700U);
    EXPECT_EQ(DecodedFile(folder_.file("game-launcher.mka")).stream("microphone").frames(), 4410U);
}

TEST_F(MatroskaSinkTest, ARecordingOfNothingIsNoFile) {
    auto sink = matroskaSink();
    sink->finish();
    EXPECT_THAT(folder_.names(), IsEmpty());
    EXPECT_THAT(sink->files(), IsEmpty());
}

TEST_F(MatroskaSinkTest, AFormatThatNoStreamCanHoldIsSaidOnceAndCostsNothingElse) {
    auto sink = matroskaSink();
    const BlockFormat odd{44100, 2, 40, false};
    const std::vector<std::byte> bytes(odd.frameBytes() * 441, std::byte{1});
    playTurns(*sink, 0, 1, [&](std::size_t turn) {
        sink->block(game_, {1, "odd", odd, at(turn * 441), bytes});
    });
    sink->finish();
    EXPECT_THAT(sink->problems(), ElementsAre(HasSubstr("cannot hold 44100 Hz, 40-bit")));
    EXPECT_THAT(DecodedFile(path_).titles(), ElementsAre("mix"));
}

}  // namespace
}  // namespace tqrecorder::test
