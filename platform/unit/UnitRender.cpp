#include <algorithm>
#include <optional>

#include "common/Threads.h"
#include "unit/Unit.h"

namespace tqplatform {

OSStatus Unit::checkRender(const RenderPlan* plan, UInt32 bus, UInt32 frames,
                           AudioBufferList& list) const noexcept {
    if (plan == nullptr) {
        return kAudioUnitErr_Uninitialized;
    }
    if (bus >= plan->outputs.size()) {
        return kAudioUnitErr_InvalidElement;
    }
    if (frames > plan->maximumFrames) {
        return kAudioUnitErr_TooManyFramesToProcess;
    }
    const RenderPlan::Output& output = plan->outputs[bus];
    if (list.mNumberBuffers != output.format.bufferCount()) {
        return kAudio_ParamError;
    }
    const UInt32 bytes = frames * output.format.bytesPerFrame;
    for (UInt32 i = 0; i < list.mNumberBuffers; ++i) {
        const AudioBuffer& buffer = buffersOf(list)[i];
        if (buffer.mData == nullptr ? !output.allocate : buffer.mDataByteSize < bytes) {
            return kAudio_ParamError;
        }
    }
    return noErr;
}

OSStatus Unit::render(AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
                      UInt32 frames, AudioBufferList* list) noexcept {
    if (time == nullptr || list == nullptr) {
        return kAudio_ParamError;
    }
    if (!isPulledHere(bus)) {
        return kAudioUnitErr_CannotDoInCurrentContext;
    }
    const BusyScope busy(busy_[std::min<std::size_t>(bus, busy_.size() - 1)]);
    if (!busy) {
        return kAudioUnitErr_CannotDoInCurrentContext;
    }
    const tqcommon::RenderThreadScope rendering;
    AudioUnitRenderActionFlags own = 0;
    AudioUnitRenderActionFlags& action = flags != nullptr ? *flags : own;
    const Notifies::Reader notifies(notifies_);
    const tqcommon::Published<RenderPlan>::Reader plan(plan_);

    OSStatus status = checkRender(plan.get(), bus, frames, *list);
    if (status == noErr) {
        // Bus 0 is what a graph's slice is made of; others are pulled within such a slice.
        std::optional<SliceScope> slice;
        if (bus == 0) {
            slice.emplace(*this, frames, plan->outputs[bus].format.sampleRate);
        }
        plan->outputs[bus].memory->lend(*list, frames);
        callNotifies(notifies.get(), action | kAudioUnitRenderAction_PreRender, *time, bus, frames,
                     *list);
        // A notify may have taken the callback away, and the program what that was made for.
        const tqcommon::Published<RenderPlan>::Reader now(plan_);
        status = now.get() == plan.get() ? noErr : checkRender(now.get(), bus, frames, *list);
        if (status == noErr) {
            status = renderBus(*now, {action, *time, bus, frames, *list});
        }
        lastSampleTime_.store(time->mSampleTime, std::memory_order_relaxed);
        const AudioUnitRenderActionFlags error =
            status == noErr ? 0U
                            : AudioUnitRenderActionFlags{kAudioUnitRenderAction_PostRenderError};
        callNotifies(notifies.get(), action | kAudioUnitRenderAction_PostRender | error, *time, bus,
                     frames, *list);
    } else {
        callNotifies(
            notifies.get(),
            action | kAudioUnitRenderAction_PostRender | kAudioUnitRenderAction_PostRenderError,
            *time, bus, frames, *list);
    }
    keepRenderError(status);
    return status;
}

void Unit::callNotifies(const std::vector<Notify>* notifies, AudioUnitRenderActionFlags flags,
                        const AudioTimeStamp& time, UInt32 bus, UInt32 frames,
                        AudioBufferList& list) noexcept {
    if (notifies == nullptr) {
        return;
    }
    for (const Notify& notify : *notifies) {
        notify.proc(notify.refCon, &flags, &time, bus, frames, &list);
    }
}

void Unit::keepRenderError(OSStatus status) noexcept {
    if (status != noErr) {
        OSStatus none = noErr;
        lastRenderError_.compare_exchange_strong(none, status, std::memory_order_relaxed);
    }
}

std::shared_ptr<BusMemory> Unit::memoryFor(UInt32 output, const PCMFormat& format, UInt32 frames) {
    for (const LentMemory& known : lentMemories_) {
        const PCMFormat& has = known.memory->format();
        if (known.output == output && known.frames == frames && has.channels == format.channels &&
            has.bytesPerFrame == format.bytesPerFrame && has.interleaved == format.interleaved) {
            return known.memory;
        }
    }
    lentMemories_.push_back({output, frames, std::make_shared<BusMemory>(format, frames)});
    return lentMemories_.back().memory;
}

}  // namespace tqplatform
