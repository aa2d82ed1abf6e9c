// What the recorder shows: levels, the meter on a terminal and off it, reasons for silence.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>

#include "Sound.h"
#include "view/Diagnosis.h"
#include "view/Meter.h"
#include "view/MeterText.h"
#include "view/Summary.h"

namespace tqrecorder::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(LevelTest, IsTheSameForEveryFormat) {
    const auto check = [](const std::vector<std::byte>& bytes, const BlockFormat& format) {
        Level level;
        level.add(bytes, format);
        EXPECT_NEAR(level.peak(), 0.5, 0.001) << format.bitsPerChannel;
        EXPECT_NEAR(level.rms(), 0.5 / std::numbers::sqrt2, 0.001) << format.bitsPerChannel;
    };
    check(mixTone(441, 44100), kMixFormat);
    const BlockFormat real{44100, 1, 32, true};
    check(tone<float>(441, real, 44100), real);
    const BlockFormat fine{44100, 1, 64, true};
    check(tone<double>(441, fine, 44100), fine);
    // 24 and 32 bits, made of 16.
    const auto samples = tone<std::int16_t>(441, {44100, 1, 16, false}, 44100);
    for (const std::uint32_t bits : {24U, 32U}) {
        std::vector<std::byte> wide;
        for (std::size_t place = 0; place < samples.size(); place += 2) {
            wide.insert(wide.end(), bits / 8 - 2, std::byte{0});
            wide.insert(wide.end(), {samples[place], samples[place + 1]});
        }
        check(wide, {44100, 1, bits, false});
    }
}

TEST(LevelTest, CountsWhatIsNoNumberAsSilence) {
    const std::array<float, 3> samples{NAN, INFINITY, 0.25F};
    Level level;
    level.add(std::as_bytes(std::span(samples)), {44100, 1, 32, true});
    EXPECT_EQ(level.peak(), 0.25);
    EXPECT_EQ(decibelText(level.peak()), "-12.0");
    EXPECT_EQ(decibelText(0), "-inf");
    EXPECT_EQ(decibelText(1), "0.0");
}

TEST(ScreenTest, HostsCannotSteerTheTerminal) {
    EXPECT_EQ(printable("a\x1b[2Jb\r\n\x7f"), "a [2Jb   ");
    EXPECT_EQ(printable("\xc2\x9b"), "  ");
    EXPECT_EQ(printable("M\xc3\xa4r"), "M\xc3\xa4r");
    EXPECT_EQ(cutToWidth("M\xc3\xa4rz", 2), "M\xc3\xa4");
    EXPECT_EQ(cutToWidth("abc", 9), "abc");
}

class MeterTest : public testing::Test {
  protected:
    void play(double amplitudeOfTrack = 1) {
        const auto bytes = mixTone(441, 4410);
        observer_.processBegan(game_);
        observer_.block(game_, mixBlock(bytes, time_));
        if (amplitudeOfTrack > 0) {
            observer_.block(game_, {1, "unit 0x1", kMixFormat, time_, bytes});
        }
        time_ += 100'000;
        const std::array<TrackNumbers, 1> numbers{{{1, "unit 0x1", kMixFormat, 250, 1000}}};
        observer_.numbers(game_, numbers, facts_, 0.125);
    }
    /// Everything that was written to the other end.
    static std::string drain(int descriptor) {
        fcntl(descriptor, F_SETFL, O_NONBLOCK);
        std::string text;
        std::array<char, 4096> piece{};
        for (ssize_t got = 0; (got = read(descriptor, piece.data(), piece.size())) > 0;) {
            text.append(piece.data(), static_cast<std::size_t>(got));
        }
        return text;
    }

    Observer observer_;
    const Process game_ = process(1, "game", true);
    HostFacts facts_{true, false, 2, 1, 1, 0, 10, 10};
    std::uint64_t time_ = 1'000'000;
};

TEST_F(MeterTest, ShowsEachTrackWithItsLevelsBufferAndLosses) {
    play();
    observer_.lost(game_, 3, 1234);
    observer_.tick(83'000'000);
    const std::vector<std::string> lines = meterLines(observer_, 100);
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_THAT(lines[0], HasSubstr("0:01:23   ring 13%   lost 3   gaps 0"));
    EXPECT_EQ(lines[2], "game (1001)");
    EXPECT_THAT(lines[3], HasSubstr("  mix "));
    EXPECT_THAT(lines[3], HasSubstr("-6.0   -9.0    -"));
    EXPECT_THAT(lines[4], HasSubstr("track 1 unit 0x1"));
    EXPECT_THAT(lines[4], HasSubstr("-6.0   -9.0  25%  [#####"));
    for (const std::string& line : lines) {
        EXPECT_LT(line.size(), 100U);
    }
}

TEST_F(MeterTest, LeavesBarsOutOnANarrowTerminal) {
    play();
    EXPECT_THAT(meterLines(observer_, 50)[4], Not(HasSubstr("[")));
}

TEST_F(MeterTest, WritesOneLineOfNumbersASecondWhereThereIsNoTerminal) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    Screen screen(ends[1]);
    EXPECT_FALSE(screen.isTerminal());
    Meter meter(screen, observer_, false);
    for (std::uint64_t elapsed = 100'000; elapsed <= 3'100'000; elapsed += 100'000) {
        play();
        observer_.tick(elapsed);
        meter.tick(elapsed);
    }
    meter.finish();
    const std::string text = drain(ends[0]);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
    EXPECT_THAT(text, testing::StartsWith("tqaudiorecord: 1.1 s  game  mix -6.0/-9.0  1 "
                                          "-6.0/-9.0  ring 13%  lost 0  gaps 0\n"));
    EXPECT_THAT(text, Not(HasSubstr("\033")));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(MeterTest, RedrawsInPlaceOnATerminalAndLeavesItClean) {
    int master = -1;
    int slave = -1;
    winsize size{24, 72, 0, 0};
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
    Screen screen(slave);
    ASSERT_TRUE(screen.isTerminal());
    EXPECT_EQ(screen.width(), 72U);
    Meter meter(screen, observer_, true);
    play();
    meter.tick(100'000);
    meter.tick(300'000);
    const std::string first = drain(master);
    EXPECT_THAT(first, HasSubstr("mix"));
    EXPECT_THAT(first, HasSubstr("[####"));
    EXPECT_THAT(first, Not(HasSubstr("A\033")));
    // A log line goes above the area, which is drawn again below it.
    meter.log(game_, {3, "-[Unit start]", "late \033[31mred"});
    const std::string line = drain(master);
    EXPECT_THAT(line, testing::StartsWith("\r\033[5A\033[J"));
    EXPECT_THAT(line, HasSubstr("tqaudiorecord: game warning: -[Unit start]: late  [31mred"));
    play();
    meter.tick(600'000);
    drain(master);
    play();
    meter.tick(900'000);
    EXPECT_THAT(drain(master), testing::StartsWith("\r\033[5A"));
    size.ws_col = 40;
    ioctl(slave, TIOCSWINSZ, &size);
    meter.tick(1'200'000);
    std::istringstream narrow(drain(master));
    for (std::string row; std::getline(narrow, row);) {
        const std::size_t end = row.find("\033[K");
        EXPECT_TRUE(end < 46 || end == std::string::npos) << row;
    }
    meter.finish();
    EXPECT_EQ(drain(master), "\r\033[5A\033[J");
    close(slave);
    close(master);
}

class DiagnosisTest : public MeterTest {
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
    const std::string reason = reasonFor({false, true, 0, 0, 0, 0, 0, 0});
    EXPECT_THAT(reason, HasSubstr("retries are used up"));
    EXPECT_THAT(reason, HasSubstr("tqaudiorecord guard arm game"));
    EXPECT_THAT(reasonFor({false, true, 2, 0, 0, 0, 0, 0}), HasSubstr("guard status game"));
}

TEST_F(DiagnosisTest, TellsHooksUnitsMicrophonesAndSilenceApart) {
    EXPECT_THAT(reasonFor({false, false, 2, 0, 0, 0, 0, 0}), HasSubstr("could not be installed"));
    EXPECT_THAT(reasonFor({true, false, 2, 0, 0, 0, 0, 0}), HasSubstr("no audio unit was created"));
    EXPECT_THAT(reasonFor({true, false, 2, 2, 0, 0, 0, 0}),
                HasSubstr("2 audio units created, but none was ever started"));
    EXPECT_THAT(reasonFor({true, false, 2, 1, 1, 1, 0, 9}),
                HasSubstr("1 audio unit with the microphone on"));
    EXPECT_THAT(reasonFor({true, false, 2, 1, 1, 0, 0, 0}), HasSubstr("no sound was delivered"));
    EXPECT_THAT(reasonFor({true, false, 2, 1, 1, 0, 0, 9}),
                HasSubstr("rendered silence: 9 blocks, all zero"));
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
    observer_.processEnded(game_, {true, false, 2, 1, 1, 0, 0, 1});
    EXPECT_THAT(whySilent(observer_, "game").at(0), HasSubstr("1 block, all zero"));
}

TEST_F(MeterTest, TheSummaryTellsTracksLossesFilesAndProblems) {
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
          "  out.wav (44100 Hz, 0.70 s)\n", "  events.jsonl\n", "Silent: game: silent\n",
          "Problem: disk: full\n"}) {
        EXPECT_THAT(text, HasSubstr(words));
    }
}

}  // namespace
}  // namespace tqrecorder::test
