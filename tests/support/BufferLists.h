#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

/// An AudioBufferList of any length that owns its buffers. Each buffer is an allocation of its
/// own, so that the address sanitizer sees a step beyond it.
class OwnedBufferList {
  public:
    struct Shape {
        UInt32 channels;  ///< interleaved channels in the buffer
        UInt32 bytes;
    };

    explicit OwnedBufferList(const std::vector<Shape>& buffers)
        : memory_(std::make_unique<std::max_align_t[]>(words(buffers.size()))) {
        list_ = new (memory_.get()) AudioBufferList{};
        list_->mNumberBuffers = static_cast<UInt32>(buffers.size());
        for (std::size_t i = 0; i < buffers.size(); ++i) {
            data_.push_back(std::make_unique<std::byte[]>(buffers[i].bytes));
            list_->mBuffers[i] = {buffers[i].channels, buffers[i].bytes, data_.back().get()};
        }
    }
    /// `count` buffers of one channel each.
    static OwnedBufferList planar(UInt32 count, UInt32 bytes) {
        return OwnedBufferList(std::vector<Shape>(count, {1, bytes}));
    }
    /// One buffer that holds all channels.
    static OwnedBufferList interleaved(UInt32 channels, UInt32 bytes) {
        return OwnedBufferList({{channels, bytes}});
    }

    [[nodiscard]] AudioBufferList* get() { return list_; }
    [[nodiscard]] AudioBufferList* operator->() { return list_; }
    [[nodiscard]] AudioBuffer& buffer(std::size_t index = 0) { return list_->mBuffers[index]; }
    /// The samples of one buffer, as many as its byte size says.
    template <class Sample>
    [[nodiscard]] std::span<Sample> samples(std::size_t index = 0) {
        const AudioBuffer& b = buffer(index);
        return {static_cast<Sample*>(b.mData), b.mDataByteSize / sizeof(Sample)};
    }
    template <class Sample>
    [[nodiscard]] std::vector<Sample> copyOf(std::size_t index = 0) {
        const auto all = samples<Sample>(index);
        return {all.begin(), all.end()};
    }
    template <class Sample>
    void fill(const std::vector<Sample>& values, std::size_t index = 0) {
        const auto all = samples<Sample>(index);
        for (std::size_t i = 0; i < all.size(); ++i) {
            all[i] = values[i % values.size()];
        }
    }
    /// first, first + step, first + 2 step, ... so that a lost or repeated sample shows.
    template <class Sample>
    void fillRising(Sample first, Sample step, std::size_t index = 0) {
        Sample value = first;
        for (Sample& sample : samples<Sample>(index)) {
            sample = value;
            value = static_cast<Sample>(value + step);
        }
    }
    void fillBytes(int value) {
        for (UInt32 i = 0; i < list_->mNumberBuffers; ++i) {
            std::memset(buffer(i).mData, value, buffer(i).mDataByteSize);
        }
    }

  private:
    static std::size_t words(std::size_t buffers) {
        const std::size_t bytes = sizeof(AudioBufferList) + buffers * sizeof(AudioBuffer);
        return bytes / sizeof(std::max_align_t) + 1;
    }

    std::unique_ptr<std::max_align_t[]> memory_;
    AudioBufferList* list_ = nullptr;
    std::vector<std::unique_ptr<std::byte[]>> data_;
};
