#include <cmath>
#include <functional>
#include <memory>

#include "bridges/core/NativeApi.h"
#include "bridges/core/StreamFixture.h"
#include "bridges/pipewire/FakePipeWire.h"
#include "support/sound/Comparison.h"

// Calls of a program's pw_filter into a made-up libpipewire, with the whole library behind them.

namespace bridgetests {
namespace {

using tqtest::largestDifference;
using tqtest::markedNoise;
using tqtest::Sound;

constexpr std::uint32_t kBlock = 480;

/// A program with one filter, which fills two ports.
class FilterCalls : public NativeStreams {
  protected:
    void SetUp() override {
        NativeStreams::SetUp();
        static const auto rows = tq::bridges::pipeWireFilterApi().rebindings;
        ASSERT_EQ(tqhook_rebind(rows.data(), rows.size(), nullptr), 0);
        filter_.reset(pw_filter_new(nullptr, "synth", nullptr));
        events_.version = PW_VERSION_FILTER_EVENTS;
        events_.process = [](void* test, spa_io_position* position) {
            static_cast<FilterCalls*>(test)->fill(
                static_cast<std::uint32_t>(position->clock.duration));
        };
        pw_filter_add_listener(filter_.get(), &listener_, &events_, this);
        ports_ = {addPort(), addPort()};
    }
    void TearDown() override {
        filter_->answer = 0;
        if (!filter_->isDestroyed) {
            pw_filter_destroy(filter_.get());
        }
        // What is left would keep its name and its unit from the next test.
        playOutAll("pipewire");
        NativeStreams::TearDown();
    }

    static constexpr const char* kName = "pipewire-1 synth";

    void* addPort(const char* speaker = nullptr, const char* format = "32 bit float mono audio",
                  pw_direction direction = PW_DIRECTION_OUTPUT) {
        std::vector<spa_dict_item> items{{PW_KEY_FORMAT_DSP, format}};
        if (speaker != nullptr) {
            items.push_back({PW_KEY_AUDIO_CHANNEL, speaker});
        }
        pw_properties properties{{0, static_cast<std::uint32_t>(items.size()), items.data()}, 0};
        return pw_filter_add_port(filter_.get(), direction, PW_FILTER_PORT_FLAG_MAP_BUFFERS, 0,
                                  &properties, nullptr, 0);
    }
    /// What the program plays in a cycle.
    void fill(std::uint32_t frames) {
        for (std::size_t channel = 0; channel < ports_.size(); ++channel) {
            auto* const block =
                static_cast<float*>(pw_filter_get_dsp_buffer(ports_[channel], frames));
            for (std::size_t i = 0; block != nullptr && i < frames; ++i) {
                const bool isOver = at_ + i >= noise_.frames();
                block[i] = isOver ? 0 : static_cast<float>(noise_.value(at_ + i, channel % 2));
                if (alone_ < ports_.size()) {
                    block[i] = channel == alone_ ? 0.25F : 0;
                }
            }
        }
        if (queued_ != nullptr) {
            EXPECT_EQ(pw_filter_queue_buffer(queued_, pw_filter_dequeue_buffer(queued_)), 0);
        }
        at_ += frames;
        if (inCycle_ && at_ >= 9600) {
            inCycle_();
            inCycle_ = nullptr;
        }
    }
    void cycles(std::size_t count, std::uint32_t frames = kBlock) {
        for (std::size_t i = 0; i < count; ++i) {
            fake_pw_cycle(filter_.get(), frames);
        }
    }
    void end() {
        awaitReport(kName);
        pump(60);
        pw_filter_destroy(filter_.get());
        playOut(kName);
    }
    [[nodiscard]] Sound heard() const {
        return Sound{{.rate = 48000, .channels = 2, .encoding = tqtest::Encoding::F32},
                     {reinterpret_cast<const char*>(filter_->heard.data()),
                      filter_->heard.size() * sizeof(float)}}
            .trimmed();
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
        EXPECT_LE(largestDifference(noise_, heard()), 0);
        EXPECT_LE(largestDifference(noise_, recorded()), kRounding) << recorded().frames();
    }

    const Sound noise_ = markedNoise({}, 24000);
    std::unique_ptr<pw_filter> filter_;
    pw_filter_events events_{};
    spa_hook listener_{};
    std::vector<void*> ports_;
    void* queued_ = nullptr;         ///< a port whose buffer is queued in each cycle
    std::size_t alone_ = 99;         ///< the only port with a sound, which is constant
    std::size_t at_ = 0;             ///< frames that are played
    std::function<void()> inCycle_;  ///< once, when 9600 frames are played
};

TEST_F(FilterCalls, WhatItPlaysIsPassedOnAsItIsAndOnTheTrack) {
    fake_pw_run(filter_.get(), 48000);
    for (const std::uint32_t frames : {1U, 480U, 0U, 8192U, 1023U, 16000U}) {
        cycles(1, frames);
    }
    end();
    expectWhole();
}

TEST_F(FilterCalls, UnderDuckingThePortsMemoryIsChangedFromTheFirstBlockOn) {
    duckingBegins(kEndlessAttack);
    fake_pw_run(filter_.get(), 48000);
    cycles(60);
    EXPECT_LE(largestDifference(noise_, heard(), 0.1), 1e-6);
    end();
    EXPECT_LE(largestDifference(heard(), recorded()), kRounding);
}

TEST_F(FilterCalls, BuffersThatAreQueuedAreReadWhereTheirChunkLies) {
    queued_ = ports_.back();
    ports_.pop_back();
    FakeBuffer& buffer = static_cast<FakePort*>(queued_)->buffer;
    constexpr std::size_t kFrom = 100;
    std::fill_n(reinterpret_cast<float*>(buffer.memory[0].data()) + kFrom, kBlock, 0.25F);
    buffer.chunks[0] = {kFrom * sizeof(float), kBlock * sizeof(float), 0, 0};
    fake_pw_run(filter_.get(), 48000);
    cycles(50);
    end();
    const Sound all = recorded();
    ASSERT_EQ(all.frames(), noise_.frames());
    EXPECT_NEAR(all.value(12000, 0), noise_.value(12000, 0), kRounding);
    EXPECT_NEAR(all.value(23999, 1), 0.25, kRounding);
}

TEST_F(FilterCalls, ABufferThatIsShorterThanTheCycleAndNoneAreSilent) {
    queued_ = ports_.back();
    ports_.pop_back();
    FakeBuffer& buffer = static_cast<FakePort*>(queued_)->buffer;
    std::fill_n(reinterpret_cast<float*>(buffer.memory[0].data()), kBlock, 0.25F);
    buffer.chunks[0] = {0, (kBlock - 1) * sizeof(float), 0, 0};
    fake_pw_run(filter_.get(), 48000);
    cycles(25);
    buffer.datas[0].data = nullptr;
    cycles(25);
    end();
    const Sound all = recorded();
    ASSERT_EQ(all.frames(), noise_.frames());
    EXPECT_NEAR(all.value(12000, 0), noise_.value(12000, 0), kRounding);
    EXPECT_EQ(all.value(6000, 1), 0);
    EXPECT_EQ(all.value(18000, 1), 0);
}

TEST_F(FilterCalls, APortWithoutMemoryIsSilent) {
    for (const bool isDucked : {false, true}) {
        if (isDucked) {
            duckingBegins();
        }
        filter_->ports[1]->hasMemory = false;
        at_ = 0;
        fake_pw_run(filter_.get(), 48000);
        cycles(50);
        awaitReport(kName);
        pump(60);
        fake_pw_pause(filter_.get());
        playOut(kName);
        const Sound all = recorded();
        ASSERT_EQ(all.frames(), 24000U);
        EXPECT_NEAR(all.value(12000, 0), noise_.value(12000, 0) * (isDucked ? 0.1 : 1), kRounding);
        EXPECT_EQ(all.value(12000, 1), 0);
        forget();
    }
}

TEST_F(FilterCalls, PortsThatAreNoSoundOrNoOutputAreNoChannels) {
    addPort(nullptr, "8 bit raw midi");
    addPort(nullptr, "32 bit float mono audio", PW_DIRECTION_INPUT);
    filter_->ports.pop_back();
    filter_->ports.pop_back();
    fake_pw_run(filter_.get(), 48000);
    cycles(60);
    end();
    expectWhole();
}

TEST_F(FilterCalls, APortMoreIsAnotherStreamAndNoBlockIsLost) {
    fake_pw_run(filter_.get(), 48000);
    cycles(20);
    ports_.push_back(addPort());
    cycles(20);
    EXPECT_EQ(pw_filter_remove_port(ports_.back()), 0);
    ports_.pop_back();
    cycles(20);
    awaitReport("pipewire-3 synth");
    pump(100);
    pw_filter_destroy(filter_.get());
    playOut("pipewire-3 synth");
    EXPECT_EQ(soundingFrames(), noise_.frames());
}

TEST_F(FilterCalls, APortMayGoInsideProcess) {
    inCycle_ = [&] {
        EXPECT_EQ(pw_filter_remove_port(ports_.back()), 0);
        ports_.pop_back();
    };
    fake_pw_run(filter_.get(), 48000);
    cycles(60);
    awaitReport("pipewire-2 synth");
    pump(120);
    EXPECT_EQ(soundingFrames(), noise_.frames());
}

TEST_F(FilterCalls, ItMayBeDisconnectedInsideProcess) {
    inCycle_ = [&] { EXPECT_EQ(pw_filter_disconnect(filter_.get()), 0); };
    fake_pw_run(filter_.get(), 48000);
    cycles(60);
    awaitReport(kName);
    playOut(kName);
    // The cycle in which it happens is none of a stream any more.
    EXPECT_LE(largestDifference(noise_.part(0, 9600 - kBlock), recorded()), kRounding);
}

TEST_F(FilterCalls, AFilterThatRunsAgainGoesOnInItsTrack) {
    fake_pw_run(filter_.get(), 48000);
    cycles(25);
    awaitReport(kName);
    pump(40);
    fake_pw_pause(filter_.get());
    playOut(kName);
    fake_pw_run(filter_.get(), 48000);
    cycles(35);
    end();
    EXPECT_EQ(soundingFrames(), noise_.frames());
}

TEST_F(FilterCalls, ItIsRecordedAtTheGraphsRate) {
    fake_pw_run(filter_.get(), 96000);
    cycles(60);
    end();
    EXPECT_EQ(reports(kName).back().sample_rate, 96000);
}

TEST_F(FilterCalls, EachEventReachesTheProgramWithItsOwnData) {
    struct Heard {
        int events = 0;
        void* port = nullptr;
    } heard;
    pw_filter_events events{};
    events.version = PW_VERSION_FILTER_EVENTS;
    events.destroy = [](void* data) { ++static_cast<Heard*>(data)->events; };
    events.drained = events.destroy;
    events.state_changed = [](void* data, pw_filter_state, pw_filter_state, const char*) {
        ++static_cast<Heard*>(data)->events;
    };
    events.io_changed = [](void* data, void* port, std::uint32_t, void*, std::uint32_t) {
        ++static_cast<Heard*>(data)->events;
        static_cast<Heard*>(data)->port = port;
    };
    spa_hook hook{};
    pw_filter_add_listener(filter_.get(), &hook, &events, &heard);
    const auto& [table, data] = filter_->listeners.back();
    fake_pw_run(filter_.get(), 48000);
    EXPECT_EQ(heard.events, 2);
    table->io_changed(data, ports_[0], SPA_IO_Buffers, nullptr, 0);
    EXPECT_EQ(heard.port, ports_[0]);
    table->drained(data);
    EXPECT_EQ(table->process, nullptr) << "the program has none";
    EXPECT_EQ(table->command, nullptr);
    pw_filter_destroy(filter_.get());
    EXPECT_EQ(heard.events, 5);
}

TEST_F(FilterCalls, APortIsInTheMixWhereItsChannelIsHeard) {
    ports_.clear();
    for (const char* const speaker : {"FL", "FR", "FC", "LFE", "RL", "RR"}) {
        ports_.push_back(addPort(speaker));
    }
    // The first two have no name.
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(pw_filter_remove_port(filter_->ports.front().get()), 0);
    }
    alone_ = 2;
    fake_pw_run(filter_.get(), 44100);
    cycles(60);
    end();
    // 0.25 from the middle, 3 dB lower.
    const Sound all = mix().trimmed();
    ASSERT_GT(all.frames(), 12000U);
    EXPECT_NEAR(all.value(12000, 0), 0.25 * 0.7071, 0.001);
    EXPECT_NEAR(all.value(12000, 1), 0.25 * 0.7071, 0.001);
}

TEST_F(FilterCalls, WhatIsNotKnownGoesStraightThrough) {
    pw_filter other;
    other.ports.push_back(std::make_unique<FakePort>());
    FakePort* const port = other.ports.front().get();
    port->filter = &other;
    other.answer = -3;
    EXPECT_EQ(pw_filter_get_dsp_buffer(port, 1), port->buffer.memory[0].data());
    EXPECT_EQ(pw_filter_queue_buffer(port, &port->buffer.handle), -3);
    EXPECT_EQ(pw_filter_queue_buffer(port, nullptr), -3);
    EXPECT_EQ(pw_filter_remove_port(port), -3);
    EXPECT_EQ(pw_filter_disconnect(&other), -3);
    pw_filter_destroy(&other);
    EXPECT_TRUE(other.isDestroyed);
    EXPECT_EQ(pw_filter_add_port(&other, PW_DIRECTION_OUTPUT, PW_FILTER_PORT_FLAG_NONE, 0, nullptr,
                                 nullptr, 0),
              nullptr);
    EXPECT_TRUE(tracks().empty());
}

}  // namespace
}  // namespace bridgetests
