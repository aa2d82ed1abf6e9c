#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/RealTime.h"

namespace korva_audio_utils {

struct GainBlock;

/// How the interleaved samples of a block are stored, in the machine's byte order.
enum class VolumeControllerFormat : std::int32_t {
    kInt16 = 0,
    kInt32 = 1,
    kFloat32 = 2,
};

/// Lowers the level of one track in place with two independent effects: ducking (a smoothed fixed
/// gain while an outside level is above a threshold, held and released afterwards) and a peak
/// compressor with a side chain.
///
/// Threads: Process and the calculate_ and adjust_ functions are [render thread], all others
/// [any thread]. Nothing here locks or allocates: every function is real-time safe.
///
/// Lock-free between control threads and the render thread:
/// - Parameters are single atomics, stored by control threads in relaxed order and read once a
///   block. Invariant: a block works with one copy of them; it may meet a record half stored, and
///   the next block meets the rest.
/// - Derived coefficients are stored by init_params. Invariant: the last init_params to end has
///   seen every input stored before it; inputVersion_ (acq_rel) tells it when it has not, and it
///   repeats.
/// - State (targets, current gains, counters) is stored by the render thread only, at the end of a
///   block. A reset does not touch it, it raises a counter (acq_rel). Invariant: state counts as
///   fresh unless the block that stored it had seen every reset. The block publishes the state with
///   the count that it had seen (release); getters read that count first (acquire). So a reset
///   during a block takes effect after it, and neither thread waits for the other.
///
/// Senseless parameters (a rate of 0, negative or not-a-number times and levels) never trap: what
/// they give is computed as IEEE arithmetic has it, and a gain that does not come out between 0
/// and 1 leaves the sample as it is.
class VolumeController {
  public:
    struct DuckingParams {
        bool enable = false;
        float attackTime = 0.2F;    ///< seconds from 10 % to 90 % of the way down
        float releaseTime = 1.0F;   ///< seconds from 10 % to 90 % of the way back
        float holdTime = 1.0F;      ///< seconds that the gain stays down
        float threshold = -30.0F;   ///< dB; ducking starts while the ducking volume is above
        float targetGain = -20.0F;  ///< dB; the gain while ducked
    };
    struct CompressorParams {
        bool enable = false;
        float attackTime = 0.05F;           ///< seconds from 10 % to 90 % of the way down
        float releaseTime = 0.1F;           ///< seconds from 10 % to 90 % of the way back
        float sideChainThreshold = -40.0F;  ///< dB; above it the threshold below tightens
        float threshold = -15.0F;           ///< dB of full scale
    };

    /// [host thread] sampleRate in hertz. Parameters start at the defaults above.
    explicit VolumeController(int sampleRate);
    VolumeController(const VolumeController&) = delete;
    VolumeController& operator=(const VolumeController&) = delete;

    /// [any thread] Stores the record in its field order and nothing else; init_params applies it.
    void SetDuckingParams(const DuckingParams& params) noexcept;
    void SetCompressorParams(const CompressorParams& params) noexcept;
    /// [any thread] Derives coefficients, gains and intervals from the records and the sample rate.
    /// Calls on two threads end with what the latest inputs give.
    void init_params() noexcept;
    /// [any thread] Stores another sample rate (hertz) and calls init_params; the same rate changes
    /// nothing.
    void UpdateFS(int sampleRate) noexcept;

    /// [any thread] The outside levels, in dB when isDB, else linear (0 is minus infinity dB).
    void SetDuckingVolume(float value, bool isDB) noexcept;
    void SetCompressorVolume(float value, bool isDB) noexcept;

    /// [any thread] Back to the state of a fresh controller: ducking volume, hold counter, target
    /// and current gain; for the compressor its volume, target and current gain, sample counter.
    void ResetDuckingState() noexcept;
    void ResetCompressorState() noexcept;

    /// [render thread] Other sound begins with the next block: at the level that the ducking volume
    /// has by now, without the way there, and with the compressor at rest.
    void BeginSound() noexcept TQ_NONBLOCKING;

    /// [render thread] Applies the enabled effects to dataSize bytes from in to out, which may be
    /// the same. With no effect enabled or an unknown format the bytes are moved unchanged. Bytes
    /// behind the last whole frame (all of them when channels is 0) are not written while an
    /// effect runs. Null pointers make a block without frames.
    void Process(const char* in, char* out, std::size_t channels, std::size_t dataSize,
                 VolumeControllerFormat format) noexcept TQ_NONBLOCKING;

    /// [render thread] Processes frames in the typed variant that format names; any other value
    /// does nothing. The full scale is that of the last Process.
    void adjust_volume(const char* in, char* out, std::size_t channels, std::size_t frames,
                       int format) noexcept TQ_NONBLOCKING;
    /// [render thread] For std::int16_t, std::int32_t and float. The detector hears the first
    /// channel. Integers are converted to float, multiplied and truncated towards zero, saturating
    /// at 32 bits (not-a-number gives 0); of that a 16-bit sample keeps the low 16 bits.
    template <typename Sample>
    void adjust_volume(const Sample* in, Sample* out, std::size_t channels,
                       std::size_t frames) noexcept TQ_NONBLOCKING;

    /// [render thread] Decides on ducking for a block of frames, advances the hold, sets the
    /// ducking target and returns the smoothing coefficient of the block.
    float calculate_ducking_info(int frames) noexcept TQ_NONBLOCKING;
    /// [render thread] The gain for one frame whose first sample is given.
    float calculate_sample_gain(float sample, float coefficient) noexcept TQ_NONBLOCKING;
    /// [render thread] Advances the compressor by one frame and returns its gain.
    float calculate_compressor_gain(float sample) noexcept TQ_NONBLOCKING;

    /// [any thread] The fields; levels in dB, gains linear, times in the unit of the name.
    DuckingParams GetDuckingParams() const noexcept;
    CompressorParams GetCompressorParams() const noexcept;
    float CompressorVolume() const noexcept { return Get(compressorVolume_); }
    float DuckingVolume() const noexcept { return Get(duckingVolume_); }
    int SampleRate() const noexcept { return Get(sampleRate_); }
    float DuckingAttackCoefficient() const noexcept { return Get(duckingAttackCoefficient_); }
    float DuckingReleaseCoefficient() const noexcept { return Get(duckingReleaseCoefficient_); }
    float HoldSamples() const noexcept { return Get(holdSamples_); }
    float DuckingGain() const noexcept { return Get(duckingGain_); }
    std::int32_t HoldCounter() const noexcept { return DuckingState(holdCounter_, kNoHold); }
    float DuckingTarget() const noexcept { return DuckingState(duckingTarget_, 1.0F); }
    float DuckingCurrent() const noexcept { return DuckingState(duckingCurrent_, 1.0F); }
    float CompressorAttackCoefficient() const noexcept { return Get(compressorAttackCoefficient_); }
    float CompressorReleaseCoefficient() const noexcept {
        return Get(compressorReleaseCoefficient_);
    }
    float FullScale() const noexcept { return Get(fullScale_); }
    float CompressorThreshold() const noexcept { return Get(compressorThreshold_); }
    float Ratio() const noexcept { return kRatio; }
    float CompressorTarget() const noexcept { return CompressorState(compressorTarget_, 1.0F); }
    float CompressorCurrent() const noexcept { return CompressorState(compressorCurrent_, 1.0F); }
    std::int32_t UpdateInterval() const noexcept { return Get(updateInterval_); }
    std::uint64_t SampleCounter() const noexcept {
        return CompressorState(sampleCounter_, std::uint64_t{0});
    }

  private:
    /// Longer than any hold: no hold is running.
    static constexpr std::int32_t kNoHold = 1 << 30;

    template <typename T>
    static T Get(const std::atomic<T>& field) noexcept {
        return field.load(std::memory_order_relaxed);
    }
    template <typename T>
    static void Put(std::atomic<T>& field, T value) noexcept {
        field.store(value, std::memory_order_relaxed);
    }
    GainBlock BeginBlock() const noexcept;
    void EndBlock(const GainBlock& block) noexcept;
    /// A field of the state, or its fresh value when a reset came after the last block.
    template <typename T>
    T DuckingState(const std::atomic<T>& field, T fresh) const noexcept {
        return obeyedDuckingResets_.load(std::memory_order_acquire) == Get(duckingResets_)
                   ? Get(field)
                   : fresh;
    }
    template <typename T>
    T CompressorState(const std::atomic<T>& field, T fresh) const noexcept {
        return obeyedCompressorResets_.load(std::memory_order_acquire) == Get(compressorResets_)
                   ? Get(field)
                   : fresh;
    }

    static constexpr float kRatio = 5.0F;

    std::atomic<float> compressorVolume_;
    std::atomic<float> duckingVolume_;
    std::atomic<std::int32_t> sampleRate_;

    std::atomic<bool> duckingEnable_;
    std::atomic<float> duckingAttackTime_;
    std::atomic<float> duckingReleaseTime_;
    std::atomic<float> duckingHoldTime_;
    std::atomic<float> duckingThreshold_;
    std::atomic<float> duckingTargetGain_;
    std::atomic<float> duckingAttackCoefficient_{0.0F};
    std::atomic<float> duckingReleaseCoefficient_{0.0F};
    std::atomic<float> holdSamples_{0.0F};
    std::atomic<float> duckingGain_{1.0F};
    std::atomic<std::int32_t> holdCounter_{kNoHold};
    std::atomic<float> duckingTarget_{1.0F};
    std::atomic<float> duckingCurrent_{1.0F};

    std::atomic<bool> compressorEnable_;
    std::atomic<float> compressorAttackTime_;
    std::atomic<float> compressorReleaseTime_;
    std::atomic<float> compressorSideChainThreshold_;
    std::atomic<float> compressorThresholdDB_;
    std::atomic<float> compressorAttackCoefficient_{0.0F};
    std::atomic<float> compressorReleaseCoefficient_{0.0F};
    std::atomic<float> fullScale_{1.0F};
    std::atomic<float> compressorThreshold_{1.0F};
    std::atomic<float> compressorTarget_{1.0F};
    std::atomic<float> compressorCurrent_{1.0F};
    std::atomic<std::int32_t> updateInterval_{48};
    std::atomic<std::uint64_t> sampleCounter_{0};

    /// Counts changes of what init_params reads; stored after the change.
    std::atomic<std::uint32_t> inputVersion_{0};
    /// Resets so far, and how many of them the block knew that stored the state last.
    std::atomic<std::uint32_t> duckingResets_{0};
    std::atomic<std::uint32_t> compressorResets_{0};
    std::atomic<std::uint32_t> obeyedDuckingResets_{0};
    std::atomic<std::uint32_t> obeyedCompressorResets_{0};
};

extern template void VolumeController::adjust_volume<std::int16_t>(const std::int16_t*,
                                                                   std::int16_t*, std::size_t,
                                                                   std::size_t) noexcept;
extern template void VolumeController::adjust_volume<std::int32_t>(const std::int32_t*,
                                                                   std::int32_t*, std::size_t,
                                                                   std::size_t) noexcept;
extern template void VolumeController::adjust_volume<float>(const float*, float*, std::size_t,
                                                            std::size_t) noexcept;

}  // namespace korva_audio_utils
