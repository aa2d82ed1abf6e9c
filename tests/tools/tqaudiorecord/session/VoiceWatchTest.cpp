#include "session/VoiceWatch.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using tqrecorder::HeardBlock;
using tqrecorder::VoiceWatch;

/// What is said meanwhile, line behind line; a block each tenth of a second.
class Watched {
  public:
    explicit Watched(bool isToDuck = true, bool isThere = true) : watch_(isToDuck, isThere) {}
    std::string hear(double seconds, float sample, bool isOpen = true) {
        std::string lines;
        const std::vector<float> samples(4410, sample);
        for (int blocks = static_cast<int>(10 * seconds); blocks > 0; --blocks) {
            lines += watch_.add({time_, 1, samples, isOpen});
            time_ += 100'000;
        }
        return lines;
    }

  private:
    VoiceWatch watch_;
    std::uint64_t time_ = 5'000'000;
};

TEST(VoiceWatch, OneThatIsMutedIsSaidAndThatItIsHeard) {
    Watched one;
    EXPECT_EQ(one.hear(9, 0), "");
    EXPECT_EQ(one.hear(2, 0),
              "the microphone has heard nothing at all so far, so that nothing is ducked; is it "
              "muted or switched off?");
    EXPECT_EQ(one.hear(60, 0), "");
    EXPECT_EQ(one.hear(1, 0.1F), "the microphone is heard");
    EXPECT_EQ(one.hear(1, 0.1F), "");
}

TEST(VoiceWatch, OneThatIsMutedMeanwhileIsSaidOnce) {
    Watched one;
    EXPECT_EQ(one.hear(1, 0.1F), "");
    EXPECT_EQ(one.hear(9, 0), "");
    EXPECT_EQ(one.hear(2, 0),
              "the microphone has been silent for ten seconds, so that nothing is ducked; is it "
              "muted or switched off?");
    EXPECT_EQ(one.hear(60, 0), "");
    EXPECT_EQ(one.hear(1, 0.1F), "the microphone is heard");
    EXPECT_EQ(one.hear(60, 0), "") << "it may let no noise through between the words";
    EXPECT_EQ(one.hear(1, 0.1F), "");
}

TEST(VoiceWatch, PausesOfTheVoiceAreNoSilenceOfTheMicrophone) {
    Watched one;
    for (int word = 0; word < 10; ++word) {
        EXPECT_EQ(one.hear(0.1, 0.1F), "");
        EXPECT_EQ(one.hear(9, 0), "");
    }
}

TEST(VoiceWatch, OneThatGoesIsSaidAndThatItIsBack) {
    Watched one;
    EXPECT_EQ(one.hear(1, 0.1F), "");
    EXPECT_EQ(one.hear(0.5, 0, false), "") << "a moment";
    EXPECT_EQ(one.hear(1, 0.1F), "");
    for (int times = 0; times < 2; ++times) {
        EXPECT_EQ(one.hear(5, 0, false),
                  "the microphone is away; nothing is ducked until it is back");
        EXPECT_EQ(one.hear(1, 0.1F), "the microphone is back");
    }
}

TEST(VoiceWatch, TheTimeInWhichItWasAwayIsNoSilence) {
    Watched one;
    EXPECT_EQ(one.hear(1, 0.1F), "");
    EXPECT_EQ(one.hear(6, 0), "");
    EXPECT_NE(one.hear(6, 0, false), "");
    EXPECT_EQ(one.hear(6, 0), "the microphone is back");
}

TEST(VoiceWatch, ThatThereIsNoneIsNotSaidAgainButThatItHasCome) {
    Watched one(true, false);
    EXPECT_EQ(one.hear(60, 0, false), "");
    EXPECT_EQ(one.hear(1, 0.1F), "the microphone is there");
    EXPECT_EQ(one.hear(5, 0, false), "the microphone is away; nothing is ducked until it is back");
}

TEST(VoiceWatch, ThatItHasComeIsSaidAlsoWhereNothingWasToBeHeardBefore) {
    Watched one(true, false);
    EXPECT_EQ(one.hear(1, 0.1F), "the microphone is there");
    EXPECT_EQ(one.hear(1, 0.1F), "");
}

TEST(VoiceWatch, OneThatGoesBeforeAnythingOfItCameIsSaid) {
    Watched one;
    EXPECT_EQ(one.hear(5, 0, false), "the microphone is away; nothing is ducked until it is back");
    EXPECT_EQ(one.hear(1, 0.1F), "the microphone is back");
}

TEST(VoiceWatch, WhereNothingIsDuckedNothingIsSaidOfIt) {
    Watched one(false);
    EXPECT_EQ(one.hear(11, 0),
              "the microphone has heard nothing at all so far; is it muted or switched off?");
    EXPECT_EQ(one.hear(1, 0.1F), "the microphone is heard");
    EXPECT_EQ(one.hear(2, 0, false),
              "the microphone is away; silence is recorded until it is back");
}

}  // namespace
