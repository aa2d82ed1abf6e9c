#pragma once

#include "unit/ConvertedInput.h"
#include "unit/Unit.h"

namespace tqplatform {

/// The format converter: one input bus, one output bus, each of any format and rate.
class ConverterUnit : public Unit {
  public:
    explicit ConverterUnit(const Component& component);

  protected:
    std::unique_ptr<RenderPlan> makePlan(const RenderPlan* old) override;
    OSStatus renderBus(const RenderPlan& plan, const RenderCall& call) noexcept override;
    [[nodiscard]] const PropertyTable& properties() const override;

  private:
    struct Plan;
    static constexpr UInt32 kBestQuality = 127;

    // Kept to be read back; they change nothing, as the resampler has one quality, the best.
    UInt32 renderQuality(PropertyKey key);
    OSStatus writeRenderQuality(PropertyKey key, UInt32 quality);
    UInt32 complexity(PropertyKey key);
    OSStatus writeComplexity(PropertyKey key, UInt32 complexity);

    UInt32 renderQuality_ = kBestQuality;
    UInt32 complexity_ = 0x6D617374;  // "mast"
};

/// An output unit without a device: the program pulls it with AudioUnitRender(). Its render does
/// not depend on whether it was started.
class GenericOutputUnit final : public ConverterUnit {
  public:
    using ConverterUnit::ConverterUnit;
    OSStatus start() override;
    OSStatus stop() override;
    [[nodiscard]] bool isRunning() const noexcept override { return running_.load(); }

  protected:
    [[nodiscard]] const PropertyTable& properties() const override;
    void stopOnUninitialize() override { static_cast<void>(stop()); }

  private:
    UInt32 running(PropertyKey key);

    std::atomic<bool> running_{false};
};

}  // namespace tqplatform
