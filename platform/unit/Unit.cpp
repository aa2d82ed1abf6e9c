#include "unit/Unit.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "common/NeverDestroyed.h"

namespace tqplatform {

namespace {

std::uint64_t nanosecondsNow() noexcept {
    return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch() /
                                      std::chrono::nanoseconds(1));
}

// Initial-exec: reading it on a render thread for the first time must not allocate.
constinit thread_local int slicesInside __attribute__((tls_model("initial-exec"))) = 0;
constinit thread_local Unit::ListenerDelay* delay __attribute__((tls_model("initial-exec"))) =
    nullptr;

}  // namespace

UnitTable& units() {
    static tqcommon::NeverDestroyed<UnitTable> table;
    return *table;
}

void Unit::forgetAfterFork(bool isInside) noexcept {
    if (isInside) {
        return;
    }
    for (std::atomic_flag& flag : busy_) {
        flag.clear();
    }
    // A slice of another thread ends here.
    sliceCount_.fetch_add(sliceCount_.load() & 1U);
}

OSStatus Unit::initialize() {
    const std::lock_guard lock(lock_);
    if (initialized_) {
        return noErr;
    }
    initialized_ = true;
    try {
        const OSStatus status = republish();
        initialized_ = status == noErr;
        return status;
    } catch (...) {
        initialized_ = false;
        throw;
    }
}

bool Unit::isInitialized() {
    const std::lock_guard lock(lock_);
    return initialized_;
}

OSStatus Unit::uninitialize() {
    stopOnUninitialize();
    {
        const std::lock_guard lock(lock_);
        if (!initialized_) {
            return noErr;
        }
        initialized_ = false;
        plan_.publish(nullptr);
    }
    // Another thread may have started it meanwhile; a start from now on finds it uninitialised.
    stopOnUninitialize();
    return noErr;
}

OSStatus Unit::republish() {
    if (!initialized_) {
        return noErr;
    }
    for (const AudioUnitScope scope : {kAudioUnitScope_Input, kAudioUnitScope_Output}) {
        const std::size_t count = (scope == kAudioUnitScope_Input ? inputs_ : outputs_).size();
        for (UInt32 i = 0; i < count; ++i) {
            if (!(busFormat(scope, i).mSampleRate > 0)) {
                return kAudioUnitErr_FormatNotSupported;
            }
        }
    }
    // What an earlier plan alone had, converters above all, can serve the new one.
    plan_.collect();
    plan_.publish(makePlan(plan_.owned()));
    return noErr;
}

OSStatus Unit::reset(AudioUnitScope scope, AudioUnitElement /*element*/) {
    if (scope > kAudioUnitScope_LayerItem) {
        return kAudioUnitErr_InvalidScope;
    }
    forgetPast();
    return noErr;
}

OSStatus Unit::addPropertyListener(AudioUnitPropertyID id, AudioUnitPropertyListenerProc proc,
                                   void* refCon) {
    if (proc == nullptr) {
        return kAudio_ParamError;
    }
    const std::lock_guard lock(listenerLock_);
    const Listener listener{id, proc, refCon};
    if (std::find(listeners_.begin(), listeners_.end(), listener) == listeners_.end()) {
        listeners_.push_back(listener);
    }
    return noErr;
}

OSStatus Unit::removePropertyListener(AudioUnitPropertyID id, AudioUnitPropertyListenerProc proc,
                                      void* refCon) {
    if (proc == nullptr) {
        return kAudio_ParamError;
    }
    const std::lock_guard lock(listenerLock_);
    std::erase(listeners_, Listener{id, proc, refCon});
    return noErr;
}

Unit::ListenerDelay::ListenerDelay() noexcept : outer_(delay) {
    delay = this;
}

Unit::ListenerDelay::~ListenerDelay() {
    delay = outer_;
    for (const auto& [handle, key] : told_) {
        const UnitTable::Access unit(units(), handle);
        if (unit) {
            try {
                unit->tellListeners(key);
            } catch (...) {
                // No memory to call them from a copy of their list: they stay without notice.
                continue;
            }
        }
    }
}

void Unit::tellListeners(PropertyKey key) {
    if (delay != nullptr) {
        delay->told_.emplace_back(handle_, key);
        return;
    }
    std::vector<Listener> called;
    {
        const std::lock_guard lock(listenerLock_);
        std::copy_if(listeners_.begin(), listeners_.end(), std::back_inserter(called),
                     [&](const Listener& listener) { return listener.id == key.id; });
    }
    for (const Listener& listener : called) {
        listener.proc(listener.refCon, handle_, key.id, key.scope, key.element);
    }
}

OSStatus Unit::addRenderNotify(AURenderCallback proc, void* refCon, const void* owner) {
    if (proc == nullptr) {
        return kAudio_ParamError;
    }
    const std::lock_guard lock(notifyLock_);
    const Notify notify{proc, refCon, owner};
    auto notifies = std::make_unique<std::vector<Notify>>();
    if (const auto* old = notifies_.owned()) {
        if (std::find(old->begin(), old->end(), notify) != old->end()) {
            return noErr;
        }
        notifies->reserve(old->size() + 1);
        *notifies = *old;
    }
    notifies->push_back(notify);
    notifies_.publish(std::move(notifies));
    return noErr;
}

OSStatus Unit::removeRenderNotify(AURenderCallback proc, void* refCon, const void* owner) {
    if (proc == nullptr) {
        return kAudio_ParamError;
    }
    const std::lock_guard lock(notifyLock_);
    const auto* old = notifies_.owned();
    if (old == nullptr) {
        return noErr;
    }
    auto notifies = std::make_unique<std::vector<Notify>>(*old);
    if (std::erase(*notifies, Notify{proc, refCon, owner}) > 0) {
        notifies_.publish(std::move(notifies));
    }
    return noErr;
}

OSStatus Unit::findParameter(AudioUnitParameterID /*id*/, AudioUnitScope /*scope*/,
                             AudioUnitElement /*element*/, Parameter& /*parameter*/) noexcept {
    return kAudioUnitErr_InvalidParameter;
}

OSStatus Unit::getParameter(AudioUnitParameterID id, AudioUnitScope scope, AudioUnitElement element,
                            AudioUnitParameterValue* value) noexcept {
    if (value == nullptr) {
        return kAudio_ParamError;
    }
    Parameter parameter;
    const OSStatus status = findParameter(id, scope, element, parameter);
    if (status == noErr) {
        *value = parameter.value != nullptr ? parameter.value->load() : parameter.reading;
    }
    return status;
}

OSStatus Unit::setParameter(AudioUnitParameterID id, AudioUnitScope scope, AudioUnitElement element,
                            AudioUnitParameterValue value) noexcept {
    Parameter parameter;
    const OSStatus status = findParameter(id, scope, element, parameter);
    if (status != noErr) {
        return status;
    }
    if (parameter.value == nullptr) {
        return kAudioUnitErr_InvalidParameter;  // a meter
    }
    if (std::isnan(value)) {
        return kAudioUnitErr_InvalidParameterValue;
    }
    parameter.value->set(std::clamp(value, parameter.minimum, parameter.maximum));
    return noErr;
}

OSStatus Unit::scheduleParameters(std::span<const AudioUnitParameterEvent> events) noexcept {
    for (const AudioUnitParameterEvent& event : events) {
        Parameter parameter;
        const OSStatus status =
            findParameter(event.parameter, event.scope, event.element, parameter);
        if (status != noErr) {
            return status;
        }
        if (parameter.value == nullptr) {
            return kAudioUnitErr_InvalidParameter;
        }
        const bool isRamp = event.eventType == kParameterEvent_Ramped;
        const auto& ramp = event.eventValues.ramp;
        const auto& jump = event.eventValues.immediate;
        const Float32 from = isRamp ? ramp.startValue : jump.value;
        const Float32 to = isRamp ? ramp.endValue : jump.value;
        if (std::isnan(from) || std::isnan(to)) {
            return kAudioUnitErr_InvalidParameterValue;
        }
        const auto legal = [&](Float32 value) {
            return std::clamp(value, parameter.minimum, parameter.maximum);
        };
        if (parameter.ramp != nullptr) {
            const SInt64 start =
                isRamp ? SInt64{ramp.startBufferOffset} : SInt64{jump.bufferOffset};
            parameter.ramp->schedule({start, isRamp ? ramp.durationInFrames : 0, legal(from),
                                      legal(to), parameter.value->seen().count});
        } else if (isRamp) {
            return kAudioUnitErr_InvalidParameter;
        } else {
            parameter.value->set(legal(to));
        }
    }
    return noErr;
}

bool Unit::isRenderThread() const noexcept {
    return (sliceCount() & 1U) != 0 && renderThread_.load() == std::this_thread::get_id();
}

bool Unit::isInsideAnySlice() noexcept {
    return slicesInside > 0;
}

Unit::SliceScope::SliceScope(Unit& unit, UInt32 frames, Float64 rate) noexcept
    : unit_(unit), duration_(frames / rate), began_(nanosecondsNow()) {
    unit_.renderThread_.store(std::this_thread::get_id());
    unit_.sliceCount_.fetch_add(1, std::memory_order_seq_cst);
    ++slicesInside;
}

Unit::SliceScope::~SliceScope() {
    --slicesInside;
    const auto elapsed = static_cast<Float64>(nanosecondsNow() - began_) * 1e-9;
    const auto load = static_cast<Float32>(duration_ > 0 ? elapsed / duration_ : 0);
    unit_.cpuLoad_.store(load, std::memory_order_relaxed);
    if (load > unit_.maximumCpuLoad_.load(std::memory_order_relaxed)) {
        unit_.maximumCpuLoad_.store(load, std::memory_order_relaxed);
    }
    unit_.sliceCount_.fetch_add(1, std::memory_order_seq_cst);
}

}  // namespace tqplatform
