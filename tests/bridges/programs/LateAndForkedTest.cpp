#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "bridges/programs/RecordedRun.h"
#include "support/ProgramRunner.h"
#include "support/sound/Comparison.h"

// Programs whose sound begins where nobody listens yet: in a child, or long after they have
// started. And what is said of those that cannot be followed.

namespace programruns {
namespace {

using tqtest::AlsaFilePcm;
using tqtest::Program;
using tqtest::ProgramSetup;
using tqtest::PulseServer;
using tqtest::Sound;

const std::vector<std::string> kNothing;

struct LateAndForked : RecordedRun {
    LateAndForked() { std::ofstream(file, std::ios::binary) << noise.bytes; }

    void expectWhole(const std::vector<std::string>& command) {
        const ProgramRun run = runRecorded(output, command);
        EXPECT_EQ(run.end.code, 0) << run.end.text();
        EXPECT_EQ(tqtest::differences(noise, run.heard), kNothing);
        expectTrackHolds(run, noise);
    }

    [[nodiscard]] ProgramSetup setup(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), TQ_TEST_RECORDER);
        tqtest::Environment environment = output.environment();
        environment["XDG_CACHE_HOME"] = output.folder().file("caches");
        environment["XDG_RUNTIME_DIR"] = output.folder().path();
        environment["TQ_AUDIO_DEVICE"] = "null";
        return {.arguments = std::move(arguments), .environment = environment};
    }
    [[nodiscard]] ProgramSetup recorder(std::vector<std::string> options,
                                        const std::string& kind) const {
        options.insert(options.end(), {"--", TQ_TEST_ALSA_FORKS, kind, file, go});
        return setup(std::move(options));
    }
    [[nodiscard]] int ctl(std::vector<std::string> words) const {
        words.insert(words.begin(), "ctl");
        return tqtest::runProgram(setup(std::move(words))).code;
    }

    FileOutput<AlsaFilePcm> output;
    const std::string go = output.folder().file("go");
    const Sound noise = tqtest::markedNoise({}, 30000);
    const std::string file = output.folder().file("noise.raw");
};

TEST_F(LateAndForked, TheFirstSoundOfAChildIsOnTheTrack) {
    expectWhole({TQ_TEST_ALSA_FORKS, "own", file});
}

TEST_F(LateAndForked, SoIsThatOfAChildOnADeviceThatItsParentOpened) {
    expectWhole({TQ_TEST_ALSA_FORKS, "inherited", file});
}

TEST_F(LateAndForked, BeforeItsFirstSoundAProcessHasNoThreadOfOurs) {
    // What browsers fork their other processes from ends itself where it is not alone.
    expectWhole({TQ_TEST_ALSA_FORKS, "alone", file});
}

TEST_F(LateAndForked, AChildIsDuckedFromItsFirstFrameOnAsTheUserAskedMeanwhile) {
    const Program program(recorder({"-q", "-o", output.folder().file("mix.wav")}, "awaited"));
    ASSERT_TRUE(tqtest::eventually([&] { return std::filesystem::exists(go + ".awaited"); }));
    ASSERT_EQ(ctl({"duck", "-20"}), 0);
    std::ofstream{go};
    ASSERT_TRUE(tqtest::eventually([&] { return std::filesystem::exists(go + ".took"); }));
    const Sound heard = output.heard();
    ASSERT_EQ(heard.frames(), noise.frames());
    for (std::size_t frame = 0; frame < noise.frames(); ++frame) {
        ASSERT_NEAR(heard.value(frame, 0), 0.1 * noise.value(frame, 0), 0.002) << frame;
    }
}

TEST_F(LateAndForked, ChildrenOfAProgramThatIsNotRecordedAnyMoreWaitForNobody) {
    for (const std::string kind : {"later", "awaited"}) {
        tqtest::runProgram(recorder(
            {"-q", "-d", "0.3", "--host-goes-on", "-o", output.folder().file("mix.wav")}, kind));
        std::ofstream{go};
        ASSERT_TRUE(tqtest::eventually([&] { return std::filesystem::exists(go + ".took"); }));
        double milliseconds = 0;
        std::ifstream(go + ".took") >> milliseconds;
        EXPECT_LT(milliseconds, 900) << kind << ": it takes a few, or a second more";
        std::filesystem::remove(go);
        std::filesystem::remove(go + ".took");
    }
}

TEST_F(LateAndForked, AChildThatPlaysAgainWhenTheRecorderHasGonePlaysOn) {
    tqtest::runProgram(recorder(
        {"-q", "-d", "1", "--host-goes-on", "-o", output.folder().file("mix.wav")}, "again"));
    std::ofstream{go};
    ASSERT_TRUE(tqtest::eventually([&] { return std::filesystem::exists(go + ".took"); }));
    double milliseconds = 0;
    int code = 1;
    std::ifstream(go + ".took") >> milliseconds >> code;
    EXPECT_EQ(code, 0);
}

TEST_F(LateAndForked, AStreamThatIsLeftOutIsDuckedAsLongAsTheUserWants) {
    const Program program(
        recorder({"-q", "--not", "*", "-o", output.folder().file("mix.wav")}, "again"));
    ASSERT_TRUE(tqtest::eventually([&] { return std::filesystem::exists(go + ".awaited"); }));
    ASSERT_EQ(ctl({"duck", "-20"}), 0);
    std::ofstream{go};
    ASSERT_TRUE(tqtest::eventually([&] { return std::filesystem::exists(go + ".took"); }));
    const Sound heard = output.heard();
    ASSERT_EQ(heard.frames(), 2 * noise.frames());
    for (std::size_t frame = 0; frame < noise.frames(); ++frame) {
        ASSERT_NEAR(heard.value(noise.frames() + frame, 0), 0.1 * noise.value(frame, 0), 0.002)
            << frame;
    }
}

TEST_F(LateAndForked, AProgramThatLoadsItsLibraryAndEndsAtOnceIsRecorded) {
    expectWhole({TQ_TEST_SOUND_LATER, "beside", TQ_TEST_ALSA_PLUGIN, file});
}

TEST_F(LateAndForked, AnInterpreterBelowAScriptIsRecordedFromItsFirstFrameOn) {
    const std::string script = output.folder().file("game.py");
    std::ofstream(script) << "import ctypes, sys\n"
                             "words = (ctypes.c_char_p * 3)(*[word.encode() for word in "
                             "['game', 'writei', sys.argv[2]]])\n"
                             "sys.exit(ctypes.CDLL(sys.argv[1]).playAlsa(3, words))\n";
    for (const std::string line : {"/usr/bin/python3 \"$@\" & wait $!",
                                   "/usr/bin/python3 -c 'import subprocess, sys; sys.exit("
                                   "subprocess.run([sys.executable] + sys.argv[1:]).returncode)' "
                                   "\"$@\"; exit $?"}) {
        expectWhole({"sh", "-c", line, "sh", script, TQ_TEST_ALSA_PLUGIN, file});
    }
}

TEST_F(LateAndForked, OfALibraryThatIsLoadedApartThatIsSaid) {
    const ProgramRun run =
        runRecorded(output, {TQ_TEST_SOUND_LATER, "apart", TQ_TEST_ALSA_PLUGIN, file});
    EXPECT_EQ(run.heard.frames(), noise.frames()) << run.end.text();
    EXPECT_NE(run.end.text().find("libraries apart from its own (dlmopen)"), std::string::npos)
        << run.end.text();
}

TEST_F(LateAndForked, OfADeviceThatIsNotThereThatIsSaid) {
    const std::string wav = output.folder().file("noise.wav");
    writeWav(noise, wav);
    const ProgramRun run = runRecorded(output, {"aplay", "-q", "-D", "nowhere", wav});
    EXPECT_NE(run.end.text().find("alsa nowhere (No such file or directory): the program could "
                                  "not open it"),
              std::string::npos)
        << run.end.text();
}

TEST_F(LateAndForked, OfAServerThatIsNotThereThatIsSaid) {
    const std::string wav = output.folder().file("noise.wav");
    writeWav(noise, wav);
    const ProgramRun run =
        runRecorded(output, {"paplay", "--server=unix:" + output.folder().file("nobody"), wav});
    EXPECT_NE(run.end.text().find("(Connection refused): the program could not open it"),
              std::string::npos)
        << run.end.text();
}

TEST_F(LateAndForked, AChildThatPlaysOnWhenCommandHasEndedIsRecordedToItsEnd) {
    ServerOutput<PulseServer> paced;
    const Sound sound = tqtest::markedNoise({}, std::size_t{3} * 48000);
    const std::string wav = paced.folder().file("noise.wav");
    writeWav(sound, wav);
    const ProgramRun run = runRecorded(paced, {"sh", "-c", "paplay " + wav + " & exit 4"});
    EXPECT_EQ(run.end.code, 4) << run.end.text();
    expectTrackHolds(run, sound);
}

TEST_F(LateAndForked, ASoundServerThatAProgramLeavesIsNotWaitedFor) {
    const std::string server = output.folder().file("server");
    const std::string wav = output.folder().file("noise.wav");
    writeWav(noise, wav);
    // It plays as well, to the sink that it makes.
    const ProgramRun run = runRecorded(
        output, {"sh", "-c",
                 "pulseaudio -n --exit-idle-time=-1 --daemonize=no -L module-null-sink "
                 "-L \"module-native-protocol-unix socket=$0.socket\" > /dev/null 2>&1 & "
                 "while [ ! -S \"$0.socket\" ]; do sleep 0.1; done; "
                 "exec aplay -q -D cap \"$1\"",
                 server, wav});
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    EXPECT_EQ(run.end.text().find("COMMAND has ended"), std::string::npos) << run.end.text();
    expectOnTracks(run, noise);
}

TEST_F(LateAndForked, OfAChildThatPlaysOnWhenCommandHasEndedThatIsSaid) {
    ServerOutput<PulseServer> paced;
    const std::string wav = paced.folder().file("noise.wav");
    writeWav(tqtest::markedNoise({}, std::size_t{4} * 48000), wav);
    const ProgramRun run = runRecorded(paced, {"sh", "-c", "paplay " + wav + " & sleep 1.5"},
                                       {"--end-with", "command"});
    EXPECT_NE(run.end.text().find(") ran on when COMMAND had ended"), std::string::npos)
        << run.end.text();
}

}  // namespace
}  // namespace programruns
