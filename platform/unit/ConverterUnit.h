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
    OSStatus describeProperty(PropertyKey key, PropertyInfo& info) override;
    OSStatus readProperty(PropertyKey key, void* data) override;
    OSStatus writeProperty(PropertyKey key, const void* data, UInt32 size) override;

  private:
    struct Plan;
    UInt32 renderQuality_ = 127;
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
    OSStatus describeProperty(PropertyKey key, PropertyInfo& info) override;
    OSStatus readProperty(PropertyKey key, void* data) override;
    void stopOnUninitialize() override { static_cast<void>(stop()); }

  private:
    std::atomic<bool> running_{false};
};

}  // namespace tqplatform
