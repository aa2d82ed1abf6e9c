#include "support/servers/PulseServer.h"

#include <gtest/gtest.h>

#include "support/sound/Comparison.h"

namespace tqtest {
namespace {

class PulseServerTest : public testing::TestWithParam<SoundFormat> {};

TEST_P(PulseServerTest, TheMonitorGivesWhatPaplayPlays) {
    const PulseServer server(GetParam());
    const Sound noise = markedNoise(GetParam(), 24000);
    writeWav(noise, server.folder().file("noise.wav"));
    const auto recording = server.record();
    Kept player({.arguments = {"paplay", server.folder().file("noise.wav")},
                 .environment = server.environment()},
                server.folder().path());
    const ProgramEnd end = player.wait();
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_EQ(differences(noise, recording->finish().trimmed()), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Formats, PulseServerTest,
                         testing::Values(SoundFormat{},
                                         SoundFormat{.rate = 44100, .encoding = Encoding::F32}));

TEST(PulseServer, AToneKeepsItsFrequency) {
    const PulseServer server;
    writeWav(tone({.rate = 44100}, 22050, 1000), server.folder().file("tone.wav"));
    const auto recording = server.record();
    Kept player({.arguments = {"paplay", server.folder().file("tone.wav")},
                 .environment = server.environment()},
                server.folder().path());
    EXPECT_EQ(player.wait().code, 0);
    const Sound heard = recording->finish().trimmed();
    EXPECT_NEAR(frequencyOf(heard), 1000, 1);
    EXPECT_NEAR(static_cast<double>(heard.frames()), 24000, 48) << "converted to the sink's rate";
}

TEST(PulseServer, NothingIsLeftOfIt) {
    std::string folder;
    std::string socket;
    {
        const PulseServer server;
        folder = server.folder().path();
        socket = server.socket();
        EXPECT_TRUE(std::filesystem::exists(socket));
    }
    EXPECT_FALSE(std::filesystem::exists(folder));
}

}  // namespace
}  // namespace tqtest
