#include "unit/ConverterUnit.h"

namespace tqplatform {

struct ConverterUnit::Plan : RenderPlan {
    InputSource source;
    bool allocate = true;
    std::shared_ptr<ConvertedInput> input;
    std::shared_ptr<tqcommon::Planes> planes;
};

ConverterUnit::ConverterUnit(const Component& component) : Unit(component) {
    constexpr Float64 kRate = 44100;
    inputs_.resize(1);
    outputs_.resize(1);
    inputs_[0].format = floatDescription(kRate, 2);
    outputs_[0].format = floatDescription(kRate, 2);
}

std::unique_ptr<RenderPlan> ConverterUnit::makePlan(const RenderPlan* old) {
    const auto* const last = static_cast<const Plan*>(old);
    auto plan = std::make_unique<Plan>();
    const PCMFormat in = parsed(inputs_[0].format);
    const PCMFormat out = parsed(outputs_[0].format);
    plan->maximumFrames = maximumFrames_;
    plan->outputs.push_back({out, outputs_[0].allocate, memoryFor(0, out, maximumFrames_)});
    plan->source = inputs_[0].source;
    plan->allocate = inputs_[0].allocate;
    if (last != nullptr && last->input->fits(in, out.sampleRate, out.channels, maximumFrames_)) {
        plan->input = last->input;
        plan->planes = last->planes;
    } else {
        plan->input =
            std::make_shared<ConvertedInput>(in, out.sampleRate, out.channels, maximumFrames_);
        plan->planes = std::make_shared<tqcommon::Planes>(out.channels, maximumFrames_);
    }
    return plan;
}

OSStatus ConverterUnit::renderBus(const RenderPlan& base, const RenderCall& call) noexcept {
    const auto& plan = static_cast<const Plan&>(base);
    if (takeRestart()) {
        plan.input->restart();
    }
    if (!plan.source.exists()) {
        return kAudioUnitErr_NoConnection;
    }
    const tqcommon::AudioView planes = plan.planes->view(call.frames);
    const OSStatus status =
        plan.input->read({plan.source, plan.allocate, 0, call.flags, call.time}, planes);
    fromFloat(planes, plan.outputs[0].format, call.list);
    return status;
}

const PropertyTable& ConverterUnit::properties() const {
    static constexpr PropertyRow kRows[] = {
        property::readWrite<&ConverterUnit::renderQuality, &ConverterUnit::writeRenderQuality>(
            kAudioUnitProperty_RenderQuality, property::global),
        property::readWrite<&ConverterUnit::complexity, &ConverterUnit::writeComplexity>(
            kAudioUnitProperty_SampleRateConverterComplexity, property::global),
    };
    static const PropertyTable table{kRows, &commonProperties()};
    return table;
}

UInt32 ConverterUnit::renderQuality(PropertyKey /*key*/) {
    return renderQuality_;
}

OSStatus ConverterUnit::writeRenderQuality(PropertyKey /*key*/, UInt32 quality) {
    if (quality > kBestQuality) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    renderQuality_ = quality;
    return noErr;
}

UInt32 ConverterUnit::complexity(PropertyKey /*key*/) {
    return complexity_;
}

OSStatus ConverterUnit::writeComplexity(PropertyKey /*key*/, UInt32 complexity) {
    complexity_ = complexity;
    return noErr;
}

const PropertyTable& GenericOutputUnit::properties() const {
    static constexpr PropertyRow kRows[] = {
        property::readOnly<&GenericOutputUnit::running>(kAudioOutputUnitProperty_IsRunning,
                                                        property::global),
    };
    static const PropertyTable table{kRows, &ConverterUnit::properties()};
    return table;
}

UInt32 GenericOutputUnit::running(PropertyKey /*key*/) {
    return isRunning() ? 1 : 0;
}

OSStatus GenericOutputUnit::start() {
    {
        const std::lock_guard lock(lock_);
        if (!initialized_) {
            return kAudioUnitErr_Uninitialized;
        }
        if (running_.exchange(true)) {
            return noErr;
        }
    }
    tellListeners({kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, 0});
    return noErr;
}

OSStatus GenericOutputUnit::stop() {
    if (running_.exchange(false)) {
        tellListeners({kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, 0});
    }
    return noErr;
}

}  // namespace tqplatform
