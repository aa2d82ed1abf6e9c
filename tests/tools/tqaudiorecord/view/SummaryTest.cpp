#include "view/Summary.h"

#include <TQAudioRecord/tq_capture.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ViewFixture.h"

namespace tqrecorder::test {
namespace {

using testing::HasSubstr;

class SummaryTest : public ViewFixture {};

TEST_F(SummaryTest, TellsTracksLossesFilesAndProblems) {
    play();
    time_ += 500'000;
    play();
    observer_.event(game_, {1, 6, 0, "start"});
    observer_.lost(game_, 2, 99);
    WrittenFile file;
    file.path = "out.wav";
    file.text = "44100 Hz";
    file.seconds = 0.7;
    const std::string text =
        summaryText(observer_, {file}, {"events.jsonl"}, {"disk: full"}, {"game: silent"});
    for (const char* words :
         {"Recorded: game (1001)\n",
          "  mix: 44100 Hz, 16-bit integer, stereo, 0.20 s, peak -6.0 dBFS, RMS -9.0 dBFS\n",
          "  track 1 (unit 0x1): 44100 Hz",
          "  1 event, 1 gap filled with silence (0.50 s), 2 blocks lost (99 bytes)\n",
          "    the program has started a unit\n", "  out.wav (44100 Hz, 0.70 s)\n",
          "  events.jsonl\n", "Silent: game: silent\n", "Problem: disk: full\n"}) {
        EXPECT_THAT(text, HasSubstr(words));
    }
}

TEST_F(SummaryTest, LeavesToolsOfAScriptOut) {
    const HostFacts facts{true, false, 2, 0, 0, 0, 0};
    const Process shell = process(2, "sh", true);
    const Process tool = process(3, "perl", false);
    // It may have played: its guard kept the hooks out.
    const Process kept = process(4, "python3", false);
    for (const auto& [one, known] :
         {std::pair(&shell, facts), {&tool, facts}, {&kept, HostFacts{.guardRefused = true}}}) {
        observer_.processBegan(*one);
        observer_.processEnded(*one, known);
    }
    const std::string text = summaryText(observer_, {}, {}, {}, {});
    EXPECT_THAT(text, HasSubstr("Nothing heard of: sh"));
    EXPECT_THAT(text, HasSubstr("Nothing heard of: python3"));
    EXPECT_THAT(text, testing::Not(HasSubstr("perl")));
}

TEST_F(SummaryTest, CallsNothingRecordedThatIsInNoFile) {
    observer_.processBegan(process(2, "launcher", true));
    EXPECT_THAT(summaryText(observer_, {}, {}, {}, {}),
                HasSubstr("Nothing heard of: launcher (1002)\n"));
    play();
    const std::string text = summaryText(observer_, {}, {"events.jsonl"}, {}, {});
    EXPECT_THAT(text, HasSubstr("Heard, and written to no file: game (1001)\n"));
    EXPECT_THAT(text, testing::Not(HasSubstr("Recorded: ")));
}

TEST_F(SummaryTest, TellsFailuresFirstAndAsSuch) {
    play();
    observer_.event(game_, {1, 0, 0, ""});
    observer_.event(game_, {1, 3, 110, ""});
    observer_.event(game_, {1, 2, 109, ""});
    observer_.event(game_, {1, 2, 109, ""});
    EXPECT_THAT(
        summaryText(observer_, {}, {}, {}, {}),
        HasSubstr("  4 events, 0 gaps filled with silence, 0 blocks lost\n"
                  "    failure: the unit renders fewer bytes than its format says: the block is "
                  "lost (2 times)\n"
                  "    capture has started\n"
                  "    the mix reads a track before its unit has stored a first block\n"));
}

TEST_F(SummaryTest, NamesTheUnitsThatWereNotRecorded) {
    for (const char* unit : {"unit-8", "unit-9", "unit-10", "unit-11", "unit-12"}) {
        facts_.leftOut.push_back({unit, 1U << TQ_UNIT_NO_NUMBER_FREE});
    }
    facts_.leftOut.push_back({"unit 0x1", 1U << TQ_UNIT_NUMBER_TAKEN});
    facts_.leftOutMoreReasons = 1U << TQ_UNIT_VOICE_ENGINES;
    play();
    EXPECT_THAT(
        summaryText(observer_, {}, {}, {}, {}),
        HasSubstr("  not recorded: unit-8, unit-9, unit-10, unit-11 and 1 more: seven other units "
                  "had the track numbers when it was made\n"
                  "  not recorded: further units: a voice engine made it; such units are not "
                  "captured, by rule\n"
                  "  not recorded all the time: unit 0x1: a later unit has got its track "
                  "number\n"));
}

TEST_F(SummaryTest, NamesStreamsThatWereNotRecordedAndAccountsForThoseThatWere) {
    play();
    observer_.stream(game_,
                     {1, "pulse-1 game", TQ_STREAM_RECORDED, true, 2, 48000, 90, 60, 20, 10});
    for (std::uint64_t id = 8; id < 14; ++id) {
        observer_.stream(game_, {id, "pulse-" + std::to_string(id), TQ_STREAM_NO_UNIT_FREE, false,
                                 2, 48000, 9, 0, 0, 9});
    }
    const std::string text = summaryText(observer_, {}, {}, {}, {});
    EXPECT_THAT(text, HasSubstr("  not recorded: pulse-8, pulse-9, pulse-10, pulse-11 and 2 more: "
                                "seven other streams were playing"));
    EXPECT_THAT(text, HasSubstr("  frames of pulse-1 game: 90 written, 60 into its track, 20 "
                                "thrown away by the program, 10 lost\n"));
}

TEST_F(SummaryTest, BoundsWhatIsSaidOfStreams) {
    for (std::uint64_t id = 1; id <= 2000; ++id) {
        observer_.stream(game_, {id, "s", TQ_STREAM_RECORDED, true, 2, 48000, 2, 2, 0, 0});
    }
    const std::string text = summaryText(observer_, {}, {}, {}, {});
    EXPECT_THAT(text, HasSubstr("frames of 984 further streams: 1968 written, 1968 into"));
    EXPECT_THAT(text, HasSubstr("and streams of which no account is kept"));
    EXPECT_LT(text.size(), 2000U);
}

TEST_F(SummaryTest, NamesProcessesWithSoundThatWereNotRecordedBesideOneThatWas) {
    play();
    SeenProcess caged{9, "helper"};
    caged.isSandboxed = true;
    observer_.seen(caged);
    EXPECT_THAT(summaryText(observer_, {}, {}, {}, {}), testing::Not(HasSubstr("helper")))
        << "it may have no sound";
    caged.library = "libasound.so.2";
    observer_.seen(caged);
    EXPECT_THAT(summaryText(observer_, {}, {}, {}, {}),
                HasSubstr("Not recorded: helper (9): it runs in a sandbox"));
}

TEST_F(SummaryTest, SaysNothingOfIdleProcessesBesideOneThatPlays) {
    observer_.processBegan({8, 88, "helper"});
    EXPECT_THAT(summaryText(observer_, {}, {}, {}, {}), HasSubstr("Nothing heard of: helper (88)"));
    play();
    EXPECT_THAT(summaryText(observer_, {}, {}, {}, {}), testing::Not(HasSubstr("helper")));
    observer_.lost({8, 88, "helper"}, 1, 100);
    EXPECT_THAT(summaryText(observer_, {}, {}, {}, {}), HasSubstr("Nothing heard of: helper (88)"));
}

TEST_F(SummaryTest, DoesNotSayOfAChildThatWouldJoinThatItIsNotRecorded) {
    play();
    SeenProcess child{9, "child"};
    child.library = "libpulse.so.0";
    observer_.seen(child);
    child.isPrepared = true;
    child.name = "prepared";
    observer_.seen(child);
    const std::string text = summaryText(observer_, {}, {}, {}, {});
    EXPECT_THAT(text, HasSubstr("Not recorded: child (9): it opened libpulse.so.0 later"));
    EXPECT_THAT(text, testing::Not(HasSubstr("prepared")));
}

TEST_F(SummaryTest, TellsUnknownEventsInOneLine) {
    for (std::uint64_t i = 0; i < 1000; ++i) {
        observer_.event(game_, {1, 1000 + i, i, ""});
    }
    EXPECT_THAT(summaryText(observer_, {}, {}, {}, {}),
                HasSubstr("  1000 events, 0 gaps filled with silence, 0 blocks lost\n"
                          "    failure: an event that this version does not know (999 times)\n"
                          "    an event that this version does not know\n"));
}

}  // namespace
}  // namespace tqrecorder::test
