// The meter on a terminal and off it.

#include "view/Meter.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <algorithm>
#include <chrono>
#include <string_view>
#include <thread>

#include "ScreenImage.h"
#include "ViewFixture.h"
#include "view/Columns.h"
#include "view/MeterText.h"

namespace tqrecorder::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class MeterTest : public ViewFixture {
  protected:
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

TEST_F(MeterTest, NamesOfWideLettersLeaveEachRowItsWidth) {
    const auto bytes = mixTone(441, 441);
    observer_.block(game_, {1, "音楽プレーヤー", kMixFormat, time_, bytes});
    for (const std::string& line : meterLines(observer_, 80)) {
        EXPECT_LT(columnsOf(line), 80U) << line;
    }
    EXPECT_THAT(meterLines(observer_, 80)[3], HasSubstr("音楽プレ"));
}

TEST_F(MeterTest, SaysThatTheRecordingIsPaused) {
    play();
    EXPECT_THAT(meterLines(observer_, 80)[0], Not(HasSubstr("PAUSED")));
    observer_.setPaused(true);
    EXPECT_THAT(meterLines(observer_, 80)[0], HasSubstr("   PAUSED   ring"));
    EXPECT_THAT(numberLines(observer_)[0], HasSubstr(" s  PAUSED  game"));
}

TEST_F(MeterTest, LeavesBarsOutOnANarrowTerminal) {
    play();
    EXPECT_THAT(meterLines(observer_, 50)[4], Not(HasSubstr("[")));
}

TEST_F(MeterTest, WritesOneLineOfNumbersASecondWhereThereIsNoTerminal) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    Screen screen(ends[1]);
    EXPECT_EQ(screen.room(), Screen::Room::kLines);
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
    ASSERT_EQ(screen.room(), Screen::Room::kArea);
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

/// A terminal to which a program writes as well.
class SharedTerminalTest : public MeterTest {
  protected:
    void SetUp() override {
        winsize size{24, 72, 0, 0};
        ASSERT_EQ(openpty(&window_, &program_, nullptr, nullptr, &size), 0);
    }
    void TearDown() override {
        close(program_);
        close(window_);
    }
    void programSays(std::string_view text) const {
        ASSERT_EQ(write(program_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void meterGoesOn(Meter& meter, int turns) {
        for (; turns > 0; --turns) {
            play();
            elapsed_ += 1'100'000;
            observer_.tick(elapsed_);
            meter.tick(elapsed_);
        }
    }
    int window_ = -1;
    int program_ = -1;
    std::uint64_t elapsed_ = 0;
};

TEST_F(SharedTerminalTest, WhatAProgramPrintsStaysWhole) {
    Screen screen(program_, std::chrono::hours{1});
    Meter meter(screen, observer_, false);
    meterGoesOn(meter, 3);
    programSays("one\ntwo\nthree\n");
    meterGoesOn(meter, 2);
    programSays("without an end");
    screen.line("tqaudiorecord: a message");
    programSays("four\n");
    meter.finish();
    const std::vector<std::string> image = screenImage(drain(window_));
    const auto isThere = [&image](const std::string& line) {
        return std::count(image.begin(), image.end(), line);
    };
    for (const char* line : {"one", "two", "three", "without an end", "four"}) {
        EXPECT_EQ(isThere(line), 1) << line;
    }
    EXPECT_EQ(isThere("tqaudiorecord: a message"), 1);
    // The one that was drawn last in place, and a line for each turn since.
    const auto meters = std::count_if(image.begin(), image.end(), [](const std::string& line) {
        return line.find("   ring 13%") != std::string::npos;
    });
    const auto lines = std::count_if(image.begin(), image.end(), [](const std::string& line) {
        return line.starts_with("tqaudiorecord: ") && line.find("  mix ") != std::string::npos;
    });
    EXPECT_EQ(meters, 1);
    EXPECT_EQ(lines, 2);
}

TEST_F(SharedTerminalTest, InPlaceAgainWhenTheOthersHaveBeenSilent) {
    Screen screen(program_, std::chrono::milliseconds{300});
    Meter meter(screen, observer_, false);
    programSays("one");
    EXPECT_EQ(screen.room(), Screen::Room::kLines);
    std::this_thread::sleep_for(std::chrono::milliseconds{310});
    EXPECT_EQ(screen.room(), Screen::Room::kArea);
    meterGoesOn(meter, 4);
    meter.finish();
    EXPECT_EQ(screenImage(drain(window_)), (std::vector<std::string>{"one", ""}));
}

TEST_F(SharedTerminalTest, NothingIsDrawnWhereAProgramDrawsTheScreen) {
    Screen screen(program_);
    Meter meter(screen, observer_, false);
    termios settings{};
    ASSERT_EQ(tcgetattr(program_, &settings), 0);
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON);
    ASSERT_EQ(tcsetattr(program_, TCSANOW, &settings), 0);
    meterGoesOn(meter, 3);
    EXPECT_EQ(drain(window_), "");
    screen.line("tqaudiorecord: a message");
    EXPECT_EQ(drain(window_), "tqaudiorecord: a message\r\n");
}

TEST_F(SharedTerminalTest, NothingIsDrawnWhereAProgramAsksForAPassword) {
    Screen screen(program_);
    Meter meter(screen, observer_, false);
    termios settings{};
    ASSERT_EQ(tcgetattr(program_, &settings), 0);
    settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    ASSERT_EQ(tcsetattr(program_, TCSANOW, &settings), 0);
    meterGoesOn(meter, 3);
    EXPECT_EQ(drain(window_), "");
}

TEST_F(MeterTest, OfIdleProcessesThereIsOneLineUntilOneOfThemPlays) {
    observer_.processBegan({8, 88, "helper"});
    observer_.processBegan({9, 99, "helper"});
    EXPECT_THAT(numberLines(observer_), ElementsAre(HasSubstr("helper")));
    play();
    EXPECT_THAT(numberLines(observer_), ElementsAre(HasSubstr("game")));
    EXPECT_THAT(meterLines(observer_, 80), testing::Not(testing::Contains(HasSubstr("helper"))));
}

TEST_F(MeterTest, BehindTheLastProgramItDoesNotSayThatThereWasNone) {
    EXPECT_THAT(numberLines(observer_), ElementsAre(HasSubstr("nothing to record yet")));
    play();
    observer_.processEnded(game_, facts_);
    EXPECT_THAT(numberLines(observer_), ElementsAre(HasSubstr("all that played has ended")));
}

}  // namespace
}  // namespace tqrecorder::test
