#include <TQPlatform/ManualDevice.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "MixCollector.h"
#include "SineFit.h"
#include "ToneHost.h"

// Three hosts, three formats, one mix: from the hosts' callbacks to the listener, on the device
// that the test pumps.

namespace {

constexpr double kDeviceRate = 48000;
constexpr double kMixRate = 44100;
constexpr UInt32 kSliceFrames = 512;

/// The host time of the pumps: an arbitrary start, then the slices' own length.
class Pump {
  public:
    std::uint64_t pumpFrames(UInt32 frames) {
        const std::uint64_t now = hostTime_;
        EXPECT_EQ(TQManualDevicePump(frames, now), 0);
        frames_ += frames;
        hostTime_ = kStart + frames_ * 1'000'000'000ULL / static_cast<std::uint64_t>(kDeviceRate);
        return now;
    }
    void pumpSeconds(double seconds) {
        for (double left = seconds * kDeviceRate; left > 0; left -= kSliceFrames) {
            stamps_.push_back(pumpFrames(kSliceFrames));
        }
    }
    [[nodiscard]] const std::vector<std::uint64_t>& stamps() const { return stamps_; }

  private:
    static constexpr std::uint64_t kStart = 5'000'000'000ULL;
    std::uint64_t frames_ = 0;
    std::uint64_t hostTime_ = kStart;
    std::vector<std::uint64_t> stamps_;
};

/// Starting and stopping run on the recorder's queue.
bool waitUntilRecording(bool recording) {
    using namespace std::chrono_literals;
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    const auto& recorder = RZStreamCollectManager::sharedManager().audioRecorder();
    while (recorder->isRecording() != recording) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/// The event comes last: by then the private graph runs.
bool waitForStart(const MixCollector& collector) {
    using namespace std::chrono_literals;
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!collector.hasEvent(0, 0)) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

double decibels(double ratio) {
    return 20 * std::log10(ratio);
}

struct ManualMix : testing::Test {
    void SetUp() override {
        ASSERT_TRUE(RZStreamCollectManager::sharedManager().isHookStarted());
        ASSERT_TRUE(RZStreamCollectManager::sharedManager().isHookSuccess());
    }

    ToneHost music{{48000, 2, true, false}, 997, 0.25};
    ToneHost effects{{44100, 2, false, true}, 1499, 0.2};
    ToneHost voice{{22050, 1, false, true}, 401, 0.15};
    std::shared_ptr<MixCollector> collector = std::make_shared<MixCollector>(3);
    Pump pump;

    void record(double seconds) {
        music.start();
        effects.start();
        voice.start();
        auto& manager = RZStreamCollectManager::sharedManager();
        ASSERT_TRUE(manager.startAudioStreamCollect(collector));
        ASSERT_TRUE(waitForStart(*collector));
        pump.pumpSeconds(seconds);
        ASSERT_TRUE(manager.stopAudioStreamCollect(collector));
        ASSERT_TRUE(waitUntilRecording(false));
    }
};

TEST_F(ManualMix, HoldsEveryToneAtItsLevelWithoutNoiseOrGaps) {
    record(6);
    const std::vector<double> frequencies{997, 1499, 401};
    const std::vector<double> expected{0.25, 0.2, 0.15};
    for (const auto& channel : collector->mix()) {
        ASSERT_GT(channel.size(), static_cast<std::size_t>(5.9 * kMixRate));
        const auto skipped = static_cast<std::size_t>(kMixRate);
        const std::span<const double> steady(channel.data() + skipped, channel.size() - skipped);
        const SineFit fit = fitSines(steady, kMixRate, frequencies);
        for (std::size_t f = 0; f < frequencies.size(); ++f) {
            EXPECT_NEAR(decibels(fit.amplitudes[f] / expected[f]), 0.0, 0.1) << frequencies[f];
        }
        // One lost or repeated frame would leave far more than this.
        EXPECT_LT(decibels(fit.residualRms / (0.15 / std::sqrt(2.0))), -70.0);
    }
}

TEST_F(ManualMix, PostBlocksAreTheHostsBlocksSampleForSample) {
    record(3);
    const ToneHost* const hosts[] = {&music, &effects, &voice};
    ASSERT_EQ(collector->tracks().size(), 3U);
    for (int track = 1; track <= 3; ++track) {
        const auto& recorded = collector->tracks().at(track).planes;
        const auto& rendered = hosts[track - 1]->rendered();
        ASSERT_EQ(recorded.size(), rendered.size()) << track;
        // Capture starts between two blocks of the host: some of its first ones are missing.
        const auto& first = recorded[0];
        const auto& played = rendered[0];
        ASSERT_GT(first.size(), 30000U) << track;
        const auto start =
            std::search(played.begin(), played.end(), first.begin() + 1000, first.begin() + 3000);
        ASSERT_NE(start, played.end()) << track;
        const auto offset = start - played.begin() - 1000;
        ASSERT_GE(offset, 0) << track;
        for (std::size_t channel = 0; channel < recorded.size(); ++channel) {
            const auto& stream = recorded[channel];
            ASSERT_LE(static_cast<std::size_t>(offset) + stream.size(), rendered[channel].size());
            EXPECT_TRUE(
                std::equal(stream.begin(), stream.end(), rendered[channel].begin() + offset))
                << "track " << track << " channel " << channel;
        }
    }
}

TEST_F(ManualMix, TimeStampsRiseAndMatchHostTime) {
    record(2);
    const auto& stamps = collector->mixTimeStamps();
    ASSERT_GT(stamps.size(), 150U);
    EXPECT_TRUE(std::is_sorted(stamps.begin(), stamps.end()));
    for (std::size_t i = 0; i < stamps.size(); ++i) {
        // Blocks are those of the pumps, from the one on which the private graph ran first.
        const std::uint64_t pumped = pump.stamps()[pump.stamps().size() - stamps.size() + i];
        EXPECT_NEAR(static_cast<double>(stamps[i]), static_cast<double>(pumped) / 1000, 1.0) << i;
    }
    for (const auto& [track, recorded] : collector->tracks()) {
        EXPECT_TRUE(std::is_sorted(recorded.timeStamps.begin(), recorded.timeStamps.end()))
            << track;
    }
}

}  // namespace
