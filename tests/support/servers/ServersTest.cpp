#include <gtest/gtest.h>

#include "support/servers/FileOutputs.h"
#include "support/servers/JackServer.h"
#include "support/servers/PipeWireServer.h"
#include "support/sound/Comparison.h"

namespace tqtest {
namespace {

const std::vector<std::string> kNothing;

/// Runs a player to its end, on that output.
template <typename Output>
void play(const Output& output, const std::vector<std::string>& command) {
    const ProgramEnd end =
        Kept({.arguments = command, .environment = output.environment()}, output.folder().path())
            .wait();
    EXPECT_EQ(end.code, 0) << end.text();
}

// aplay fills its last period up with silence.
TEST(AlsaFilePcm, HoldsWhatAplayWrites) {
    const Sound noise = markedNoise({.encoding = Encoding::S24}, 20000);
    AlsaFilePcm pcm;
    writeWav(noise, pcm.folder().file("noise.wav"));
    play(pcm, {"aplay", "-q", "-D", "cap", pcm.folder().file("noise.wav")});
    const Sound written{noise.format, pcm.takeWritten()};
    EXPECT_EQ(differences(noise, written.trimmed()), kNothing);
    EXPECT_EQ(pcm.takeWritten().size(), 0U);
}

TEST(AlsaFilePcm, HoldsBothOpeningsOneBehindTheOther) {
    const Sound noise = markedNoise({}, 1000);
    AlsaFilePcm pcm;
    const std::string file = pcm.folder().file("noise.wav");
    writeWav(noise, file);
    play(pcm, {"aplay", "-q", "-M", "-D", "cap", file});
    play(pcm, {"aplay", "-q", "-D", "cap", file});
    const Sound written{noise.format, pcm.takeWritten()};
    const std::size_t half = written.frames() / 2;
    EXPECT_EQ(differences(noise, written.part(0, half).trimmed()), kNothing);
    EXPECT_EQ(differences(noise, written.part(half, half).trimmed()), kNothing);
}

TEST(AlsaFilePcm, OverAServerItIsHeardThereAsWell) {
    const PulseServer server;
    const Sound noise = markedNoise({}, 24000);
    AlsaFilePcm pcm(server);
    writeWav(noise, pcm.folder().file("noise.wav"));
    const auto recording = server.record();
    const auto start = std::chrono::steady_clock::now();
    play(pcm, {"aplay", "-q", pcm.folder().file("noise.wav")});
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took.count(), 0.4) << "half a second of sound at the speed of the clock";
    const Sound written{noise.format, pcm.takeWritten()};
    EXPECT_EQ(differences(noise, written.trimmed()), kNothing);
    EXPECT_EQ(differences(noise, recording->finish().trimmed()), kNothing);
}

TEST(SdlDisk, HoldsWhatFfplayPlays) {
    const Sound noise = markedNoise({}, 24000);
    SdlDisk disk;
    writeWav(noise, disk.folder().file("noise.wav"));
    play(disk,
         {"ffplay", "-nodisp", "-autoexit", "-loglevel", "error", disk.folder().file("noise.wav")});
    const Sound written{noise.format, disk.takeWritten()};
    EXPECT_EQ(differences(noise, written.trimmed()), kNothing);
}

TEST(PipeWireServer, TheMonitorGivesWhatPaplayPlays) {
    const PipeWireServer server;
    const Sound noise = markedNoise({}, 24000);
    writeWav(noise, server.folder().file("noise.wav"));
    const auto recording = server.record();
    play(server, {"paplay", server.folder().file("noise.wav")});
    EXPECT_EQ(differences(noise, recording->finish().trimmed()), kNothing);
}

// pw-play of this version leaves before its last blocks are played.
TEST(PipeWireServer, TheMonitorGivesTheFirstHalfSecondOfWhatPwPlayPlays) {
    const PipeWireServer server;
    const Sound noise = markedNoise({}, 48000);
    writeWav(noise, server.folder().file("noise.wav"));
    const auto recording = server.record();
    play(server, {"pw-play", server.folder().file("noise.wav")});
    EXPECT_EQ(differences(noise.part(0, 24000), recording->finish().trimmed().part(0, 24000)),
              kNothing);
}

TEST(JackServer, ItsRecordingHoldsTheToneOfAClient) {
    const JackServer server;
    const auto recording = server.record();
    Kept client({.arguments = {"jack_simple_client"}, .environment = server.environment()},
                server.folder().path());
    ASSERT_TRUE(eventually([&] { return recording->soFar().trimmed().frames() > 24000; }));
    client.stop();
    const Sound heard = recording->finish().trimmed();
    EXPECT_GT(heard.frames(), 24000U);
    // Its period is 200 frames.
    EXPECT_NEAR(frequencyOf(heard), 240, 1);
}

}  // namespace
}  // namespace tqtest
