// What feeds input buses: callbacks, connections, and formats that follow a connection.

#include <algorithm>

#include "unit/Unit.h"

namespace tqplatform {

OSStatus Unit::writeCallback(PropertyKey key, AURenderCallbackStruct callback) {
    if (key.element >= feedableInputs()) {
        return kAudioUnitErr_InvalidElement;
    }
    InputSource source;
    if (callback.inputProc != nullptr) {
        source.callback = callback;
    }
    return feed(key.element, inputs_[key.element].format, source);
}

OSStatus Unit::removeSource(PropertyKey key) {
    return disconnect(key.element);
}

OSStatus Unit::disconnect(UInt32 element) {
    if (element >= feedableInputs()) {
        return kAudioUnitErr_InvalidElement;
    }
    return feed(element, inputs_[element].format, {});
}

OSStatus Unit::feed(UInt32 element, const AudioStreamBasicDescription& format,
                    const InputSource& source) {
    const Bus before = inputs_[element];
    inputs_[element].format = format;
    inputs_[element].source = source;
    try {
        const OSStatus status = republish();
        if (status != noErr) {
            inputs_[element] = before;
        }
        return status;
    } catch (...) {
        inputs_[element] = before;
        throw;
    }
}

OSStatus Unit::makeConnection(const AudioUnitConnection& connection) {
    if (connection.sourceAudioUnit == nullptr) {
        const std::lock_guard lock(lock_);
        return disconnect(connection.destInputNumber);
    }
    const UnitTable::Access source(units(), connection.sourceAudioUnit);
    if (!source) {
        return kAudioComponentErr_InstanceInvalidated;
    }
    // From another bus to itself is how a unit plays its own microphone.
    if (source.get() == this && connection.sourceOutputNumber == 0) {
        return kAudio_ParamError;
    }
    AudioStreamBasicDescription format{};
    OSStatus status = source->outputFormat(connection.sourceOutputNumber, format);
    if (status != noErr) {
        return status;
    }
    {
        const std::lock_guard lock(lock_);
        const UInt32 input = connection.destInputNumber;
        if (input >= feedableInputs()) {
            return kAudioUnitErr_InvalidElement;
        }
        const auto wanted = PCMFormat::parse(format);
        if (!wanted || !acceptsFormat(kAudioUnitScope_Input, *wanted)) {
            return kAudioUnitErr_FormatNotSupported;
        }
        status =
            feed(input, format, {{}, connection.sourceAudioUnit, connection.sourceOutputNumber});
    }
    if (status == noErr) {
        source->addDependent({handle_, connection.sourceOutputNumber, connection.destInputNumber});
    }
    return status;
}

OSStatus Unit::outputFormat(UInt32 bus, AudioStreamBasicDescription& format) {
    const std::lock_guard lock(lock_);
    if (bus >= outputs_.size()) {
        return kAudioUnitErr_InvalidElement;
    }
    format = busFormat(kAudioUnitScope_Output, bus);
    return noErr;
}

void Unit::sourceFormatChanged(AudioUnit source, UInt32 outputBus, UInt32 inputBus,
                               const AudioStreamBasicDescription& format) {
    {
        const std::lock_guard lock(lock_);
        if (inputBus >= inputs_.size()) {
            return;
        }
        Bus& bus = inputs_[inputBus];
        const auto parsedFormat = PCMFormat::parse(format);
        if (!bus.source.isConnection() || bus.source.unit != source ||
            bus.source.outputBus != outputBus || !parsedFormat ||
            !acceptsFormat(kAudioUnitScope_Input, *parsedFormat)) {
            return;
        }
        bus.format = format;
        static_cast<void>(republish());
    }
    tellListeners({kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, inputBus});
}

void Unit::addDependent(const Dependent& dependent) {
    const std::lock_guard lock(dependentLock_);
    std::erase_if(dependents_, [&](const Dependent& known) {
        return known == dependent || !UnitTable::Access(units(), known.unit);
    });
    dependents_.push_back(dependent);
}

void Unit::tellDependents(UInt32 outputBus) {
    AudioStreamBasicDescription format{};
    if (outputFormat(outputBus, format) != noErr) {
        return;
    }
    std::vector<Dependent> told;
    {
        const std::lock_guard lock(dependentLock_);
        told = dependents_;
    }
    for (const Dependent& dependent : told) {
        const UnitTable::Access unit(units(), dependent.unit);
        if (unit && dependent.outputBus == outputBus) {
            unit->sourceFormatChanged(handle_, outputBus, dependent.inputBus, format);
        }
    }
}

}  // namespace tqplatform
