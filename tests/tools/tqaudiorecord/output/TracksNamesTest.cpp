// Which process has which names of tracks: who sounds first gets them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "SinkFixture.h"
#include "output/TracksSink.h"

namespace tqrecorder::test {
namespace {

class TracksNamesTest : public SinkFixture {};

TEST_F(TracksNamesTest, ATrackThatIsStillBehindWhenItEndsIsMovedWithItsProcess) {
    TracksSink sink({folder_.file("tracks")}, names_);
    ASSERT_TRUE(sink.open());
    const std::vector<std::byte> silence(470 * kMixFormat.frameBytes());
    for (const std::size_t frame : {std::size_t{0}, std::size_t{60 * 44'100}}) {
        sink.block(launcher_, {1, "music", kMixFormat, at(frame), silence});
    }
    sink.processEnded(launcher_, {});
    names_->hear(game_);
    sink.block(game_, {1, "music", kMixFormat, at(0), counting(470, 0)});
    sink.finish();
    EXPECT_EQ(RecordedFile(folder_.file("tracks/track-1-music.wav")).frames(), 470U);
    EXPECT_EQ(RecordedFile(folder_.file("tracks/track-1-music-launcher.wav")).frames(),
              60 * 44'100 + 470U);
}

TEST_F(TracksNamesTest, ALauncherThatIsSilentGivesItsNamesToTheFirstThatSounds) {
    constexpr BlockFormat kMono{44100, 1, 16, false};
    TracksSink sink({folder_.file("tracks")}, names_);
    ASSERT_TRUE(sink.open());
    const auto play = [&](const Process& who, int track, const char* unit, int level) {
        const std::vector<std::byte> bytes(882, static_cast<std::byte>(level));
        sink.block(who, {track, unit, kMono, kStart, bytes});
    };
    play(launcher_, 1, "music", 0);
    play(launcher_, 1, "intro", 0);
    play(launcher_, 2, "voice", 0);
    play(game_, 1, "music", 0);
    play(game_, 2, "voice", 0);
    play(game_, 1, "intro", 0);
    names_->hear(game_);
    play(game_, 2, "voice", 5);
    play(game_, 1, "intro", 5);
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
    const auto frames = [&](const char* name) {
        return RecordedFile(folder_.file(std::string("tracks/") + name)).frames();
    };
    EXPECT_EQ(frames("track-1-music.wav"), 441U);
    EXPECT_EQ(frames("track-1-intro.wav"), 882U);
    EXPECT_EQ(frames("track-2-voice.wav"), 882U);
    EXPECT_EQ(frames("track-1-music-launcher.wav"), 441U);
    EXPECT_EQ(frames("track-1-intro-launcher.wav"), 441U);
    EXPECT_EQ(frames("track-2-voice-launcher.wav"), 441U);
    EXPECT_EQ(sink.files().size(), 6U);
}

TEST_F(TracksNamesTest, OfOneProgramsProcessesTheFirstThatSoundsHasThePlainNames) {
    constexpr BlockFormat kMono{44100, 1, 16, false};
    const Process shop = process(3, "shop", true);
    const Process menu = process(4, "game");
    TracksSink sink({folder_.file("tracks")}, names_);
    ASSERT_TRUE(sink.open());
    const auto play = [&](const Process& who, const char* unit, int level) {
        const std::vector<std::byte> bytes(882, static_cast<std::byte>(level));
        sink.block(who, {1, unit, kMono, kStart, bytes});
    };
    names_->hear(shop);
    play(shop, "music", 5);
    play(menu, "intro", 0);
    play(menu, "music", 0);
    sink.processEnded(menu, {});
    play(game_, "music", 0);
    names_->hear(game_);
    play(game_, "music", 5);
    play(game_, "intro", 5);
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
    const auto frames = [&](const std::string& name) {
        return RecordedFile(folder_.file("tracks/track-1-" + name + ".wav")).frames();
    };
    EXPECT_EQ(frames("music"), 441U);
    EXPECT_EQ(frames("music-game"), 882U);
    EXPECT_EQ(frames("intro-game"), 441U);
    EXPECT_EQ(frames("music" + names_->additionOf(menu.id)), 441U);
    EXPECT_EQ(frames("intro" + names_->additionOf(menu.id)), 441U);
    EXPECT_EQ(sink.files().size(), 5U);
}

TEST_F(TracksNamesTest, OfManySilentTracksThatHaveEndedFewAreHeldOpen) {
    constexpr BlockFormat kMono{44100, 1, 16, false};
    TracksSink sink({folder_.file("tracks")}, names_);
    ASSERT_TRUE(sink.open());
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = openFiles();
    const std::vector<std::byte> silence(882);
    for (int unit = 0; unit < 200; ++unit) {
        sink.block(launcher_, {1, "unit-" + std::to_string(unit), kMono, kStart, silence});
    }
    EXPECT_LT(openFiles(), before + 50);
    sink.finish();
    EXPECT_EQ(sink.files().size(), 200U);
}

}  // namespace
}  // namespace tqrecorder::test
