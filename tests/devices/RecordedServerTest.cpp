// What happens to the sound server while a program on it is recorded: each frame that it plays
// while it is captured is on its track once, and it is heard.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <sstream>
#include <thread>

#include "bridges/programs/RecordedRun.h"
#include "devices/ServerRun.h"

namespace {

using namespace tqtest;

/// Until the first frame that is loud enough to be a program's.
double secondsBefore(const Sound& sound) {
    std::size_t frame = 0;
    while (frame < sound.frames() && std::abs(sound.value(frame, 0)) < 0.02) {
        ++frame;
    }
    return static_cast<double>(frame) / sound.format.rate;
}

/// Frames that the summary says were lost for the one track, whatever the reason.
std::size_t lostOnTrack(const std::string& summary) {
    const std::size_t begin = summary.find(" to the track");
    std::istringstream reasons(summary.substr(begin, summary.find('\n', begin) - begin));
    std::size_t lost = 0;
    for (std::string reason; std::getline(reasons, reason, ',');) {
        lost += std::strtoull(reason.c_str(), nullptr, 10);
    }
    return lost;
}

/// Those of the phrases that stand in the lines, in the lines' order.
std::vector<std::string> phrasesIn(const std::string& text,
                                   const std::vector<std::string>& phrases) {
    std::vector<std::string> found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto phrase = std::find_if(phrases.begin(), phrases.end(), [&](const auto& one) {
            return line.find(one) != std::string::npos;
        });
        if (phrase != phrases.end()) {
            found.push_back(*phrase);
        }
    }
    return found;
}

template <typename Server>
class RecordedServer : public ServerRun<Server> {
  protected:
    void SetUp() override { programruns::skipUnlessPreloading(); }

    void record(const std::vector<std::string>& steps) {
        this->run(steps,
                  {TQ_TEST_RECORDER, "-o", this->file("mix.wav"), "--tracks", this->file("tracks"),
                   "--events", this->file("events"), "--verbose", "--"});
    }
    /// Whether capture has started so often, sooner or later.
    [[nodiscard]] bool captures(std::size_t times) const {
        return eventually([&] {
            return this->timesIn(contentOf(this->file("events")), "capture has started") >= times;
        });
    }
    /// What is on the one track, but for silence around it and where the device stood still.
    [[nodiscard]] std::vector<CountedRun> runsOnTrack() const {
        const auto tracks = std::filesystem::directory_iterator(this->file("tracks"));
        const std::vector<std::filesystem::path> files(begin(tracks), end(tracks));
        EXPECT_EQ(files.size(), 1U);
        return files.empty() ? std::vector<CountedRun>{}
                             : withoutPauses(countedRuns(readWav(files.front()).trimmed()));
    }
};

TYPED_TEST_SUITE(RecordedServer, SoundServers, SoundServerNames);

TYPED_TEST(RecordedServer, ThatDiesAndComesBackCostsTheTimeOfTheInterruptionAlone) {
    const std::string dies = this->file("dies");
    const std::string dead = this->file("dead");
    const std::string ends = this->file("ends");
    this->record({"duration:0.08", "start3", "await:" + dies, "say", "await:" + dead, "more:72000",
                  "say", "await:" + ends, "say", "sleep:0.3", "stop3", "say", "sleep:0.3"});
    ASSERT_TRUE(this->isHeardOn()) << this->program_->text();
    this->go("dies");
    ASSERT_TRUE(this->says("descriptors=")) << this->program_->text();
    this->server_.kill();
    ASSERT_TRUE(this->says("interruption=1")) << this->program_->text();
    this->go("dead");
    ASSERT_TRUE(this->says("descriptors=", 2)) << this->program_->text();
    EXPECT_EQ(this->timesIn(contentOf(this->file("events")), "capture has started"), 1U)
        << "not before the interruption's end";
    this->server_.start();
    ASSERT_TRUE(this->says("interruption=0")) << this->program_->text();
    EXPECT_TRUE(this->isHeardOn()) << this->program_->text();
    ASSERT_TRUE(this->captures(2)) << this->program_->text();
    this->go("ends");
    const ProgramEnd end = this->finish();
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_EQ(this->timesIn(end.output, "done=1"), 1U) << end.text();
    EXPECT_EQ(this->noticesIn(end.output), "interruption=1 interruption=0");
    EXPECT_EQ(phrasesIn(end.errors, {"Interruption beging", "Interruption end", "start capture,",
                                     "stop capture", "update disconnect", "resampler connect"}),
              (std::vector<std::string>{"start capture,", "Interruption beging", "stop capture",
                                        "update disconnect", "Interruption end", "start capture,",
                                        "resampler connect"}))
        << end.text();
    EXPECT_EQ(phrasesIn(contentOf(this->file("events")),
                        {"capture has started", "the program has started a unit"}),
              (std::vector<std::string>{"capture has started", "the program has started a unit",
                                        "capture has started"}));

    const auto said = this->valuesOf(end.output, "counted");
    ASSERT_EQ(said.size(), 4U) << end.text();
    const auto runs = this->runsOnTrack();
    ASSERT_EQ(runs.size(), 3U) << told(runs) << end.text();
    const CountedRun& before = runs[0];
    const CountedRun& after = runs[2];
    // The stop of the capture leaves what it has not delivered yet, a block or two.
    EXPECT_GE(before.end() + 4800, said[0]) << "all that was played before";
    EXPECT_LE(after.first, said[2]) << "and what was played once capture had started again";
    EXPECT_EQ(after.end(), said[3]) << "to the end";
    // What is missing is announced, and stands as silence between both: the clock went on for a
    // second and a half. A device that is opened renders ahead what it keeps in hand, so that there
    // are more frames than time.
    const std::size_t missing = after.first - before.end();
    EXPECT_EQ(lostOnTrack(end.text()), before.first + missing) << told(runs) << end.text();
    EXPECT_EQ(runs[1].kind, CountedRun::Kind::silent);
    EXPECT_NEAR(static_cast<double>(runs[1].frames), static_cast<double>(missing), 24000);
}

TYPED_TEST(RecordedServer, WhoseSinksComeAndGoCostsTheRecordingNothing) {
    const std::string ends = this->file("ends");
    this->record({"duration:0.08", "start3", "await:" + ends, "stop3", "say", "sleep:0.3"});
    ASSERT_TRUE(this->isHeardOn()) << this->program_->text();
    const std::string other = this->pactl(
        {"load-module", "module-null-sink", "sink_name=other", "rate=48000", "format=float32le"});
    ASSERT_FALSE(other.empty());
    // The session manager may not know the new sink yet.
    EXPECT_TRUE(eventually([&] {
        this->pactl({"set-default-sink", "other"});
        return this->timesIn(this->program_->text(), "route=") > 0;
    })) << this->program_->text();
    EXPECT_TRUE(this->isHeardOn("other")) << this->program_->text();
    this->pactl({"unload-module", other.substr(0, other.find('\n'))});
    EXPECT_TRUE(this->says("route=", 2)) << this->program_->text();
    EXPECT_TRUE(this->isHeardOn("cap")) << this->program_->text();
    this->go("ends");
    const ProgramEnd end = this->finish();
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_EQ(this->noticesIn(end.output), "route=1 route=1") << "each is told once";
    const auto said = this->valuesOf(end.output, "counted");
    ASSERT_EQ(said.size(), 1U) << end.text();
    // A first block that just fills the ring is lost in it, and announced.
    EXPECT_EQ(told(this->runsOnTrack()), "counted " + std::to_string(lostOnTrack(end.text())) +
                                             " to " + std::to_string(said[0] - 1))
        << end.text();
}

using RecordedPipeWire = RecordedServer<PipeWireServer>;

TEST_F(RecordedPipeWire, HearsTheProgramDucked) {
    Sound heard;
    ProgramEnd end;
    // On a machine with more to do than it can the server leaves holes: not every time.
    for (int attempt = 0; attempt < 6 && heard.frames() != devicePlayerNoise().frames();
         ++attempt) {
        const auto recording = server_.record();
        run({"duration:0.08", "start", "end", "stop", "sleep:0.3"},
            {TQ_TEST_RECORDER, "-o", file("mix.wav"), "--overwrite", "--duck=-20", "--attack",
             "0.001", "--"});
        end = finish();
        ASSERT_EQ(end.code, 0) << end.text();
        heard = recording->finish().trimmed();
    }
    ASSERT_EQ(heard.frames(), devicePlayerNoise().frames()) << end.text();
    for (std::size_t frame = 48000; frame < 90000; frame += 1000) {
        EXPECT_NEAR(heard.value(frame, 0), devicePlayerNoise().value(frame, 0) / 10, 0.02) << frame;
    }
}

TEST_F(RecordedPipeWire, HasTheMicrophoneBesideTheProgramsTrack) {
    // With the long blocks that the test's server is made to have, its service for PulseAudio holds
    // back what a stream with little latency records, for ever longer.
    EXPECT_EQ(
        runProgram({.arguments = {"pw-metadata", "-n", "settings", "0", "clock.force-quantum", "0"},
                    .environment = server_.environment()})
            .code,
        0);
    // Short blocks are late on a busy machine, and what is heard has holes then.
    double away = 1;
    double hertz = 0;
    ProgramEnd end;
    for (int attempt = 0; attempt < 6 && !(away < 0.02 && std::abs(hertz - 440) < 5); ++attempt) {
        run({"start2", "sleep:1.5", "stop2", "sleep:0.5"},
            {TQ_TEST_RECORDER, "-o", file("mix.wav"), "--mic=cap.monitor", "--tracks",
             file("tracks"), "--from-start", "--overwrite", "--"});
        end = finish();
        ASSERT_EQ(end.code, 0) << end.text();
        Sound voice;
        Sound played;
        for (const auto& one : std::filesystem::directory_iterator(file("tracks"))) {
            const bool isVoice = one.path().string().find("microphone") != std::string::npos;
            (isVoice ? voice : played) = readWav(one.path());
        }
        away = std::abs(secondsBefore(voice) - secondsBefore(played));
        hertz = frequencyOf(voice.trimmed().part(22050, 22050));
    }
    EXPECT_LT(away, 0.02) << end.text();
    EXPECT_NEAR(hertz, 440, 5);
    EXPECT_EQ(end.text().find("Microphone"), std::string::npos) << end.text();
}

/// Both at once: live sources are microphones to whoever looks at the server.
class LiveAndMicrophone : public RecordedPipeWire {
  protected:
    void recordLive(const std::string& microphone) {
        run({"start3", "say", "await:" + file("over"), "stop3"},
            {TQ_TEST_RECORDER, "-o", file("mix.wav"), microphone, "--live", "--tracks",
             file("tracks"), "--from-start", "--"});
    }
    /// Names of live sources, once there are those of the mix and the one unit.
    [[nodiscard]] std::string liveSources() const {
        std::string names;
        EXPECT_TRUE(eventually([&] {
            std::istringstream lines(pactl({"list", "short", "sources"}));
            names.clear();
            for (std::string line; std::getline(lines, line);) {
                const std::size_t begin = line.find("tqaudiorecord.");
                names += begin == std::string::npos
                             ? ""
                             : line.substr(begin, line.find('\t', begin) - begin) + "\n";
            }
            return timesIn(names, "\n") >= 2;
        })) << program_->text();
        return names;
    }
    [[nodiscard]] Sound voice() const {
        for (const auto& one : std::filesystem::directory_iterator(file("tracks"))) {
            if (one.path().string().find("microphone") != std::string::npos) {
                return readWav(one.path());
            }
        }
        return {};
    }
};

TEST_F(LiveAndMicrophone, ALiveSourceIsNotTakenForTheMicrophone) {
    recordLive("--mic");
    ASSERT_NE(liveSources(), "");
    // Where there is no microphone it becomes the server's default.
    EXPECT_TRUE(eventually([&] {
        return pactl({"get-default-source"}).starts_with("tqaudiorecord.");
    })) << pactl({"get-default-source"});
    // The recorder looks for one twice a second.
    std::this_thread::sleep_for(std::chrono::seconds(3));
    go("over");
    const ProgramEnd end = finish();
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.text().find("Microphone: there was none"), std::string::npos) << end.text();
    EXPECT_EQ(voice().trimmed().frames(), 0U) << end.text();
}

TEST_F(LiveAndMicrophone, TheMicrophoneIsHeardAndIsNoLiveSource) {
    recordLive("--mic=cap.monitor");
    const std::string sources = liveSources();
    EXPECT_NE(sources.find(".mix"), std::string::npos) << sources;
    EXPECT_NE(sources.find(".unit-"), std::string::npos) << sources;
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_EQ(liveSources(), sources) << "nor does another one come";
    EXPECT_EQ(timesIn(sources, "\n"), 2U) << sources;
    go("over");
    const ProgramEnd end = finish();
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_GT(voice().trimmed().frames(), 0U) << end.text();
    EXPECT_EQ(end.text().find("Microphone"), std::string::npos) << end.text();
}

}  // namespace
