#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "volume_controller.h"

// Every sample is compared bit by bit with a model that states the arithmetic one rounding at a
// time. The controller's block loop may use fused instructions of the machine; its calculate_
// functions are compiled without: both must agree with the model.

namespace korva_audio_utils {
namespace {

using Ducking = VolumeController::DuckingParams;
using Compressor = VolumeController::CompressorParams;

/// One controller in single precision, without any of its shortcuts.
class Model {
  public:
    Model(int rate, const Ducking& ducking, const Compressor& compressor)
        : rate_(rate), ducking_(ducking), compressor_(compressor) {
        const auto fs = static_cast<float>(rate);
        duckingAttack_ = Coefficient(ducking.attackTime, fs);
        duckingRelease_ = Coefficient(ducking.releaseTime, fs);
        holdSamples_ = ducking.holdTime * fs;
        duckingGain_ = std::pow(10.0F, 0.05F * ducking.targetGain);
        compressorAttack_ = Coefficient(compressor.attackTime, fs);
        compressorRelease_ = Coefficient(compressor.releaseTime, fs);
        threshold_ = std::pow(10.0F, 0.05F * compressor.threshold);
    }

    void SetLevels(float ducking, float compressor) {
        duckingVolume_ = ducking;
        compressorVolume_ = compressor;
    }

    template <typename Sample>
    std::vector<Sample> Process(const std::vector<Sample>& in, std::size_t channels) {
        fullScale_ = std::is_same_v<Sample, float>          ? 1.0F
                     : std::is_same_v<Sample, std::int16_t> ? 32767.0F
                                                            : 2147483648.0F;
        std::vector<Sample> out(in);
        if (!ducking_.enable && !compressor_.enable) {
            return out;
        }
        const std::size_t frames = channels == 0 ? 0 : in.size() / channels;
        const float c = DuckingInfo(static_cast<int>(frames));
        for (std::size_t i = 0; i < frames; ++i) {
            const float g = SampleGain(static_cast<float>(in[i * channels]), c);
            for (std::size_t j = 0; j < channels; ++j) {
                const float product = g * static_cast<float>(in[i * channels + j]);
                out[i * channels + j] = Store<Sample>(product);
            }
        }
        return out;
    }

    float DuckingInfo(int frames) {
        duckingTarget_ = 1.0F;
        if (duckingVolume_ > ducking_.threshold) {
            holdCounter_ = 0;
            duckingTarget_ = duckingGain_;
            return duckingAttack_;
        }
        if (holdSamples_ > static_cast<float>(holdCounter_)) {
            holdCounter_ += frames;
            duckingTarget_ = duckingGain_;
            return duckingAttack_;
        }
        return duckingRelease_;
    }

    float SampleGain(float sample, float c) {
        duckingCurrent_ =
            ducking_.enable ? std::fma(c, duckingCurrent_ - duckingTarget_, duckingTarget_) : 1.0F;
        const float gc = compressor_.enable ? CompressorGain(sample) : 1.0F;
        return gc < duckingCurrent_ ? gc : duckingCurrent_;
    }

    float CompressorGain(float sample) {
        const std::uint64_t n = sampleCounter_++;
        const auto interval = static_cast<std::uint64_t>(rate_ / 1000);
        if (interval == 0 ? n == 0 : n % interval == 0) {
            const float x = std::fabs(sample / fullScale_);
            compressorTarget_ = 1.0F;
            float t = threshold_;
            if (compressorVolume_ > compressor_.sideChainThreshold) {
                t = t * 0.75F;
            }
            if (x > t) {
                compressorTarget_ = std::pow(t / x, 0.8F);
            }
        }
        const float coefficient =
            compressorCurrent_ < compressorTarget_ ? compressorRelease_ : compressorAttack_;
        compressorCurrent_ =
            std::fma(coefficient, compressorCurrent_ - compressorTarget_, compressorTarget_);
        return compressorCurrent_;
    }

    void ExpectStateOf(const VolumeController& controller) const {
        EXPECT_EQ(controller.HoldCounter(), holdCounter_);
        EXPECT_EQ(controller.DuckingTarget(), duckingTarget_);
        EXPECT_EQ(controller.DuckingCurrent(), duckingCurrent_);
        EXPECT_EQ(controller.CompressorTarget(), compressorTarget_);
        EXPECT_EQ(controller.CompressorCurrent(), compressorCurrent_);
        EXPECT_EQ(controller.SampleCounter(), sampleCounter_);
    }

  private:
    static float Coefficient(float seconds, float fs) {
        const float samples = seconds * fs;
        return std::exp(-2.1972246F / samples);
    }

    template <typename Sample>
    static Sample Store(float value) {
        if constexpr (std::is_same_v<Sample, float>) {
            return value;
        } else {
            // Through double, where every 32-bit integer has its own place.
            const double whole = std::trunc(static_cast<double>(value));
            const auto wide =
                static_cast<std::int64_t>(std::fmin(std::fmax(whole, -2147483648.0), 2147483647.0));
            return static_cast<Sample>(wide);
        }
    }

    int rate_;
    Ducking ducking_;
    Compressor compressor_;
    float duckingVolume_ = -80.0F;
    float compressorVolume_ = -80.0F;
    float duckingAttack_;
    float duckingRelease_;
    float holdSamples_;
    float duckingGain_;
    float compressorAttack_;
    float compressorRelease_;
    float threshold_;
    float fullScale_ = 1.0F;
    int holdCounter_ = 1073741824;
    float duckingTarget_ = 1.0F;
    float duckingCurrent_ = 1.0F;
    float compressorTarget_ = 1.0F;
    float compressorCurrent_ = 1.0F;
    std::uint64_t sampleCounter_ = 0;
};

template <typename Sample>
constexpr VolumeControllerFormat FormatOf() {
    return std::is_same_v<Sample, float>          ? VolumeControllerFormat::kFloat32
           : std::is_same_v<Sample, std::int16_t> ? VolumeControllerFormat::kInt16
                                                  : VolumeControllerFormat::kInt32;
}

/// Noise whose loudness wanders between silence and full scale.
template <typename Sample>
std::vector<Sample> Noise(std::mt19937& random, std::size_t count) {
    std::uniform_real_distribution<float> unit(-1.0F, 1.0F);
    const float loudness = std::fabs(unit(random));
    std::vector<Sample> samples(count);
    for (Sample& sample : samples) {
        const float value = unit(random) * loudness;
        if constexpr (std::is_same_v<Sample, float>) {
            sample = value;
        } else {
            constexpr auto kMax = static_cast<double>(std::numeric_limits<Sample>::max());
            sample = static_cast<Sample>(static_cast<double>(value) * kMax);
        }
    }
    if (count > 2) {
        samples[0] = std::numeric_limits<Sample>::max();
        samples[1] = std::numeric_limits<Sample>::lowest();
    }
    if constexpr (std::is_same_v<Sample, float>) {
        if (count > 2) {
            samples[0] = 1.0F;
            samples[1] = -1.0F;
        }
    }
    return samples;
}

template <typename Sample>
bool SameBits(const std::vector<Sample>& a, const std::vector<Sample>& b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(Sample)) == 0);
}

// Enables of ducking and compressor, channels, sample rate.
using Setting = std::tuple<bool, bool, std::size_t, int>;

class VolumeControllerExactTest : public testing::TestWithParam<Setting> {
  protected:
    template <typename Sample>
    void CompareBlocks() {
        const auto [ducking, compressor, channels, rate] = GetParam();
        const Ducking duckingParams{ducking, 0.011F, 0.033F, 0.021F, -30.0F, -17.0F};
        const Compressor compressorParams{compressor, 0.004F, 0.013F, -40.0F, -15.0F};
        VolumeController controller(16000);
        controller.SetDuckingParams(duckingParams);
        controller.SetCompressorParams(compressorParams);
        controller.init_params();
        controller.UpdateFS(rate);
        Model model(rate, duckingParams, compressorParams);
        std::mt19937 random(3);
        for (const std::size_t frames : {0U, 1U, 7U, 64U, 480U, 479U, 0U, 1023U, 4096U, 1U, 333U}) {
            // Levels around the thresholds, so that ducking starts, holds and releases.
            const float duckingLevel = random() % 3 == 0 ? -20.0F : -45.0F;
            const float compressorLevel = random() % 2 == 0 ? -39.0F : -40.0F;
            controller.SetDuckingVolume(duckingLevel, true);
            controller.SetCompressorVolume(compressorLevel, true);
            model.SetLevels(duckingLevel, compressorLevel);
            // Samples behind the last whole frame stay as they are.
            const auto in = Noise<Sample>(random, frames * channels + channels - 1);
            const auto expected = model.Process(in, channels);

            auto inPlace = in;
            auto* const bytes = reinterpret_cast<char*>(inPlace.data());
            controller.Process(bytes, bytes, channels, in.size() * sizeof(Sample),
                               FormatOf<Sample>());
            ASSERT_TRUE(SameBits(inPlace, expected)) << "frames " << frames;
            if (ducking || compressor) {
                model.ExpectStateOf(controller);
            }
        }
    }
};

TEST_P(VolumeControllerExactTest, Int16BlocksEqualTheModelBitByBit) {
    CompareBlocks<std::int16_t>();
}
TEST_P(VolumeControllerExactTest, Int32BlocksEqualTheModelBitByBit) {
    CompareBlocks<std::int32_t>();
}
TEST_P(VolumeControllerExactTest, FloatBlocksEqualTheModelBitByBit) {
    CompareBlocks<float>();
}

TEST_P(VolumeControllerExactTest, GainsThatComeToRestAndMoveAgainEqualTheModelBitByBit) {
    const auto [ducking, compressor, channels, rate] = GetParam();
    const Ducking duckingParams{ducking, 0.01F, 0.02F, 0.1F, -30.0F, -17.0F};
    const Compressor compressorParams{compressor, 0.004F, 0.013F, -40.0F, -15.0F};
    VolumeController controller(rate);
    controller.SetDuckingParams(duckingParams);
    controller.SetCompressorParams(compressorParams);
    controller.init_params();
    Model model(rate, duckingParams, compressorParams);
    std::mt19937 random(5);
    constexpr int kBlocks = 90;
    for (int block = 0; block < kBlocks; ++block) {
        // Down and to rest, held and back up and to rest; one loud block while all is still.
        const float level = block < kBlocks / 3 ? -20.0F : -45.0F;
        controller.SetDuckingVolume(level, true);
        model.SetLevels(level, -80.0F);
        auto in = Noise<float>(random, 512 * channels);
        const float loudness = block == kBlocks - 15 ? 1.0F : 0.01F;
        for (float& sample : in) {
            sample *= loudness;
        }
        const auto expected = model.Process(in, channels);
        auto* const bytes = reinterpret_cast<char*>(in.data());
        controller.Process(bytes, bytes, channels, in.size() * sizeof(float),
                           VolumeControllerFormat::kFloat32);
        ASSERT_TRUE(SameBits(in, expected)) << "block " << block;
        if (ducking || compressor) {
            model.ExpectStateOf(controller);
        }
    }
}

std::string SettingName(const testing::TestParamInfo<Setting>& info) {
    const auto& [ducking, compressor, channels, rate] = info.param;
    return std::string(ducking ? "Ducking" : "") + (compressor ? "Compressor" : "") +
           (ducking || compressor ? "" : "Neither") + "_" + std::to_string(channels) + "ch_" +
           std::to_string(rate);
}

INSTANTIATE_TEST_SUITE_P(Settings, VolumeControllerExactTest,
                         testing::Combine(testing::Bool(), testing::Bool(),
                                          testing::Values(1, 2, 3, 5, 6, 8),
                                          testing::Values(48000, 22050, 800)),
                         SettingName);

TEST(VolumeControllerExactTest, AnotherOutputBlockGetsTheSameSamplesAndTheInputIsKept) {
    Ducking ducking;
    ducking.enable = true;
    Compressor compressor;
    compressor.enable = true;
    VolumeController controller(48000);
    controller.SetDuckingParams(ducking);
    controller.SetCompressorParams(compressor);
    controller.init_params();
    controller.SetDuckingVolume(-3.0F, true);
    Model model(48000, ducking, compressor);
    model.SetLevels(-3.0F, -80.0F);
    std::mt19937 random(11);
    const auto in = Noise<float>(random, 2000);
    const auto kept = in;
    std::vector<float> out(in.size());
    controller.Process(reinterpret_cast<const char*>(in.data()),
                       reinterpret_cast<char*>(out.data()), 2, in.size() * sizeof(float),
                       VolumeControllerFormat::kFloat32);
    EXPECT_TRUE(SameBits(out, model.Process(in, 2)));
    EXPECT_TRUE(SameBits(in, kept));
}

TEST(VolumeControllerExactTest, SingleStepsEqualTheModelBitByBit) {
    Ducking ducking;
    ducking.enable = true;
    ducking.attackTime = 0.01F;
    Compressor compressor;
    compressor.enable = true;
    VolumeController controller(48000);
    controller.SetDuckingParams(ducking);
    controller.SetCompressorParams(compressor);
    controller.init_params();
    Model model(48000, ducking, compressor);
    controller.SetDuckingVolume(-3.0F, true);
    model.SetLevels(-3.0F, -80.0F);
    std::mt19937 random(5);
    const auto samples = Noise<float>(random, 2000);
    const float c = controller.calculate_ducking_info(2000);
    ASSERT_EQ(c, model.DuckingInfo(2000));
    for (const float sample : samples) {
        ASSERT_EQ(controller.calculate_sample_gain(sample, c), model.SampleGain(sample, c));
    }
    for (const float sample : samples) {
        ASSERT_EQ(controller.calculate_compressor_gain(sample), model.CompressorGain(sample));
    }
    model.ExpectStateOf(controller);
}

TEST(VolumeControllerExactTest, TypedBlocksEqualTheModelBitByBit) {
    Compressor compressor;
    compressor.enable = true;
    VolumeController controller(48000);
    controller.SetCompressorParams(compressor);
    Model model(48000, {}, compressor);
    std::mt19937 random(9);
    auto samples = Noise<float>(random, 900);
    const auto expected = model.Process(samples, 3);
    controller.adjust_volume(samples.data(), samples.data(), 3, 300);
    EXPECT_TRUE(SameBits(samples, expected));
}

TEST(VolumeControllerExactTest, SplittingABlockChangesNothingButTheHoldDecision) {
    Compressor compressor;
    compressor.enable = true;
    VolumeController whole(48000);
    VolumeController split(48000);
    whole.SetCompressorParams(compressor);
    split.SetCompressorParams(compressor);
    std::mt19937 random(2);
    auto first = Noise<std::int16_t>(random, 3001);
    auto second = first;
    whole.adjust_volume(first.data(), first.data(), 1, first.size());
    for (std::size_t done = 0; done < second.size();) {
        const std::size_t frames = std::min<std::size_t>(1 + random() % 100, second.size() - done);
        split.adjust_volume(second.data() + done, second.data() + done, 1, frames);
        done += frames;
    }
    EXPECT_TRUE(SameBits(first, second));
}

}  // namespace
}  // namespace korva_audio_utils
