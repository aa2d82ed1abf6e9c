// How far a program's track and its mix lie from what the microphone has heard of it, one kind of
// program after the other. The microphone is the monitor of the sink on which the program plays.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
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
constexpr std::size_t kBursts = 6;
/// Of the null device's clock: a stream that begins while another plays may be as much later in the
/// mix than on its own track.
constexpr double kClockPeriod = 512 / 48000.0;
/// All count but those that the machine has torn.
constexpr int kAttempts = 3;
/// Of them one at least is near enough, however busy the machine is.
constexpr int kMostAttempts = 8;

/// How late threads are that want to run: what plays and records is as late.
class Lateness {
  public:
    Lateness()
        : thread_([this] {
              while (!isOver_) {
                  const auto due = Clock::now() + kStep;
                  std::this_thread::sleep_until(due);
                  most_ =
                      std::max(most_, std::chrono::duration<double>(Clock::now() - due).count());
              }
          }) {}
    ~Lateness() { static_cast<void>(end()); }
    Lateness(const Lateness&) = delete;
    Lateness& operator=(const Lateness&) = delete;

    /// The most by now, in seconds.
    [[nodiscard]] double end() {
        isOver_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        return most_;
    }

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kStep{2};

    std::atomic<bool> isOver_{false};
    double most_ = 0;  ///< the thread's until it has ended
    std::thread thread_;
};

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

/// How much later `one` has its bursts than `other`, each beside the one next to it: the one that
/// is furthest away; a second where there are none.
double laterBy(const std::vector<double>& one, const std::vector<double>& other) {
    std::vector<double> later;
    for (const double burst : one) {
        for (const double its : other) {
            if (std::abs(burst - its) < kPeriod / 2) {
                later.push_back(burst - its);
            }
        }
    }
    const auto most = std::max_element(
        later.begin(), later.end(), [](double a, double b) { return std::abs(a) < std::abs(b); });
    return most == later.end() ? 1 : *most;
}

/// Whether they come as they were played. The microphone is read a little faster or slower, but
/// where a server or a program was late there is a hole, and what follows lies elsewhere. Of the
/// streams of one program it may be that not all are connected in time.
bool areWhole(const std::vector<double>& bursts, std::size_t count) {
    constexpr double kMostMoved = 0.005;
    bool are = count == kBursts ? bursts.size() == count : !bursts.empty();
    for (std::size_t i = 1; are && count == kBursts && i < count; ++i) {
        are = std::abs(bursts[i] - bursts[i - 1] - kPeriod) < kMostMoved;
    }
    return are;
}

/// Short bursts, the first at its beginning.
Sound bursts(int rate) {
    const SoundFormat format{.rate = rate};
    const auto burst = static_cast<std::size_t>(kBurst * rate);
    const auto period = static_cast<std::size_t>(kPeriod * rate);
    Sound all{format, {}};
    for (std::size_t i = 0; i < kBursts; ++i) {
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
    std::size_t bursts = kBursts;  ///< else of one stream each
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

    /// Seconds, and why it does not count, if it does not.
    struct Away {
        double track = 1;
        double mix = 1;
        std::string torn{};
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
        Lateness lateness;
        end = runProgram(kept({.arguments = command, .environment = environment}, folder.path()));
        std::vector<double> voice;
        std::vector<double> tracks;
        for (const auto& one : std::filesystem::directory_iterator(folder.file("tracks"))) {
            const bool isVoice = one.path().string().find("microphone") != std::string::npos;
            const std::vector<double> bursts = burstsOf(readWav(one.path()));
            std::vector<double>& its = isVoice ? voice : tracks;
            its.insert(its.end(), bursts.begin(), bursts.end());
        }
        const std::vector<double> mix = burstsOf(readWav(folder.file("mix.wav")));
        Away away{laterBy(tracks, voice), laterBy(mix, voice)};
        const double late = lateness.end();
        const std::size_t count = GetParam().bursts;
        if (!areWhole(voice, count)) {
            away.torn = "the microphone's track has holes";
        } else if (!areWhole(mix, count)) {
            away.torn = "the mix has holes";
        } else if (end.text().find(" 0 gaps filled with silence, 0 blocks lost") ==
                   std::string::npos) {
            away.torn = "the recorder has filled gaps";
        } else if (late > kClockPeriod) {
            away.torn = "a thread was " + std::to_string(std::lround(1e3 * late)) + " ms late";
        }
        return away;
    }
};

/// For the table of docs/devices.md: a line behind the others of the file of that name.
void note(const AlignedMicrophone::Away& away) {
    if (const char* const file = std::getenv("TQ_TEST_FIGURES")) {
        std::ofstream(file, std::ios::app)
            << AlignedMicrophone::GetParam().name << ": track " << std::round(1e4 * away.track) / 10
            << " ms, mix " << std::round(1e4 * away.mix) / 10 << " ms later"
            << (away.torn.empty() ? "" : ": ") << away.torn << "\n";
    }
}

TEST_P(AlignedMicrophone, LiesBesideTrackAndMix) {
    const Server server(GetParam().isOnPipeWire);
    const double mostInMix = kMostAway + (GetParam().bursts == 2 ? kClockPeriod : 0);
    std::string torn;
    int near = 0;
    for (int attempt = 0; attempt < (near > 0 ? kAttempts : kMostAttempts); ++attempt) {
        ProgramEnd end;
        const Away away = measure(server, end);
        ASSERT_EQ(end.code, 0) << end.text();
        note(away);
        const bool isNear = std::abs(away.track) < kMostAway && std::abs(away.mix) < mostInMix;
        near += isNear ? 1 : 0;
        EXPECT_TRUE(isNear || !away.torn.empty())
            << away.track << " and " << away.mix << " s: " << end.text();
        torn += away.torn.empty() ? "" : away.torn + "\n";
    }
    EXPECT_GT(near, 0) << torn;
}

const std::vector<Heard> kHeard{
    {"platform", false, {TQ_DEVICE_PLAYER, "start2", "sleep:1", "stop2"}, false, 1},
    {"aplay", false, {"aplay", "-q", "-D", "cap"}},
    {"paplay", false, {"paplay"}},
    {"pacat30", false, {"pacat", "-p", "--file-format=wav", "--latency-msec=30"}},
    {"pacat200", false, {"pacat", "-p", "--file-format=wav", "--latency-msec=200"}},
    {"ffplay", false, {"ffplay", "-nodisp", "-autoexit", "-loglevel", "error"}},
    {"sdl", false, {TQ_TEST_TWO_SDL}, false, 2},
    {"pwPlay", true, {"pw-play"}},
    {"pwCat", true, {"pw-cat", "-p", "--latency=100ms"}},
    {"paplayOnPipeWire", true, {"paplay"}},
    {"jackOnPipeWire",
     true,
     {"sh", "-c",
      "for client in first second; do for side in FL FR; do "
      "(until pw-link $client:out cap:playback_$side; do sleep 0.1; done) 2> /dev/null & "
      "done; done; exec pw-jack " TQ_TEST_TWO_JACK},
     false,
     2},
};

INSTANTIATE_TEST_SUITE_P(Of, AlignedMicrophone, testing::ValuesIn(kHeard),
                         [](const auto& each) { return each.param.name; });

}  // namespace
