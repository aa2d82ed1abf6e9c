#include "RZReplayAudioUnitObject.h"

#include <mutex>
#include <thread>
#include <utility>

#include "RZLogSite.h"
#include "RZNumbers.h"
#include "RZStreamFormat.h"
#include "TQAudioRecordLock.h"

namespace {
constexpr const char* kFile = "Classes/RZReplayAudioUnitObject";
/// A fault that repeats on every render cycle is reported once in this time.
constexpr long kEventIntervalMilliseconds = 10000;
}  // namespace

RZReplayAudioUnitObject::RZReplayAudioUnitObject()
    : asbdInfo_(std::make_shared<RZReplayASBDInfo>()),
      bufferLock_(std::make_shared<NSRecursiveLock>()),
      eventFilter_(std::make_unique<korva_audio_utils::EventFilter>()) {
    eventFilter_->SetInterval(kEventIntervalMilliseconds);
}

RZReplayAudioUnitObject::RZReplayAudioUnitObject(AudioUnit unit, int trackId)
    : RZReplayAudioUnitObject() {
    inUnit_ = unit;
    trackId_ = trackId;
    asbdInfo()->setTrackId(trackId);
}

RZReplayAudioUnitObject::~RZReplayAudioUnitObject() {
    account().idle(idleFrames());
    for (const BOOL isProcessed : {NO, YES}) {
        if (const std::size_t waiting = waitingFrames(isProcessed); waiting != 0) {
            account().lost(isProcessed, RZFrameLoss::LeftAtStop, waiting);
        }
    }
}

BOOL RZReplayAudioUnitObject::isAvailable() const {
    const AudioStreamBasicDescription desc = streamDesc();
    return desc.mSampleRate > 0 && desc.mChannelsPerFrame != 0 && desc.mBytesPerFrame != 0 &&
           inUnit() != nullptr;
}

void RZReplayAudioUnitObject::startAudioUnit() {
    if (!isStarted()) {
        setIsStarted(YES);
    }
}

void RZReplayAudioUnitObject::stopAudioUnit() {
    if (isStarted()) {
        setIsStarted(NO);
    }
}

void RZReplayAudioUnitObject::startCapture() {
    if (!isCapturing()) {
        setIsCapturing(YES);
        setPendingCleanPostRingBuffer(YES);
    }
}

void RZReplayAudioUnitObject::stopCapture() {
    if (isCapturing()) {
        setIsCapturing(NO);
    }
}

void RZReplayAudioUnitObject::beginFormatChange() {
    format_.fetch_add(kOneChange + 1);
}

void RZReplayAudioUnitObject::keepOnlyBlocksOf(const AudioStreamBasicDescription& format,
                                               RZFrameLoss reason) {
    while (isWriting_.load()) {
        std::this_thread::yield();
    }
    const TQAudioRecordLock guard(bufferLock_);
    const AudioStreamBasicDescription stored = std::exchange(storedFormat_, format);
    if (RZIsSameFormat(stored, format)) {
        return;
    }
    for (const BOOL isProcessed : {NO, YES}) {
        if (stored.mBytesPerFrame != 0) {
            account().lost(isProcessed, reason,
                           getRingBufferSize(isProcessed) / stored.mBytesPerFrame);
        }
        for (const auto& buffer : bufferList_) {
            buffer->cleanRingBuffer(isProcessed);
        }
    }
}

void RZReplayAudioUnitObject::endFormatChange() {
    format_.fetch_sub(1);
}

void RZReplayAudioUnitObject::takeBackFormatChange() {
    format_.fetch_sub(kOneChange + 1);
}

RZReplayAudioUnitBuffer* RZReplayAudioUnitObject::getOrCreateBufferAt(int index) {
    constexpr RZLogSite site(kFile, "-[RZReplayAudioUnitObject getOrCreateBufferAt:]");
    // Runs in every render cycle: locks without copying the shared pointer, which would cost two
    // more atomic operations.
    const std::scoped_lock guard(*bufferLock_);
    if (index >= 0 && static_cast<std::size_t>(index) < bufferList_.size()) {
        return bufferList_[static_cast<std::size_t>(index)].get();
    }
    auto buffer = std::make_shared<RZReplayAudioUnitBuffer>();
    buffer->setDuckingParam(duckingParam_.get());
    buffer->setCompressorParam(compressorParam_.get());
    bufferList_.push_back(buffer);
    site.log(2, "[buffer] add one buffer, new count: %ld", static_cast<long>(bufferList_.size()));
    return buffer.get();
}

std::size_t RZReplayAudioUnitObject::getRingBufferSize(BOOL isProcessed) const {
    const TQAudioRecordLock guard(bufferLock_);
    return bufferList_.empty() ? 0 : bufferList_.front()->getRingBufferSize(isProcessed);
}

std::size_t RZReplayAudioUnitObject::waitingFrames(BOOL isProcessed) const {
    const UInt32 bytesPerFrame = streamDesc().mBytesPerFrame;
    return bytesPerFrame == 0 ? 0 : getRingBufferSize(isProcessed) / bytesPerFrame;
}

void RZReplayAudioUnitObject::discardWaiting(BOOL isProcessed, RZFrameLoss reason) {
    const TQAudioRecordLock guard(bufferLock_);
    account().lost(isProcessed, reason, waitingFrames(isProcessed));
    for (const auto& buffer : bufferList_) {
        buffer->cleanRingBuffer(isProcessed);
    }
}

void RZReplayAudioUnitObject::onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                                                 const std::string& message) {
    const auto receiver = callback();
    using Method = RZReplayAudioRecorderInternalDelegate::Method;
    if (receiver && receiver->respondsTo(Method::onAudioRecordEvent)) {
        receiver->onAudioRecordEvent(category, code, message);
    }
}

void RZReplayAudioUnitObject::updateAsbdInfo() {
    const auto info = asbdInfo();
    if (info) {
        info->updateInfoWithDesc(formatRead(YES));
        info->setUnit(unitWord());
    }
}

void RZReplayAudioUnitObject::setDuckingParam(const RZReplayVolumeDuckingParam* param) {
    const TQAudioRecordLock guard(bufferLock_);
    duckingParam_ = param == nullptr ? nullptr : param->copy();
    for (const auto& buffer : bufferList_) {
        buffer->setDuckingParam(param);
    }
}

void RZReplayAudioUnitObject::setCompressorParam(const RZReplayVolumeCompressorParam* param) {
    const TQAudioRecordLock guard(bufferLock_);
    compressorParam_ = param == nullptr ? nullptr : param->copy();
    for (const auto& buffer : bufferList_) {
        buffer->setCompressorParam(param);
    }
}

void RZReplayAudioUnitObject::updateDuckingVolume(float volume, BOOL isDB) {
    const TQAudioRecordLock guard(bufferLock_);
    for (const auto& buffer : bufferList_) {
        buffer->updateFS(truncateToInt32(streamDesc().mSampleRate));
        buffer->setDuckingVolume(volume, isDB);
    }
}

void RZReplayAudioUnitObject::updateCompressorVolume(float volume, BOOL isDB) {
    const TQAudioRecordLock guard(bufferLock_);
    for (const auto& buffer : bufferList_) {
        buffer->updateFS(truncateToInt32(streamDesc().mSampleRate));
        buffer->setCompressorVolume(volume, isDB);
    }
}
