// One recorded process, seen through memory that a test writes as it likes.

#include "session/TappedProcess.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <utility>

#include "RememberingSink.h"
#include "common/ProcessStart.h"

namespace {

using namespace tqrecorder;
using Taken = TappedProcess::Taken;

constexpr std::uint64_t kSoundBytes = 65536;

/// No file may be opened as long as it lives.
class NoDescriptorLeft {
  public:
    NoDescriptorLeft() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none{0, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptorLeft() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptorLeft(const NoDescriptorLeft&) = delete;
    NoDescriptorLeft& operator=(const NoDescriptorLeft&) = delete;

  private:
    rlimit before_{};
};

class TappedProcessTest : public testing::Test {
  protected:
    /// The same memory each time.
    [[nodiscard]] Connection connection(pid_t pid) const {
        Connection made;
        made.memory = tqcommon::Descriptor(dup(memory_.get()));
        made.pid = pid;
        return made;
    }
    [[nodiscard]] static Taken take(TappedProcess& process, Connection connection) {
        return process.take(std::move(connection), SharedMapping::kMostBytes);
    }
    [[nodiscard]] SharedPage& page() const { return shared_->page(); }

    int made_ = -1;
    std::optional<SharedMapping> shared_ = SharedMapping::make(kSoundBytes, made_);
    tqcommon::Descriptor memory_{made_};
    const std::uint64_t startTime_ = tqcommon::processStart(getpid());
    RememberingSink sink_;
};

class TappedProcessRingTest : public TappedProcessTest,
                              public testing::WithParamInterface<RingId> {};

TEST_P(TappedProcessRingTest, AProgramThatTakesBackWhatItSaidItWroteHoldsNobodyUp) {
    TappedProcess process(1, true, startTime_);
    ASSERT_EQ(take(process, connection(getpid())), Taken::kYes);
    std::atomic<std::uint64_t>& written =
        page().rings[static_cast<std::size_t>(GetParam())].written;
    written = 64;
    process.close();
    written = 0;
    EXPECT_TRUE(process.drain(sink_, std::chrono::steady_clock::now() + std::chrono::seconds{10}));
    EXPECT_FALSE(process.isCorrupt());
}

INSTANTIATE_TEST_SUITE_P(All, TappedProcessRingTest,
                         testing::Values(RingId::kSound, RingId::kEvents, RingId::kLog,
                                         RingId::kStreams));

TEST_F(TappedProcessTest, ALivingProcessIsNotOverWhereNoFileCanBeOpened) {
    Connection first = connection(getpid());
    Connection second = connection(getpid());
    TappedProcess known(1, true, startTime_);
    TappedProcess unknown(2, false, 0);
    {
        const NoDescriptorLeft none;
        ASSERT_EQ(take(known, std::move(first)), Taken::kYes);
        ASSERT_EQ(take(unknown, std::move(second)), Taken::kYes);
        ASSERT_EQ(known.endDescriptor(), -1);
        EXPECT_FALSE(known.isOver());
        EXPECT_FALSE(unknown.isOver());
    }
    EXPECT_FALSE(known.isOver());
    EXPECT_FALSE(unknown.isOver());
    EXPECT_FALSE(known.isHardlyKnown());
    EXPECT_TRUE(unknown.isHardlyKnown());
}

/// It may exec, and connect again, when its start can be read, or no more.
TEST_F(TappedProcessTest, AProcessWhoseStartCouldNotBeReadIsTheSameWhileItLives) {
    Connection first = connection(getpid());
    Connection second = connection(getpid());
    TappedProcess unknown(1, true, 0);
    TappedProcess known(2, true, startTime_);
    {
        const NoDescriptorLeft none;
        ASSERT_EQ(take(unknown, std::move(first)), Taken::kYes);
        ASSERT_EQ(take(known, std::move(second)), Taken::kYes);
    }
    EXPECT_TRUE(unknown.is(getpid(), startTime_));
    EXPECT_TRUE(unknown.is(getpid(), 0));
    EXPECT_TRUE(known.is(getpid(), 0));
    EXPECT_FALSE(known.is(getpid(), startTime_ + 1));
    EXPECT_FALSE(unknown.is(getppid(), startTime_));
}

TEST_F(TappedProcessTest, OneThatIsKnownByItsNumberOnlyIsOverOnceItHasEnded) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        pause();
        _exit(0);
    }
    ASSERT_GT(child, 0);
    Connection made = connection(child);
    TappedProcess process(1, true, 0);
    {
        const NoDescriptorLeft none;
        ASSERT_EQ(take(process, std::move(made)), Taken::kYes);
    }
    EXPECT_FALSE(process.isOver());
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_TRUE(process.isOver());
    EXPECT_FALSE(process.isHardlyKnown());
    EXPECT_FALSE(process.is(child, startTime_)) << "its number may be another's";
}

TEST_F(TappedProcessTest, OneThatWasAnotherWithThatNumberIsOver) {
    Connection made = connection(getpid());
    TappedProcess process(1, true, startTime_ + 1);
    {
        const NoDescriptorLeft none;
        ASSERT_EQ(take(process, std::move(made)), Taken::kYes);
    }
    EXPECT_TRUE(process.isOver());
}

TEST_F(TappedProcessTest, TooManyProgramsThatWaitAreToldFromMemoryWithoutSense) {
    TappedProcess process(1, true, startTime_);
    constexpr int kOneIsReadAndSixteenWait = 17;
    for (int i = 0; i < kOneIsReadAndSixteenWait; ++i) {
        ASSERT_EQ(take(process, connection(getpid())), Taken::kYes);
    }
    EXPECT_EQ(take(process, connection(getpid())), Taken::kTooManyWait);
    TappedProcess other(2, false, startTime_);
    page().magic = 0;
    EXPECT_EQ(take(other, connection(getpid())), Taken::kNoSense);
}

}  // namespace
