#include "bridges/core/SampleConversion.h"

#include <bit>
#include <limits>
#include <numeric>

namespace tq::bridges {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes unitOf(NativeSample sample, const Bytes& native) {
    const std::size_t samples = native.size() / bytesPerSample(sample);
    Bytes unit(samples * bytesPerSample(unitSampleOf(sample)));
    toUnit(sample)(native.data(), unit.data(), samples);
    return unit;
}

Bytes nativeOf(NativeSample sample, const Bytes& unit) {
    const std::size_t samples = unit.size() / bytesPerSample(unitSampleOf(sample));
    Bytes native(samples * bytesPerSample(sample));
    fromUnit(sample)(unit.data(), native.data(), samples);
    return native;
}

template <typename Value>
Value valueAt(const Bytes& bytes, std::size_t index) {
    Value value;
    std::memcpy(&value, bytes.data() + index * sizeof(Value), sizeof(Value));
    return value;
}

/// Every value of that many bytes, first byte fastest.
Bytes everyValue(unsigned width) {
    const std::size_t values = std::size_t{1} << 8 * width;
    Bytes bytes(values * width);
    for (std::size_t i = 0; i < values; ++i) {
        for (unsigned byte = 0; byte < width; ++byte) {
            bytes[i * width + byte] = static_cast<std::uint8_t>(i >> 8 * byte);
        }
    }
    return bytes;
}

/// All of them differ and come back: nothing is lost on the way.
void expectEveryValueThereAndBack(NativeSample sample) {
    const Bytes native = everyValue(bytesPerSample(sample));
    EXPECT_TRUE(nativeOf(sample, unitOf(sample, native)) == native);
}

TEST(SampleConversion, Every8BitValueGoesThereAndBack) {
    expectEveryValueThereAndBack(NativeSample::kU8);
    expectEveryValueThereAndBack(NativeSample::kS8);
}

TEST(SampleConversion, Every16BitValueGoesThereAndBack) {
    expectEveryValueThereAndBack(NativeSample::kS16);
    expectEveryValueThereAndBack(NativeSample::kS16Swapped);
    expectEveryValueThereAndBack(NativeSample::kU16);
    expectEveryValueThereAndBack(NativeSample::kU16Swapped);
}

TEST(SampleConversion, Every24BitValueInThreeBytesGoesThereAndBack) {
    expectEveryValueThereAndBack(NativeSample::kS24In3);
    expectEveryValueThereAndBack(NativeSample::kS24In3Swapped);
    expectEveryValueThereAndBack(NativeSample::kU24In3);
    expectEveryValueThereAndBack(NativeSample::kU24In3Swapped);
}

TEST(SampleConversion, Every24BitValueInFourBytesGoesThereAndBack) {
    for (NativeSample sample : {NativeSample::kS24In4, NativeSample::kS24In4Swapped,
                                NativeSample::kU24In4, NativeSample::kU24In4Swapped}) {
        const bool isSigned =
            sample == NativeSample::kS24In4 || sample == NativeSample::kS24In4Swapped;
        const bool isSwapped =
            sample == NativeSample::kS24In4Swapped || sample == NativeSample::kU24In4Swapped;
        Bytes native(std::size_t{4} << 24);
        for (std::uint32_t i = 0; i < 1u << 24; ++i) {
            std::uint32_t word = isSigned && (i & 0x800000) != 0 ? i | 0xff000000 : i;
            word = isSwapped ? __builtin_bswap32(word) : word;
            std::memcpy(native.data() + std::size_t{4} * i, &word, 4);
        }
        EXPECT_TRUE(nativeOf(sample, unitOf(sample, native)) == native);
    }
}

TEST(SampleConversion, ValuesMeanWhatTheyMeantBefore) {
    EXPECT_EQ(valueAt<std::int16_t>(unitOf(NativeSample::kU8, {0x80, 0xff, 0x00}), 0), 0);
    EXPECT_EQ(valueAt<std::int16_t>(unitOf(NativeSample::kU8, {0x80, 0xff, 0x00}), 1), 0x7f00);
    EXPECT_EQ(valueAt<std::int16_t>(unitOf(NativeSample::kU8, {0x80, 0xff, 0x00}), 2), -0x8000);
    EXPECT_EQ(valueAt<std::int16_t>(unitOf(NativeSample::kS8, {0xff}), 0), -0x100);
    EXPECT_EQ(valueAt<std::int16_t>(unitOf(NativeSample::kU16, {0x01, 0x80}), 0), 1);
    EXPECT_EQ(valueAt<std::int16_t>(unitOf(NativeSample::kU16Swapped, {0x80, 0x01}), 0), 1);
    EXPECT_EQ(valueAt<std::int16_t>(unitOf(NativeSample::kS16Swapped, {0xff, 0xfe}), 0), -2);
    EXPECT_EQ(valueAt<std::int32_t>(unitOf(NativeSample::kS24In3, {0xfe, 0xff, 0xff}), 0), -0x200);
    EXPECT_EQ(valueAt<std::int32_t>(unitOf(NativeSample::kS24In3Swapped, {0x01, 0x02, 0x03}), 0),
              0x01020300);
    EXPECT_EQ(valueAt<std::int32_t>(unitOf(NativeSample::kU24In3, {0x00, 0x00, 0x80}), 0), 0);
    EXPECT_EQ(valueAt<std::int32_t>(unitOf(NativeSample::kS24In4, {1, 0, 0x80, 0xff}), 0),
              std::numeric_limits<std::int32_t>::min() + 0x100);
    EXPECT_EQ(valueAt<std::int32_t>(unitOf(NativeSample::kU24In4Swapped, {0, 0x80, 0, 1}), 0),
              0x100);
    EXPECT_EQ(valueAt<std::int32_t>(unitOf(NativeSample::kS32Swapped, {1, 2, 3, 4}), 0),
              0x01020304);
    EXPECT_EQ(valueAt<std::int32_t>(unitOf(NativeSample::kU32, {0, 0, 0, 0x80}), 0), 0);
}

TEST(SampleConversion, DirtInTheUnusedByteIsNeitherHeardNorWrittenBack) {
    const Bytes dirty{0x56, 0x34, 0x12, 0xab, 0x56, 0x34, 0x92, 0x00};
    const Bytes unit = unitOf(NativeSample::kS24In4, dirty);
    EXPECT_EQ(valueAt<std::uint32_t>(unit, 0), 0x12345600u);
    EXPECT_EQ(valueAt<std::uint32_t>(unit, 1), 0x92345600u);
    EXPECT_EQ(nativeOf(NativeSample::kS24In4, unit),
              (Bytes{0x56, 0x34, 0x12, 0x00, 0x56, 0x34, 0x92, 0xff}));
    EXPECT_EQ(nativeOf(NativeSample::kU24In4, unitOf(NativeSample::kU24In4, dirty)),
              (Bytes{0x56, 0x34, 0x12, 0x00, 0x56, 0x34, 0x92, 0x00}));
}

TEST(SampleConversion, FloatsThatAreMovedKeepEveryBit) {
    for (std::uint32_t bits : {0x00000001u, 0x80000000u, 0x7f800000u, 0x7f800001u, 0xffc12345u}) {
        Bytes native(4);
        std::memcpy(native.data(), &bits, 4);
        EXPECT_EQ(unitOf(NativeSample::kF32, native), native);
        const Bytes swapped(native.rbegin(), native.rend());
        EXPECT_EQ(unitOf(NativeSample::kF32Swapped, swapped), native);
        EXPECT_EQ(nativeOf(NativeSample::kF32Swapped, native), swapped);
    }
}

TEST(SampleConversion, DoublesAreRoundedToFloatAndComeBackAsThat) {
    for (double value : {0.0, -1.0, 0.1, 1e-300, -123456.789}) {
        Bytes native(8);
        std::memcpy(native.data(), &value, 8);
        const Bytes swapped(native.rbegin(), native.rend());
        const auto expected = static_cast<float>(value);
        EXPECT_EQ(valueAt<float>(unitOf(NativeSample::kF64, native), 0), expected);
        EXPECT_EQ(valueAt<float>(unitOf(NativeSample::kF64Swapped, swapped), 0), expected);
        const Bytes back = nativeOf(NativeSample::kF64, unitOf(NativeSample::kF64, native));
        EXPECT_EQ(valueAt<double>(back, 0), static_cast<double>(expected));
        const Bytes swappedBack =
            nativeOf(NativeSample::kF64Swapped, unitOf(NativeSample::kF64Swapped, swapped));
        EXPECT_EQ(Bytes(swappedBack.rbegin(), swappedBack.rend()), back);
    }
}

TEST(SampleConversion, WorksInPlaceAtAnyAddressAndLength) {
    for (NativeSample sample :
         {NativeSample::kS16, NativeSample::kS16Swapped, NativeSample::kU16, NativeSample::kS24In4,
          NativeSample::kS32Swapped, NativeSample::kU32, NativeSample::kF32Swapped}) {
        const std::size_t width = bytesPerSample(sample);
        for (std::size_t samples = 0; samples < 70; ++samples) {
            Bytes memory(samples * width + 2, 0x5a);
            std::iota(memory.begin() + 1, memory.end() - 1, std::uint8_t{7});
            const Bytes native(memory.begin() + 1, memory.end() - 1);
            const Bytes unit = unitOf(sample, native);
            toUnit(sample)(memory.data() + 1, memory.data() + 1, samples);
            EXPECT_EQ(Bytes(memory.begin() + 1, memory.end() - 1), unit);
            fromUnit(sample)(memory.data() + 1, memory.data() + 1, samples);
            EXPECT_EQ(Bytes(memory.begin() + 1, memory.end() - 1), nativeOf(sample, unit));
            EXPECT_EQ(memory.front(), 0x5a);
            EXPECT_EQ(memory.back(), 0x5a);
        }
    }
}

TEST(SampleConversion, WhatIsNotPcmHasNoConversion) {
    EXPECT_EQ(toUnit(NativeSample::kNotPcm), nullptr);
    EXPECT_EQ(fromUnit(NativeSample::kNotPcm), nullptr);
}

}  // namespace
}  // namespace tq::bridges
