#include "RZReplayAudioUnitBuffer.h"

#include <new>

using korva_audio_utils::RingBuffer;
using korva_audio_utils::VolumeController;
using korva_audio_utils::VolumeControllerFormat;

namespace {
constexpr std::size_t kRingElements = 8192;
constexpr std::size_t kRingElementSize = 1;
constexpr std::size_t kRingMaximumElements = 409600;
/// In force until the first block is processed, which sets the stream's own rate.
constexpr int kInitialSampleRate = 16000;
}  // namespace

RingBuffer* RZReplayAudioUnitBuffer::LazyRing::getOrCreate() {
    if (ring_ == nullptr) {
        auto ring = std::unique_ptr<RingBuffer>(new (std::nothrow) RingBuffer);
        if (ring == nullptr ||
            ring->Init(kRingElements, kRingElementSize, kRingMaximumElements) != 0) {
            return nullptr;
        }
        ring_ = std::move(ring);
        // Publishes the finished ring to the reader.
        published_.store(ring_.get(), std::memory_order_release);
    }
    return ring_.get();
}

RZReplayAudioUnitBuffer::RZReplayAudioUnitBuffer()
    : volumeController_(std::make_unique<VolumeController>(kInitialSampleRate)) {
}

std::size_t RZReplayAudioUnitBuffer::writeAudioBuffer(const AudioBuffer& buffer, UInt32 size,
                                                      BOOL isProcessed) {
    RingBuffer* const ring = (isProcessed ? post_ : pre_).getOrCreate();
    if (ring == nullptr || buffer.mData == nullptr) {
        return 0;
    }
    return ring->WriteBuffer(buffer.mData, size);
}

std::size_t RZReplayAudioUnitBuffer::readAudioBuffer(const AudioBuffer& buffer, UInt32 size,
                                                     BOOL isProcessed) {
    RingBuffer* const ring = side(isProcessed).get();
    return ring == nullptr ? 0 : ring->ReadBuffer(nullptr, buffer.mData, size);
}

std::size_t RZReplayAudioUnitBuffer::getRingBufferSize(BOOL isProcessed) const {
    const RingBuffer* const ring = side(isProcessed).get();
    return ring == nullptr ? 0 : ring->AvailableRead();
}

std::size_t RZReplayAudioUnitBuffer::takeVanished(BOOL isProcessed) {
    RingBuffer* const ring = side(isProcessed).get();
    return ring == nullptr ? 0 : ring->TakeVanished();
}

void RZReplayAudioUnitBuffer::cleanRingBuffer(BOOL isProcessed) {
    if (RingBuffer* const ring = side(isProcessed).get(); ring != nullptr) {
        ring->CleanBufferOnWrite();
    }
}

AudioBuffer RZReplayAudioUnitBuffer::getCopyBufferBySize(UInt32 size) {
    if (copyBuffer_.mDataByteSize < size) {
        copyMemory_.reset(new (std::nothrow) std::byte[size]());
        copyBuffer_.mData = copyMemory_.get();
        copyBuffer_.mDataByteSize = copyMemory_ == nullptr ? 0 : size;
    }
    return copyBuffer_;
}

void RZReplayAudioUnitBuffer::updateFS(int sampleRate) {
    volumeController_->UpdateFS(sampleRate);
}

void RZReplayAudioUnitBuffer::setDuckingParam(const RZReplayVolumeDuckingParam* param) {
    if (param == nullptr) {
        return;
    }
    const BOOL enable = param->enable();
    const float attackTime = param->attackTime();
    const float holdTime = param->holdTime();
    const float releaseTime = param->releaseTime();
    const float targetGain = param->targetGain();
    const float threshold = param->threshold();
    volumeController_->SetDuckingParams({.enable = enable,
                                         .attackTime = attackTime,
                                         .releaseTime = releaseTime,
                                         .holdTime = holdTime,
                                         .threshold = threshold,
                                         .targetGain = targetGain});
    volumeController_->init_params();
    if (!enable) {
        volumeController_->ResetDuckingState();
    }
}

void RZReplayAudioUnitBuffer::setCompressorParam(const RZReplayVolumeCompressorParam* param) {
    if (param == nullptr) {
        return;
    }
    const BOOL enable = param->enable();
    const float attackTime = param->attackTime();
    const float releaseTime = param->releaseTime();
    const float threshold = param->threshold();
    const float sideChainThreshold = param->sideChainThreshold();
    volumeController_->SetCompressorParams({.enable = enable,
                                            .attackTime = attackTime,
                                            .releaseTime = releaseTime,
                                            .sideChainThreshold = sideChainThreshold,
                                            .threshold = threshold});
    volumeController_->init_params();
    if (!enable) {
        volumeController_->ResetCompressorState();
    }
}

void RZReplayAudioUnitBuffer::setDuckingVolume(float volume, BOOL isDB) {
    volumeController_->SetDuckingVolume(volume, isDB);
}

void RZReplayAudioUnitBuffer::setCompressorVolume(float volume, BOOL isDB) {
    volumeController_->SetCompressorVolume(volume, isDB);
}

void RZReplayAudioUnitBuffer::beginSound() {
    volumeController_->BeginSound();
}

void RZReplayAudioUnitBuffer::processAudioData(const AudioBuffer& buffer, int channels,
                                               int format) {
    if (buffer.mData == nullptr || channels < 0) {
        return;
    }
    auto* const data = static_cast<char*>(buffer.mData);
    volumeController_->Process(data, data, static_cast<std::size_t>(channels), buffer.mDataByteSize,
                               static_cast<VolumeControllerFormat>(format));
}
