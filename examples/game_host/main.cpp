// game_host: what a small game does with sound. Music through one output unit, effects through an
// audio graph, an ambience unit that comes and goes, a voice chat with the microphone on.

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Ambience.h"
#include "Effects.h"
#include "HostError.h"
#include "Music.h"
#include "StopSignal.h"
#include "Voice.h"

namespace game {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kUsageError = 1;
constexpr char kUsage[] = "usage: game_host [--seconds N] [--sounds DIR] [--quiet]\n";
constexpr double kScriptSeconds = 10;  // the script below is written for this length

struct Request {
    double seconds = kScriptSeconds;
    std::string sounds;
    bool quiet = false;
};

bool parse(int argc, char** argv, Request& request) {
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        if (argument == "--quiet") {
            request.quiet = true;
        } else if (argument == "--sounds" && index + 1 < argc) {
            request.sounds = argv[++index];
        } else if (argument == "--seconds" && index + 1 < argc) {
            const std::string text = argv[++index];
            const char* end = text.data() + text.size();
            const auto result = std::from_chars(text.data(), end, request.seconds);
            if (result.ec != std::errc{} || result.ptr != end ||
                !(request.seconds > 0 && request.seconds <= 86400)) {
                return false;
            }
        } else {
            return false;
        }
    }
    return true;
}

struct Library {
    explicit Library(const Sounds& sounds)
        : music(sounds.loadFloat("games/chromium-bsu/wav/music_game.wav", Music::kSampleRate,
                                 Music::kChannels)),
          wind(sounds.loadShort("sounds/alsa/Noise.wav", Ambience::kSampleRate,
                                Ambience::kChannels)),
          partner(sounds.loadShort("sounds/alsa/Front_Center.wav", Voice::kSampleRate,
                                   Voice::kChannels)) {
        for (const char* name :
             {"games/chromium-bsu/wav/exploBig.wav", "games/chromium-bsu/wav/exploPop.wav",
              "games/chromium-bsu/wav/power.wav", "sounds/freedesktop/stereo/bell.oga",
              "sounds/freedesktop/stereo/complete.oga"}) {
            effects.push_back(sounds.loadShort(name, Effects::kSampleRate, Effects::kChannels));
        }
    }
    Clip<float> music;
    Clip<SInt16> wind;
    Clip<SInt16> partner;
    std::vector<Clip<SInt16>> effects;
};

enum Effect : std::size_t { kBigExplosion, kSmallExplosion, kPower, kBell, kComplete };

/// The game: everything that plays, and the script that says when.
class Game {
  public:
    Game(Library library, double seconds, bool quiet)
        : library_(std::move(library)), pace_(seconds / kScriptSeconds), quiet_(quiet) {}

    /// False when a signal ended it early.
    bool play(const StopSignal& stop) {
        start_ = Clock::now();
        for (const Scene& scene : script()) {
            if (stop.waitUntil(timeOf(scene.second))) {
                say("stopped by a signal");
                return false;
            }
            scene.action();
        }
        return true;
    }

    void end() {
        voice_.reset();
        effects_.reset();
        music_.reset();
        ambience_.reset();
        say("end");
    }

  private:
    struct Scene {
        double second;
        std::function<void()> action;
    };

    [[nodiscard]] Clock::time_point timeOf(double second) const {
        return start_ + std::chrono::duration_cast<Clock::duration>(
                            std::chrono::duration<double>(second * pace_));
    }

    void say(const char* text) const {
        if (!quiet_) {
            const double now = std::chrono::duration<double>(Clock::now() - start_).count();
            std::printf("[%6.2f s] %s\n", now, text);
            std::fflush(stdout);
        }
    }

    std::vector<Scene> script() {
        std::vector<Scene> scenes{
            {0.0, [this] { blowWind(); }},    {0.4, [this] { playMusic(); }},
            {0.8, [this] { openEffects(); }}, {2.0, [this] { joinChat(); }},
            {3.2, [this] { calmWind(); }},    {5.6, [this] { blowWind(); }},
            {7.6, [this] { leaveChat(); }},   {8.6, [this] { calmWind(); }},
            {kScriptSeconds, [] {}},
        };
        const auto effect = [&](double second, Effect index, UInt32 bus, float volume, float pan,
                                const char* text) {
            scenes.push_back({second, [=, this] {
                                  effects_->trigger(index, bus, volume, pan);
                                  say(text);
                              }});
        };
        effect(1.2, kPower, 0, 0.8F, 0.0F, "effect: power on bus 0");
        effect(2.4, kBigExplosion, 1, 0.7F, -0.7F, "effect: explosion on bus 1, left");
        effect(2.7, kSmallExplosion, 2, 0.8F, 0.7F, "effect: small explosion on bus 2, right");
        effect(4.0, kBell, 3, 0.7F, 0.0F, "effect: bell on bus 3");
        effect(4.9, kSmallExplosion, 2, 0.8F, -0.4F, "effect: small explosion on bus 2, left");
        effect(5.0, kBigExplosion, 1, 0.7F, 0.5F, "effect: explosion on bus 1, right");
        effect(6.5, kPower, 0, 0.8F, 0.0F, "effect: power on bus 0");
        effect(8.0, kComplete, 3, 0.8F, 0.0F, "effect: level complete on bus 3");
        std::stable_sort(scenes.begin(), scenes.end(),
                         [](const Scene& a, const Scene& b) { return a.second < b.second; });
        return scenes;
    }

    void blowWind() {
        ambience_ = std::make_unique<Ambience>(library_.wind);
        say("ambience: RemoteIO, 22050 Hz, 16-bit, mono");
    }

    void calmWind() {
        ambience_.reset();
        say("ambience: stopped and disposed of");
    }

    void playMusic() {
        music_ = std::make_unique<Music>(library_.music);
        music_->start();
        say("music: RemoteIO, 48000 Hz, float, stereo, not interleaved");
    }

    void openEffects() {
        effects_ = std::make_unique<Effects>(library_.effects);
        effects_->start();
        say("effects: graph of mixer and RemoteIO, 44100 Hz, 16-bit, stereo");
    }

    void joinChat() {
        try {
            voice_ = std::make_unique<Voice>(library_.partner);
            say("voice: VoiceProcessingIO with microphone, 16000 Hz, 16-bit, mono");
        } catch (const HostError& problem) {
            // A game goes on without its chat.
            std::fprintf(stderr, "game_host: no voice chat: %s\n", problem.what());
        }
    }

    void leaveChat() {
        if (voice_ != nullptr) {
            const std::string text =
                "voice: left, " + std::to_string(voice_->microphoneFrames()) + " frames heard";
            voice_.reset();
            say(text.c_str());
        }
    }

    Library library_;
    double pace_;
    bool quiet_;
    Clock::time_point start_;
    std::unique_ptr<Ambience> ambience_;
    std::unique_ptr<Music> music_;
    std::unique_ptr<Effects> effects_;
    std::unique_ptr<Voice> voice_;
};

int run(const Request& request) {
    const StopSignal stop;
    Game game(Library(Sounds(request.sounds)), request.seconds, request.quiet);
    game.play(stop);
    game.end();
    return 0;
}

}  // namespace
}  // namespace game

int main(int argc, char** argv) {
    game::Request request;
    if (argc == 2 && std::string(argv[1]) == "--help") {
        std::fputs(game::kUsage, stdout);
        return 0;
    }
    if (!game::parse(argc, argv, request)) {
        std::fputs(game::kUsage, stderr);
        return game::kUsageError;
    }
    try {
        return game::run(request);
    } catch (const game::HostError& problem) {
        std::fprintf(stderr, "game_host: %s\n", problem.what());
        return problem.code();
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "game_host: %s\n", problem.what());
        return game::HostError::kAudio;
    }
}
