#pragma once

#include <CoreMedia/CoreMedia.h>

#include <cstring>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

/// One reference, dropped when the test is done.
template <class Handle>
class Held {
  public:
    Held() = default;
    explicit Held(Handle handle) : handle_(handle) {}
    Held(Held&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Held& operator=(Held&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Held() { CFRelease(handle_); }
    [[nodiscard]] Handle get() const { return handle_; }
    [[nodiscard]] Handle* out() { return &handle_; }

  private:
    Handle handle_ = nullptr;
};

inline AudioStreamBasicDescription pcmFormat(UInt32 channels, UInt32 bytesPerSample,
                                             bool interleaved, Float64 rate = 44100) {
    const UInt32 frame = bytesPerSample * (interleaved ? channels : 1);
    const UInt32 flags =
        (bytesPerSample == 4 ? kAudioFormatFlagIsFloat : kAudioFormatFlagIsSignedInteger) |
        kAudioFormatFlagIsPacked | (interleaved ? 0U : kAudioFormatFlagIsNonInterleaved);
    return {rate, kAudioFormatLinearPCM, flags, frame, 1, frame, channels, bytesPerSample * 8, 0};
}

inline Held<CMFormatDescriptionRef> describe(const AudioStreamBasicDescription& format) {
    Held<CMFormatDescriptionRef> description;
    CMAudioFormatDescriptionCreate(kCFAllocatorDefault, &format, 0, nullptr, 0, nullptr, nullptr,
                                   description.out());
    return description;
}

/// A sample buffer without data: `samples` of 1/44100 s from 100/44100 s on.
inline Held<CMSampleBufferRef> makeSamples(CMFormatDescriptionRef format, CMItemCount samples) {
    const CMSampleTimingInfo timing = {CMTimeMake(1, 44100), CMTimeMake(100, 44100),
                                       kCMTimeInvalid};
    Held<CMSampleBufferRef> buffer;
    CMSampleBufferCreate(kCFAllocatorDefault, nullptr, 0, nullptr, nullptr, format, samples, 1,
                         &timing, 0, nullptr, buffer.out());
    return buffer;
}

/// A buffer list with memory of its own, filled with a count that goes on from buffer to buffer.
class List {
  public:
    List(UInt32 buffers, UInt32 bytesEach)
        : memory_(8 + sizeof(AudioBuffer) * (buffers == 0 ? 1 : buffers)),
          data_(buffers, std::vector<unsigned char>(bytesEach)) {
        get()->mNumberBuffers = buffers;
        unsigned char next = 0;
        for (UInt32 index = 0; index < buffers; ++index) {
            for (unsigned char& byte : data_[index]) {
                byte = next++;
            }
            buffer(index) = {1, bytesEach, data_[index].data()};
        }
    }
    [[nodiscard]] AudioBufferList* get() {
        return reinterpret_cast<AudioBufferList*>(memory_.data());
    }
    [[nodiscard]] AudioBuffer& buffer(std::size_t index) { return get()->mBuffers[index]; }
    [[nodiscard]] const std::vector<unsigned char>& data(std::size_t index) const {
        return data_[index];
    }

  private:
    std::vector<std::byte> memory_;
    std::vector<std::vector<unsigned char>> data_;
};

inline OSStatus attach(CMSampleBufferRef buffer, const AudioBufferList* list, uint32_t flags = 0) {
    return CMSampleBufferSetDataBufferFromAudioBufferList(buffer, kCFAllocatorDefault,
                                                          kCFAllocatorDefault, flags, list);
}
