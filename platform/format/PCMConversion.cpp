#include <cstring>
#include <type_traits>

#include "format/PCMFormat.h"
#include "format/SampleCodec.h"

namespace tqplatform {

namespace {

/// Where the samples of one channel lie.
struct Lane {
    std::byte* first;    ///< null when the list does not hold this channel
    std::size_t stride;  ///< samples from one frame to the next
};

Lane laneOf(const AudioBufferList& list, const PCMFormat& format, UInt32 channel) noexcept {
    const UInt32 buffer = format.interleaved ? 0 : channel;
    if (buffer >= list.mNumberBuffers) {
        return {nullptr, 1};
    }
    // The entries follow each other beyond the declared array.
    const AudioBuffer* const buffers = list.mBuffers;
    auto* const data = static_cast<std::byte*>(buffers[buffer].mData);
    if (data == nullptr || !format.interleaved) {
        return {data, 1};
    }
    const std::size_t bytesPerSample = format.bytesPerFrame / format.channels;
    return {data + channel * bytesPerSample, format.channels};
}

/// Calls with the stride as a compile-time constant where it is a usual one: what the compiler
/// knows it can vectorise.
template <class Body>
void withStride(std::size_t stride, Body body) {
    switch (stride) {
        case 1:
            return body(std::integral_constant<std::size_t, 1>{});
        case 2:
            return body(std::integral_constant<std::size_t, 2>{});
        default:
            return body(stride);
    }
}

template <class Codec>
void readLane(Lane lane, float* plane, UInt32 frames) noexcept {
    withStride(lane.stride, [=](auto stride) {
        const std::byte* const first = lane.first;
        for (std::size_t frame = 0; frame < frames; ++frame) {
            plane[frame] = Codec::read(first + frame * stride * Codec::kBytes);
        }
    });
}

template <class Codec>
void writeLane(const float* plane, Lane lane, UInt32 frames) noexcept {
    withStride(lane.stride, [=](auto stride) {
        std::byte* const first = lane.first;
        for (std::size_t frame = 0; frame < frames; ++frame) {
            Codec::write(plane[frame], first + frame * stride * Codec::kBytes);
        }
    });
}

struct Loops {
    void (*read)(Lane, float*, UInt32) noexcept;
    void (*write)(const float*, Lane, UInt32) noexcept;
};

template <class Codec>
constexpr Loops loops() {
    return {&readLane<Codec>, &writeLane<Codec>};
}

template <bool Big>
Loops loopsOf(SampleType type) noexcept {
    switch (type) {
        case SampleType::int8:
            return loops<codec::SmallInteger<std::int8_t, std::uint8_t, Big>>();
        case SampleType::int16:
            return loops<codec::SmallInteger<std::int16_t, std::uint16_t, Big>>();
        case SampleType::int24:
            return loops<codec::Integer24<Big>>();
        case SampleType::int32:
            return loops<codec::Integer32<31, Big>>();
        case SampleType::fixed824:
            return loops<codec::Integer32<24, Big>>();
        case SampleType::float32:
            return loops<codec::Real32<Big>>();
        case SampleType::float64:
            return loops<codec::Real64<Big>>();
    }
    return loops<codec::Real32<Big>>();
}

/// The commonest of all outputs, both samples of a frame in one word: as little-endian 16-bit
/// samples they lie side by side.
void writeStereo16(const float* left, const float* right, std::byte* first,
                   UInt32 frames) noexcept {
    constexpr std::int64_t kScale = 32768;
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const auto low =
            static_cast<std::uint32_t>(codec::quantised<kScale, kScale, float>(left[frame]));
        const auto high =
            static_cast<std::uint32_t>(codec::quantised<kScale, kScale, float>(right[frame]));
        codec::store<std::uint32_t, false>((low & 0xFFFFU) | high << 16U,
                                           first + frame * sizeof(std::uint32_t));
    }
}

Loops loopsOf(const PCMFormat& format) noexcept {
    return format.bigEndian ? loopsOf<true>(format.type) : loopsOf<false>(format.type);
}

}  // namespace

void toFloat(const AudioBufferList& list, const PCMFormat& format, UInt32 frames,
             float* const* planes) noexcept {
    const Loops loops = loopsOf(format);
    for (UInt32 channel = 0; channel < format.channels; ++channel) {
        const Lane lane = laneOf(list, format, channel);
        if (lane.first == nullptr) {
            std::memset(planes[channel], 0, frames * sizeof(float));
        } else {
            loops.read(lane, planes[channel], frames);
        }
    }
}

void fromFloat(const float* const* planes, UInt32 frames, const PCMFormat& format,
               AudioBufferList& list) noexcept {
    if (format.type == SampleType::int16 && !format.bigEndian && format.channels == 2) {
        const Lane left = laneOf(list, format, 0);
        const Lane right = laneOf(list, format, 1);
        if (left.first != nullptr && left.stride == 2 &&
            right.first == left.first + sizeof(std::int16_t)) {
            writeStereo16(planes[0], planes[1], left.first, frames);
            return;
        }
    }
    const Loops loops = loopsOf(format);
    for (UInt32 channel = 0; channel < format.channels; ++channel) {
        const Lane lane = laneOf(list, format, channel);
        if (lane.first != nullptr) {
            loops.write(planes[channel], lane, frames);
        }
    }
}

void mapChannels(const float* const* source, UInt32 sourceChannels, float* const* destination,
                 UInt32 destinationChannels, UInt32 frames) noexcept {
    const std::size_t bytes = frames * sizeof(float);
    if (destinationChannels == 1 && sourceChannels > 1) {
        float* const mono = destination[0];
        const auto count = static_cast<float>(sourceChannels);
        for (UInt32 frame = 0; frame < frames; ++frame) {
            float sum = source[0][frame];
            for (UInt32 channel = 1; channel < sourceChannels; ++channel) {
                sum += source[channel][frame];
            }
            mono[frame] = sum / count;
        }
        return;
    }
    for (UInt32 channel = 0; channel < destinationChannels; ++channel) {
        const UInt32 from = sourceChannels == 1 ? 0 : channel;
        if (from < sourceChannels) {
            std::memmove(destination[channel], source[from], bytes);
        } else {
            std::memset(destination[channel], 0, bytes);
        }
    }
}

}  // namespace tqplatform
