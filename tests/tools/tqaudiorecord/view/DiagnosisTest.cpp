// Reasons for silence.

#include "view/Diagnosis.h"

#include <TQAudioRecord/tq_capture.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "ViewFixture.h"

namespace tqrecorder::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class DiagnosisTest : public ViewFixture {
  protected:
    std::string reasonFor(const HostFacts& facts) {
        Observer observer;
        observer.processBegan(game_);
        observer.processEnded(game_, facts);
        const std::vector<std::string> reasons = whySilent(observer, "game");
        return reasons.size() == 1 ? reasons[0] : "";
    }
};

TEST_F(DiagnosisTest, NamesTheGuardAndHowToArmIt) {
    const std::string reason = reasonFor({false, true, 0, 0, 0, 0, 0});
    EXPECT_THAT(reason, HasSubstr("retries are used up"));
    EXPECT_THAT(reason, HasSubstr("tqaudiorecord guard arm game"));
    EXPECT_THAT(reasonFor({false, true, 2, 0, 0, 0, 0}), HasSubstr("guard status game"));
}

TEST_F(DiagnosisTest, TellsHooksUnitsAndStartsApart) {
    EXPECT_THAT(reasonFor({false, false, 2, 0, 0, 0, 0}), HasSubstr("could not be installed"));
    EXPECT_THAT(reasonFor({true, false, 2, 0, 0, 0, 0}),
                HasSubstr("none of the interfaces for sound"));
    EXPECT_THAT(reasonFor({true, false, 2, 2, 0, 0, 0}),
                HasSubstr("2 audio units created, but none was started before the end"));
    EXPECT_THAT(reasonFor({true, false, 2, 1, 2, 0, 0}),
                HasSubstr("2 starts of audio units, but no sound was delivered"));
}

TEST_F(DiagnosisTest, DoesNotTakeTheMixOfNothingForTheProgramsSilence) {
    EXPECT_THAT(reasonFor({true, false, 2, 1, 1, 0, 9}), HasSubstr("no sound was delivered"));
}

TEST_F(DiagnosisTest, NamesTheUnitsThatWereLeftOutOnceEach) {
    HostFacts facts{true, false, 2, 1, 3, 0, 9};
    facts.leftOut = {{"unit-1", 1U << TQ_UNIT_MICROPHONE_ON}, {"graph-2", 1U << TQ_UNIT_ANOTHERS}};
    EXPECT_EQ(reasonFor(facts),
              "game: nothing could be recorded; not recorded: unit-1: its microphone is on; such "
              "units are not captured, by rule; not recorded: graph-2: another library has "
              "registered it as its own");
}

TEST_F(DiagnosisTest, UnitsThatWereUninitialisedFirstWereStartedAllTheSame) {
    HostFacts facts{true, false, 2, 1, 1, 0, 0};
    facts.leftOut = {{"unit-1", 1U << TQ_UNIT_UNINITIALISED}};
    EXPECT_THAT(reasonFor(facts), HasSubstr("it was started after the program had uninitialised"));
}

TEST_F(DiagnosisTest, SaysWhatKeepsTheLibraryOutOfAProgram) {
    Observer nobody;
    const std::vector<std::string> reasons = whySilent(nobody, "game");
    ASSERT_EQ(reasons.size(), 1U);
    EXPECT_THAT(reasons[0], HasSubstr("statically linked"));
    EXPECT_THAT(reasons[0], HasSubstr("raised privileges"));
}

TEST_F(DiagnosisTest, HasNothingToSayWhenAnythingWasHeard) {
    play();
    observer_.processBegan(process(2, "quiet child"));
    EXPECT_THAT(whySilent(observer_, "game"), IsEmpty());
}

TEST_F(DiagnosisTest, CountsBlocksOfZerosAsSilence) {
    const std::vector<std::byte> zeros(4410 * 4);
    observer_.processBegan(game_);
    observer_.block(game_, mixBlock(zeros, 1));
    observer_.block(game_, {1, "unit-1", kMixFormat, 1, zeros});
    observer_.processEnded(game_, {true, false, 2, 1, 1, 0, 1});
    EXPECT_THAT(whySilent(observer_, "game").at(0), HasSubstr("1 block, all zero"));
}

TEST_F(DiagnosisTest, TheUsersVoiceInTheMixIsNoSoundOfTheProgram) {
    Observer observer(true);
    const auto bytes = mixTone(441, 4410);
    observer.processBegan(game_);
    observer.block(game_, mixBlock(bytes, 1));
    observer.processEnded(game_, {true, false, 2, 1, 1, 0, 1});
    EXPECT_EQ(whySilent(observer, "game").size(), 1U);
    observer.processEnded(game_, {true, false, 2, 1, 1, 1, 1});
    EXPECT_THAT(whySilent(observer, "game"), IsEmpty());
}

TEST_F(DiagnosisTest, SilenceOfOneUnitIsNotThatOfAProgramWithUnitsLeftOut) {
    const std::vector<std::byte> zeros(4410 * 4);
    observer_.processBegan(game_);
    observer_.block(game_, {1, "unit-1", kMixFormat, 1, zeros});
    HostFacts facts{true, false, 2, 2, 2, 0, 1};
    facts.leftOut = {{"unit-2", 1U << TQ_UNIT_MICROPHONE_ON}};
    observer_.processEnded(game_, facts);
    EXPECT_EQ(whySilent(observer_, "game").at(0),
              "game: all that could be recorded was silence: 1 block, all zero; not recorded: "
              "unit-2: its microphone is on; such units are not captured, by rule");
}

TEST_F(DiagnosisTest, TellsAProgramThatOpenedNoStreamFromOneThatCannot) {
    HostFacts facts{true, false, 2, 0, 0, 0, 0};
    facts.mayPlay = true;
    facts.bridges = BridgeState::kOn;
    EXPECT_THAT(reasonFor(facts), HasSubstr("no stream of sound was opened: it had nothing"));
    facts.bridges = BridgeState::kMissing;
    EXPECT_THAT(reasonFor(facts), HasSubstr("libTQAudioRecordBridge.so.1"));
}

TEST_F(DiagnosisTest, NamesTheLibraryThatWasLoadedAndPlayedNothing) {
    SeenProcess seen{game_.pid, "game"};
    seen.isTapped = true;
    seen.library = "libpulse.so.0";
    observer_.seen(seen);
    observer_.processBegan(game_);
    observer_.processEnded(game_, {true, false, 2, 0, 0, 0, 0});
    EXPECT_EQ(whySilent(observer_, "game").at(0),
              "game: no stream of sound was opened, though libpulse.so.0 is loaded: it had nothing "
              "to play, could not open its device or reach its sound server, or its sound is "
              "switched off");
}

TEST_F(DiagnosisTest, NamesTheDeviceThatIsPlayedToPastEveryLibrary) {
    SeenProcess seen{game_.pid, "game"};
    seen.isTapped = true;
    seen.device = "/dev/snd/pcmC0D0p";
    observer_.seen(seen);
    observer_.processBegan(game_);
    observer_.processEnded(game_, {true, false, 2, 0, 0, 0, 0});
    EXPECT_THAT(whySilent(observer_, "game").at(0),
                HasSubstr("straight to the device /dev/snd/pcmC0D0p"));
}

TEST_F(DiagnosisTest, NamesStreamsOfCodedSoundAndWhatToDo) {
    observer_.processBegan(game_);
    observer_.stream(game_, {1, "alsa-1 iec958", TQ_STREAM_NOT_PCM, false, 2, 48000, 9, 0, 0, 0});
    observer_.processEnded(game_, {true, false, 2, 0, 0, 0, 0});
    EXPECT_EQ(whySilent(observer_, "game").at(0),
              "game: nothing could be recorded; not recorded: alsa-1 iec958: coded sound (AC3, "
              "DTS) that goes to the receiver as it is; switch pass-through off in the program's "
              "settings");
}

TEST_F(DiagnosisTest, TellsOfAStreamThatDeliveredNothing) {
    observer_.processBegan(game_);
    observer_.stream(game_, {1, "alsa-1", TQ_STREAM_RECORDED, true, 2, 48000, 0, 0, 0, 0});
    observer_.processEnded(game_, {true, false, 2, 0, 1, 0, 0});
    EXPECT_THAT(whySilent(observer_, "game").at(0), HasSubstr("1 stream opened, but no sound"));
}

TEST_F(DiagnosisTest, TellsWhatWasWrittenAndNeverPlayedFromSilence) {
    const std::vector<std::byte> zeros(400);
    observer_.processBegan(game_);
    observer_.block(game_, {1, "alsa-1", kMixFormat, 1, zeros});
    observer_.stream(game_, {1, "alsa-1", TQ_STREAM_RECORDED, false, 2, 48000, 90, 0, 20, 10});
    observer_.processEnded(game_, {true, false, 2, 1, 1, 0, 1});
    EXPECT_EQ(whySilent(observer_, "game").at(0),
              "game: what it had written was not played before the end: 60 frames of alsa-1");
    observer_.stream(game_, {1, "alsa-1", TQ_STREAM_RECORDED, false, 2, 48000, 90, 60, 20, 0});
    EXPECT_THAT(whySilent(observer_, "game").at(0), HasSubstr("1 block, all zero"));
}

TEST_F(DiagnosisTest, TellsOfTheSignalThatEndedTheCommand) {
    EXPECT_THAT(whySilent(observer_, "game", SIGSEGV),
                testing::ElementsAre("game: it was ended by signal 11 (Segmentation fault)"));
    observer_.processBegan(game_);
    observer_.processEnded(game_, {true, false, 2, 2, 0, 0, 0});
    EXPECT_THAT(whySilent(observer_, "game", SIGSEGV),
                testing::ElementsAre(HasSubstr("signal 11"), HasSubstr("2 audio units created")));
}

TEST_F(DiagnosisTest, NamesWhatCouldNotBeOpenedAndStreamsWithoutSound) {
    observer_.processBegan(game_);
    observer_.stream(game_, {1, "alsa hw:9 (No such device)", TQ_STREAM_NOT_OPENED, true});
    observer_.stream(game_, {2, "pulse-1 game", TQ_STREAM_NOTHING_WRITTEN, false, 2, 48000});
    StreamFacts paused{3, "pulse-2 game", TQ_STREAM_RECORDED, false, 2, 48000, 480};
    paused.isPaused = true;
    observer_.stream(game_, paused);
    observer_.processEnded(game_, {true, false, 2, 0, 0, 0, 0});
    EXPECT_EQ(whySilent(observer_, "game").at(0),
              "game: nothing could be recorded; alsa hw:9 (No such device): the program could not "
              "open it; is the device there and free, does the sound server run?; pulse-1 game: "
              "opened, but the program wrote no sound to it; pulse-2 game: the program paused it "
              "before its first sound was heard");
}

TEST_F(DiagnosisTest, NamesStreamsWhoseSoundTheProgramThrewAway) {
    observer_.processBegan(game_);
    StreamFacts thrown{1, "alsa-1 default", TQ_STREAM_RECORDED, true, 2, 48000, 480};
    thrown.dropped = 480;
    observer_.stream(game_, thrown);
    observer_.processEnded(game_, {true, false, 2, 0, 0, 0, 0});
    EXPECT_EQ(whySilent(observer_, "game").at(0),
              "game: nothing could be recorded; alsa-1 default: the program threw its sound away "
              "before it was heard: its device was never started, or closed too early");
}

TEST_F(DiagnosisTest, TellsOfLibrariesThatAreLoadedApart) {
    SeenProcess seen{game_.pid, "game"};
    seen.isTapped = true;
    seen.library = "libasound.so.2";
    seen.loadsApart = true;
    observer_.seen(seen);
    observer_.processBegan(game_);
    observer_.processEnded(game_, {true, false, 2, 0, 0, 0, 0});
    EXPECT_THAT(whySilent(observer_, "game").at(0),
                HasSubstr("apart from its own (dlmopen), where they cannot be followed, and "
                          "libasound.so.2"));
}

TEST_F(DiagnosisTest, LeavesLaunchersOutWhereAnotherHasAReason) {
    const Process launcher = process(2, "sh", true);
    observer_.processBegan(launcher);
    observer_.processEnded(launcher, {true, false, 2, 0, 0, 0, 0});
    EXPECT_THAT(whySilent(observer_, "sh"), testing::ElementsAre(HasSubstr("none of the interf")));
    for (const int id : {3, 4}) {
        observer_.processBegan(process(id, "perl", false));
        observer_.processEnded(process(id, "perl", false), {true, false, 2, 0, 0, 0, 0});
    }
    EXPECT_EQ(whySilent(observer_, "sh").size(), 2U) << "of each program once";
    HostFacts facts{true, false, 2, 0, 0, 0, 0};
    facts.mayPlay = true;
    observer_.processBegan(game_);
    observer_.processEnded(game_, facts);
    EXPECT_THAT(whySilent(observer_, "sh"), testing::ElementsAre(HasSubstr("game: no stream")));
}

TEST_F(DiagnosisTest, NamesProcessesThatTheRecorderDidNotGetInto) {
    SeenProcess fixed{7, "fixed"};
    fixed.isStatic = true;
    SeenProcess raised{8, "raised"};
    raised.isPrivileged = true;
    SeenProcess caged{9, "caged"};
    caged.isSandboxed = true;
    SeenProcess late{10, "late"};
    late.library = "libasound.so.2";
    SeenProcess recorded{11, "recorded"};
    recorded.isTapped = recorded.isSandboxed = true;
    // A sound server is none of them.
    SeenProcess server{12, "pulseaudio"};
    server.library = "libpulse.so.0";
    for (const SeenProcess& seen : {fixed, raised, caged, late, recorded, server}) {
        observer_.seen(seen);
    }
    EXPECT_THAT(whySilent(observer_, "game"),
                testing::ElementsAre(HasSubstr("fixed (7): it is statically linked"),
                                     HasSubstr("raised (8): it runs with raised privileges"),
                                     HasSubstr("caged (9): it runs in a sandbox"),
                                     HasSubstr("late (10): it opened libasound.so.2 later")));
}

}  // namespace
}  // namespace tqrecorder::test
