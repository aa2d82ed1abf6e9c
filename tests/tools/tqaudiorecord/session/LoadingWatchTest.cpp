// Who may play yet when COMMAND has ended.

#include "session/LoadingWatch.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

namespace tqrecorder::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class LoadingWatchTest : public testing::Test {
  protected:
    LoadingWatchTest() { watch_.begin(now_); }

    /// Lets a process go on for that long, which works that part of the time. Whether it is waited
    /// for at its end.
    bool goOn(seconds length, double part) {
        constexpr milliseconds kTurn{100};
        bool isLoading = false;
        for (milliseconds passed{0}; passed < length; passed += kTurn) {
            now_ += kTurn;
            process_.age += kTurn;
            worked_ += part * std::chrono::duration<double>(kTurn).count();
            process_.ticks =
                static_cast<std::uint64_t>(worked_ * static_cast<double>(sysconf(_SC_CLK_TCK)));
            isLoading =
                watch_.isAnyLoading(now_, {process_}, [this](pid_t) { return hasLibrary_; });
        }
        return isLoading;
    }

    LoadingWatch::Clock::time_point now_ = LoadingWatch::Clock::now();
    LoadingWatch watch_;
    ProcessTree::Member process_{10, "game", milliseconds{0}};
    double worked_ = 0;  ///< seconds
    bool hasLibrary_ = true;
};

TEST_F(LoadingWatchTest, TheYoungAreWaitedForWhateverTheyDo) {
    hasLibrary_ = false;
    EXPECT_TRUE(goOn(seconds{19}, 0));
    EXPECT_FALSE(goOn(seconds{2}, 0));
}

TEST_F(LoadingWatchTest, AGameThatLoadsIsWaitedForAsLongAsItWorks) {
    EXPECT_TRUE(goOn(seconds{60}, 0.1));
    EXPECT_TRUE(goOn(seconds{5}, 0)) << "it may wait for the network";
    EXPECT_FALSE(goOn(seconds{10}, 0));
}

TEST_F(LoadingWatchTest, WhoWaitsForTheDiskLoads) {
    EXPECT_TRUE(goOn(seconds{18}, 0));
    process_.waitsForDisk = true;
    EXPECT_TRUE(goOn(seconds{20}, 0));
}

TEST_F(LoadingWatchTest, NobodyIsWaitedForWithoutEnd) {
    EXPECT_TRUE(goOn(LoadingWatch::kLongest - seconds{1}, 0.9));
    EXPECT_FALSE(goOn(seconds{2}, 0.9));
}

TEST_F(LoadingWatchTest, WhoCannotPlayIsNoGameHoweverMuchItWorks) {
    hasLibrary_ = false;
    EXPECT_FALSE(goOn(seconds{22}, 1));
}

TEST_F(LoadingWatchTest, AnOldOneThatHasHardlyWorkedIsNotWaitedForAtAll) {
    process_.age = seconds{3600};
    worked_ = 3;
    EXPECT_FALSE(goOn(seconds{1}, 0));
}

TEST_F(LoadingWatchTest, AnOldOneThatLoadsIsWaitedFor) {
    process_.age = seconds{30};
    worked_ = 20;
    EXPECT_TRUE(goOn(seconds{1}, 0.5));
    EXPECT_TRUE(goOn(seconds{30}, 0.5));
}

TEST_F(LoadingWatchTest, ServicesOutliveEveryGame) {
    process_.name = "pulseaudio";
    EXPECT_FALSE(goOn(seconds{1}, 0.5));
}

}  // namespace
}  // namespace tqrecorder::test
