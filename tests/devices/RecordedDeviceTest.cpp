// A program on the user's device under the recorder: it is heard as before, and is one track.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "DeviceRun.h"
#include "bridges/programs/RecordedRun.h"
#include "support/sound/Comparison.h"

namespace {

using namespace tqtest;
using programruns::ProgramRun;

/// Samples at the monitor are the device's.
struct FloatPulseServer : PulseServer {
    FloatPulseServer() : PulseServer(devicePlayerFormat()) {}
};

class RecordedDevice : public programruns::RecordedRun {
  protected:
    ProgramRun record(const std::vector<std::string>& options) {
        const ProgramSetup player =
            devicePlayer({}, "cubeb", {"duration:0.08", "start", "end", "stop", "sleep:0.3"});
        std::vector<std::string> command{"env", "TQ_AUDIO_DEVICE=cubeb"};
        command.insert(command.end(), player.arguments.begin(), player.arguments.end());
        return runRecorded(output_, command, options);
    }

    programruns::ServerOutput<FloatPulseServer> output_;
};

TEST_F(RecordedDevice, IsHeardAsItWasRenderedAndIsOneTrack) {
    const ProgramRun run = record({});
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    EXPECT_EQ(differences(devicePlayerNoise(), run.heard), std::vector<std::string>{});
    ASSERT_EQ(run.tracks.size(), 1U) << "the device's own stream is none: " << run.end.text();
    EXPECT_EQ(differences(devicePlayerNoise(), run.tracks.begin()->second.trimmed()),
              std::vector<std::string>{});
}

TEST_F(RecordedDevice, IsHeardDucked) {
    const ProgramRun run = record({"--duck=-20", "--attack", "0.001"});
    ASSERT_EQ(run.heard.frames(), devicePlayerNoise().frames()) << run.end.text();
    for (std::size_t frame = 48000; frame < 90000; frame += 1000) {
        EXPECT_NEAR(run.heard.value(frame, 0), devicePlayerNoise().value(frame, 0) / 10, 0.02)
            << frame;
    }
}

TEST_F(RecordedDevice, OnPipeWiresOwnLibraryForJackItIsOneTrackToo) {
    const PipeWireJackServer server;
    const TemporaryFolder folder;
    ProgramSetup setup = devicePlayer(server.environment(), "cubeb:jack",
                                      {"start2", "sleep:1.5", "say", "stop2", "sleep:0.3"});
    const std::vector<std::string> recorder{
        "pw-jack",  TQ_TEST_RECORDER,      "-o", folder.file("mix.wav"),
        "--tracks", folder.file("tracks"), "--"};
    setup.arguments.insert(setup.arguments.begin(), recorder.begin(), recorder.end());
    setup.environment["XDG_CACHE_HOME"] = folder.file("caches");
    const ProgramEnd end = runProgram(kept(setup, folder.path()));
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_EQ(end.errors.find("using null"), std::string::npos) << end.errors;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.file("tracks")), {}), 1)
        << end.text();
    EXPECT_EQ(end.text().find("jack-1"), std::string::npos) << end.text();
}

TEST_F(RecordedDevice, PlayedInPiecesItsMixIsAsLongAsItsTrack) {
    constexpr int kPieces = 12;
    const PulseServer server(devicePlayerFormat());
    const TemporaryFolder folder;
    std::vector<std::string> steps{"duration:0.04"};
    for (int piece = 0; piece < kPieces; ++piece) {
        // The device is closed in each pause, while the recorder's own unit plays on a clock.
        steps.insert(steps.end(), {"start3", "sleep:0.3", "stop3", "sleep:0.4"});
    }
    ProgramSetup setup = devicePlayer(server.environment(), "cubeb", steps);
    const std::vector<std::string> recorder{
        TQ_TEST_RECORDER, "-o", folder.file("mix.wav"), "--tracks", folder.file("tracks"), "--"};
    setup.arguments.insert(setup.arguments.begin(), recorder.begin(), recorder.end());
    setup.environment["XDG_CACHE_HOME"] = folder.file("caches");
    const ProgramEnd end = runProgram(kept(setup, folder.path()));
    ASSERT_EQ(end.code, 0) << end.text();
    const auto secondsOf = [](const Sound& sound) {
        return static_cast<double>(sound.trimmed().frames()) / sound.format.rate;
    };
    const std::filesystem::directory_iterator tracks(folder.file("tracks"));
    ASSERT_NE(tracks, std::filesystem::directory_iterator()) << end.text();
    const double track = secondsOf(readWav(tracks->path()));
    EXPECT_GE(track, 0.7 * (kPieces - 1));
    // What is in hand is 0.08 s: each piece was longer by that in the mix once.
    EXPECT_NEAR(secondsOf(readWav(folder.file("mix.wav"))), track, 0.3) << end.text();
}

TEST_F(RecordedDevice, ARecordingGoesOnBehindTheDeathOfTheServer) {
    PulseServer server(devicePlayerFormat());
    const TemporaryFolder folder;
    const std::string back = folder.file("back");
    ProgramSetup setup =
        devicePlayer(server.environment(), "cubeb",
                     {"duration:0.08", "start", "sleep:0.6", "say", "await:" + back, "start2",
                      "sleep:1", "stop2", "stop", "sleep:0.3"});
    const std::vector<std::string> recorder{
        TQ_TEST_RECORDER, "-o", folder.file("mix.wav"), "--tracks", folder.file("tracks"), "--"};
    setup.arguments.insert(setup.arguments.begin(), recorder.begin(), recorder.end());
    setup.environment["XDG_CACHE_HOME"] = folder.file("caches");
    Kept program(setup, folder.path());
    const auto says = [&](const char* line) {
        return eventually([&] { return program.text().find(line) != std::string::npos; });
    };
    ASSERT_TRUE(says("descriptors=")) << program.text();
    server.kill();
    ASSERT_TRUE(says("interruption=1")) << program.text();
    server.start();
    ASSERT_TRUE(says("interruption=0")) << program.text();
    std::ofstream(back) << "back";
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.output.find("done=1"), std::string::npos);
    EXPECT_NE(end.text().find("capture has started (2 times)"), std::string::npos) << end.text();
    // Before the death every frame is there, and the tone behind it is, too.
    std::size_t tones = 0;
    std::size_t noises = 0;
    for (const auto& track : std::filesystem::directory_iterator(folder.file("tracks"))) {
        const Sound sound = readWav(track.path()).trimmed();
        const Sound begin = sound.part(0, std::min<std::size_t>(sound.frames(), 20000));
        noises += differences(devicePlayerNoise().part(0, 20000), begin).empty() ? 1 : 0;
        tones += std::abs(frequencyOf(sound.part(0, 4800)) - 440) < 2 ? 1 : 0;
    }
    EXPECT_EQ(noises, 1U) << end.text();
    EXPECT_EQ(tones, 1U) << end.text();
}

}  // namespace
