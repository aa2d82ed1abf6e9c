#include "volume_controller.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

#include "gain_block.h"

namespace korva_audio_utils {

namespace {

/// ln(1/9): in its time a smoother goes from 10 % to 90 % of a step.
constexpr float kSmootherExponent = -2.1972246F;
constexpr float kFreshVolume = -80.0F;
constexpr float kSideChainFactor = 0.75F;

constexpr std::array<unsigned, 3> kSampleShift{1, 2, 2};
constexpr std::array<float, 3> kFullScale{32767.0F, 2147483648.0F, 1.0F};

float LinearFromDB(float decibels) {
    return std::pow(10.0F, 0.05F * decibels);
}

float DBFromLinear(float value) {
    return 20.0F * std::log10(value);
}

float SmootherCoefficient(float seconds, float sampleRate) {
    return std::exp(kSmootherExponent / (seconds * sampleRate));
}

}  // namespace

VolumeController::VolumeController(int sampleRate)
    : compressorVolume_(kFreshVolume), duckingVolume_(kFreshVolume), sampleRate_(sampleRate) {
    SetDuckingParams({});
    SetCompressorParams({});
    init_params();
}

void VolumeController::SetDuckingParams(const DuckingParams& params) noexcept {
    Put(duckingEnable_, params.enable);
    Put(duckingAttackTime_, params.attackTime);
    Put(duckingReleaseTime_, params.releaseTime);
    Put(duckingHoldTime_, params.holdTime);
    Put(duckingThreshold_, params.threshold);
    Put(duckingTargetGain_, params.targetGain);
    inputVersion_.fetch_add(1, std::memory_order_acq_rel);
}

void VolumeController::SetCompressorParams(const CompressorParams& params) noexcept {
    Put(compressorEnable_, params.enable);
    Put(compressorAttackTime_, params.attackTime);
    Put(compressorReleaseTime_, params.releaseTime);
    Put(compressorSideChainThreshold_, params.sideChainThreshold);
    Put(compressorThresholdDB_, params.threshold);
    inputVersion_.fetch_add(1, std::memory_order_acq_rel);
}

VolumeController::DuckingParams VolumeController::GetDuckingParams() const noexcept {
    return {Get(duckingEnable_),   Get(duckingAttackTime_), Get(duckingReleaseTime_),
            Get(duckingHoldTime_), Get(duckingThreshold_),  Get(duckingTargetGain_)};
}

VolumeController::CompressorParams VolumeController::GetCompressorParams() const noexcept {
    return {Get(compressorEnable_), Get(compressorAttackTime_), Get(compressorReleaseTime_),
            Get(compressorSideChainThreshold_), Get(compressorThresholdDB_)};
}

void VolumeController::init_params() noexcept {
    std::uint32_t version = inputVersion_.load(std::memory_order_acquire);
    for (;;) {
        const std::int32_t rate = Get(sampleRate_);
        const auto fs = static_cast<float>(rate);
        Put(duckingAttackCoefficient_, SmootherCoefficient(Get(duckingAttackTime_), fs));
        Put(duckingReleaseCoefficient_, SmootherCoefficient(Get(duckingReleaseTime_), fs));
        Put(holdSamples_, Get(duckingHoldTime_) * fs);
        Put(duckingGain_, LinearFromDB(Get(duckingTargetGain_)));
        Put(compressorAttackCoefficient_, SmootherCoefficient(Get(compressorAttackTime_), fs));
        Put(compressorReleaseCoefficient_, SmootherCoefficient(Get(compressorReleaseTime_), fs));
        Put(compressorThreshold_, LinearFromDB(Get(compressorThresholdDB_)));
        Put(updateInterval_, rate / 1000);
        // A record or the rate may have changed on another thread since `version` was read: then
        // what was stored is old, and is computed again. A load could be ordered before the stores
        // above; a read-modify-write is not, so the thread that changes the version next sees them.
        const std::uint32_t latest = inputVersion_.fetch_add(0, std::memory_order_acq_rel);
        if (latest == version) {
            return;
        }
        version = latest;
    }
}

void VolumeController::UpdateFS(int sampleRate) noexcept {
    if (Get(sampleRate_) == sampleRate) {
        return;
    }
    Put(sampleRate_, sampleRate);
    inputVersion_.fetch_add(1, std::memory_order_acq_rel);
    init_params();
}

void VolumeController::SetDuckingVolume(float value, bool isDB) noexcept {
    Put(duckingVolume_, isDB ? value : DBFromLinear(value));
}

void VolumeController::SetCompressorVolume(float value, bool isDB) noexcept {
    Put(compressorVolume_, isDB ? value : DBFromLinear(value));
}

// A reset raises a counter and leaves the state alone, which the render thread may be storing: see
// the class comment.

void VolumeController::ResetDuckingState() noexcept {
    Put(duckingVolume_, kFreshVolume);
    duckingResets_.fetch_add(1, std::memory_order_acq_rel);
}

void VolumeController::ResetCompressorState() noexcept {
    Put(compressorVolume_, kFreshVolume);
    compressorResets_.fetch_add(1, std::memory_order_acq_rel);
}

GainBlock VolumeController::BeginBlock() const noexcept {
    GainBlock block{};
    block.duckingResets = duckingResets_.load(std::memory_order_acquire);
    block.compressorResets = compressorResets_.load(std::memory_order_acquire);
    const bool isDuckingFresh = block.duckingResets != Get(obeyedDuckingResets_);
    const bool isCompressorFresh = block.compressorResets != Get(obeyedCompressorResets_);
    block.ducking = Get(duckingEnable_);
    block.duckingVolume = Get(duckingVolume_);
    block.duckingThreshold = Get(duckingThreshold_);
    block.duckingAttackCoefficient = Get(duckingAttackCoefficient_);
    block.duckingReleaseCoefficient = Get(duckingReleaseCoefficient_);
    block.holdSamples = Get(holdSamples_);
    block.duckingGain = Get(duckingGain_);
    block.holdCounter = isDuckingFresh ? kNoHold : Get(holdCounter_);
    block.duckingTarget = isDuckingFresh ? 1.0F : Get(duckingTarget_);
    block.duckingCurrent = isDuckingFresh ? 1.0F : Get(duckingCurrent_);

    block.compressor = Get(compressorEnable_);
    block.compressorAttackCoefficient = Get(compressorAttackCoefficient_);
    block.compressorReleaseCoefficient = Get(compressorReleaseCoefficient_);
    const bool tight = Get(compressorVolume_) > Get(compressorSideChainThreshold_);
    block.compressorThreshold = Get(compressorThreshold_) * (tight ? kSideChainFactor : 1.0F);
    block.fullScale = Get(fullScale_);
    // Lower than the threshold by more than this product and the division can err together, so that
    // a sample below it is under the threshold without dividing.
    block.quietBelow = block.compressorThreshold * block.fullScale * 0.999999F;
    block.compressorTarget = isCompressorFresh ? 1.0F : Get(compressorTarget_);
    block.compressorCurrent = isCompressorFresh ? 1.0F : Get(compressorCurrent_);
    block.sampleCounter = isCompressorFresh ? 0 : Get(sampleCounter_);

    // An evaluation happens at every multiple of the interval; with an interval of 0, at sample 0
    // only.
    const auto interval = static_cast<std::uint64_t>(std::abs(std::int64_t{Get(updateInterval_)}));
    constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
    block.updatePeriod = interval == 0 ? kNever : interval;
    const std::uint64_t past = block.sampleCounter % block.updatePeriod;
    block.untilUpdate = past == 0 ? 0 : block.updatePeriod - past;
    return block;
}

void VolumeController::EndBlock(const GainBlock& block) noexcept {
    Put(holdCounter_, block.holdCounter);
    Put(duckingTarget_, block.duckingTarget);
    Put(duckingCurrent_, block.duckingCurrent);
    obeyedDuckingResets_.store(block.duckingResets, std::memory_order_release);
    Put(compressorTarget_, block.compressorTarget);
    Put(compressorCurrent_, block.compressorCurrent);
    Put(sampleCounter_, block.sampleCounter);
    obeyedCompressorResets_.store(block.compressorResets, std::memory_order_release);
}

void VolumeController::BeginSound() noexcept {
    GainBlock block = BeginBlock();
    block.holdCounter = kNoHold;
    (void)block.DecideDucking(0);
    block.duckingCurrent = block.ducking ? block.duckingTarget : 1.0F;
    block.compressorTarget = 1.0F;
    block.compressorCurrent = 1.0F;
    block.sampleCounter = 0;
    EndBlock(block);
}

void VolumeController::Process(const char* in, char* out, std::size_t channels,
                               std::size_t dataSize, VolumeControllerFormat format) noexcept {
    // Unsigned: a negative format becomes a large one, and both are unknown.
    const auto kind = static_cast<std::uint32_t>(format);
    if ((Get(duckingEnable_) || Get(compressorEnable_)) && kind < kFullScale.size()) {
        const std::size_t samples = dataSize >> kSampleShift[kind];
        Put(fullScale_, kFullScale[kind]);
        adjust_volume(in, out, channels, channels == 0 ? 0 : samples / channels,
                      static_cast<int>(kind));
    } else if (in != out && in != nullptr && out != nullptr && dataSize != 0) {
        std::memmove(out, in, dataSize);
    }
}

void VolumeController::adjust_volume(const char* in, char* out, std::size_t channels,
                                     std::size_t frames, int format) noexcept {
    const auto run = [&](auto sample) {
        using Sample = decltype(sample);
        adjust_volume(reinterpret_cast<const Sample*>(in), reinterpret_cast<Sample*>(out), channels,
                      frames);
    };
    switch (static_cast<VolumeControllerFormat>(format)) {
        case VolumeControllerFormat::kFloat32:
            run(float{});
            break;
        case VolumeControllerFormat::kInt32:
            run(std::int32_t{});
            break;
        case VolumeControllerFormat::kInt16:
            run(std::int16_t{});
            break;
    }
}

template <typename Sample>
void VolumeController::adjust_volume(const Sample* in, Sample* out, std::size_t channels,
                                     std::size_t frames) noexcept {
    if (in == nullptr || out == nullptr || channels == 0) {
        frames = 0;
    }
    GainBlock block = BeginBlock();
    constexpr std::size_t kMaxFrames = std::numeric_limits<std::int32_t>::max();
    const float coefficient =
        block.DecideDucking(static_cast<std::int64_t>(std::min(frames, kMaxFrames)));
    RunGain(block, in, out, channels, frames, coefficient);
    EndBlock(block);
}

template void VolumeController::adjust_volume<std::int16_t>(const std::int16_t*, std::int16_t*,
                                                            std::size_t, std::size_t) noexcept;
template void VolumeController::adjust_volume<std::int32_t>(const std::int32_t*, std::int32_t*,
                                                            std::size_t, std::size_t) noexcept;
template void VolumeController::adjust_volume<float>(const float*, float*, std::size_t,
                                                     std::size_t) noexcept;

float VolumeController::calculate_ducking_info(int frames) noexcept {
    GainBlock block = BeginBlock();
    const float coefficient = block.DecideDucking(frames);
    EndBlock(block);
    return coefficient;
}

float VolumeController::calculate_sample_gain(float sample, float coefficient) noexcept {
    GainBlock block = BeginBlock();
    const float gain = block.SampleGain(sample, coefficient);
    EndBlock(block);
    return gain;
}

float VolumeController::calculate_compressor_gain(float sample) noexcept {
    GainBlock block = BeginBlock();
    const float gain = block.CompressorGain(sample);
    EndBlock(block);
    return gain;
}

}  // namespace korva_audio_utils
