#include "bridges/core/NativeFormat.h"

#include <limits>

namespace tq::bridges {
namespace {

TEST(NativeFormat, CountsTheBytesOfAFrameOnBothSides) {
    NativeFormat format{NativeSample::kS24In3, 6, 48000};
    EXPECT_EQ(format.bytesPerFrame(), 18u);
    EXPECT_EQ(format.unitBytesPerFrame(), 24u);
    format.sample = NativeSample::kU8;
    EXPECT_EQ(format.bytesPerFrame(), 6u);
    EXPECT_EQ(format.unitBytesPerFrame(), 12u);
    format.sample = NativeSample::kF64Swapped;
    EXPECT_EQ(format.bytesPerFrame(), 48u);
    EXPECT_EQ(format.unitBytesPerFrame(), 24u);
    format.sample = NativeSample::kNotPcm;
    EXPECT_EQ(format.bytesPerFrame(), 0u);
}

TEST(NativeFormat, KeepsFloatAsFloatAndEveryIntegerWhole) {
    EXPECT_EQ(unitSampleOf(NativeSample::kS8), UnitSample::kS16);
    EXPECT_EQ(unitSampleOf(NativeSample::kU16Swapped), UnitSample::kS16);
    EXPECT_EQ(unitSampleOf(NativeSample::kS24In4), UnitSample::kS32);
    EXPECT_EQ(unitSampleOf(NativeSample::kU32), UnitSample::kS32);
    EXPECT_EQ(unitSampleOf(NativeSample::kF32Swapped), UnitSample::kF32);
    EXPECT_EQ(unitSampleOf(NativeSample::kF64), UnitSample::kF32);
}

TEST(NativeFormat, IsServableWithinWhatAUnitPlays) {
    EXPECT_TRUE((NativeFormat{NativeSample::kS16, 1, 1000}.servable()));
    EXPECT_TRUE((NativeFormat{NativeSample::kF32, 8, 768000}.servable()));
    EXPECT_FALSE((NativeFormat{NativeSample::kNotPcm, 2, 48000}.servable()));
    EXPECT_FALSE((NativeFormat{NativeSample::kS16, 0, 48000}.servable()));
    EXPECT_FALSE((NativeFormat{NativeSample::kS16, 9, 48000}.servable()));
    EXPECT_FALSE((NativeFormat{NativeSample::kS16, 2, 999}.servable()));
    EXPECT_FALSE((NativeFormat{NativeSample::kS16, 2, 768001}.servable()));
    EXPECT_FALSE(
        (NativeFormat{NativeSample::kS16, 2, std::numeric_limits<double>::quiet_NaN()}.servable()));
}

TEST(NativeFormat, DiffersByEachOfItsParts) {
    const NativeFormat format{NativeSample::kS16, 2, 48000};
    EXPECT_EQ(format, (NativeFormat{NativeSample::kS16, 2, 48000}));
    EXPECT_NE(format, (NativeFormat{NativeSample::kU16, 2, 48000}));
    EXPECT_NE(format, (NativeFormat{NativeSample::kS16, 1, 48000}));
    EXPECT_NE(format, (NativeFormat{NativeSample::kS16, 2, 44100}));
}

}  // namespace
}  // namespace tq::bridges
