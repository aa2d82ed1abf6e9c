// The C functions of units. The library itself never calls them: a program that redirects its
// calls of them catches its own calls only.

#include <TQPlatform/HushedOutput.h>

#include "component/Guarded.h"
#include "unit/Unit.h"

using namespace tqplatform;

namespace {

template <class Call>
OSStatus withUnit(AudioUnit handle, const Call& call) noexcept {
    if (handle == nullptr) {
        return kAudio_ParamError;
    }
    const UnitTable::Access unit(units(), handle);
    if (!unit) {
        return kAudioComponentErr_InstanceInvalidated;
    }
    return guarded([&] { return call(*unit); });
}

}  // namespace

extern "C" {

OSStatus AudioUnitInitialize(AudioUnit inUnit) {
    return withUnit(inUnit, [](Unit& unit) { return unit.initialize(); });
}

OSStatus AudioUnitUninitialize(AudioUnit inUnit) {
    return withUnit(inUnit, [](Unit& unit) { return unit.uninitialize(); });
}

OSStatus AudioUnitGetPropertyInfo(AudioUnit inUnit, AudioUnitPropertyID inID,
                                  AudioUnitScope inScope, AudioUnitElement inElement,
                                  UInt32* outDataSize, Boolean* outWritable) {
    return withUnit(inUnit, [&](Unit& unit) {
        return unit.getPropertyInfo({inID, inScope, inElement}, outDataSize, outWritable);
    });
}

OSStatus AudioUnitGetProperty(AudioUnit inUnit, AudioUnitPropertyID inID, AudioUnitScope inScope,
                              AudioUnitElement inElement, void* outData, UInt32* ioDataSize) {
    return withUnit(inUnit, [&](Unit& unit) {
        return unit.getProperty({inID, inScope, inElement}, outData, ioDataSize);
    });
}

OSStatus AudioUnitSetProperty(AudioUnit inUnit, AudioUnitPropertyID inID, AudioUnitScope inScope,
                              AudioUnitElement inElement, const void* inData, UInt32 inDataSize) {
    return withUnit(inUnit, [&](Unit& unit) {
        return unit.setProperty({inID, inScope, inElement}, inData, inDataSize);
    });
}

OSStatus AudioUnitAddPropertyListener(AudioUnit inUnit, AudioUnitPropertyID inID,
                                      AudioUnitPropertyListenerProc inProc, void* inProcUserData) {
    return withUnit(
        inUnit, [&](Unit& unit) { return unit.addPropertyListener(inID, inProc, inProcUserData); });
}

OSStatus AudioUnitRemovePropertyListenerWithUserData(AudioUnit inUnit, AudioUnitPropertyID inID,
                                                     AudioUnitPropertyListenerProc inProc,
                                                     void* inProcUserData) {
    return withUnit(inUnit, [&](Unit& unit) {
        return unit.removePropertyListener(inID, inProc, inProcUserData);
    });
}

OSStatus AudioUnitAddRenderNotify(AudioUnit inUnit, AURenderCallback inProc, void* inProcUserData) {
    return withUnit(inUnit,
                    [&](Unit& unit) { return unit.addRenderNotify(inProc, inProcUserData); });
}

OSStatus AudioUnitRemoveRenderNotify(AudioUnit inUnit, AURenderCallback inProc,
                                     void* inProcUserData) {
    return withUnit(inUnit,
                    [&](Unit& unit) { return unit.removeRenderNotify(inProc, inProcUserData); });
}

OSStatus AudioUnitGetParameter(AudioUnit inUnit, AudioUnitParameterID inID, AudioUnitScope inScope,
                               AudioUnitElement inElement, AudioUnitParameterValue* outValue) {
    return withUnit(
        inUnit, [&](Unit& unit) { return unit.getParameter(inID, inScope, inElement, outValue); });
}

OSStatus AudioUnitSetParameter(AudioUnit inUnit, AudioUnitParameterID inID, AudioUnitScope inScope,
                               AudioUnitElement inElement, AudioUnitParameterValue inValue,
                               UInt32 /*inBufferOffsetInFrames*/) {
    return withUnit(
        inUnit, [&](Unit& unit) { return unit.setParameter(inID, inScope, inElement, inValue); });
}

OSStatus AudioUnitScheduleParameters(AudioUnit inUnit,
                                     const AudioUnitParameterEvent* inParameterEvent,
                                     UInt32 inNumParamEvents) {
    if (inParameterEvent == nullptr) {
        return kAudio_ParamError;
    }
    return withUnit(inUnit, [&](Unit& unit) {
        return unit.scheduleParameters({inParameterEvent, inNumParamEvents});
    });
}

OSStatus AudioUnitRender(AudioUnit inUnit, AudioUnitRenderActionFlags* ioActionFlags,
                         const AudioTimeStamp* inTimeStamp, UInt32 inOutputBusNumber,
                         UInt32 inNumberFrames, AudioBufferList* ioData) {
    return withUnit(inUnit, [&](Unit& unit) {
        return unit.render(ioActionFlags, inTimeStamp, inOutputBusNumber, inNumberFrames, ioData);
    });
}

OSStatus AudioUnitReset(AudioUnit inUnit, AudioUnitScope inScope, AudioUnitElement inElement) {
    return withUnit(inUnit, [&](Unit& unit) { return unit.reset(inScope, inElement); });
}

OSStatus AudioOutputUnitStart(AudioUnit ci) {
    return withUnit(ci, [](Unit& unit) { return unit.start(); });
}

OSStatus AudioOutputUnitStop(AudioUnit ci) {
    return withUnit(ci, [](Unit& unit) { return unit.stop(); });
}

OSStatus TQHushOutputUnit(AudioUnit unit) {
    return withUnit(unit, [](Unit& hushed) { return hushed.hush(); });
}

}  // extern "C"
