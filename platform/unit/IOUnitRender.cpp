// What an output unit does on the device's thread.

#include <algorithm>
#include <cmath>
#include <utility>

#include "common/Threads.h"
#include "unit/IOUnitPlan.h"

namespace tqplatform {

void IOUnit::render(const DeviceSlice& slice) noexcept {
    tqcommon::assertRenderThread();
    // Inside the unit like any caller: disposing of it from one of its callbacks waits for the
    // end of this scope, behind which the unit may be gone.
    const UnitTable::Access inside(units(), handle());
    if (inside && running_.load()) {
        renderSlice(slice);
    }
}

void IOUnit::renderSlice(const DeviceSlice& slice) noexcept {
    const BusyScope busy(busy_[0]);
    if (!busy) {
        return;
    }
    followDevice();
    const tqcommon::Published<RenderPlan>::Reader published(plan_);
    if (!published) {
        return;
    }
    const auto& plan = static_cast<const Plan&>(*published);
    if (plan.hardware != hardware()) {
        return;  // the unit's lock is held: this slice is silence, a later one follows the device
    }
    const SliceScope scope(*this, slice.frames(), plan.hardware.rate);
    const bool beginning = beginning_.load(std::memory_order_relaxed) && beginning_.exchange(false);
    const bool forget = takeRestart();
    if (beginning) {
        const bool atZero = startsAtZero_.load(std::memory_order_relaxed) != 0;
        sampleTime_ = atZero ? 0 : slice.time->mSampleTime;
    } else if (countedRate_ != plan.hardware.rate) {
        // The same time in the frames of the new rate, so that the program's own count goes on.
        sampleTime_ = std::round(sampleTime_ * plan.hardware.rate / countedRate_);
    }
    countedRate_ = plan.hardware.rate;
    if (beginning || forget) {
        plan.input->restart();
        heardFrames_ = 0;
        if (plan.microphone != nullptr) {
            plan.microphone->restart();
        }
    }
    AudioTimeStamp time = *slice.time;
    time.mSampleTime = sampleTime_;
    time.mFlags |= kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid |
                   kAudioTimeStampRateScalarValid;
    hearInput(plan, time, slice);
    if (running_.load() && plan.outputEnabled) {
        play(plan, time, slice);
    }
    sampleTime_ += slice.frames();
}

IOUnit::Hardware IOUnit::hardware() const noexcept {
    return {device_.sampleRate(), device_.outputChannels(), device_.inputChannels()};
}

void IOUnit::followDevice() noexcept {
    const Hardware now = hardware();
    {
        const tqcommon::Published<RenderPlan>::Reader published(plan_);
        if (!published) {
            return;
        }
        const auto& plan = static_cast<const Plan&>(*published);
        if (beginning_.load(std::memory_order_relaxed)) {
            toldHardware_ = plan.hardware;
        }
        if (plan.hardware == now && toldHardware_ == now) {
            return;
        }
    }
    // The device changed, which is rare: this one slice makes the new converters itself.
    std::unique_lock lock(lock_, std::try_to_lock);
    if (!lock) {
        return;
    }
    try {
        static_cast<void>(republish());
        // Told without the lock: a listener may take a lock that another thread holds while it
        // waits for this one.
        lock.unlock();
        tellHardware(now);
    } catch (...) {
        keepRenderError(kAudioUnitErr_FormatNotSupported);
    }
}

void IOUnit::tellHardware(const Hardware& now) {
    const Hardware before = std::exchange(toldHardware_, now);
    const bool hasOtherRate = before.rate != now.rate;
    if (hasOtherRate || before.outputs != now.outputs) {
        tellListeners({kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0});
    }
    if (hasOtherRate || before.inputs != now.inputs) {
        tellListeners({kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, kMicrophone});
    }
}

void IOUnit::hearInput(const Plan& plan, const AudioTimeStamp& time,
                       const DeviceSlice& slice) noexcept {
    if (!plan.inputEnabled || plan.microphone == nullptr) {
        return;
    }
    const UInt32 frames = plan.microphone->bring(slice.input);
    const Float64 heardBefore = std::exchange(heardFrames_, heardFrames_ + frames);
    if (plan.inputCallback.inputProc == nullptr || frames == 0) {
        return;
    }
    AudioTimeStamp heard = time;
    heard.mSampleTime = heardBefore;
    heard.mHostTime = slice.heardTime;
    AudioUnitRenderActionFlags flags = 0;
    keepRenderError(plan.inputCallback.inputProc(plan.inputCallback.inputProcRefCon, &flags, &heard,
                                                 kMicrophone, frames, nullptr));
}

void IOUnit::play(const Plan& plan, const AudioTimeStamp& time, const DeviceSlice& slice) noexcept {
    const Notifies::Reader notifies(notifies_);
    AudioBufferList& list = plan.deviceList->prepare(slice.frames(), false);
    for (UInt32 i = 0; i < plan.hardware.outputs; ++i) {
        buffersOf(list)[i].mData = slice.output.plane(i);
    }
    AudioUnitRenderActionFlags flags = 0;
    callNotifies(notifies.get(), kAudioUnitRenderAction_PreRender, time, 0, slice.frames(), list);
    // A notify may have taken the callback away, and the program what that was made for.
    const tqcommon::Published<RenderPlan>::Reader now(plan_);
    const OSStatus status = fill(static_cast<const Plan*>(now.get()), flags, time, slice);
    keepRenderError(status);
    const AudioUnitRenderActionFlags error =
        status == noErr ? 0U : AudioUnitRenderActionFlags{kAudioUnitRenderAction_PostRenderError};
    callNotifies(notifies.get(), flags | kAudioUnitRenderAction_PostRender | error, time, 0,
                 slice.frames(), list);
    lastSampleTime_.store(time.mSampleTime, std::memory_order_relaxed);

    // A notify may also have put samples elsewhere.
    for (UInt32 i = 0; i < std::min(list.mNumberBuffers, plan.hardware.outputs); ++i) {
        const AudioBuffer& buffer = buffersOf(list)[i];
        if (buffer.mData != nullptr && buffer.mData != slice.output.plane(i)) {
            const UInt32 held =
                std::min(slice.frames(), static_cast<UInt32>(buffer.mDataByteSize / sizeof(float)));
            std::copy_n(static_cast<const float*>(buffer.mData), held, slice.output.plane(i));
        }
    }
}

OSStatus IOUnit::fill(const Plan* now, AudioUnitRenderActionFlags& flags,
                      const AudioTimeStamp& time, const DeviceSlice& slice) noexcept {
    const Hardware device = hardware();
    const bool fits = now != nullptr && now->hardware.rate == device.rate &&
                      now->hardware.outputs == device.outputs;
    if (!fits || !now->source.exists()) {
        silence(slice.output);
        flags |= kAudioUnitRenderAction_OutputIsSilence;
        return noErr;
    }
    const Plan& plan = *now;
    const BusPull pull{plan.source, plan.allocate, 0, flags, time};
    OSStatus status = noErr;
    if (plan.unmapped == nullptr) {
        status = plan.input->read(pull, slice.output);
    } else {
        const tqcommon::AudioView program = plan.unmapped->view(slice.frames());
        status = plan.input->read(pull, program);
        mapChannels(program, plan.channelMap, slice.output);
    }
    const bool muted = mutes_.load(std::memory_order_relaxed) != 0;
    const Float32 volume = muted ? 0.0F : volume_.load();
    if (status != noErr || volume == 0.0F) {
        silence(slice.output);
    } else if (volume != 1.0F) {
        for (UInt32 channel = 0; channel < plan.hardware.outputs; ++channel) {
            float* const plane = slice.output.plane(channel);
            for (UInt32 i = 0; i < slice.frames(); ++i) {
                plane[i] *= volume;
            }
        }
    }
    return status;
}

bool IOUnit::isPulledHere(UInt32 bus) const noexcept {
    // Bus 0 is the device's to pull, and what the microphone heard is there during a slice only.
    return bus != 0 && isRenderThread();
}

OSStatus IOUnit::renderBus(const RenderPlan& base, const RenderCall& call) noexcept {
    const auto& plan = static_cast<const Plan&>(base);
    if (!plan.inputEnabled || plan.microphone == nullptr) {
        return kAudioUnitErr_InvalidElement;
    }
    plan.microphone->fetch(call.frames, call.list);
    return noErr;
}

}  // namespace tqplatform
