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

TEST(VoiceWatch, OneThatIsMutedIsSaidOnce) {
    Watched one;
    EXPECT_EQ(one.hear(9, 0), "");
    EXPECT_EQ(one.hear(2, 0),
              "the microphone has heard nothing at all so far, so that nothing is ducked; is it "
              "muted or switched off?");
    EXPECT_EQ(one.hear(60, 0), "");
}

TEST(VoiceWatch, OneThatWasHeardMayBeSilent) {
    Watched one;
    EXPECT_EQ(one.hear(1, 0.1F), "");
    EXPECT_EQ(one.hear(60, 0), "");
}

TEST(VoiceWatch, OneThatGoesIsSaidOnce) {
    Watched one;
    EXPECT_EQ(one.hear(1, 0.1F), "");
    EXPECT_EQ(one.hear(0.5, 0, false), "") << "a moment";
    EXPECT_EQ(one.hear(1, 0.1F), "");
    EXPECT_EQ(one.hear(2, 0, false), "the microphone is away; nothing is ducked until it is back");
    EXPECT_EQ(one.hear(1, 0.1F), "");
    EXPECT_EQ(one.hear(5, 0, false), "") << "once";
}

TEST(VoiceWatch, ThatThereIsNoneIsNotSaidAgain) {
    Watched one;
    EXPECT_EQ(one.hear(60, 0, false), "");
}

}  // namespace
