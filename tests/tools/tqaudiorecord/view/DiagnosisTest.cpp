// Reasons for silence.

#include "view/Diagnosis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace tqrecorder::test
