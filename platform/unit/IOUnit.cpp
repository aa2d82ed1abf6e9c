#include "unit/IOUnit.h"

#include "component/Component.h"
#include "component/Status.h"
#include "unit/IOUnitPlan.h"

namespace tqplatform {

IOUnit::IOUnit(const Component& component) : Unit(component), device_(sharedDevice()) {
    maximumFrames_ = device_.maximumFrames();
    inputs_.resize(2);
    outputs_.resize(2);
    inputs_[0].format = floatDescription(device_.sampleRate(), 2);
    outputs_[kMicrophone].format = floatDescription(device_.sampleRate(), 2);
}

void IOUnit::close() {
    static_cast<void>(stop());
}

void IOUnit::forgetAfterFork(bool isInside) noexcept {
    Unit::forgetAfterFork(isInside);
    // The child's device has no clients: it plays what is started anew.
    running_.store(false);
}

OSStatus IOUnit::start() {
    if (!isInitialized()) {
        return kAudioUnitErr_Uninitialized;
    }
    {
        // The device's thread does not wait: the holder may be waiting for this slice to end.
        std::unique_lock transition(transition_, std::defer_lock);
        if (!device_.isDeviceThread()) {
            transition.lock();
        }
        if (running_.exchange(true)) {
            return noErr;
        }
        beginning_.store(true);
        bool isClient = false;
        try {
            isClient = device_.addClient(*this);
        } catch (...) {
            running_.store(false);
            throw;
        }
        if (!isClient) {
            running_.store(false);
            return kAudioUnitErr_FailedInitialization;
        }
        if (!running_.load()) {
            // Stopped from a callback before the device knew of the unit.
            device_.removeClient(*this);
        }
    }
    tellRunning();
    if (!isInitialized()) {
        // Uninitialised meanwhile, perhaps before it was seen to run.
        static_cast<void>(stop());
        return kAudioUnitErr_Uninitialized;
    }
    return noErr;
}

OSStatus IOUnit::stop() {
    bool wasRunning = false;
    {
        std::unique_lock transition(transition_, std::defer_lock);
        if (!device_.isDeviceThread()) {
            transition.lock();
        }
        wasRunning = running_.exchange(false);
        // Also when it was stopped already: that may have been from inside a slice that is still
        // being rendered, and after this call none is.
        device_.removeClient(*this);
    }
    if (wasRunning) {
        tellRunning();
    }
    return noErr;
}

void IOUnit::tellRunning() {
    tellListeners({kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, 0});
}

OSStatus IOUnit::hush() {
    const std::lock_guard guard(lock_);
    if (initialized_) {
        return kAudioUnitErr_Initialized;
    }
    hushed_.store(true);
    return noErr;
}

ClientWants IOUnit::wants() const noexcept {
    const bool isThere = !hushed_.load();
    return {isThere && outputEnabled_, isThere && inputEnabled_};
}

Device& IOUnit::knownDevice() {
    if (!hushed_.load()) {
        device_.meet();
    }
    return device_;
}

AudioStreamBasicDescription IOUnit::busFormat(AudioUnitScope scope, UInt32 element) {
    if (scope == kAudioUnitScope_Output && element == 0) {
        const Device& device = knownDevice();
        return floatDescription(device.sampleRate(), device.outputChannels());
    }
    if (scope == kAudioUnitScope_Input && element == kMicrophone) {
        const Device& device = knownDevice();
        return floatDescription(device.sampleRate(), device.inputChannels());
    }
    return Unit::busFormat(scope, element);
}

bool IOUnit::isFormatWritable(AudioUnitScope scope, UInt32 element) {
    const bool isDeviceSide = (scope == kAudioUnitScope_Input) == (element == kMicrophone);
    return !isDeviceSide && Unit::isFormatWritable(scope, element);
}

std::unique_ptr<RenderPlan> IOUnit::makePlan(const RenderPlan* old) {
    const auto* const last = static_cast<const Plan*>(old);
    auto plan = std::make_unique<Plan>();
    const UInt32 frames = device_.maximumFrames();
    const PCMFormat hardwareOut = parsed(busFormat(kAudioUnitScope_Output, 0));
    const PCMFormat programOut = parsed(inputs_[0].format);
    const PCMFormat programIn = parsed(outputs_[kMicrophone].format);
    plan->maximumFrames = frames;
    plan->outputs.push_back({hardwareOut, outputs_[0].allocate, memoryFor(0, hardwareOut, frames)});
    plan->outputs.push_back(
        {programIn, outputs_[kMicrophone].allocate, memoryFor(kMicrophone, programIn, frames)});
    plan->hardware = {hardwareOut.sampleRate, hardwareOut.channels, device_.inputChannels()};
    plan->outputEnabled = outputEnabled_;
    plan->inputEnabled = inputEnabled_;
    plan->source = inputs_[0].source;
    plan->allocate = inputs_[0].allocate;
    plan->inputCallback = inputCallback_;
    plan->deviceList = plan->outputs[0].memory;
    plan->channelMap = channelMaps_[0];
    UInt32 channels = plan->hardware.outputs;
    if (!plan->channelMap.empty()) {
        channels = programOut.channels;
        plan->unmapped = std::make_shared<tqcommon::Planes>(channels, frames);
    }
    if (last != nullptr && last->input->fits(programOut, plan->hardware.rate, channels, frames)) {
        plan->input = last->input;
    } else {
        plan->input =
            std::make_shared<ConvertedInput>(programOut, plan->hardware.rate, channels, frames);
    }
    if (last != nullptr && last->microphone != nullptr &&
        last->microphone->fits(plan->hardware.rate, plan->hardware.inputs, programIn, frames,
                               channelMaps_[kMicrophone])) {
        plan->microphone = last->microphone;
    } else if (inputEnabled_ && plan->hardware.inputs > 0) {
        plan->microphone =
            std::make_shared<MicrophonePath>(plan->hardware.rate, plan->hardware.inputs, programIn,
                                             frames, channelMaps_[kMicrophone]);
    }
    return plan;
}

OSStatus IOUnit::findParameter(AudioUnitParameterID id, AudioUnitScope scope,
                               AudioUnitElement element, Parameter& parameter) noexcept {
    if (id != kHALOutputParam_Volume) {
        return kAudioUnitErr_InvalidParameter;
    }
    if (scope != kAudioUnitScope_Global && scope != kAudioUnitScope_Output) {
        return kAudioUnitErr_InvalidScope;
    }
    parameter = {&volume_, 0, 1, nullptr, 0};
    return okOr(element == 0, kAudioUnitErr_InvalidElement);
}

}  // namespace tqplatform
