#pragma once

#include <AudioToolbox/AudioToolbox.h>
#include <Foundation/NSObjCRuntime.h>
#include <ring_buffer.h>
#include <volume_controller.h>

#include <atomic>
#include <cstddef>
#include <memory>

#include "RZLentMemory.h"
#include "RZReplayVolumeCompressorParam.h"
#include "RZReplayVolumeDuckingParam.h"

/// Storage of one buffer of one intercepted unit: the PCM as the host rendered it (pre), the same
/// PCM after ducking and compression (post), scratch memory for conversion and the gain stage.
///
/// Threads: one writer (the host's render thread), one reader (the private graph's render thread).
/// Parameters and levels are [any thread]. Sizes are in bytes.
class RZReplayAudioUnitBuffer {
  public:
    RZReplayAudioUnitBuffer();
    ~RZReplayAudioUnitBuffer() = default;
    RZReplayAudioUnitBuffer(const RZReplayAudioUnitBuffer&) = delete;
    RZReplayAudioUnitBuffer& operator=(const RZReplayAudioUnitBuffer&) = delete;

    /// Null until the first write of that side.
    [[nodiscard]] korva_audio_utils::RingBuffer* preRingBuffer() const { return pre_.get(); }
    [[nodiscard]] korva_audio_utils::RingBuffer* postRingBuffer() const { return post_.get(); }
    [[nodiscard]] korva_audio_utils::VolumeController* volumeController() const {
        return volumeController_.get();
    }
    /// mDataByteSize is the capacity; the memory belongs to this object.
    [[nodiscard]] AudioBuffer copyBuffer() const { return copyBuffer_; }

    /// [render thread] Writer only. Real-time safe once the ring is large enough. Queues `size`
    /// bytes of buffer.mData whole: `size`, or 0 when refused. The first write of a side makes its
    /// ring.
    std::size_t writeAudioBuffer(const AudioBuffer& buffer, UInt32 size, BOOL isProcessed);
    /// [render thread] Reader only. Takes the ring's mutex. Takes exactly `size` bytes into
    /// buffer.mData, or returns 0 and takes nothing.
    std::size_t readAudioBuffer(const AudioBuffer& buffer, UInt32 size, BOOL isProcessed);
    /// [any thread] Takes the ring's mutex. Bytes that can be read: one consistent look, also
    /// while the ring grows.
    [[nodiscard]] std::size_t getRingBufferSize(BOOL isProcessed) const;
    /// [render thread] Writer only. Real-time safe. Bytes that RingBuffer::TakeVanished() tells of.
    std::size_t takeVanished(BOOL isProcessed);
    /// [any thread] Takes the ring's mutex. Drops what that side holds.
    void cleanRingBuffer(BOOL isProcessed);
    void cleanPostRingBuffer() { cleanRingBuffer(YES); }
    /// [render thread] Reader only. Scratch memory of at least `size` bytes; it grows with the
    /// largest request, zeroed when it does, and never shrinks. mData is null when no memory is
    /// left.
    AudioBuffer getCopyBufferBySize(UInt32 size);

    /// [render thread] Writer only. Allocates only for more than ever before. For a block
    /// that is not to be made where the host has put its own; null when no memory is left.
    [[nodiscard]] std::byte* ownMemory(UInt32 size) { return ownMemory_.atLeast(size); }

    void updateFS(int sampleRate);
    /// A null record changes nothing. Switching off puts the gain and the level back to rest.
    void setDuckingParam(const RZReplayVolumeDuckingParam* param);
    void setCompressorParam(const RZReplayVolumeCompressorParam* param);
    void setDuckingVolume(float volume, BOOL isDB);
    void setCompressorVolume(float volume, BOOL isDB);
    /// [render thread] Writer only. Real-time safe. Gain in place over mDataByteSize bytes.
    /// `format`: 0 16-bit, 1 32-bit integer, 2 32-bit float.
    void processAudioData(const AudioBuffer& buffer, int channels, int format);
    /// [render thread] Writer only. Real-time safe. The next block is other sound: the gain begins
    /// where its settings have it.
    void beginSound();

  private:
    /// A ring that its writer makes at the first write. Invariant: the published pointer is null or
    /// leads to a complete ring. The writer stores it once with release order, readers load it with
    /// acquire order.
    class LazyRing {
      public:
        [[nodiscard]] korva_audio_utils::RingBuffer* get() const {
            return published_.load(std::memory_order_acquire);
        }
        /// Null when no memory is left.
        korva_audio_utils::RingBuffer* getOrCreate();

      private:
        std::unique_ptr<korva_audio_utils::RingBuffer> ring_;
        std::atomic<korva_audio_utils::RingBuffer*> published_{nullptr};
    };

    [[nodiscard]] const LazyRing& side(BOOL isProcessed) const {
        return isProcessed ? post_ : pre_;
    }

    LazyRing pre_;
    LazyRing post_;
    std::unique_ptr<korva_audio_utils::VolumeController> volumeController_;
    std::unique_ptr<std::byte[]> copyMemory_;
    AudioBuffer copyBuffer_{};
    RZLentMemory ownMemory_;
};
