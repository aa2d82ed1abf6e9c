#pragma once

#include "common/Planes.h"
#include "unit/LevelMeter.h"
#include "unit/Unit.h"

namespace tqplatform {

/// The multichannel mixer: any number of input buses, each with its own format and rate, summed
/// into one output bus. Buses of one rate are summed before their sum is resampled, so that each
/// rate costs one conversion however many buses have it.
class MixerUnit final : public Unit {
  public:
    static constexpr UInt32 kDefaultInputs = 8;
    static constexpr UInt32 kMostInputs = 128;

    explicit MixerUnit(const Component& component);

  protected:
    std::unique_ptr<RenderPlan> makePlan(const RenderPlan* old) override;
    OSStatus renderBus(const RenderPlan& plan, const RenderCall& call) noexcept override;
    [[nodiscard]] const PropertyTable& properties() const override;
    OSStatus findParameter(AudioUnitParameterID id, AudioUnitScope scope, AudioUnitElement element,
                           Parameter& parameter) noexcept override;
    [[nodiscard]] bool acceptsFormat(AudioUnitScope scope, const PCMFormat& format) override;
    [[nodiscard]] bool isInputCountWritable() const override { return true; }
    OSStatus setInputCount(UInt32 count) override;

  private:
    struct Levels {
        ParameterValue volume{1};
        ParameterValue enable{1};
        ParameterValue pan{0};
        ParameterRamp volumeRamp;
        ParameterRamp panRamp;
        SwitchedMeter meter;
    };
    struct Input;
    struct Plan;
    struct Properties;

    /// [render thread] [real-time safe] Pulls one bus through `planes`, as many frames at a time as
    /// those hold, into the sum of its rate.
    void addInput(const Input& input, const RenderCall& call,
                  const tqcommon::AudioView& planes) noexcept;
    /// [render thread] [real-time safe] The same sum while volume or pan change, frame by frame;
    /// `first` counts in the frames of the group.
    static void addRamped(const Input& input, const Levels& levels, UInt32 first, Float64 scale,
                          const tqcommon::ConstAudioView& found) noexcept;

    // Values of properties, under the lock.
    UInt32 metering(PropertyKey key);
    OSStatus writeMetering(PropertyKey key, UInt32 value);

    [[nodiscard]] SwitchedMeter& meterOf(AudioUnitScope scope, AudioUnitElement element) noexcept {
        return scope == kAudioUnitScope_Input ? levels_[element].meter : outputMeter_;
    }

    std::array<Levels, kMostInputs> levels_;
    std::atomic<UInt32> inputCount_{kDefaultInputs};
    ParameterValue outputVolume_{1};
    ParameterRamp outputRamp_;
    SwitchedMeter outputMeter_;
};

}  // namespace tqplatform
