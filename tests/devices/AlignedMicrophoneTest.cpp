// How far a program's track and its mix lie from what the microphone has heard of it, one kind of
// program after the other. The microphone is the monitor of the sink on which the program plays.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "DeviceRun.h"
#include "bridges/programs/RecordedRun.h"
#include "support/servers/FileOutputs.h"
#include "support/servers/PipeWireServer.h"
#include "support/servers/PulseServer.h"

namespace {

using namespace tqtest;

/// Seconds.
constexpr double kMostAway = 0.02;
constexpr double kBurst = 0.05;
constexpr double kPeriod = 0.5;
constexpr int kBursts = 6;

/// Where it becomes loud behind a silence, in seconds.
std::vector<double> burstsOf(const Sound& sound) {
    constexpr double kAudible = 0.02;
    const auto silence = static_cast<std::size_t>(sound.format.rate / 5);
    std::vector<double> bursts;
    std::size_t quiet = silence;
    for (std::size_t frame = 0; frame < sound.frames(); ++frame) {
        if (std::abs(sound.value(frame, 0)) < kAudible) {
            ++quiet;
            continue;
        }
        if (quiet >= silence) {
            bursts.push_back(static_cast<double>(frame) / sound.format.rate);
        }
        quiet = 0;
    }
    return bursts;
}

/// How much later `one` has its bursts than `other`, each beside the one next to it: the middle of
/// these; far away where there are none.
double laterBy(const Sound& one, const Sound& other) {
    const std::vector<double> beside = burstsOf(other);
    std::vector<double> later;
    for (const double burst : burstsOf(one)) {
        for (const double its : beside) {
            if (std::abs(burst - its) < kPeriod / 2) {
                later.push_back(burst - its);
            }
        }
    }
    if (later.empty()) {
        return 1;
    }
    std::sort(later.begin(), later.end());
    return later[later.size() / 2];
}

/// Short bursts, the first at its beginning.
Sound bursts(int rate) {
    const SoundFormat format{.rate = rate};
    const auto burst = static_cast<std::size_t>(kBurst * rate);
    const auto period = static_cast<std::size_t>(kPeriod * rate);
    Sound all{format, {}};
    for (int i = 0; i < kBursts; ++i) {
        all.bytes += markedNoise(format, burst, static_cast<std::uint64_t>(i + 1)).bytes;
        all.bytes += silence(format, period - burst).bytes;
    }
    return all;
}

/// A program and the server on which it plays.
struct Heard {
    std::string name;
    bool isOnPipeWire = false;
    std::vector<std::string> command;
    bool playsFile = true;
};

void PrintTo(const Heard& heard, std::ostream* out) {
    *out << heard.name;
}

/// One of both servers, with somebody who keeps its latency low from the beginning.
class Server {
  public:
    explicit Server(bool isPipeWire) {
        if (isPipeWire) {
            pipewire_ = std::make_unique<PipeWireServer>();
            environment_ = pipewire_->environment();
            // With the long blocks that the test's server is made to have its service for
            // PulseAudio holds back what is recorded with little latency, for ever longer.
            EXPECT_EQ(runProgram({.arguments = {"pw-metadata", "-n", "settings", "0",
                                                "clock.force-quantum", "0"},
                                  .environment = environment_})
                          .code,
                      0);
            listener_ = pipewire_->record();
        } else {
            pulse_ = std::make_unique<PulseServer>();
            alsa_ = std::make_unique<AlsaFilePcm>(*pulse_);
            environment_ = alsa_->environment();
            listener_ = pulse_->record();
        }
    }
    [[nodiscard]] const Environment& environment() const { return environment_; }

  private:
    std::unique_ptr<PipeWireServer> pipewire_;
    std::unique_ptr<PulseServer> pulse_;
    std::unique_ptr<AlsaFilePcm> alsa_;
    std::unique_ptr<Recording> listener_;
    Environment environment_;
};

class AlignedMicrophone : public testing::TestWithParam<Heard> {
  public:
    void SetUp() override { programruns::skipUnlessPreloading(); }

    struct Away {
        double track = 1;
        double mix = 1;
        [[nodiscard]] double most() const { return std::max(std::abs(track), std::abs(mix)); }
    };

    [[nodiscard]] Away measure(const Server& server, ProgramEnd& end) const {
        const TemporaryFolder folder;
        const std::string file = folder.file("bursts.wav");
        writeWav(bursts(48000), file);
        std::vector<std::string> command{TQ_TEST_RECORDER,    "-o",       folder.file("mix.wav"),
                                         "--mic=cap.monitor", "--tracks", folder.file("tracks"),
                                         "--from-start",      "--"};
        command.insert(command.end(), GetParam().command.begin(), GetParam().command.end());
        if (GetParam().playsFile) {
            command.push_back(file);
        }
        Environment environment = server.environment();
        environment["TQ_AUDIO_DEVICE"] = "cubeb:pulse";
        environment["SDL_AUDIODRIVER"] = "pulseaudio";
        environment["SDL_VIDEODRIVER"] = "dummy";
        environment["XDG_CACHE_HOME"] = folder.file("caches");
        end = runProgram(kept({.arguments = command, .environment = environment}, folder.path()));
        Sound voice;
        Sound track;
        for (const auto& one : std::filesystem::directory_iterator(folder.file("tracks"))) {
            const std::string name = one.path().filename();
            if (name.find("microphone") != std::string::npos) {
                voice = readWav(one.path());
            } else if (track.frames() == 0 || burstsOf(track).empty()) {
                track = readWav(one.path());
            }
        }
        return {laterBy(track, voice), laterBy(readWav(folder.file("mix.wav")), voice)};
    }
};

/// For the table of docs/devices.md: a line behind the others of the file of that name.
void note(const AlignedMicrophone::Away& away) {
    if (const char* const file = std::getenv("TQ_TEST_FIGURES")) {
        std::ofstream(file, std::ios::app)
            << AlignedMicrophone::GetParam().name << ": track " << std::round(1e4 * away.track) / 10
            << " ms, mix " << std::round(1e4 * away.mix) / 10 << " ms later\n";
    }
}

TEST_P(AlignedMicrophone, LiesBesideTrackAndMix) {
    const Server server(GetParam().isOnPipeWire);
    Away away;
    ProgramEnd end;
    // On a machine with more to do than it can, servers leave holes: not every time.
    for (int attempt = 0; attempt < 6 && !(away.most() < kMostAway); ++attempt) {
        away = measure(server, end);
        note(away);
        ASSERT_EQ(end.code, 0) << end.text();
    }
    EXPECT_LT(away.most(), kMostAway) << end.text();
}

const std::vector<Heard> kHeard{
    {"platform", false, {TQ_DEVICE_PLAYER, "start2", "sleep:1", "stop2"}, false},
    {"aplay", false, {"aplay", "-q", "-D", "cap"}},
    {"paplay", false, {"paplay"}},
    {"pacat30", false, {"pacat", "-p", "--file-format=wav", "--latency-msec=30"}},
    {"pacat200", false, {"pacat", "-p", "--file-format=wav", "--latency-msec=200"}},
    {"ffplay", false, {"ffplay", "-nodisp", "-autoexit", "-loglevel", "error"}},
    {"sdl", false, {TQ_TEST_TWO_SDL}, false},
    {"pwPlay", true, {"pw-play"}},
    {"pwCat", true, {"pw-cat", "-p", "--latency=100ms"}},
    {"paplayOnPipeWire", true, {"paplay"}},
    {"jackOnPipeWire",
     true,
     {"sh", "-c",
      "for client in first second; do for side in FL FR; do "
      "(until pw-link $client:out cap:playback_$side; do sleep 0.1; done) 2> /dev/null & "
      "done; done; exec pw-jack " TQ_TEST_TWO_JACK},
     false},
};

INSTANTIATE_TEST_SUITE_P(Of, AlignedMicrophone, testing::ValuesIn(kHeard),
                         [](const auto& each) { return each.param.name; });

}  // namespace
