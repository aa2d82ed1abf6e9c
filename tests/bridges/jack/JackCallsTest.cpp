#include <algorithm>
#include <cerrno>
#include <memory>
#include <thread>

#include "bridges/core/NativeApi.h"
#include "bridges/core/StreamFixture.h"
#include "bridges/jack/FakeJack.h"
#include "support/sound/Comparison.h"

// Calls of a program into a made-up libjack, with the whole library behind them.

namespace bridgetests {
namespace {

using tqtest::largestDifference;
using tqtest::markedNoise;
using tqtest::Sound;

constexpr jack_nframes_t kBlock = 480;

/// What the program plays, and how.
struct Game {
    jack_client_t* client = nullptr;
    std::vector<jack_port_t*> ports;
    Sound sound;
    std::size_t at = 0;  ///< frames that are played
    int result = 0;
    int blocks = 0;  ///< after which something is done, once
    void (*afterBlocks)(Game&) = nullptr;

    void fill(jack_nframes_t frames) {
        for (std::size_t channel = 0; channel < ports.size(); ++channel) {
            auto* const block = static_cast<float*>(jack_port_get_buffer(ports[channel], frames));
            for (std::size_t i = 0; block != nullptr && i < frames; ++i) {
                const bool isOver = at + i >= sound.frames();
                block[i] = isOver ? 0 : static_cast<float>(sound.value(at + i, channel % 2));
            }
        }
        at += frames;
        if (afterBlocks != nullptr && --blocks == 0) {
            afterBlocks(*this);
        }
    }
};

int play(jack_nframes_t frames, void* game) {
    auto& self = *static_cast<Game*>(game);
    self.fill(frames);
    errno = EDOM;
    return self.result;
}

/// Leaves when there are no cycles any more.
void* playInThread(void* game) {
    auto& self = *static_cast<Game*>(game);
    while (const jack_nframes_t frames = jack_cycle_wait(self.client)) {
        self.fill(frames);
        jack_cycle_signal(self.client, self.result);
    }
    return game;
}

/// A program with one client and two output ports.
class JackCalls : public NativeStreams {
  protected:
    void SetUp() override {
        NativeStreams::SetUp();
        static const auto rows = tq::bridges::jackApi().rebindings;
        ASSERT_EQ(tqhook_rebind(rows.data(), rows.size(), nullptr), 0);
        client_.reset(jack_client_open("game", JackNullOption, nullptr));
        game_.client = client_.get();
        game_.sound = noise_;
        jack_set_process_callback(client_.get(), play, &game_);
        addPort();
        addPort();
    }
    void TearDown() override {
        client_->answer = 0;
        if (!client_->isClosed) {
            jack_client_close(client_.get());
        }
        // What is left would keep its name and its unit from the next test.
        playOutAll("jack");
        NativeStreams::TearDown();
    }

    jack_port_t* addPort(unsigned long flags = JackPortIsOutput,
                         const char* type = JACK_DEFAULT_AUDIO_TYPE) {
        jack_port_t* const port = jack_port_register(client_.get(), "port", type, flags, 0);
        if (flags == JackPortIsOutput) {
            game_.ports.push_back(port);
        }
        return port;
    }
    void activate() { ASSERT_EQ(jack_activate(client_.get()), 0); }
    void cycles(std::size_t count, jack_nframes_t frames = kBlock) {
        for (std::size_t i = 0; i < count; ++i) {
            fake_jack_cycle(client_.get(), frames);
        }
    }
    void close() {
        awaitReport(kName);
        pump(60);
        EXPECT_EQ(jack_client_close(client_.get()), 0);
        playOut(kName);
    }
    /// What the server was given, of `channels` ports.
    [[nodiscard]] Sound heard(int channels = 2) const {
        return {{.rate = 48000, .channels = channels, .encoding = tqtest::Encoding::F32},
                {reinterpret_cast<const char*>(client_->heard.data()),
                 client_->heard.size() * sizeof(float)}};
    }
    [[nodiscard]] Sound recorded() const { return track(kName).trimmed(); }
    /// Frames with a sound, on all tracks.
    [[nodiscard]] std::size_t soundingFrames() const {
        std::size_t frames = 0;
        for (const auto& [name, track] : tracks()) {
            const Sound sound{{.channels = static_cast<int>(track.format.channels)}, track.bytes};
            for (std::size_t i = 0; name != "mix" && i < sound.frames(); ++i) {
                frames += sound.isSilent(i) ? 0U : 1U;
            }
        }
        return frames;
    }
    void expectWhole() const {
        EXPECT_LE(largestDifference(noise_, heard().trimmed()), 0);
        EXPECT_LE(largestDifference(noise_, recorded()), kRounding) << recorded().frames();
    }

    static constexpr const char* kName = "jack-1 game";
    const Sound noise_ = markedNoise({}, 24000);
    Game game_;
    std::unique_ptr<_jack_client> client_;
};

TEST_F(JackCalls, WhatTheProcessCallbackPlaysIsPassedOnAsItIsAndOnTheTrack) {
    activate();
    cycles(60);
    close();
    expectWhole();
}

TEST_F(JackCalls, WhatAProcessThreadPlaysIsPassedOnAsItIsAndOnTheTrack) {
    jack_set_process_thread(client_.get(), playInThread, &game_);
    client_->coming.assign(60, kBlock);
    game_.result = 3;
    activate();
    std::thread([&] {
        EXPECT_EQ(client_->thread(client_->threadArgument), &game_) << "the thread's own result";
    }).join();
    EXPECT_EQ(client_->results, std::vector<int>(60, 3));
    close();
    expectWhole();
}

TEST_F(JackCalls, BlocksOfEverySizeAreOnTheTrack) {
    activate();
    for (const jack_nframes_t frames : {64U, 1U, 0U, 8192U, 1023U, 480U, 0U, 16000U}) {
        cycles(1, frames);
    }
    close();
    expectWhole();
}

TEST_F(JackCalls, WhatTheCallbackAnswersAndItsErrnoReachTheLibrary) {
    activate();
    for (const int result : {0, 5, -1}) {
        game_.result = result;
        errno = 0;
        cycles(1);
        EXPECT_EQ(errno, EDOM);
    }
    EXPECT_EQ(client_->results, (std::vector<int>{0, 5, -1}));
    // So that it is played out before the next test.
    awaitReport(kName);
}

TEST_F(JackCalls, WhatFailsFailsForTheProgramAsWell) {
    client_->answer = -7;
    const auto expectFailed = [](int result) {
        EXPECT_EQ(result, -7);
        EXPECT_EQ(errno, ENXIO);
        errno = 0;
    };
    errno = 0;
    expectFailed(jack_set_process_callback(client_.get(), play, &game_));
    expectFailed(jack_set_process_thread(client_.get(), playInThread, &game_));
    expectFailed(jack_activate(client_.get()));
    expectFailed(jack_deactivate(client_.get()));
    EXPECT_EQ(jack_port_register(client_.get(), "", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0),
              nullptr);
    EXPECT_EQ(errno, ENXIO);
    cycles(60);
    client_->answer = 0;
    EXPECT_TRUE(tracks().empty());
}

TEST_F(JackCalls, UnderDuckingThePortsMemoryIsChangedFromTheFirstBlockOn) {
    duckingBegins(kEndlessAttack);
    activate();
    cycles(60);
    EXPECT_LE(largestDifference(noise_, heard().trimmed(), 0.1), 1e-6);
    close();
    EXPECT_LE(largestDifference(heard().trimmed(), recorded()), kRounding);
}

TEST_F(JackCalls, APortThatIsNotAskedForIsPlayedAsItsMemoryIs) {
    jack_port_t* const silent = game_.ports.back();
    game_.ports.pop_back();
    std::fill(silent->memory.begin(), silent->memory.end(), 0.25F);
    activate();
    cycles(50);
    close();
    const Sound all = recorded();
    ASSERT_EQ(all.frames(), 24000U);
    EXPECT_NEAR(all.value(12000, 0), noise_.value(12000, 0), kRounding);
    EXPECT_NEAR(all.value(12000, 1), 0.25, kRounding);
}

TEST_F(JackCalls, APortWithoutMemoryIsSilent) {
    for (const bool isDucked : {false, true}) {
        if (isDucked) {
            duckingBegins();
        }
        client_->ports[1]->hasMemory = false;
        game_.at = 0;
        activate();
        cycles(50);
        awaitReport(kName);
        pump(60);
        ASSERT_EQ(jack_deactivate(client_.get()), 0);
        playOut(kName);
        const Sound all = recorded();
        ASSERT_EQ(all.frames(), 24000U);
        EXPECT_NEAR(all.value(12000, 0), noise_.value(12000, 0) * (isDucked ? 0.1 : 1), kRounding);
        EXPECT_EQ(all.value(12000, 1), 0);
        forget();
    }
}

TEST_F(JackCalls, InputsAndMidiAreNoChannels) {
    addPort(JackPortIsInput);
    addPort(JackPortIsOutput | JackPortIsTerminal, JACK_DEFAULT_MIDI_TYPE);
    activate();
    cycles(60);
    close();
    expectWhole();
}

TEST_F(JackCalls, APortMoreIsAnotherStreamAndNoBlockIsLost) {
    activate();
    cycles(20);
    awaitReport(kName);
    pump(25);
    addPort();
    cycles(20);
    game_.ports.pop_back();
    ASSERT_EQ(jack_port_unregister(client_.get(), client_->ports.back().get()), 0);
    cycles(20);
    pump(100);
    EXPECT_EQ(jack_client_close(client_.get()), 0);
    playOut("jack-3 game");
    EXPECT_EQ(soundingFrames(), noise_.frames());
    EXPECT_LE(largestDifference(noise_.part(0, 9600), recorded().part(0, 9600)), kRounding);
}

TEST_F(JackCalls, APortMayGoInsideTheProcessCallback) {
    game_.blocks = 20;
    game_.afterBlocks = [](Game& game) {
        jack_port_t* const gone = game.ports.back();
        game.ports.pop_back();
        EXPECT_EQ(jack_port_unregister(game.client, gone), 0);
    };
    activate();
    cycles(60);
    awaitReport("jack-2 game");
    pump(120);
    EXPECT_EQ(soundingFrames(), noise_.frames());
}

TEST_F(JackCalls, AnotherCallbackTakesTheFirstOnesPlace) {
    Game silent{.client = client_.get(), .ports = game_.ports, .sound = tqtest::silence({}, 100)};
    jack_set_process_callback(client_.get(), play, &silent);
    jack_set_process_callback(client_.get(), play, &game_);
    activate();
    cycles(60);
    EXPECT_EQ(silent.at, 0U);
    close();
    expectWhole();
}

TEST_F(JackCalls, ACallbackThatIsTakenAwayIsGoneForTheLibraryAsWell) {
    jack_set_process_callback(client_.get(), nullptr, nullptr);
    EXPECT_EQ(client_->process, nullptr);
}

TEST_F(JackCalls, AClientThatIsActivatedAgainGoesOnInItsTrack) {
    activate();
    cycles(25);
    awaitReport(kName);
    pump(40);
    ASSERT_EQ(jack_deactivate(client_.get()), 0);
    playOut(kName);
    cycles(5);
    EXPECT_EQ(game_.at, 25U * kBlock);
    activate();
    cycles(35);
    close();
    EXPECT_EQ(soundingFrames(), noise_.frames());
}

TEST_F(JackCalls, AClientMayBeClosedByAnotherThreadWhileItPlays) {
    activate();
    cycles(1);
    std::thread server([&] {
        while (!client_->isClosed) {
            cycles(1);
            const std::scoped_lock guard(client_->cycle);
            if (!client_->isActive) {
                return;
            }
        }
    });
    awaitReport(kName);
    EXPECT_EQ(jack_client_close(client_.get()), 0);
    server.join();
    playOut(kName);
    const std::size_t frames = std::min(recorded().frames(), noise_.frames());
    EXPECT_LE(largestDifference(noise_.part(0, frames), recorded().part(0, frames)), kRounding);
}

TEST_F(JackCalls, WhatIsNotKnownGoesStraightThrough) {
    _jack_client other;
    other.coming = {kBlock};
    other.answer = -3;
    _jack_port port{.type = JACK_DEFAULT_AUDIO_TYPE, .flags = JackPortIsOutput, .memory = {1, 2}};
    EXPECT_EQ(jack_cycle_wait(&other), kBlock);
    other.frames = 0;
    jack_cycle_signal(&other, 4);
    EXPECT_EQ(other.results, std::vector<int>{4});
    EXPECT_EQ(jack_port_get_buffer(&port, 2), port.memory.data());
    EXPECT_EQ(jack_port_unregister(&other, &port), -1);
    EXPECT_EQ(jack_deactivate(&other), -3);
    EXPECT_EQ(jack_client_close(&other), -3);
    EXPECT_TRUE(tracks().empty());
}

TEST_F(JackCalls, APortThatTheLibraryDoesNotLetGoIsRecordedOn) {
    activate();
    cycles(20);
    _jack_client other;
    EXPECT_EQ(jack_port_unregister(&other, game_.ports[1]), -1);
    cycles(40);
    close();
    expectWhole();
}

TEST_F(JackCalls, ANinthPortIsReportedAndThePortsArePassedOn) {
    while (game_.ports.size() < 9) {
        addPort();
    }
    activate();
    awaitReport(kName, TQ_STREAM_FORMAT);
    cycles(60);
    const Sound all = heard(9);
    ASSERT_EQ(all.frames(), 60U * kBlock);
    EXPECT_EQ(all.value(12000, 8), noise_.value(12000, 0));
}

TEST_F(JackCalls, ItIsRecordedAtTheServersNewRate) {
    activate();
    cycles(20);
    awaitReport(kName);
    pump(40);
    fake_jack_rate(client_.get(), 96000);
    cycles(40);
    awaitReport("jack-2 game");
    pump(60);
    ASSERT_EQ(jack_client_close(client_.get()), 0);
    playOut("jack-2 game");
    const tq_stream end = reports("jack-2 game").back();
    EXPECT_EQ(end.sample_rate, 96000);
    EXPECT_EQ(end.played, 40U * kBlock);
}

TEST_F(JackCalls, AProgramThatAsksForTheRateIsToldOfIt) {
    int told = 0;
    const auto hear = [](jack_nframes_t rate, void* counter) {
        *static_cast<int*>(counter) += static_cast<int>(rate);
        return 4;
    };
    ASSERT_EQ(jack_set_sample_rate_callback(client_.get(), hear, &told), 0);
    EXPECT_EQ(told, 48000);
    activate();
    EXPECT_EQ(client_->rateChanged(44100, client_->rateArgument), 4);
    EXPECT_EQ(told, 48000 + 44100);
}

}  // namespace
}  // namespace bridgetests
