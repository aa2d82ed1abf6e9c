// All outputs of a recording together, as their user controls them.

#include "cli/Outputs.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/Descriptor.h"
#include "tools/tqaudiorecord/output/SinkFixture.h"

namespace tqrecorder::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class OutputsTest : public SinkFixture {
  protected:
    OutputsTest() {
        options_.quiet = true;
        options_.output = folder_.file("out.wav");
        options_.tracksFolder = folder_.file("tracks");
    }
    void open() {
        std::string error;
        ASSERT_TRUE(outputs_.open(error)) << error;
    }
    void playBoth(std::size_t from, std::size_t to) {
        play(outputs_, game_, from, to);
        outputs_.block(game_, {1, "music", kMixFormat, at(from), counting(to - from, from)});
    }
    ControlAnswer split() { return outputs_.control({ControlCommand::Kind::kSplit}); }

    Options options_;
    tqcommon::Descriptor nowhere_{::open("/dev/null", O_WRONLY | O_CLOEXEC)};
    Screen screen_{nowhere_.get()};
    Outputs outputs_{options_, screen_, nowhere_.get()};
};

TEST_F(OutputsTest, ASplitIsAnsweredOnceAllFilesAreWrittenUpToIt) {
    constexpr std::size_t kBack = 60 * 44'100;
    open();
    playBoth(0, 470);
    ControlAnswer answer = split();
    EXPECT_EQ(answer.ticket, 0U) << "nothing is to be waited for";
    EXPECT_THAT(answer.text, AllOf(HasSubstr("out.wav ("), HasSubstr("track-1-music.wav (")));
    playBoth(470, 940);
    playBoth(kBack, kBack + 470);
    answer = split();
    ASSERT_NE(answer.ticket, 0U);
    EXPECT_TRUE(answer.isDone);
    playBoth(kBack + 470, kBack + 940);
    const ControlAnswer next = split();
    ASSERT_NE(next.ticket, 0U);
    EXPECT_NE(next.ticket, answer.ticket);
    std::vector<ControlAnswer> late = outputs_.lateAnswers();
    EXPECT_THAT(late, testing::IsEmpty());
    while (late.size() < 2) {
        outputs_.tick(0);
        for (ControlAnswer& one : outputs_.lateAnswers()) {
            late.push_back(std::move(one));
        }
    }
    EXPECT_EQ(late[0].ticket, answer.ticket);
    EXPECT_TRUE(late[0].isDone);
    EXPECT_THAT(late[0].text, AllOf(HasSubstr("out-002.wav ("), HasSubstr("music-002.wav ("),
                                    Not(HasSubstr("-003.wav"))));
    EXPECT_EQ(late[1].ticket, next.ticket);
    EXPECT_THAT(late[1].text, AllOf(HasSubstr("out-003.wav ("), HasSubstr("music-003.wav (")));
    outputs_.finish();
    EXPECT_THAT(outputs_.problems(), testing::IsEmpty());
    for (const char* name : {"out-002.wav", "tracks/track-1-music-002.wav"}) {
        EXPECT_EQ(RecordedFile(folder_.file(name)).frames(), kBack) << name;
    }
    EXPECT_EQ(RecordedFile(folder_.file("out-003.wav")).numberAt(0),
              static_cast<int>((kBack + 470) % 30000 + 1));
}

/// The microphone in the mix, and no tracks.
class OutputsWithAVoice : public OutputsTest {
  protected:
    OutputsWithAVoice() {
        options_.tracksFolder.clear();
        options_.microphone = options_.microphoneInMix = true;
        voiced_.emplace(options_, screen_, nowhere_.get());
        std::string error;
        EXPECT_TRUE(voiced_->open(error)) << error;
    }
    void hear(std::size_t from, std::size_t to) {
        const std::vector<float> samples(441, 0.1F);
        for (; from < to; from += 441) {
            voiced_->heard({at(from), 1, samples, true});
        }
        voiced_->turnEnded(true);
    }
    std::optional<Outputs> voiced_;
};

TEST_F(OutputsWithAVoice, HolesOfTheMixAreCountedAsWithoutIt) {
    play(*voiced_, game_, 0, 4700);
    hear(0, 441'000);
    play(*voiced_, game_, 441'000, 445'700);
    hear(441'000, 445'700);
    voiced_->finish();
    EXPECT_THAT(voiced_->summary({}), HasSubstr(" 1 gap filled with silence (9.89 s)"));
}

TEST_F(OutputsWithAVoice, AJumpOfTimeIsSaid) {
    play(*voiced_, game_, 0, 4700);
    hear(0, 4700);
    const std::size_t away = std::size_t{48} * 3600 * 44'100;
    play(*voiced_, game_, away, away + 4700);
    voiced_->finish();
    EXPECT_THAT(voiced_->problems(), testing::ElementsAre(HasSubstr("time stamps jumped")));
}

TEST_F(OutputsTest, APauseBehindTheEndIsNoneAndIsToldSo) {
    open();
    playBoth(0, 470);
    outputs_.closed();
    for (const auto kind : {ControlCommand::Kind::kPause, ControlCommand::Kind::kResume}) {
        const ControlAnswer answer = outputs_.control({kind});
        EXPECT_FALSE(answer.isDone);
        EXPECT_EQ(answer.text, "the recording is over\n");
    }
    outputs_.finish();
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).frames(), 470U);
}

}  // namespace
}  // namespace tqrecorder::test
