#include <gtest/gtest.h>

#include <fstream>

#include "bridges/programs/ProgramRun.h"
#include "support/servers/JackServer.h"
#include "support/sound/Comparison.h"

// Programs that play through JACK: what their ports play is heard as bare.

namespace programruns {
namespace {

using tqtest::Sound;

const std::vector<std::string> kNothing;
constexpr tqtest::SoundFormat kStereo{
    .rate = 48000, .channels = 2, .encoding = tqtest::Encoding::F32};

class JackClientsTest : public testing::Test {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    }
    /// The player's command for that sound.
    std::vector<std::string> player(const Sound& sound, std::vector<std::string> options = {}) {
        const std::string file = output_.folder().file("sound.raw");
        std::ofstream(file, std::ios::binary) << sound.bytes;
        std::vector<std::string> command{TQ_TEST_JACK_PLAYER, file,
                                         std::to_string(sound.format.channels)};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }
    /// Plays noise with those options; it has to be heard.
    void expectWhole(const std::vector<std::string>& options) {
        const Sound noise = tqtest::markedNoise(kStereo, 48000);
        const ProgramRun run = runRecorded(output_, player(noise, options));
        EXPECT_EQ(run.end.code, 0) << run.end.text();
        EXPECT_EQ(tqtest::differences(noise, run.heard), kNothing);
    }

    ServerOutput<tqtest::JackServer> output_;
};

TEST_F(JackClientsTest, WhatAProcessCallbackPlaysIsHeardAsBare) {
    expectWhole({});
}

TEST_F(JackClientsTest, WhatAProcessThreadPlaysIsHeardAsBare) {
    expectWhole({"thread"});
}

TEST_F(JackClientsTest, PortsThatComeAfterTheActivationAreHeardAsBare) {
    expectWhole({"late"});
}

}  // namespace
}  // namespace programruns
