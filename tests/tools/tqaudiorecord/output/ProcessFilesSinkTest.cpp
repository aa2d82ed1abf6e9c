// Which process has which file: who sounds first gets the names.

#include "output/ProcessFilesSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "SinkFixture.h"

namespace tqrecorder::test {
namespace {

class ProcessFilesSinkTest : public SinkFixture {};

TEST_F(ProcessFilesSinkTest, EveryFurtherProcessGetsFilesUnderItsOwnName) {
    auto sink = mixSink();
    play(*sink, game_, 0, 4700);
    play(*sink, process(2, "chat client"), 0, 470);
    play(*sink, process(3, "chat client"), 0, 940);
    sink->finish();
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out-chat_client-2.wav",
                                                         "out-chat_client.wav", "out.wav"}));
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).frames(), 4700U);
    EXPECT_EQ(RecordedFile(folder_.file("out-chat_client.wav")).frames(), 470U);
    EXPECT_EQ(sink->files().at(0).path, folder_.file("out.wav"));
}

TEST_F(ProcessFilesSinkTest, ALaunchersChildGetsTheNamesAsGiven) {
    auto sink = mixSink();
    sink->processBegan(process(1, "launcher.sh", true));
    play(*sink, process(2, "game"), 0, 470);
    sink->finish();
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out.wav"}));
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).frames(), 470U);
}

TEST_F(ProcessFilesSinkTest, ALauncherThatIsSilentGivesTheNameToTheFirstThatSounds) {
    for (const bool isOver : {false, true}) {
        SCOPED_TRACE(isOver);
        names_ = std::make_shared<ProcessNames>();
        auto sink = mixSink();
        playSilence(*sink, launcher_);
        playSilence(*sink, game_);
        if (isOver) {
            sink->processEnded(launcher_, {});
        }
        names_->hear(game_);
        play(*sink, game_, 4410, 9400);
        EXPECT_TRUE(std::filesystem::exists(folder_.file("out.wav"))) << "as soon as it sounds";
        sink->finish();
        EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out-launcher.wav", "out.wav"}));
        EXPECT_EQ(RecordedFile(folder_.file("out.wav")).frames(), 9400U);
        EXPECT_EQ(RecordedFile(folder_.file("out-launcher.wav")).frames(), 4410U);
        EXPECT_THAT(sink->problems(), testing::IsEmpty());
        ASSERT_EQ(sink->files().size(), 2U);
        EXPECT_EQ(sink->files()[0].path, folder_.file("out.wav"));
        EXPECT_EQ(sink->files()[0].processId, game_.id);
        std::filesystem::remove(folder_.file("out.wav"));
        std::filesystem::remove(folder_.file("out-launcher.wav"));
    }
}

TEST_F(ProcessFilesSinkTest, ASilentLauncherKeepsNoGoodRecordingFromBeingReplaced) {
    std::ofstream(folder_.file("out.wav")) << "old";
    MixSink sink({folder_.file("out.wav"), formatNamed("wav"), {}, true}, names_);
    ASSERT_TRUE(sink.open());
    playSilence(sink, launcher_);
    sink.processEnded(launcher_, {});
    EXPECT_EQ(contentOf(folder_.file("out.wav")), "old");
    names_->hear(game_);
    play(sink, game_, 0, 4700);
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).frames(), 4700U);
}

TEST_F(ProcessFilesSinkTest, NumberedFilesOfASilentLauncherMakeWayToo) {
    MixSink sink({folder_.file("out.wav"), formatNamed("wav"), 0.04, false}, names_);
    ASSERT_TRUE(sink.open());
    playSilence(sink, launcher_);
    playSilence(sink, game_);
    names_->hear(game_);
    play(sink, game_, 4410, 9400);
    playSilence(sink, launcher_);
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
    EXPECT_THAT(folder_.names(),
                testing::IsSupersetOf({"out-001.wav", "out-002.wav", "out-003.wav", "out-004.wav",
                                       "out-005.wav", "out-006.wav", "out-launcher-001.wav",
                                       "out-launcher-002.wav", "out-launcher-003.wav"}));
    EXPECT_EQ(RecordedFile(folder_.file("out-001.wav")).frames(), 1764U);
    EXPECT_EQ(RecordedFile(folder_.file("out-003.wav")).numberAt(1000), 4529);
}

TEST_F(ProcessFilesSinkTest, OfOneProgramsProcessesTheFirstThatSoundsHasThePlainName) {
    const Process shop = process(3, "shop", true);
    const Process menu = process(4, "game");
    for (const bool isOver : {false, true}) {
        SCOPED_TRACE(isOver);
        names_ = std::make_shared<ProcessNames>();
        auto sink = mixSink();
        names_->hear(shop);
        play(*sink, shop, 0, 470);
        playSilence(*sink, menu);
        playSilence(*sink, game_);
        if (isOver) {
            sink->processEnded(menu, {});
        }
        names_->hear(game_);
        play(*sink, game_, 4410, 9400);
        sink->finish();
        EXPECT_THAT(sink->problems(), testing::IsEmpty());
        EXPECT_EQ(RecordedFile(folder_.file("out-game.wav")).frames(), 9400U);
        const std::string silent = "out" + names_->additionOf(menu.id) + ".wav";
        EXPECT_EQ(folder_.names(), (std::vector<std::string>{silent, "out-game.wav", "out.wav"}));
        EXPECT_EQ(RecordedFile(folder_.file(silent)).frames(), 4410U);
        for (const std::string& name : folder_.names()) {
            std::filesystem::remove(folder_.file(name));
        }
    }
}

TEST_F(ProcessFilesSinkTest, OfManySilentProgramsThatHaveEndedFewFilesAreHeldOpen) {
    auto sink = mixSink();
    names_->hear(game_);
    play(*sink, game_, 0, 470);
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = openFiles();
    constexpr int kPrograms = 100;
    for (int id = 10; id < 10 + kPrograms; ++id) {
        const Process one = process(id, "program" + std::to_string(id));
        playSilence(*sink, one);
        sink->processEnded(one, {});
    }
    EXPECT_LT(openFiles(), before + 50);
    sink->finish();
    EXPECT_EQ(sink->files().size(), kPrograms + 1U);
    EXPECT_THAT(sink->problems(), testing::IsEmpty());
}

TEST_F(ProcessFilesSinkTest, ALauncherWithNothingButAMicrophoneGivesUpWhatIsCompleteToo) {
    for (const bool mayReplace : {false, true}) {
        SCOPED_TRACE(mayReplace);
        names_ = std::make_shared<ProcessNames>();
        if (mayReplace) {
            std::ofstream(folder_.file("out-launcher.wav")) << "old";
        }
        MixSink sink({folder_.file("out.wav"), formatNamed("wav"), {}, mayReplace}, names_);
        ASSERT_TRUE(sink.open());
        // The microphone is in the mix, and is no sound of the program's.
        play(sink, launcher_, 0, 4410);
        EXPECT_EQ(split(sink).at(0).path, folder_.file("out.wav"));
        play(sink, launcher_, 4410, 4880);
        sink.processEnded(launcher_, {});
        names_->hear(game_);
        play(sink, game_, 0, 9400);
        sink.finish();
        EXPECT_THAT(sink.problems(), testing::IsEmpty());
        EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out-launcher-002.wav",
                                                             "out-launcher.wav", "out.wav"}));
        EXPECT_EQ(RecordedFile(folder_.file("out.wav")).frames(), 9400U);
        EXPECT_EQ(RecordedFile(folder_.file("out-launcher.wav")).frames(), 4410U);
        EXPECT_EQ(RecordedFile(folder_.file("out-launcher-002.wav")).frames(), 470U);
        ASSERT_EQ(sink.files().size(), 3U);
        EXPECT_EQ(sink.files()[0].path, folder_.file("out.wav"));
        EXPECT_EQ(sink.files()[1].path, folder_.file("out-launcher.wav"));
        for (const std::string& name : folder_.names()) {
            std::filesystem::remove(folder_.file(name));
        }
    }
}

TEST_F(ProcessFilesSinkTest, WhatTheUserHasMovedAwayIsNotMovedAgain) {
    auto sink = mixSink();
    play(*sink, launcher_, 0, 4410);
    sink->processEnded(launcher_, {});
    std::filesystem::remove(folder_.file("out.wav"));
    std::ofstream(folder_.file("out.wav")) << "mine";
    names_->hear(game_);
    play(*sink, game_, 0, 470);
    sink->finish();
    EXPECT_EQ(contentOf(folder_.file("out.wav")), "mine");
    EXPECT_EQ(RecordedFile(folder_.file("out-2.wav")).frames(), 470U);
}

TEST_F(ProcessFilesSinkTest, WhereNobodySoundsTheFirstKeepsTheName) {
    auto sink = mixSink();
    playSilence(*sink, launcher_);
    playSilence(*sink, game_);
    sink->processEnded(launcher_, {});
    sink->finish();
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out-game.wav", "out.wav"}));
    EXPECT_EQ(sink->files().at(0).processId, launcher_.id);
}

}  // namespace
}  // namespace tqrecorder::test
