#include <gtest/gtest.h>

#include "HostRuns.h"

// Sounds as short as a few blocks of the device: every frame is played and recorded.

namespace {

using hostruns::With;

/// What was played, without the pauses, as 16-bit samples.
std::vector<std::int16_t> soundOf(const std::vector<float>& played) {
    std::vector<std::int16_t> sound;
    for (const float sample : played) {
        if (sample != 0) {
            sound.push_back(static_cast<std::int16_t>(sample * 32767.0F));
        }
    }
    return sound;
}

TEST(ShortSoundsOfAHost, ArePlayedAsEver) {
    hostruns::expectTheHostPlaysOn("short_sounds");
    hostruns::expectTheHostPlaysOn("short_sounds_one_unit");
}

TEST(ShortSoundsOfAHost, AreRecordedToTheirLastFrame) {
    const auto run = hostruns::run("short_sounds", With::Recording);
    ASSERT_EQ(run.recorded.count(1), 1U) << run.events;
    EXPECT_GT(run.played.size(), 100'000U);
    EXPECT_TRUE(run.recorded.at(1) == soundOf(run.played));
}

TEST(ShortSoundsOfAHost, AreRecordedBesideAUnitThatPlaysOn) {
    const auto run = hostruns::run("short_sounds_one_unit", With::Recording);
    ASSERT_EQ(run.recorded.count(2), 1U) << run.events;
    EXPECT_EQ(run.recorded.at(2).size(), 50U * 2 * 480);
}

}  // namespace
