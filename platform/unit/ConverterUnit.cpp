#include "unit/ConverterUnit.h"
#include "component/Status.h"

#include <cstring>

namespace tqplatform {

struct ConverterUnit::Plan : RenderPlan {
    InputSource source;
    bool allocate = true;
    std::shared_ptr<ConvertedInput> input;
    std::shared_ptr<tqcommon::Planes> planes;
};

ConverterUnit::ConverterUnit(const Component& component) : Unit(component) {
    constexpr Float64 rate = 44100;
    inputs_.resize(1);
    outputs_.resize(1);
    inputs_[0].format = floatDescription(rate, 2);
    outputs_[0].format = floatDescription(rate, 2);
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

OSStatus ConverterUnit::describeProperty(PropertyKey key, PropertyInfo& info) {
    if (key.id != kAudioUnitProperty_RenderQuality &&
        key.id != kAudioUnitProperty_SampleRateConverterComplexity) {
        return Unit::describeProperty(key, info);
    }
    // Remembered for whoever asks; the resampler has one quality, the best.
    info = {sizeof(UInt32), true};
    if (key.scope != kAudioUnitScope_Global) {
        return kAudioUnitErr_InvalidScope;
    }
    return okOr(key.element == 0, kAudioUnitErr_InvalidElement);
}

OSStatus ConverterUnit::readProperty(PropertyKey key, void* data) {
    if (key.id == kAudioUnitProperty_RenderQuality) {
        std::memcpy(data, &renderQuality_, sizeof renderQuality_);
        return noErr;
    }
    if (key.id == kAudioUnitProperty_SampleRateConverterComplexity) {
        std::memcpy(data, &complexity_, sizeof complexity_);
        return noErr;
    }
    return Unit::readProperty(key, data);
}

OSStatus ConverterUnit::writeProperty(PropertyKey key, const void* data, UInt32 size) {
    if (key.id == kAudioUnitProperty_RenderQuality) {
        constexpr UInt32 best = 127;
        UInt32 quality = 0;
        std::memcpy(&quality, data, sizeof quality);
        if (quality > best) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        renderQuality_ = quality;
        return noErr;
    }
    if (key.id == kAudioUnitProperty_SampleRateConverterComplexity) {
        std::memcpy(&complexity_, data, sizeof complexity_);
        return noErr;
    }
    return Unit::writeProperty(key, data, size);
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

OSStatus GenericOutputUnit::describeProperty(PropertyKey key, PropertyInfo& info) {
    if (key.id != kAudioOutputUnitProperty_IsRunning) {
        return ConverterUnit::describeProperty(key, info);
    }
    info = {sizeof(UInt32), false};
    if (key.scope != kAudioUnitScope_Global) {
        return kAudioUnitErr_InvalidScope;
    }
    return okOr(key.element == 0, kAudioUnitErr_InvalidElement);
}

OSStatus GenericOutputUnit::readProperty(PropertyKey key, void* data) {
    if (key.id == kAudioOutputUnitProperty_IsRunning) {
        const UInt32 running = isRunning() ? 1 : 0;
        std::memcpy(data, &running, sizeof running);
        return noErr;
    }
    return ConverterUnit::readProperty(key, data);
}

}  // namespace tqplatform
