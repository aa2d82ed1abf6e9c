#include "converter/Converter.h"

#include <algorithm>
#include <cmath>

#include "common/AudioView.h"
#include "unit/BusMemory.h"

namespace tqplatform {

using tqcommon::AudioView;

namespace {

/// Frames that `chunk` output frames take at most.
UInt32 mostInput(RateRatio ratio, UInt32 chunk) {
    return static_cast<UInt32>(ratio.inputFor(chunk, 0)) + 1;
}

UInt32 outputFor(RateRatio ratio, UInt32 inputFrames) {
    return static_cast<UInt32>(
        std::lround(static_cast<double>(inputFrames) * static_cast<double>(ratio.output) /
                    static_cast<double>(ratio.input)));
}

}  // namespace

ShortList::ShortList(const PCMFormat& format) noexcept {
    list().mNumberBuffers = format.bufferCount();
    for (UInt32 i = 0; i < format.bufferCount(); ++i) {
        buffersOf(list())[i] = {format.interleaved ? format.channels : 1, 0, nullptr};
    }
}

ShortList::ShortList(const AudioBufferList& list, const PCMFormat& format, UInt32 skipped) noexcept
    : ShortList(format) {
    const UInt32 bytes = skipped * format.bytesPerFrame;
    for (UInt32 i = 0; i < std::min(format.bufferCount(), list.mNumberBuffers); ++i) {
        const AudioBuffer& from = buffersOf(list)[i];
        AudioBuffer& to = buffersOf(this->list())[i];
        if (from.mData != nullptr && from.mDataByteSize >= bytes) {
            to.mData = static_cast<std::byte*>(from.mData) + bytes;
            to.mDataByteSize = from.mDataByteSize - bytes;
        }
    }
}

AudioBufferList& ShortList::list() noexcept {
    return *reinterpret_cast<AudioBufferList*>(bytes_);
}

Converter::Converter(const AudioStreamBasicDescription& source,
                     const AudioStreamBasicDescription& destination)
    : sourceDescription_(source),
      destinationDescription_(destination),
      source_(*PCMFormat::parse(source)),
      destination_(*PCMFormat::parse(destination)),
      ratio_(RateRatio::of(source.mSampleRate, destination.mSampleRate)),
      resampler_(source.mSampleRate, destination.mSampleRate, destination_.channels, kChunk),
      read_(source_.channels, mostInput(ratio_, kChunk)),
      collected_(destination_.channels, mostInput(ratio_, kChunk)),
      made_(destination_.channels, kChunk) {
    reset();
}

void Converter::reset() noexcept {
    resampler_.reset();
    pending_.reset();
    pendingFrames_ = pendingTaken_ = collectedFrames_ = 0;
    credit_ = 0;
    tail_ = resampler_.delay();
    early_ = outputFor(ratio_, tail_);
    ended_ = false;
}

void Converter::read(const AudioBufferList& list, const AudioView& planes) noexcept {
    if (channelMap_.empty() && source_.channels == destination_.channels) {
        toFloat(list, source_, planes);
        return;
    }
    const AudioView own = read_.view(planes.frames());
    toFloat(list, source_, own);
    if (channelMap_.empty()) {
        mapChannels(own, planes);
        return;
    }
    mapChannels(own, channelMap_, planes);
}

OSStatus Converter::convertBuffer(UInt32 inputBytes, const void* input, UInt32& outputBytes,
                                  void* output) noexcept {
    if (!hasOneBuffer()) {
        return kAudioConverterErr_OperationNotSupported;
    }
    if (inputBytes % source_.bytesPerFrame != 0) {
        return kAudioConverterErr_InvalidInputSize;
    }
    ShortList from(source_);
    ShortList to(destination_);
    // Only read from there.
    from.list().mBuffers[0] = {source_.channels, inputBytes, const_cast<void*>(input)};
    to.list().mBuffers[0] = {destination_.channels, outputBytes, output};
    const OSStatus status =
        convertLists(inputBytes / source_.bytesPerFrame, from.list(), to.list());
    if (status == noErr) {
        outputBytes = to.list().mBuffers[0].mDataByteSize;
    }
    return status;
}

OSStatus Converter::convertLists(UInt32 frames, const AudioBufferList& input,
                                 AudioBufferList& output) noexcept {
    if (!ratio_.equal()) {
        return kAudioConverterErr_OperationNotSupported;
    }
    if (framesIn(input, source_, frames) < frames) {
        return kAudioConverterErr_InvalidInputSize;
    }
    if (framesIn(output, destination_, frames) < frames) {
        return kAudioConverterErr_InvalidOutputSize;
    }
    for (UInt32 done = 0; done < frames;) {
        const UInt32 now = std::min(frames - done, kChunk);
        ShortList from(input, source_, done);
        ShortList to(output, destination_, done);
        read(from.list(), made_.view(now));
        fromFloat(made_.view(now), destination_, to.list());
        done += now;
    }
    for (UInt32 i = 0; i < destination_.bufferCount(); ++i) {
        buffersOf(output)[i].mDataByteSize = frames * destination_.bytesPerFrame;
    }
    return noErr;
}

void Converter::takePending(UInt32 needed) noexcept {
    const UInt32 frames = std::min(needed - collectedFrames_, pendingFrames_ - pendingTaken_);
    if (frames == 0) {
        return;
    }
    ShortList from(pending_->list(), source_, pendingTaken_);
    read(from.list(), collected_.view().slice(collectedFrames_, frames));
    pendingTaken_ += frames;
    collectedFrames_ += frames;
}

void Converter::takeTail(UInt32 needed) noexcept {
    const UInt32 frames = std::min(needed - collectedFrames_, tail_);
    silence(collected_.view().slice(collectedFrames_, frames));
    tail_ -= frames;
    collectedFrames_ += frames;
}

OSStatus Converter::collect(const Input& input, UInt32 needed) noexcept {
    while (collectedFrames_ < needed) {
        takePending(needed);
        if (collectedFrames_ == needed) {
            break;
        }
        if (ended_) {
            takeTail(needed);
            break;
        }
        pending_.emplace(source_);
        pendingFrames_ = pendingTaken_ = 0;
        UInt32 frames = needed - collectedFrames_;
        AudioStreamPacketDescription* descriptions = nullptr;
        const OSStatus status =
            input.proc(handle_, &frames, &pending_->list(), &descriptions, input.userData);
        pendingFrames_ = framesIn(pending_->list(), source_, frames);
        if (pendingFrames_ == 0) {
            if (status != noErr) {
                return status;
            }
            ended_ = true;
        }
    }
    return noErr;
}

OSStatus Converter::fill(const Input& input, UInt32& frames, AudioBufferList& output) noexcept {
    const UInt32 wanted = framesIn(output, destination_, frames);
    UInt32 done = 0;
    OSStatus status = noErr;
    while (status == noErr && done < wanted) {
        const UInt32 most = std::min(kChunk, early_ > 0 ? early_ : wanted - done);
        status = collect(input, static_cast<UInt32>(ratio_.inputFor(most, credit_)));
        const UInt32 covered = static_cast<UInt32>(std::min<std::int64_t>(
            most, (collectedFrames_ * ratio_.output + credit_) / ratio_.input));
        if (covered == 0) {
            break;
        }
        const auto used = static_cast<UInt32>(ratio_.inputFor(covered, credit_));
        const AudioView made = made_.view(covered);
        collectedGiven_ = 0;
        static_cast<void>(resampler_.pull(made, giveCollected, this));
        credit_ += used * ratio_.output - covered * ratio_.input;
        const AudioView rest = collected_.view();
        for (UInt32 channel = 0; channel < rest.channels(); ++channel) {
            float* const plane = rest.plane(channel);
            std::copy(plane + used, plane + collectedFrames_, plane);
        }
        collectedFrames_ -= used;
        if (early_ > 0) {
            early_ -= covered;
            continue;
        }
        ShortList to(output, destination_, done);
        fromFloat(made, destination_, to.list());
        done += covered;
    }
    frames = done;
    for (UInt32 i = 0; i < std::min(destination_.bufferCount(), output.mNumberBuffers); ++i) {
        buffersOf(output)[i].mDataByteSize = done * destination_.bytesPerFrame;
    }
    return status;
}

OSStatus Converter::giveCollected(void* context, const AudioView& planes) {
    auto& self = *static_cast<Converter*>(context);
    const UInt32 held = std::min(planes.frames(), self.collectedFrames_ - self.collectedGiven_);
    copy(self.collected_.view().slice(self.collectedGiven_, held), planes.slice(0, held));
    silence(planes.slice(held, planes.frames() - held));
    self.collectedGiven_ += held;
    return noErr;
}

}  // namespace tqplatform
