#include "unit/IOUnit.h"

#include <cstring>
#include <utility>

#include "component/Component.h"
#include "component/Status.h"
#include "unit/IOUnitPlan.h"

namespace tqplatform {

namespace {

constexpr UInt32 microphone = 1;

template <class T>
void put(void* data, const T& value) {
    std::memcpy(data, &value, sizeof value);
}

AURenderCallbackStruct callbackAt(const void* data) {
    AURenderCallbackStruct callback{};
    std::memcpy(&callback, data, sizeof callback);
    return callback;
}

UInt32 numberAt(const void* data) {
    UInt32 value = 0;
    std::memcpy(&value, data, sizeof value);
    return value;
}

}  // namespace

IOUnit::IOUnit(const Component& component)
    : Unit(component),
      device_(sharedDevice()),
      switches_{{{kAudioOutputUnitProperty_StartTimestampsAtZero, 1, 1},
                 {kAUVoiceIOProperty_BypassVoiceProcessing, 1, 0},
                 {kAUVoiceIOProperty_VoiceProcessingEnableAGC, 1, 1},
                 {kAUVoiceIOProperty_VoiceProcessingQuality, 127, 127},
                 {kAUVoiceIOProperty_MuteOutput, 1, 0}}} {
    maximumFrames_ = device_.maximumFrames();
    inputs_.resize(2);
    outputs_.resize(2);
    inputs_[0].format = floatDescription(device_.sampleRate(), 2);
    outputs_[microphone].format = floatDescription(device_.sampleRate(), 2);
}

void IOUnit::close() {
    static_cast<void>(stop());
}

bool IOUnit::isVoiceUnit() const {
    return component().description.componentSubType == kAudioUnitSubType_VoiceProcessingIO;
}

OSStatus IOUnit::start() {
    if (!isInitialized()) {
        return kAudioUnitErr_Uninitialized;
    }
    {
        // The device's own thread must not wait for somebody who waits for its slice to end.
        std::unique_lock transition(transition_, std::defer_lock);
        if (!device_.isDeviceThread()) {
            transition.lock();
        }
        if (running_.exchange(true)) {
            return noErr;
        }
        beginning_.store(true);
        if (!device_.addClient(*this)) {
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

AudioStreamBasicDescription IOUnit::busFormat(AudioUnitScope scope, UInt32 element) {
    if (scope == kAudioUnitScope_Output && element == 0) {
        return floatDescription(device_.sampleRate(), device_.outputChannels());
    }
    if (scope == kAudioUnitScope_Input && element == microphone) {
        return floatDescription(device_.sampleRate(), device_.inputChannels());
    }
    return Unit::busFormat(scope, element);
}

bool IOUnit::isFormatWritable(AudioUnitScope scope, UInt32 element) {
    const bool isDeviceSide = (scope == kAudioUnitScope_Input) == (element == microphone);
    return !isDeviceSide && Unit::isFormatWritable(scope, element);
}

std::unique_ptr<RenderPlan> IOUnit::makePlan(const RenderPlan* old) {
    const auto* const last = static_cast<const Plan*>(old);
    auto plan = std::make_unique<Plan>();
    const UInt32 frames = device_.maximumFrames();
    const PCMFormat hardwareOut = parsed(busFormat(kAudioUnitScope_Output, 0));
    const PCMFormat programOut = parsed(inputs_[0].format);
    const PCMFormat programIn = parsed(outputs_[microphone].format);
    plan->maximumFrames = frames;
    plan->outputs.push_back({hardwareOut, outputs_[0].allocate, memoryFor(0, hardwareOut, frames)});
    plan->outputs.push_back(
        {programIn, outputs_[microphone].allocate, memoryFor(microphone, programIn, frames)});
    plan->deviceRate = hardwareOut.sampleRate;
    plan->deviceOutputs = hardwareOut.channels;
    plan->deviceInputs = device_.inputChannels();
    plan->outputEnabled = outputEnabled_;
    plan->inputEnabled = inputEnabled_;
    plan->source = inputs_[0].source;
    plan->allocate = inputs_[0].allocate;
    plan->inputCallback = inputCallback_;
    plan->deviceList = plan->outputs[0].memory;
    if (last != nullptr &&
        last->input->fits(programOut, plan->deviceRate, plan->deviceOutputs, frames)) {
        plan->input = last->input;
    } else {
        plan->input = std::make_shared<ConvertedInput>(programOut, plan->deviceRate,
                                                       plan->deviceOutputs, frames);
    }
    if (last != nullptr && last->microphone != nullptr &&
        last->microphone->fits(plan->deviceRate, plan->deviceInputs, programIn, frames)) {
        plan->microphone = last->microphone;
    } else if (inputEnabled_ && plan->deviceInputs > 0) {
        plan->microphone = std::make_shared<MicrophonePath>(plan->deviceRate, plan->deviceInputs,
                                                            programIn, frames);
    }
    return plan;
}

IOUnit::Switch* IOUnit::findSwitch(AudioUnitPropertyID id) {
    for (Switch& known : switches_) {
        if (known.id == id &&
            (isVoiceUnit() || id == kAudioOutputUnitProperty_StartTimestampsAtZero)) {
            return &known;
        }
    }
    return nullptr;
}

/// EnableIO and HasIO: the output is element 0 of the output scope, the input is element 1 of the
/// input scope.
OSStatus IOUnit::describeIO(PropertyKey key, PropertyInfo& info) const {
    info = {sizeof(UInt32), key.id == kAudioOutputUnitProperty_EnableIO};
    if (key.id == kAudioOutputUnitProperty_HasIO && key.scope == kAudioUnitScope_Global) {
        return okOr(key.element <= microphone, kAudioUnitErr_InvalidElement);
    }
    if (key.scope != kAudioUnitScope_Input && key.scope != kAudioUnitScope_Output) {
        return kAudioUnitErr_InvalidScope;
    }
    const UInt32 element = key.scope == kAudioUnitScope_Input ? microphone : 0;
    return okOr(key.element == element, kAudioUnitErr_InvalidElement);
}

OSStatus IOUnit::describeProperty(PropertyKey key, PropertyInfo& info) {
    switch (key.id) {
        case kAudioOutputUnitProperty_EnableIO:
        case kAudioOutputUnitProperty_HasIO:
            return describeIO(key, info);
        case kAudioOutputUnitProperty_SetInputCallback:
            // Programs name element 0 or 1 and any scope; there is one input.
            info = {sizeof(AURenderCallbackStruct), true, false};
            return okOr(key.element <= microphone, kAudioUnitErr_InvalidElement);
        case kAudioOutputUnitProperty_IsRunning:
            info = {sizeof(UInt32), false};
            break;
        default:
            if (findSwitch(key.id) == nullptr) {
                return Unit::describeProperty(key, info);
            }
            // Voice units are told about element 1 as often as about element 0.
            info = {sizeof(UInt32), true};
            if (key.scope == kAudioUnitScope_Global && key.element == microphone) {
                return noErr;
            }
            break;
    }
    if (key.scope != kAudioUnitScope_Global) {
        return kAudioUnitErr_InvalidScope;
    }
    return okOr(key.element == 0, kAudioUnitErr_InvalidElement);
}

OSStatus IOUnit::readProperty(PropertyKey key, void* data) {
    const bool isInput = key.element == microphone;
    switch (key.id) {
        case kAudioOutputUnitProperty_EnableIO:
            put(data, UInt32{isInput ? inputEnabled_ : outputEnabled_});
            return noErr;
        case kAudioOutputUnitProperty_HasIO:
            put(data, UInt32{(isInput ? device_.inputChannels() : device_.outputChannels()) > 0});
            return noErr;
        case kAudioOutputUnitProperty_IsRunning:
            put(data, UInt32{isRunning()});
            return noErr;
        default:
            if (const Switch* const known = findSwitch(key.id)) {
                put(data, known->value.load());
                return noErr;
            }
            return Unit::readProperty(key, data);
    }
}

OSStatus IOUnit::writeProperty(PropertyKey key, const void* data, UInt32 size) {
    switch (key.id) {
        case kAudioOutputUnitProperty_EnableIO:
            if (initialized_) {
                return kAudioUnitErr_Initialized;
            }
            (key.element == microphone ? inputEnabled_ : outputEnabled_) = numberAt(data) != 0;
            return noErr;
        case kAudioOutputUnitProperty_SetInputCallback:
            return changeInputCallback(callbackAt(data));
        default:
            if (Switch* const known = findSwitch(key.id)) {
                const UInt32 value = numberAt(data);
                if (value > known->most) {
                    return kAudioUnitErr_InvalidPropertyValue;
                }
                known->value.store(value);
                return noErr;
            }
            return Unit::writeProperty(key, data, size);
    }
}

OSStatus IOUnit::removeProperty(PropertyKey key) {
    if (key.id != kAudioOutputUnitProperty_SetInputCallback) {
        return Unit::removeProperty(key);
    }
    return changeInputCallback({});
}

OSStatus IOUnit::changeInputCallback(AURenderCallbackStruct callback) {
    std::swap(inputCallback_, callback);
    try {
        const OSStatus status = republish();
        if (status != noErr) {
            inputCallback_ = callback;
        }
        return status;
    } catch (...) {
        inputCallback_ = callback;
        throw;
    }
}

OSStatus IOUnit::findParameter(AudioUnitParameterID id, AudioUnitScope scope,
                               AudioUnitElement element, Parameter& parameter) noexcept {
    if (id != kHALOutputParam_Volume) {
        return kAudioUnitErr_InvalidParameter;
    }
    if (scope != kAudioUnitScope_Global && scope != kAudioUnitScope_Output) {
        return kAudioUnitErr_InvalidScope;
    }
    parameter = {&volume_, 0, 1};
    return okOr(element == 0, kAudioUnitErr_InvalidElement);
}

}  // namespace tqplatform
