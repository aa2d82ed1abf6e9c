// The user's microphone beside a program that is recorded. It hears what the program plays: it is
// the monitor of the same sink.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "DeviceRun.h"
#include "bridges/programs/RecordedRun.h"
#include "support/servers/PulseServer.h"
#include "support/sound/Comparison.h"
#include "tools/tqaudiorecord/output/DecodedFile.h"

namespace {

using namespace tqtest;

constexpr double kMixRate = 44100;
constexpr double kAudible = 0.02;

/// Seconds before the first frame that is heard.
double onsetOf(const Sound& sound) {
    std::size_t frame = 0;
    while (frame < sound.frames() && std::abs(sound.value(frame, 0)) < kAudible) {
        ++frame;
    }
    return static_cast<double>(frame) / sound.format.rate;
}

double loudestOf(const Sound& sound) {
    double loudest = 0;
    for (std::size_t frame = 0; frame < sound.frames(); ++frame) {
        loudest = std::max(loudest, std::abs(sound.value(frame, 0)));
    }
    return loudest;
}

class RecordedMicrophone : public programruns::RecordedRun {
  protected:
    /// The recorder with those options on the player with those steps; files begin together.
    [[nodiscard]] ProgramSetup setup(const std::vector<std::string>& options,
                                     const std::vector<std::string>& steps) const {
        ProgramSetup setup = devicePlayer(server_.environment(), "cubeb", steps);
        std::vector<std::string> recorder{TQ_TEST_RECORDER, "-o", file("mix.wav")};
        recorder.insert(recorder.end(), options.begin(), options.end());
        recorder.emplace_back("--");
        setup.arguments.insert(setup.arguments.begin(), recorder.begin(), recorder.end());
        setup.environment["XDG_CACHE_HOME"] = file("caches");
        return setup;
    }
    [[nodiscard]] ProgramEnd record(const std::vector<std::string>& options,
                                    const std::vector<std::string>& steps) const {
        return runProgram(kept(setup(options, steps), folder_.path()));
    }
    [[nodiscard]] std::string file(const std::string& name) const { return folder_.file(name); }
    std::string pactl(std::vector<std::string> words) const {
        words.insert(words.begin(), "pactl");
        return runProgram({.arguments = words, .environment = server_.environment()}).output;
    }

    /// Plays the voice on a sink of its own.
    [[nodiscard]] ProgramSetup speech() const {
        return {.arguments = {"paplay", "--latency-msec=50", "-d", "voice", file("voice.wav")},
                .environment = server_.environment()};
    }
    /// A sink that had nobody's latency to keep speaks up to two seconds later.
    void awaitVoice() const {
        runProgram({.arguments = {"sh", "-c",
                                  "parec -d voice.monitor --raw --latency-msec=20 | tr -d '\\0' | "
                                  "head -c 100000 > /dev/null"},
                    .environment = server_.environment()});
    }

    /// The first whose name has that in it.
    [[nodiscard]] Sound track(const std::string& name) const {
        for (const auto& one : std::filesystem::directory_iterator(file("tracks"))) {
            if (one.path().filename().string().find(name) != std::string::npos) {
                return readWav(one.path());
            }
        }
        return {};
    }

    PulseServer server_{devicePlayerFormat()};
    const TemporaryFolder folder_;
    const std::vector<std::string> noise_{"start", "sleep:0.2", "end", "stop", "sleep:0.5"};
};

TEST_F(RecordedMicrophone, LiesBesideTheProgramsOwnTrackAndNotInTheMix) {
    // A machine with more to do than it can lets the server leave holes: not every time.
    double away = 1;
    ProgramEnd end;
    for (int attempt = 0; attempt < 6 && !(away < 0.02); ++attempt) {
        std::filesystem::remove_all(file("tracks"));
        end =
            record({"--mic=cap.monitor", "--tracks", file("tracks"), "--from-start", "--overwrite"},
                   {"start2", "sleep:1", "stop2", "sleep:1"});
        ASSERT_EQ(end.code, 0) << end.text();
        away = std::abs(onsetOf(track("microphone")) - onsetOf(track("unit-")));
    }
    EXPECT_LT(away, 0.02) << end.text();
    const Sound voice = track("microphone");
    EXPECT_EQ(voice.format.rate, 44100);
    EXPECT_GT(loudestOf(voice), 0.4);
    // Twice the same sound would be twice as loud.
    EXPECT_LT(loudestOf(readWav(file("mix.wav"))), 0.7);
    EXPECT_EQ(end.text().find("Microphone"), std::string::npos) << end.text();
}

TEST_F(RecordedMicrophone, WithoutAFolderOfTracksItHasAFileBesideTheMix) {
    const ProgramEnd end = record({"--mic=cap.monitor"}, noise_);
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NEAR(onsetOf(readWav(file("mix-microphone.wav"))), onsetOf(readWav(file("mix.wav"))),
                0.5);
    EXPECT_GT(loudestOf(readWav(file("mix-microphone.wav"))), 0.3);
}

TEST_F(RecordedMicrophone, InAMatroskaFileItIsAStreamOfItsOwn) {
    ProgramSetup setup = this->setup({"--mic=cap.monitor"}, noise_);
    std::replace(setup.arguments.begin(), setup.arguments.end(), file("mix.wav"), file("mix.mka"));
    const ProgramEnd end = runProgram(kept(setup, folder_.path()));
    EXPECT_EQ(end.code, 0) << end.text();
    const tqrecorder::test::DecodedFile recorded(file("mix.mka"));
    EXPECT_TRUE(recorded.complaints.empty()) << recorded.complaints[0];
    const auto& voice = recorded.stream("microphone");
    ASSERT_FALSE(voice.samples.empty()) << end.text();
    EXPECT_EQ(voice.rate, 44100);
    EXPECT_GT(std::abs(*std::max_element(voice.samples.begin(), voice.samples.end())), 0.3);
    EXPECT_NEAR(voice.start, 0, 0.1);
    EXPECT_FALSE(std::filesystem::exists(file("mix-microphone.wav")));
}

TEST_F(RecordedMicrophone, IsInTheMixWhenAskedFor) {
    pactl({"load-module", "module-null-sink", "sink_name=voice", "rate=48000", "format=float32le"});
    writeWav(tone({48000, 2, Encoding::S16}, 480000, 1000), file("voice.wav"));
    const Kept voice(speech(), folder_.path());
    awaitVoice();
    const ProgramEnd end = record({"--mic=voice.monitor", "--mic-in-mix"},
                                  {"start2", "sleep:2.5", "stop2", "sleep:0.5"});
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_GT(loudestOf(readWav(file("mix.wav"))), 0.9) << "half and half: " << end.text();
    EXPECT_FALSE(std::filesystem::exists(file("mix-microphone.wav")));
}

TEST_F(RecordedMicrophone, OneThatIsNotThereIsSaidAtOnceAndInTheSummary) {
    const ProgramEnd end = record({"--mic=none"}, noise_);
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(
        end.errors.find("tqaudiorecord: there is no microphone called none; tqplatform-devices"),
        std::string::npos)
        << end.text();
    EXPECT_NE(end.text().find("Microphone none: there was none"), std::string::npos);
    EXPECT_EQ(end.errors.find("using null"), std::string::npos) << end.errors;
}

TEST_F(RecordedMicrophone, AMachineWithoutOneDoesNotRecordItsOwnSpeakers) {
    const ProgramEnd end =
        record({"--mic", "--tracks", file("tracks"), "--duck=-20", "--duck-on", "microphone"},
               {"start2", "sleep:1", "stop2"});
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.errors.find("tqaudiorecord: there is no microphone; tqplatform-devices"),
              std::string::npos)
        << end.text();
    EXPECT_NE(end.text().find("Microphone: there was none"), std::string::npos) << end.text();
    EXPECT_EQ(loudestOf(track("microphone")), 0);
    EXPECT_NEAR(loudestOf(track("unit-")), 0.5, 0.01) << "it was not ducked by itself";
}

TEST_F(RecordedMicrophone, ALiveSourceOfTheRecordingIsNone) {
    // Where there is no microphone it becomes the server's default source.
    const ProgramEnd end = record({"--mic", "--live", "--tracks", file("tracks")},
                                  {"start2", "sleep:2.5", "stop2", "sleep:0.5"});
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.text().find("Microphone: there was none"), std::string::npos) << end.text();
    EXPECT_EQ(loudestOf(track("microphone")), 0);
}

TEST_F(RecordedMicrophone, OneThatIsMutedIsSaid) {
    pactl({"set-source-mute", "cap.monitor", "1"});
    const ProgramEnd end = record({"--mic=cap.monitor"}, noise_);
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.text().find("Microphone cap.monitor: it heard nothing at all; is it muted"),
              std::string::npos)
        << end.text();
}

TEST_F(RecordedMicrophone, WithoutAServerTheRecordingGoesOn) {
    Environment none = withoutServers(folder_);
    ProgramSetup recorder = setup({"--mic", "--duck", "--duck-on", "microphone"}, noise_);
    recorder.environment.insert(none.begin(), none.end());
    recorder.environment["PULSE_SERVER"] = none["PULSE_SERVER"];
    recorder.environment["TQ_AUDIO_DEVICE"] = "auto";
    const ProgramEnd end = runProgram(kept(recorder, folder_.path()));
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.errors.find("there is no microphone, since no sound server or card can be "
                              "reached; one that comes later is not heard. Nothing is ducked\n"),
              std::string::npos)
        << end.text();
    EXPECT_NE(end.text().find("Microphone: there was none"), std::string::npos) << end.text();
}

TEST_F(RecordedMicrophone, OfAServerThatAnswersTooLateItIsSaidThatNoneComes) {
    server_.freeze();
    Kept recorder(setup({"--mic=cap.monitor"}, noise_), folder_.path());
    EXPECT_TRUE(
        eventually([&] { return recorder.text().find("using null") != std::string::npos; }));
    server_.thaw();
    const ProgramEnd end = recorder.wait();
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.errors.find("there is no microphone called cap.monitor, since no sound server or "
                              "card can be reached; one that comes later is not heard\n"),
              std::string::npos)
        << end.text();
}

TEST_F(RecordedMicrophone, IsSilenceWhileItsServerIsAwayAndIsHeardAgain) {
    const std::string back = file("back");
    Kept program(setup({"--mic=cap.monitor", "--tracks", file("tracks"), "--from-start"},
                       {"start2", "sleep:1", "say", "await:" + back, "start", "end", "stop",
                        "stop2", "sleep:0.3"}),
                 folder_.path());
    const auto says = [&](const char* line) {
        return eventually([&] { return program.text().find(line) != std::string::npos; });
    };
    ASSERT_TRUE(says("descriptors=")) << program.text();
    server_.kill();
    ASSERT_TRUE(says("interruption=1")) << program.text();
    server_.start();
    ASSERT_TRUE(says("interruption=0")) << program.text();
    std::ofstream(back) << "back";
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.text().find("Microphone cap.monitor: it was away for"), std::string::npos)
        << end.text();
    const Sound voice = track("microphone");
    const Sound mix = readWav(file("mix.wav"));
    EXPECT_NEAR(static_cast<double>(voice.frames()), static_cast<double>(mix.frames()), kMixRate)
        << "the silence is as long as it was away";
    EXPECT_GT(loudestOf(voice.part(0, voice.frames() / 2)), 0.3);
    EXPECT_GT(loudestOf(voice.part(voice.frames() - 88200, 88200)), 0.3) << end.text();
}

TEST_F(RecordedMicrophone, DucksTheProgramWhileItIsLoud) {
    pactl({"load-module", "module-null-sink", "sink_name=voice", "rate=48000"});
    pactl({"load-module", "module-remap-source", "master=voice.monitor", "source_name=throat"});
    pactl({"set-default-source", "throat"});
    writeWav(tone({48000, 2, Encoding::S16}, 960000, 1000), file("voice.wav"));
    const Kept voice(speech(), folder_.path());
    awaitVoice();
    const ProgramEnd end = record(
        {"--duck=-20", "--duck-on", "microphone", "--attack", "0.001", "--tracks", file("tracks")},
        {"start2", "sleep:2.5", "stop2", "sleep:0.5"});
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NEAR(loudestOf(track("unit-").part(72000, 20000)), 0.05, 0.01) << end.text();
    EXPECT_FALSE(std::filesystem::exists(file("tracks/track-8-microphone.wav")));
}

TEST_F(RecordedMicrophone, OneThatIsMutedAndDucksIsSaid) {
    pactl({"load-module", "module-null-source", "source_name=throat"});
    const ProgramEnd end = record({"--duck", "--duck-on", "microphone"}, noise_);
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.text().find("Microphone: it heard nothing at all, so that nothing was ducked"),
              std::string::npos)
        << end.text();
    EXPECT_FALSE(std::filesystem::exists(file("mix-microphone.wav")));
}

TEST_F(RecordedMicrophone, OneThatIsUnpluggedAndDucksIsSaidOnceAndInTheSummary) {
    pactl({"load-module", "module-remap-source", "master=cap.monitor", "source_name=throat"});
    pactl({"set-default-source", "throat"});
    Kept program(setup({"--duck", "--duck-on", "microphone"},
                       {"start2", "sleep:1", "say", "await:" + file("out"), "stop2"}),
                 folder_.path());
    const auto says = [&](const char* line) {
        return eventually([&] { return program.text().find(line) != std::string::npos; });
    };
    ASSERT_TRUE(says("descriptors=")) << program.text();
    pactl({"unload-module", "module-remap-source"});
    EXPECT_TRUE(says("tqaudiorecord: the microphone is away; nothing is ducked until it is back"))
        << program.text();
    std::ofstream(file("out")) << "out";
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.text().find("s, in which nothing was ducked"), std::string::npos) << end.text();
}

TEST_F(RecordedMicrophone, OneThatIsPluggedInLaterLiesBesideTheMixFromItsFirstFrameOn) {
    Kept program(setup({"--mic"}, {"start2", "sleep:3", "say", "await:" + file("back"), "start",
                                   "end", "stop", "stop2", "sleep:0.3"}),
                 folder_.path());
    const auto says = [&](const char* line) {
        return eventually([&] { return program.text().find(line) != std::string::npos; });
    };
    ASSERT_TRUE(says("descriptors=")) << program.text();
    pactl({"load-module", "module-remap-source", "master=cap.monitor", "source_name=throat"});
    EXPECT_TRUE(says("tqaudiorecord: the microphone is there\n")) << program.text();
    std::ofstream(file("back")) << "back";
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.text().find("Microphone: it was away for"), std::string::npos) << end.text();
    const Sound voice = readWav(file("mix-microphone.wav"));
    EXPECT_NEAR(static_cast<double>(voice.frames()),
                static_cast<double>(readWav(file("mix.wav")).frames()), kMixRate);
    EXPECT_GT(onsetOf(voice), 2.5);
    EXPECT_GT(loudestOf(voice), 0.1);
}

TEST_F(RecordedMicrophone, OneThatStandsStillIsSaidAndThatItIsBack) {
    pactl({"load-module", "module-null-source", "source_name=throat", "rate=48000"});
    Kept program(
        setup({"--mic=throat"}, {"start3", "sleep:1", "say", "await:" + file("over"), "stop3"}),
        folder_.path());
    const auto says = [&](const char* line) {
        return eventually([&] { return program.text().find(line) != std::string::npos; });
    };
    ASSERT_TRUE(says("descriptors=")) << program.text();
    pactl({"suspend-source", "throat", "1"});
    EXPECT_TRUE(
        says("tqaudiorecord: the microphone is away; silence is recorded until it is back\n"))
        << program.text();
    pactl({"suspend-source", "throat", "0"});
    EXPECT_TRUE(says("tqaudiorecord: the microphone is back\n")) << program.text();
    std::ofstream(file("over")) << "over";
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 0) << end.text();
}

TEST_F(RecordedMicrophone, OneThatIsMutedMeanwhileIsSaidAndThatItIsHeard) {
    Kept program(setup({"--mic=cap.monitor"},
                       {"start3", "sleep:1", "say", "await:" + file("over"), "stop3"}),
                 folder_.path());
    const auto says = [&](const char* line) {
        return eventually([&] { return program.text().find(line) != std::string::npos; });
    };
    ASSERT_TRUE(says("descriptors=")) << program.text();
    pactl({"set-source-mute", "cap.monitor", "1"});
    EXPECT_TRUE(
        says("tqaudiorecord: the microphone has been silent for ten seconds; is it muted "
             "or switched off?\n"))
        << program.text();
    pactl({"set-source-mute", "cap.monitor", "0"});
    EXPECT_TRUE(says("tqaudiorecord: the microphone is heard\n")) << program.text();
    std::ofstream(file("over")) << "over";
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 0) << end.text();
}

}  // namespace
