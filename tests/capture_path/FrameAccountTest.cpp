#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstring>
#include <numeric>
#include <random>
#include <thread>

#include "CapturePathFixture.h"

// What becomes of every frame that a host renders: it reaches the listeners or is counted as lost.

namespace {

constexpr double kMixRate = 44100;

/// Noise without a silent sample; every sample of the first channel is remembered.
class NoiseHost {
  public:
    explicit NoiseHost(const AudioStreamBasicDescription& format, std::uint32_t seed = 1)
        : format_(format), state_(seed) {
        open();
    }
    ~NoiseHost() { unit_.dispose(); }
    NoiseHost(const NoiseHost&) = delete;
    NoiseHost& operator=(const NoiseHost&) = delete;

    void start() { ASSERT_EQ(unit_.start(), 0); }
    void stop() { ASSERT_EQ(unit_.stop(), 0); }
    [[nodiscard]] HostUnit& unit() { return unit_; }
    [[nodiscard]] const std::vector<std::int16_t>& rendered() const { return rendered_; }
    [[nodiscard]] std::size_t callbacks() const { return callbacks_; }

  private:
    void open() {
        ASSERT_EQ(unit_.setFormat(format_), 0);
        const AURenderCallbackStruct callback{render, this};
        ASSERT_EQ(AudioUnitSetProperty(unit_.unit(), kAudioUnitProperty_SetRenderCallback,
                                       kAudioUnitScope_Input, 0, &callback, sizeof(callback)),
                  0);
        ASSERT_EQ(unit_.initialize(), 0);
    }
    std::int16_t next() {
        state_ = state_ * 1664525U + 1013904223U;
        const auto value =
            static_cast<std::int16_t>(static_cast<std::int32_t>(state_ >> 16U) - 0x8000);
        return static_cast<std::int16_t>(value / 8 == 0 ? 1 : value / 8);
    }
    static OSStatus render(void* refCon, AudioUnitRenderActionFlags* /*flags*/,
                           const AudioTimeStamp* /*ts*/, UInt32 /*bus*/, UInt32 frames,
                           AudioBufferList* ioData) {
        auto& self = *static_cast<NoiseHost*>(refCon);
        const bool isFloat = (self.format_.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
        ++self.callbacks_;
        for (UInt32 frame = 0; frame < frames; ++frame) {
            const std::int16_t sample = self.next();
            self.rendered_.push_back(sample);
            for (UInt32 i = 0; i < ioData->mNumberBuffers; ++i) {
                AudioBuffer& buffer = ioData->mBuffers[i];
                for (UInt32 channel = 0; channel < buffer.mNumberChannels; ++channel) {
                    const std::size_t at = frame * buffer.mNumberChannels + channel;
                    if (isFloat) {
                        // In the middle of what is truncated to this sample.
                        const float value =
                            (static_cast<float>(sample) + (sample > 0 ? 0.5F : -0.5F)) / 32767.0F;
                        auto bytes = std::bit_cast<std::array<std::uint8_t, 4>>(value);
                        if ((self.format_.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0) {
                            std::reverse(bytes.begin(), bytes.end());
                        }
                        std::memcpy(static_cast<float*>(buffer.mData) + at, bytes.data(), 4);
                    } else {
                        static_cast<std::int16_t*>(buffer.mData)[at] = sample;
                    }
                }
            }
        }
        return 0;
    }

    AudioStreamBasicDescription format_;
    std::uint32_t state_;
    HostUnit unit_;
    std::vector<std::int16_t> rendered_;
    std::atomic<std::size_t> callbacks_{0};
};

/// Left side of blocks that are not silent throughout, without the silence around sounds.
std::vector<std::int16_t> soundOf(const std::vector<CaptureListener::Block>& blocks,
                                  std::size_t channels) {
    std::vector<std::int16_t> sound;
    for (const auto& block : blocks) {
        const auto samples = block.samples();
        for (std::size_t i = 0; i < samples.size(); i += channels) {
            if (samples[i] != 0) {
                sound.push_back(samples[i]);
            }
        }
    }
    return sound;
}

std::uint64_t lostOf(const RZFrameSideSums& side) {
    return std::accumulate(side.lost.begin(), side.lost.end(), std::uint64_t{0});
}

std::uint64_t lostOf(const RZFrameSideSums& side, RZFrameLoss reason) {
    return side.lost[static_cast<std::size_t>(reason)];
}

void expectCloses(const RZFrameSums& sums) {
    for (const auto* const side : {&sums.pre, &sums.post}) {
        EXPECT_EQ(sums.rendered, side->delivered + lostOf(*side) + side->waiting);
    }
}

struct FrameAccounts : CapturePath {
    void setDeviceRate(double rate) { ASSERT_EQ(TQManualDeviceSetSampleRate(rate), 0); }
    void TearDown() override {
        CapturePath::TearDown();
        setDeviceRate(48000);
    }
};

struct Case {
    const char* name;
    double deviceRate;
    UInt32 slice;  ///< frames of the device
    AudioStreamBasicDescription format;
    double seconds;       ///< of each sound
    bool isUnitMadeAnew;  ///< for every sound
    int slicesBetween;
};

void PrintTo(const Case& one, std::ostream* out) {
    *out << one.name;
}

struct ShortSounds : FrameAccounts, testing::WithParamInterface<Case> {};

TEST_P(ShortSounds, AreInTheMixAndInTheirTrackWhole) {
    const Case& how = GetParam();
    setDeviceRate(how.deviceRate);
    ASSERT_TRUE(startCapture());
    const auto slices = std::max(1, static_cast<int>(std::lround(how.seconds * how.deviceRate /
                                                                 static_cast<double>(how.slice))));
    std::vector<std::int16_t> rendered;
    std::optional<NoiseHost> host;
    for (std::uint32_t i = 0; i < 50; ++i) {
        if (!host || how.isUnitMadeAnew) {
            host.reset();
            host.emplace(how.format, i + 1);
        }
        const auto before = static_cast<std::ptrdiff_t>(host->rendered().size());
        host->start();
        pump(slices, how.slice);
        host->stop();
        rendered.insert(rendered.end(), host->rendered().begin() + before, host->rendered().end());
        pump(how.slicesBetween, how.slice);
    }
    host.reset();
    pump(6, how.slice);

    ASSERT_GT(rendered.size(), 50 * 200U);
    // Where nothing is resampled on the way, the mix holds the very samples as well.
    if (how.deviceRate == kMixRate && how.format.mSampleRate == kMixRate) {
        EXPECT_TRUE(soundOf(listener->mixes(), 2) == rendered);
    }
    const bool isPlanar = (how.format.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0;
    EXPECT_TRUE(soundOf(listener->posts(), isPlanar ? 1 : 2) == rendered);

    const RZFrameSums sums = manager().frameSums(1);
    expectCloses(sums);
    EXPECT_EQ(sums.rendered, rendered.size());
    EXPECT_EQ(sums.pre.delivered, rendered.size());
    EXPECT_EQ(sums.post.delivered, rendered.size());
}

AudioStreamBasicDescription integers(double rate) {
    return stream_formats::int16Interleaved(rate, 2);
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, ShortSounds,
    testing::Values(Case{"slices_of_256", 44100, 256, integers(44100), 0.06, false, 3},
                    Case{"slices_of_441", 44100, 441, integers(44100), 0.06, false, 3},
                    Case{"slices_of_512", 44100, 512, integers(44100), 0.06, true, 3},
                    Case{"slices_of_882", 44100, 882, integers(44100), 0.06, true, 1},
                    Case{"slices_of_1024", 44100, 1024, integers(44100), 0.06, false, 2},
                    Case{"back_to_back", 44100, 441, integers(44100), 0.06, true, 0},
                    Case{"floats", 44100, 512, stream_formats::floatPlanar(44100, 2), 0.06, true,
                         2},
                    Case{"floats_back_to_back", 44100, 300,
                         stream_formats::floatInterleaved(44100, 2), 0.06, true, 0},
                    Case{"of_10_ms", 44100, 441, integers(44100), 0.01, true, 2},
                    Case{"of_20_ms", 44100, 441, integers(44100), 0.02, false, 1},
                    Case{"device_48000", 48000, 512, integers(44100), 0.06, true, 2},
                    Case{"device_48000_at_its_rate", 48000, 480, integers(48000), 0.06, false, 2},
                    Case{"device_48000_host_22050", 48000, 512, integers(22050), 0.06, true, 2},
                    Case{"device_48000_host_32000", 48000, 1024,
                         stream_formats::floatPlanar(32000, 2), 0.06, true, 0},
                    Case{"device_44100_host_48000", 44100, 512, integers(48000), 0.06, false, 0},
                    Case{"of_20_ms_host_48000", 44100, 441, integers(48000), 0.02, true, 1},
                    Case{"of_10_ms_host_22050", 48000, 480, integers(22050), 0.01, true, 1}),
    [](const auto& test) { return test.param.name; });

TEST_F(FrameAccounts, BigEndianFloatsAreInTheMixAsTheyWereRendered) {
    setDeviceRate(kMixRate);
    AudioStreamBasicDescription format = stream_formats::floatPlanar(kMixRate, 2);
    format.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    ASSERT_TRUE(startCapture());
    NoiseHost host(format);
    host.start();
    pump(10, 441);
    host.stop();
    pump(2, 441);
    EXPECT_TRUE(soundOf(listener->mixes(), 2) == host.rendered());
}

TEST_F(FrameAccounts, WhatWasRenderedBeforeTheCaptureAndAtItsStartHasItsReasons) {
    setDeviceRate(kMixRate);
    NoiseHost host(integers(44100));
    host.start();
    pump(3, 441);
    ASSERT_TRUE(startCapture());
    pump(4, 441);
    host.stop();
    pump(2, 441);
    const RZFrameSums sums = manager().frameSums(1);
    expectCloses(sums);
    EXPECT_EQ(sums.rendered, 7 * 441U);
    EXPECT_EQ(lostOf(sums.pre, RZFrameLoss::NotCapturing), 3 * 441U);
    EXPECT_EQ(lostOf(sums.post, RZFrameLoss::NotCapturing), 3 * 441U);
    EXPECT_EQ(lostOf(sums.post, RZFrameLoss::DiscardedAtStart), 441U);
    EXPECT_EQ(sums.pre.delivered, 4 * 441U);
    EXPECT_EQ(sums.post.delivered, 3 * 441U);
}

TEST_F(FrameAccounts, ASideThatNobodyWantsIsNamed) {
    listener = std::make_shared<CaptureListener>(1);
    NoiseHost host(integers(44100));
    ASSERT_TRUE(startCapture());
    host.start();
    pump(4);
    host.stop();
    pump(3);
    const RZFrameSums sums = manager().frameSums(1);
    expectCloses(sums);
    EXPECT_EQ(lostOf(sums.post, RZFrameLoss::NotWanted), sums.rendered);
    EXPECT_EQ(sums.pre.delivered, sums.rendered);
}

TEST_F(FrameAccounts, ARingThatIsNeverReadRefusesInTheEnd) {
    NoiseHost host(integers(44100));
    ASSERT_TRUE(startCapture());
    host.start();
    pump(1);
    ASSERT_EQ(AUGraphStop(manager().mGraph()), 0);
    pump(400);
    const RZFrameSums sums = manager().frameSums(1);
    expectCloses(sums);
    EXPECT_GT(lostOf(sums.pre, RZFrameLoss::RingFull), 0U);
    EXPECT_GT(sums.pre.waiting, 409600 / 4 - 1000U);
}

TEST_F(FrameAccounts, ABlockThatFillsAGrownRingToItsLastByteIsCountedWithTheRing) {
    // 4096 frames of 4 bytes are twice the first ring: it grows to just that and reads as empty.
    setDeviceRate(kMixRate);
    NoiseHost host(integers(44100));
    ASSERT_TRUE(startCapture());
    host.start();
    pump(3, 4096);
    host.stop();
    pump(3, 4096);
    const RZFrameSums sums = manager().frameSums(1);
    expectCloses(sums);
    EXPECT_EQ(lostOf(sums.pre, RZFrameLoss::RingFull), 4096U);
    EXPECT_EQ(lostOf(sums.post, RZFrameLoss::RingFull), 4096U);
    EXPECT_EQ(sums.pre.delivered, 2 * 4096U);
}

TEST_F(FrameAccounts, WhatIsLeftWhenCaptureStopsIsLostWithItsObject) {
    {
        NoiseHost host(integers(44100));
        ASSERT_TRUE(startCapture());
        host.start();
        pump(5);
        stopCapture();
        pump(2);
    }
    const RZFrameSums sums = manager().frameSums(0);
    expectCloses(sums);
    EXPECT_EQ(sums.pre.waiting + sums.post.waiting, 0U);
    EXPECT_GT(lostOf(sums.pre, RZFrameLoss::LeftAtStop), 0U);
    EXPECT_GT(lostOf(sums.pre, RZFrameLoss::NotCapturing), 0U);
}

TEST_F(FrameAccounts, AUnitOfAnotherFormatOnTheSameBusCutsTheMixShortAndNotTheTrack) {
    ASSERT_TRUE(startCapture());
    std::uint64_t rendered = 0;
    {
        NoiseHost first(integers(44100));
        first.start();
        pump(5);
        first.stop();
        rendered = first.rendered().size();
    }
    NoiseHost second(stream_formats::floatPlanar(22050, 2));
    second.start();
    pump(5);
    second.stop();
    pump(3);
    const RZFrameSums sums = manager().frameSums(1);
    expectCloses(sums);
    EXPECT_GT(lostOf(sums.pre, RZFrameLoss::FormatChanged), 0U);
    EXPECT_LT(lostOf(sums.pre, RZFrameLoss::FormatChanged), 2U * kFrames);
    EXPECT_EQ(lostOf(sums.pre), lostOf(sums.pre, RZFrameLoss::FormatChanged));
    EXPECT_EQ(lostOf(sums.post), 0U);
    EXPECT_EQ(sums.post.delivered, rendered + second.rendered().size());
}

TEST_F(FrameAccounts, WhatAChangeOfTheFormatDropsHasItsOwnReason) {
    ASSERT_TRUE(startCapture());
    NoiseHost host(integers(44100));
    host.start();
    pump(3);
    const RZFrameSums before = manager().frameSums(1);
    ASSERT_GT(before.pre.waiting, 0U);
    ASSERT_GT(before.post.waiting, 0U);
    ASSERT_EQ(host.unit().setFormat(integers(22050)), 0);
    pump(3);
    const RZFrameSums sums = manager().frameSums(1);
    expectCloses(sums);
    EXPECT_EQ(lostOf(sums.pre, RZFrameLoss::FormatChanged), before.pre.waiting);
    EXPECT_EQ(lostOf(sums.post, RZFrameLoss::FormatChanged), before.post.waiting);
    EXPECT_EQ(lostOf(sums.pre), before.pre.waiting);
    host.stop();
    pump(3);
}

TEST_F(FrameAccounts, WhatAUnitLeavesThatStartsInAnotherFormatHasTheSameReason) {
    ASSERT_TRUE(startCapture());
    NoiseHost host(integers(44100));
    host.start();
    pump(3);
    host.stop();
    const RZFrameSums before = manager().frameSums(1);
    ASSERT_GT(before.pre.waiting, 0U);
    ASSERT_EQ(host.unit().setFormat(integers(22050)), 0);
    host.start();
    pump(3);
    const RZFrameSums sums = manager().frameSums(1);
    expectCloses(sums);
    EXPECT_EQ(lostOf(sums.pre, RZFrameLoss::FormatChanged), before.pre.waiting);
    EXPECT_EQ(lostOf(sums.pre, RZFrameLoss::LeftAtStop), 0U);
    host.stop();
    pump(3);
}

/// Units and capture come and go as a random walk says.
struct Storm : FrameAccounts, testing::WithParamInterface<std::uint32_t> {};

TEST_P(Storm, ClosesTheAccountOfEveryTrack) {
    std::mt19937 random(GetParam());
    const auto pick = [&](std::uint32_t below) {
        return static_cast<std::uint32_t>(random()) % below;
    };
    const double rates[] = {22050, 32000, 44100, 48000};
    const double deviceRate = pick(2) == 0 ? 44100 : 48000;
    setDeviceRate(deviceRate);
    std::vector<std::unique_ptr<NoiseHost>> hosts(5);
    bool isCapturing = startCapture();
    ASSERT_TRUE(isCapturing);
    std::uint64_t rendered = 0;
    // Of one for which no track number is free the library knows nothing before a later start.
    std::map<const NoiseHost*, std::uint64_t> before;
    const auto start = [&](NoiseHost& host) {
        if (!host.unit().object()) {
            before[&host] = host.rendered().size();
        }
        host.start();
    };
    const auto end = [&](std::unique_ptr<NoiseHost>& host) {
        if (host && host->unit().object()) {
            rendered += host->rendered().size() - before[host.get()];
        }
        before.erase(host.get());
        host.reset();
    };
    for (int step = 0; step < 400; ++step) {
        auto& host = hosts[pick(5)];
        switch (pick(8)) {
            case 0:
                end(host);
                break;
            case 1:
            case 2:
                if (!host) {
                    const double rate = rates[pick(4)];
                    host = std::make_unique<NoiseHost>(
                        pick(2) == 0 ? integers(rate) : stream_formats::floatPlanar(rate, 2),
                        static_cast<std::uint32_t>(random()));
                }
                start(*host);
                break;
            case 3:
                if (host) {
                    host->stop();
                }
                break;
            case 4:
                if (pick(4) == 0) {
                    isCapturing ? stopCapture() : void(startCapture());
                    isCapturing = !isCapturing;
                }
                break;
            default:
                pump(static_cast<int>(pick(4)), 256 + pick(769));
        }
    }
    for (auto& host : hosts) {
        end(host);
    }
    pump(40);  // units that shared a number leave one after the other
    const RZFrameSums sums = manager().frameSums(0);
    expectCloses(sums);
    EXPECT_EQ(sums.rendered, rendered);
    EXPECT_GT(sums.pre.delivered, 0U);
    EXPECT_EQ(sums.pre.waiting + sums.post.waiting, 0U);
    std::uint64_t ofTracks = 0;
    for (int track = 1; track <= 7; ++track) {
        expectCloses(manager().frameSums(track));
        ofTracks += manager().frameSums(track).rendered;
    }
    EXPECT_EQ(ofTracks, rendered);
}

INSTANTIATE_TEST_SUITE_P(Seeds, Storm, testing::Range(1U, 13U));

TEST_F(FrameAccounts, CloseWhileTheDeviceRendersOnAThreadOfItsOwn) {
    ASSERT_TRUE(startCapture());
    std::atomic<bool> isOver{false};
    std::thread device([&] {
        std::uint64_t time = hostTime;
        while (!isOver) {
            TQManualDevicePump(300, time += 6'250'000);
        }
    });
    std::uint64_t rendered = 0;
    for (std::uint32_t i = 0; i < 40; ++i) {
        NoiseHost host(integers(i % 2 == 0 ? 48000 : 44100), i + 1);
        for (int start = 0; start < 3; ++start) {
            host.start();
            const std::size_t before = host.callbacks();
            while (host.callbacks() < before + i % 4) {
                std::this_thread::yield();
            }
            host.stop();
        }
        rendered += host.rendered().size();
    }
    isOver = true;
    device.join();
    pump(5);
    const RZFrameSums sums = manager().frameSums(1);
    expectCloses(sums);
    EXPECT_EQ(sums.rendered, rendered);
    EXPECT_GT(sums.pre.delivered, 0U);
}

}  // namespace
