// The example listener in C, preloaded into the example host.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <string>
#include <vector>

#include "game_host/GameSounds.h"
#include "support/ProgramRunner.h"
#include "support/TemporaryFolder.h"

namespace {

using testing::HasSubstr;
using tqtest::ProgramEnd;

struct ListenerInC : testing::Test {
    TemporaryFolder folder;

    void SetUp() override { ASSERT_TRUE(tqtest::makeGameSounds(folder)); }
    [[nodiscard]] ProgramEnd play() const {
        return tqtest::runProgram(
            {.arguments = {TQ_GAME_HOST, "--seconds", "2", "--quiet", "--sounds", folder.file("")},
             .environment = {{"TQ_AUDIO_DEVICE", "null"},
                             {"XDG_CACHE_HOME", folder.file("caches")},
                             {"LISTENER_WAV", folder.file("mix.wav")},
                             {"LD_PRELOAD", TQ_LISTENER_C}}});
    }
};

TEST_F(ListenerInC, AsksForTheHooksAndRecordsTheNextLaunch) {
    const ProgramEnd first = play();
    ASSERT_EQ(first.code, 0) << first.errors;
    EXPECT_THAT(first.errors, HasSubstr("nothing is recorded: nobody has ever asked"));
    EXPECT_THAT(first.errors, HasSubstr("the next launch will be"));
    EXPECT_FALSE(std::filesystem::exists(folder.file("mix.wav")));

    const ProgramEnd second = play();
    ASSERT_EQ(second.code, 0) << second.errors;
    EXPECT_THAT(second.errors, HasSubstr(" frames of mix"));
    EXPECT_THAT(second.errors, HasSubstr(" frames of track 1, unit-"));
    EXPECT_THAT(second.errors, HasSubstr(", graph-"));

    SF_INFO info{};
    SNDFILE* const file = sf_open(folder.file("mix.wav").c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    EXPECT_EQ(info.samplerate, 44100);
    EXPECT_EQ(info.channels, 2);
    std::vector<short> samples(static_cast<std::size_t>(info.frames) * 2);
    EXPECT_EQ(sf_readf_short(file, samples.data(), info.frames), info.frames);
    sf_close(file);
    // A busy machine loses some of the two seconds.
    EXPECT_GT(info.frames, 44100 / 2);
    EXPECT_GT(*std::max_element(samples.begin(), samples.end()), 1000);
}

}  // namespace
