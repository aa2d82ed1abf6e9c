#include <cstring>
#include <type_traits>

#include "format/PCMFormat.h"
#include "format/SampleCodec.h"

namespace tqplatform {

using tqcommon::AudioView;
using tqcommon::ConstAudioView;

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
        case SampleType::uint8:
            return loops<codec::SmallInteger<std::int8_t, std::uint8_t, Big, 0x80>>();
        case SampleType::uint16:
            return loops<codec::SmallInteger<std::int16_t, std::uint16_t, Big, 0x8000>>();
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

// The commonest format of all, little-endian 16-bit stereo with both samples of a frame side by
// side, is read and written a frame at a time, as one word: that is what vectors can do.

[[gnu::always_inline]] inline void readWords(const std::byte* first, float* left, float* right,
                                             UInt32 frames) noexcept {
    constexpr float kUnit = 1.0F / 32768.0F;
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const auto word = codec::load<std::uint32_t, false>(first + frame * sizeof(std::uint32_t));
        left[frame] = static_cast<float>(static_cast<std::int32_t>(word << 16U) >> 16) * kUnit;
        right[frame] = static_cast<float>(static_cast<std::int32_t>(word) >> 16) * kUnit;
    }
}

[[gnu::always_inline]] inline void writeWords(const float* left, const float* right,
                                              std::byte* first, UInt32 frames) noexcept {
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

#if defined(__x86_64__)
[[gnu::target("avx2")]] void readWordsWide(const std::byte* first, float* left, float* right,
                                           UInt32 frames) noexcept {
    readWords(first, left, right, frames);
}
[[gnu::target("avx2")]] void writeWordsWide(const float* left, const float* right, std::byte* first,
                                            UInt32 frames) noexcept {
    writeWords(left, right, first, frames);
}
#endif

void readStereo16(const std::byte* first, float* left, float* right, UInt32 frames) noexcept {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) {
        readWordsWide(first, left, right, frames);
        return;
    }
#endif
    readWords(first, left, right, frames);
}

void writeStereo16(const float* left, const float* right, std::byte* first,
                   UInt32 frames) noexcept {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) {
        writeWordsWide(left, right, first, frames);
        return;
    }
#endif
    writeWords(left, right, first, frames);
}

/// Where the first sample of such a list lies; null when it is none.
std::byte* stereo16Of(const AudioBufferList& list, const PCMFormat& format) noexcept {
    if (format.type != SampleType::int16 || format.bigEndian || format.channels != 2) {
        return nullptr;
    }
    const Lane left = laneOf(list, format, 0);
    const Lane right = laneOf(list, format, 1);
    const bool isOne = left.first != nullptr && left.stride == 2 &&
                       right.first == left.first + sizeof(std::int16_t);
    return isOne ? left.first : nullptr;
}

Loops loopsOf(const PCMFormat& format) noexcept {
    return format.bigEndian ? loopsOf<true>(format.type) : loopsOf<false>(format.type);
}

}  // namespace

void toFloat(const AudioBufferList& list, const PCMFormat& format,
             const AudioView& planes) noexcept TQ_NONBLOCKING {
    const UInt32 frames = planes.frames();
    if (const std::byte* const first = stereo16Of(list, format)) {
        readStereo16(first, planes.plane(0), planes.plane(1), frames);
        return;
    }
    const Loops loops = loopsOf(format);
    for (UInt32 channel = 0; channel < format.channels; ++channel) {
        const Lane lane = laneOf(list, format, channel);
        if (lane.first == nullptr) {
            std::memset(planes.plane(channel), 0, frames * sizeof(float));
        } else {
            loops.read(lane, planes.plane(channel), frames);
        }
    }
}

void fromFloat(const ConstAudioView& planes, const PCMFormat& format,
               AudioBufferList& list) noexcept TQ_NONBLOCKING {
    const UInt32 frames = planes.frames();
    if (std::byte* const first = stereo16Of(list, format)) {
        writeStereo16(planes.plane(0), planes.plane(1), first, frames);
        return;
    }
    const Loops loops = loopsOf(format);
    for (UInt32 channel = 0; channel < format.channels; ++channel) {
        const Lane lane = laneOf(list, format, channel);
        if (lane.first != nullptr) {
            loops.write(planes.plane(channel), lane, frames);
        }
    }
}

void writeSilence(const PCMFormat& format, void* data, UInt32 bytes) noexcept TQ_NONBLOCKING {
    std::memset(data, format.type == SampleType::uint8 ? 0x80 : 0, bytes);
    if (format.type == SampleType::uint16) {
        auto* const highest = static_cast<std::byte*>(data) + (format.bigEndian ? 0 : 1);
        for (UInt32 at = 0; at + 1 < bytes; at += 2) {
            highest[at] = std::byte{0x80};
        }
    }
}

void mapChannels(const ConstAudioView& source,
                 const AudioView& destination) noexcept TQ_NONBLOCKING {
    const UInt32 frames = destination.frames();
    const std::size_t bytes = frames * sizeof(float);
    if (destination.channels() == 1 && source.channels() > 1) {
        float* const mono = destination.plane(0);
        const auto count = static_cast<float>(source.channels());
        for (UInt32 frame = 0; frame < frames; ++frame) {
            float sum = source.at(0, frame);
            for (UInt32 channel = 1; channel < source.channels(); ++channel) {
                sum += source.at(channel, frame);
            }
            mono[frame] = sum / count;
        }
        return;
    }
    for (UInt32 channel = 0; channel < destination.channels(); ++channel) {
        const UInt32 from = source.channels() == 1 ? 0 : channel;
        if (from < source.channels()) {
            std::memmove(destination.plane(channel), source.plane(from), bytes);
        } else {
            std::memset(destination.plane(channel), 0, bytes);
        }
    }
}

}  // namespace tqplatform
