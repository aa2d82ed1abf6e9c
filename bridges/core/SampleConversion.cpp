#include "bridges/core/SampleConversion.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace tq::bridges {

namespace {

// Samples travel as unsigned words, through memcpy(): the program's memory may lie at any address,
// and a float that is only moved must keep its bits, those of a NaN too.
using std::size_t;
using std::uint16_t;
using std::uint32_t;
using std::uint64_t;
using std::uint8_t;

constexpr bool kIsLittle = std::endian::native == std::endian::little;
constexpr uint16_t kSign16 = 0x8000;
constexpr uint32_t kSign32 = 0x80000000;

uint8_t swapped(uint8_t value) {
    return value;
}
uint16_t swapped(uint16_t value) {
    return __builtin_bswap16(value);
}
uint32_t swapped(uint32_t value) {
    return __builtin_bswap32(value);
}
uint64_t swapped(uint64_t value) {
    return __builtin_bswap64(value);
}

template <typename Word>
Word load(const uint8_t* from, size_t index) {
    Word word;
    std::memcpy(&word, from + index * sizeof(Word), sizeof(Word));
    return word;
}

template <typename Word>
void store(uint8_t* to, size_t index, Word word) {
    std::memcpy(to + index * sizeof(Word), &word, sizeof(Word));
}

// Each of these describes a native sample whose word stands in memory as it is or swapped: the
// word, the unit's word, and the way there and back.

/// 8 bits become the high byte of 16.
template <uint16_t kFlip>
struct Bits8 {
    using Native = uint8_t;
    using Unit = uint16_t;
    static Unit there(Native value) { return static_cast<Unit>((value << 8) ^ kFlip); }
    static Native back(Unit value) { return static_cast<Native>((value ^ kFlip) >> 8); }
};

/// A word of the unit's own size; unsigned ones differ by the sign bit.
template <typename Word, Word kFlip>
struct SameSize {
    using Native = Word;
    using Unit = Word;
    static Unit there(Native value) { return static_cast<Unit>(value ^ kFlip); }
    static Native back(Unit value) { return static_cast<Native>(value ^ kFlip); }
};

/// The low 24 bits of 32 become the high ones; the unused byte is whatever the program left there.
struct Signed24In4 {
    using Native = uint32_t;
    using Unit = uint32_t;
    static Unit there(Native value) { return value << 8; }
    static Native back(Unit value) {
        return static_cast<uint32_t>(static_cast<std::int32_t>(value) >> 8);
    }
};

struct Unsigned24In4 {
    using Native = uint32_t;
    using Unit = uint32_t;
    static Unit there(Native value) { return (value << 8) ^ kSign32; }
    static Native back(Unit value) { return (value ^ kSign32) >> 8; }
};

struct Float64 {
    using Native = uint64_t;
    using Unit = uint32_t;
    static Unit there(Native value) {
        return std::bit_cast<uint32_t>(static_cast<float>(std::bit_cast<double>(value)));
    }
    static Native back(Unit value) {
        return std::bit_cast<uint64_t>(static_cast<double>(std::bit_cast<float>(value)));
    }
};

template <typename Sample, bool kIsSwapped>
struct Words {
    static void toUnit(const void* from, void* to, size_t samples) noexcept {
        const auto* in = static_cast<const uint8_t*>(from);
        auto* out = static_cast<uint8_t*>(to);
        for (size_t i = 0; i < samples; ++i) {
            auto value = load<typename Sample::Native>(in, i);
            store(out, i, Sample::there(kIsSwapped ? swapped(value) : value));
        }
    }
    static void fromUnit(const void* from, void* to, size_t samples) noexcept {
        const auto* in = static_cast<const uint8_t*>(from);
        auto* out = static_cast<uint8_t*>(to);
        for (size_t i = 0; i < samples; ++i) {
            auto value = Sample::back(load<typename Sample::Unit>(in, i));
            store(out, i, kIsSwapped ? swapped(value) : value);
        }
    }
};

/// Three bytes become the high ones of 32 bits.
template <uint32_t kFlip, bool kIsSwapped>
struct Bytes3 {
    static constexpr size_t kLow = kIsLittle != kIsSwapped ? 0 : 2;
    static constexpr size_t kHigh = 2 - kLow;

    static void toUnit(const void* from, void* to, size_t samples) noexcept {
        const auto* in = static_cast<const uint8_t*>(from);
        auto* out = static_cast<uint8_t*>(to);
        for (size_t i = 0; i < samples; ++i) {
            uint32_t value = static_cast<uint32_t>(in[3 * i + kLow]) << 8 |
                             static_cast<uint32_t>(in[3 * i + 1]) << 16 |
                             static_cast<uint32_t>(in[3 * i + kHigh]) << 24;
            store(out, i, value ^ kFlip);
        }
    }
    static void fromUnit(const void* from, void* to, size_t samples) noexcept {
        const auto* in = static_cast<const uint8_t*>(from);
        auto* out = static_cast<uint8_t*>(to);
        for (size_t i = 0; i < samples; ++i) {
            uint32_t value = load<uint32_t>(in, i) ^ kFlip;
            out[3 * i + kLow] = static_cast<uint8_t>(value >> 8);
            out[3 * i + 1] = static_cast<uint8_t>(value >> 16);
            out[3 * i + kHigh] = static_cast<uint8_t>(value >> 24);
        }
    }
};

/// The unit's own sample.
template <size_t kBytes>
struct Copied {
    static void toUnit(const void* from, void* to, size_t samples) noexcept {
        if (from != to) {
            std::memcpy(to, from, samples * kBytes);
        }
    }
    static constexpr auto fromUnit = toUnit;
};

struct Pair {
    ConvertSamples toUnit;
    ConvertSamples fromUnit;
};

template <typename Converter>
constexpr Pair pairOf() {
    return {Converter::toUnit, Converter::fromUnit};
}

Pair convertersOf(NativeSample sample) noexcept {
    switch (sample) {
        case NativeSample::kU8:
            return pairOf<Words<Bits8<kSign16>, false>>();
        case NativeSample::kS8:
            return pairOf<Words<Bits8<0>, false>>();
        case NativeSample::kS16:
            return pairOf<Copied<2>>();
        case NativeSample::kS16Swapped:
            return pairOf<Words<SameSize<uint16_t, 0>, true>>();
        case NativeSample::kU16:
            return pairOf<Words<SameSize<uint16_t, kSign16>, false>>();
        case NativeSample::kU16Swapped:
            return pairOf<Words<SameSize<uint16_t, kSign16>, true>>();
        case NativeSample::kS24In3:
            return pairOf<Bytes3<0, false>>();
        case NativeSample::kS24In3Swapped:
            return pairOf<Bytes3<0, true>>();
        case NativeSample::kU24In3:
            return pairOf<Bytes3<kSign32, false>>();
        case NativeSample::kU24In3Swapped:
            return pairOf<Bytes3<kSign32, true>>();
        case NativeSample::kS24In4:
            return pairOf<Words<Signed24In4, false>>();
        case NativeSample::kS24In4Swapped:
            return pairOf<Words<Signed24In4, true>>();
        case NativeSample::kU24In4:
            return pairOf<Words<Unsigned24In4, false>>();
        case NativeSample::kU24In4Swapped:
            return pairOf<Words<Unsigned24In4, true>>();
        case NativeSample::kU32:
            return pairOf<Words<SameSize<uint32_t, kSign32>, false>>();
        case NativeSample::kU32Swapped:
            return pairOf<Words<SameSize<uint32_t, kSign32>, true>>();
        case NativeSample::kS32:
        case NativeSample::kF32:
            return pairOf<Copied<4>>();
        case NativeSample::kS32Swapped:
        case NativeSample::kF32Swapped:
            return pairOf<Words<SameSize<uint32_t, 0>, true>>();
        case NativeSample::kF64:
            return pairOf<Words<Float64, false>>();
        case NativeSample::kF64Swapped:
            return pairOf<Words<Float64, true>>();
        case NativeSample::kNotPcm:
            break;
    }
    return {nullptr, nullptr};
}

}  // namespace

ConvertSamples toUnit(NativeSample sample) noexcept {
    return convertersOf(sample).toUnit;
}

ConvertSamples fromUnit(NativeSample sample) noexcept {
    return convertersOf(sample).fromUnit;
}

}  // namespace tq::bridges
