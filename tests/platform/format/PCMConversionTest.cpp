#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "common/Planes.h"
#include "format/PCMFormat.h"
#include "support/AllocationCounter.h"

namespace {

using tqcommon::AudioView;
using tqcommon::ConstAudioView;
using tqcommon::Planes;
using tqplatform::fromFloat;
using tqplatform::PCMFormat;
using tqplatform::SampleType;
using tqplatform::toFloat;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

UInt32 sizeOf(SampleType type) {
    switch (type) {
        case SampleType::int8:
        case SampleType::uint8:
            return 1;
        case SampleType::int16:
        case SampleType::uint16:
            return 2;
        case SampleType::int24:
            return 3;
        case SampleType::float64:
            return 8;
        default:
            return 4;
    }
}

PCMFormat make(SampleType type, UInt32 channels = 1, bool interleaved = true, bool big = false) {
    return {type, big, interleaved, channels, sizeOf(type) * (interleaved ? channels : 1), 48000};
}

/// A buffer list with its memory. One byte off alignment, as buffers of hosts may be.
class List {
  public:
    List(const PCMFormat& format, UInt32 frames)
        : storage_(sizeof(AudioBufferList) + format.bufferCount() * sizeof(AudioBuffer)),
          bytes_(std::size_t{format.bufferCount()} * frames * format.bytesPerFrame + 1) {
        list().mNumberBuffers = format.bufferCount();
        for (UInt32 index = 0; index < format.bufferCount(); ++index) {
            AudioBuffer buffer{};
            buffer.mNumberChannels = format.interleaved ? format.channels : 1;
            buffer.mDataByteSize = frames * format.bytesPerFrame;
            buffer.mData = data() + std::size_t{index} * buffer.mDataByteSize;
            buffers()[index] = buffer;
        }
    }
    AudioBufferList& list() { return *reinterpret_cast<AudioBufferList*>(storage_.data()); }
    AudioBuffer* buffers() { return list().mBuffers; }
    std::uint8_t* data() { return bytes_.data() + 1; }
    std::size_t size() const { return bytes_.size() - 1; }

  private:
    std::vector<std::uint8_t> storage_;
    std::vector<std::uint8_t> bytes_;
};

std::vector<std::uint8_t> written(const PCMFormat& format, std::vector<float> samples) {
    List list(format, static_cast<UInt32>(samples.size()));
    fromFloat({samples.data(), 1, static_cast<UInt32>(samples.size()), 0}, format, list.list());
    return {list.data(), list.data() + list.size()};
}

template <class Number>
std::vector<Number> writtenAs(const PCMFormat& format, const std::vector<float>& samples) {
    const auto bytes = written(format, samples);
    std::vector<Number> numbers(samples.size());
    std::memcpy(numbers.data(), bytes.data(), bytes.size());
    return numbers;
}

std::vector<float> read(const PCMFormat& format, const void* bytes, UInt32 frames) {
    List list(format, frames);
    std::memcpy(list.data(), bytes, list.size());
    std::vector<float> plane(frames);
    toFloat(list.list(), format, {plane.data(), 1, frames, 0});
    return plane;
}

TEST(PCMConversion, Int16SurvivesTheWayThroughFloatUnchanged) {
    std::vector<std::int16_t> all(65536);
    for (std::size_t index = 0; index < all.size(); ++index) {
        all[index] = static_cast<std::int16_t>(static_cast<int>(index) - 32768);
    }
    const auto format = make(SampleType::int16);
    const auto floats = read(format, all.data(), 65536);
    EXPECT_EQ(floats.front(), -1.0F);
    EXPECT_EQ(floats.back(), 32767.0F / 32768.0F);
    EXPECT_EQ(writtenAs<std::int16_t>(format, floats), all);
}

TEST(PCMConversion, UnsignedNumbersSurviveTheWayThroughFloatUnchanged) {
    std::vector<std::uint16_t> words(65536);
    std::vector<std::uint8_t> bytes(256);
    for (std::size_t index = 0; index < words.size(); ++index) {
        words[index] = static_cast<std::uint16_t>(index);
        bytes[index % 256] = static_cast<std::uint8_t>(index);
    }
    const auto wide = read(make(SampleType::uint16), words.data(), 65536);
    EXPECT_EQ(wide.front(), -1.0F);
    EXPECT_EQ(wide[32768], 0.0F);
    EXPECT_EQ(writtenAs<std::uint16_t>(make(SampleType::uint16), wide), words);
    const auto narrow = read(make(SampleType::uint8), bytes.data(), 256);
    EXPECT_EQ(narrow.front(), -1.0F);
    EXPECT_EQ(narrow[128], 0.0F);
    EXPECT_EQ(writtenAs<std::uint8_t>(make(SampleType::uint8), narrow), bytes);
}

TEST(PCMConversion, SilenceIsTheMiddleOfUnsignedNumbers) {
    for (const bool big : {false, true}) {
        for (const SampleType type : {SampleType::uint8, SampleType::uint16, SampleType::int16}) {
            const auto format = make(type, 1, true, big);
            std::uint8_t memory[8];
            std::fill_n(memory, sizeof memory, std::uint8_t{7});
            tqplatform::writeSilence(format, memory, sizeof memory);
            for (const float sample : read(format, memory, 8 / sizeOf(type))) {
                EXPECT_EQ(sample, 0.0F);
            }
        }
    }
}

TEST(PCMConversion, Int8SurvivesTheWayThroughFloatUnchanged) {
    std::vector<std::int8_t> all(256);
    for (std::size_t index = 0; index < all.size(); ++index) {
        all[index] = static_cast<std::int8_t>(static_cast<int>(index) - 128);
    }
    const auto format = make(SampleType::int8);
    const auto floats = read(format, all.data(), 256);
    EXPECT_EQ(floats.front(), -1.0F);
    EXPECT_EQ(floats.back(), 127.0F / 128.0F);
    EXPECT_EQ(writtenAs<std::int8_t>(format, floats), all);
}

TEST(PCMConversion, Int24SurvivesTheWayThroughFloatUnchanged) {
    std::vector<std::uint8_t> bytes;
    std::vector<std::int32_t> values = {-8388608, -8388607, -1, 0, 1, 255, 256, 65535, 8388607};
    for (std::int32_t value = -8388608; value < 8388608; value += 997) {
        values.push_back(value);
    }
    for (const std::int32_t value : values) {
        for (const int shift : {0, 8, 16}) {
            bytes.push_back(static_cast<std::uint8_t>(value >> shift & 0xFF));
        }
    }
    const auto format = make(SampleType::int24);
    const auto floats = read(format, bytes.data(), static_cast<UInt32>(values.size()));
    for (std::size_t index = 0; index < values.size(); ++index) {
        ASSERT_EQ(floats[index], static_cast<float>(values[index]) / 8388608.0F);
    }
    EXPECT_EQ(written(format, floats), bytes);
}

TEST(PCMConversion, Int32AndFixedPointReadAtTheirScales) {
    const std::vector<std::int32_t> values = {
        std::numeric_limits<std::int32_t>::min(), -(1 << 24), -1, 0, 1, 1 << 23, 1 << 24, 1 << 30};
    const auto count = static_cast<UInt32>(values.size());
    const auto plain = read(make(SampleType::int32), values.data(), count);
    const auto fixed = read(make(SampleType::fixed824), values.data(), count);
    for (std::size_t index = 0; index < values.size(); ++index) {
        const double value = values[index];
        EXPECT_EQ(plain[index], static_cast<float>(value / 2147483648.0));
        EXPECT_EQ(fixed[index], static_cast<float>(value / 16777216.0));
    }
    EXPECT_EQ(writtenAs<std::int32_t>(make(SampleType::int32), plain), values);
    EXPECT_EQ(writtenAs<std::int32_t>(make(SampleType::fixed824), fixed), values);
}

TEST(PCMConversion, FloatsSurviveBothFloatTypesBitForBit) {
    std::mt19937 random(7);
    std::vector<float> values = {0.0F,   -0.0F,  1.0F,      -1.0F,     3.5F,
                                 -1e30F, 1e-40F, kInfinity, -kInfinity};
    while (values.size() < 4096) {
        const float value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
        if (!std::isnan(value)) {
            values.push_back(value);
        }
    }
    for (const bool big : {false, true}) {
        for (const SampleType type : {SampleType::float32, SampleType::float64}) {
            const auto format = make(type, 1, true, big);
            const auto bytes = written(format, values);
            const auto back = read(format, bytes.data(), static_cast<UInt32>(values.size()));
            EXPECT_EQ(std::memcmp(back.data(), values.data(), values.size() * sizeof(float)), 0);
        }
    }
}

TEST(PCMConversion, DoublesBeyondFloatBecomeInfinite) {
    const double values[] = {1e300, -1e300, 0.1};
    EXPECT_EQ(read(make(SampleType::float64), values, 3),
              (std::vector<float>{kInfinity, -kInfinity, 0.1F}));
}

const std::vector<float> kExtremes = {1.0F,   -1.0F,     1.5F,       -1.5F, 1e30F,
                                      -1e30F, kInfinity, -kInfinity, kNaN};

TEST(PCMConversion, IntegersSaturateAtFullScaleAndBeyond) {
    EXPECT_EQ(writtenAs<std::int8_t>(make(SampleType::int8), kExtremes),
              (std::vector<std::int8_t>{127, -128, 127, -128, 127, -128, 127, -128, 0}));
    EXPECT_EQ(
        writtenAs<std::int16_t>(make(SampleType::int16), kExtremes),
        (std::vector<std::int16_t>{32767, -32768, 32767, -32768, 32767, -32768, 32767, -32768, 0}));
    constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
    constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
    EXPECT_EQ(
        writtenAs<std::int32_t>(make(SampleType::int32), kExtremes),
        (std::vector<std::int32_t>{kMost, kLeast, kMost, kLeast, kMost, kLeast, kMost, kLeast, 0}));
    const auto bytes = written(make(SampleType::int24), kExtremes);
    for (std::size_t index = 0; index < 8; ++index) {
        const std::vector<std::uint8_t> sample(bytes.begin() + static_cast<long>(3 * index),
                                               bytes.begin() + static_cast<long>(3 * index + 3));
        EXPECT_EQ(sample, index % 2 == 0 ? (std::vector<std::uint8_t>{0xFF, 0xFF, 0x7F})
                                         : (std::vector<std::uint8_t>{0x00, 0x00, 0x80}));
    }
    EXPECT_EQ(bytes[24] | bytes[25] | bytes[26], 0);
}

TEST(PCMConversion, FixedPointKeepsItsHeadroomAndSaturatesAt128) {
    const auto values = writtenAs<std::int32_t>(
        make(SampleType::fixed824),
        {1.0F, -1.5F, 127.5F, 128.0F, -128.0F, -129.0F, kInfinity, -kInfinity, kNaN});
    constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
    constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
    EXPECT_EQ(values, (std::vector<std::int32_t>{1 << 24, -(3 << 23), 255 << 23, kMost, kLeast,
                                                 kLeast, kMost, kLeast, 0}));
}

TEST(PCMConversion, FloatTypesKeepInfinityAndLoseNaN) {
    const auto narrow = writtenAs<float>(make(SampleType::float32), kExtremes);
    const auto wide = writtenAs<double>(make(SampleType::float64), kExtremes);
    for (std::size_t index = 0; index + 1 < kExtremes.size(); ++index) {
        EXPECT_EQ(narrow[index], kExtremes[index]);
        EXPECT_EQ(wide[index], static_cast<double>(kExtremes[index]));
    }
    EXPECT_EQ(narrow.back(), 0.0F);
    EXPECT_EQ(wide.back(), 0.0);
}

TEST(PCMConversion, IntegersAreRoundedToTheNearest) {
    const float step = 1.0F / 32768.0F;
    EXPECT_EQ(writtenAs<std::int16_t>(make(SampleType::int16),
                                      {0.49F * step, 0.51F * step, -0.49F * step, -0.51F * step,
                                       0.5F * step, 1.5F * step, 100.6F * step, -100.6F * step}),
              (std::vector<std::int16_t>{0, 1, 0, -1, 0, 2, 101, -101}));
    EXPECT_EQ(writtenAs<std::int32_t>(make(SampleType::int32), {0.75F / 2147483648.0F}),
              (std::vector<std::int32_t>{1}));
    EXPECT_EQ(written(make(SampleType::int24), {-0.75F / 8388608.0F}),
              (std::vector<std::uint8_t>{0xFF, 0xFF, 0xFF}));
}

TEST(PCMConversion, RoundsEveryFloatLikeTheMathLibrary) {
    std::mt19937 random(11);
    std::uniform_real_distribution<float> range(-1.1F, 1.1F);
    std::vector<float> values(20000);
    std::generate(values.begin(), values.end(), [&] { return range(random); });
    const auto narrow = writtenAs<std::int16_t>(make(SampleType::int16), values);
    const auto wide = writtenAs<std::int32_t>(make(SampleType::int32), values);
    for (std::size_t index = 0; index < values.size(); ++index) {
        const double value = values[index];
        ASSERT_EQ(narrow[index], std::clamp(std::nearbyint(value * 32768), -32768.0, 32767.0));
        ASSERT_EQ(wide[index],
                  std::clamp(std::nearbyint(value * 2147483648.0), -2147483648.0, 2147483647.0));
    }
}

TEST(PCMConversion, BigEndianIsTheSameWithItsBytesReversed) {
    std::mt19937 random(3);
    std::uniform_real_distribution<float> range(-1.0F, 1.0F);
    std::vector<float> values(100);
    std::generate(values.begin(), values.end(), [&] { return range(random); });
    for (const SampleType type :
         {SampleType::int8, SampleType::int16, SampleType::int24, SampleType::int32,
          SampleType::fixed824, SampleType::float32, SampleType::float64}) {
        const auto little = written(make(type), values);
        auto big = written(make(type, 1, true, true), values);
        EXPECT_EQ(read(make(type), little.data(), 100),
                  read(make(type, 1, true, true), big.data(), 100));
        const auto size = static_cast<long>(sizeOf(type));
        for (auto at = big.begin(); at != big.end(); at += size) {
            std::reverse(at, at + size);
        }
        EXPECT_EQ(little, big) << "sample size " << size;
    }
}

/// Distinct values per channel and frame that every type holds exactly.
float pattern(UInt32 channel, UInt32 frame) {
    return static_cast<float>(static_cast<int>((channel * 37 + frame * 11) % 255) - 127) / 128.0F;
}

TEST(PCMConversion, EveryTypeLayoutAndChannelCountKeepsItsChannelsApart) {
    constexpr UInt32 kFrames = 37;
    for (const SampleType type :
         {SampleType::int8, SampleType::int16, SampleType::int24, SampleType::int32,
          SampleType::fixed824, SampleType::float32, SampleType::float64}) {
        for (const UInt32 channels : {1U, 2U, 3U, 8U, 64U}) {
            for (const bool interleaved : {true, false}) {
                const auto format = make(type, channels, interleaved);
                List list(format, kFrames);
                Planes in(channels, kFrames), out(channels, kFrames + 1);
                for (UInt32 channel = 0; channel < channels; ++channel) {
                    out.view().at(channel, kFrames) = 99.0F;
                    for (UInt32 frame = 0; frame < kFrames; ++frame) {
                        in.view().at(channel, frame) = pattern(channel, frame);
                    }
                }
                fromFloat(in.view(), format, list.list());
                toFloat(list.list(), format, out.view(kFrames));
                for (UInt32 channel = 0; channel < channels; ++channel) {
                    ASSERT_EQ(out.view().at(channel, kFrames), 99.0F) << "wrote past the block";
                    const float* const wanted = in.view().plane(channel);
                    ASSERT_TRUE(std::equal(wanted, wanted + kFrames, out.view().plane(channel)))
                        << "channel " << channel;
                }
            }
        }
    }
}

TEST(PCMConversion, InterleavedSamplesLieFrameByFrame) {
    const auto format = make(SampleType::int16, 2);
    List list(format, 2);
    const float leftThenRight[] = {0.25F, 0.5F, -0.25F, -0.5F};
    fromFloat({leftThenRight, 2, 2, 2}, format, list.list());
    std::int16_t samples[4];
    std::memcpy(samples, list.data(), sizeof samples);
    EXPECT_EQ(samples[0], 8192);
    EXPECT_EQ(samples[1], -8192);
    EXPECT_EQ(samples[2], 16384);
    EXPECT_EQ(samples[3], -16384);
}

TEST(PCMConversion, BuffersThatAreNotThereReadAsSilence) {
    const auto format = make(SampleType::float32, 3, false);
    List list(format, 4);
    const float ones[] = {1, 1, 1, 1};
    const ConstAudioView in(ones, 3, 4, 0);
    fromFloat(in, format, list.list());
    list.buffers()[1].mData = nullptr;
    list.list().mNumberBuffers = 2;
    fromFloat(in, format, list.list());
    std::vector<float> out(12, 5.0F);
    toFloat(list.list(), format, {out.data(), 3, 4, 4});
    EXPECT_EQ(out, (std::vector<float>{1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(PCMConversion, PlanesMayBeTheBuffersThemselves) {
    std::vector<float> samples = {0.5F, kNaN, -2.0F};
    const auto format = make(SampleType::float32, 1, false);
    List list(format, 3);
    list.buffers()[0].mData = samples.data();
    const AudioView planes(samples.data(), 1, 3, 0);
    fromFloat(planes, format, list.list());
    toFloat(list.list(), format, planes);
    EXPECT_EQ(samples, (std::vector<float>{0.5F, 0.0F, -2.0F}));
}

TEST(PCMConversion, AllocatesNothing) {
    const auto format = make(SampleType::int16, 2);
    List list(format, 512);
    Planes memory(2, 512);
    const AudioView planes = memory.view();
    const AllocationCounter allocations;
    toFloat(list.list(), format, planes);
    fromFloat(planes, format, list.list());
    tqplatform::mapChannels(planes, {planes.plane(0), 1, 512, 0});
    EXPECT_EQ(allocations.count(), 0U);
}

class MapChannels : public testing::Test {
  protected:
    std::vector<std::vector<float>> map(const std::vector<std::vector<float>>& source,
                                        UInt32 destinationChannels) {
        const auto frames = static_cast<UInt32>(source[0].size());
        Planes from(static_cast<UInt32>(source.size()), frames), to(destinationChannels, frames);
        for (UInt32 channel = 0; channel < from.channels(); ++channel) {
            std::copy_n(source[channel].data(), frames, from.view().plane(channel));
        }
        std::vector<std::vector<float>> out;
        for (UInt32 channel = 0; channel < destinationChannels; ++channel) {
            std::fill_n(to.view().plane(channel), frames, 9.0F);
        }
        tqplatform::mapChannels(from.view(), to.view());
        for (UInt32 channel = 0; channel < destinationChannels; ++channel) {
            const float* const plane = to.view().plane(channel);
            out.emplace_back(plane, plane + frames);
        }
        return out;
    }
};

using Channels = std::vector<std::vector<float>>;

TEST_F(MapChannels, SpreadsMono) {
    EXPECT_EQ(map({{1, 2}}, 3), (Channels{{1, 2}, {1, 2}, {1, 2}}));
}

TEST_F(MapChannels, AveragesDownToMono) {
    EXPECT_EQ(map({{1, 2}, {0, -4}}, 1), (Channels{{0.5F, -1}}));
    EXPECT_EQ(map({{0.3F}, {0.3F}, {0.3F}}, 1), (Channels{{0.3F}}));
}

TEST_F(MapChannels, KeepsWhatBothHave) {
    EXPECT_EQ(map({{1}, {2}, {3}}, 2), (Channels{{1}, {2}}));
    EXPECT_EQ(map({{1}, {2}}, 2), (Channels{{1}, {2}}));
    EXPECT_EQ(map({{1}}, 1), (Channels{{1}}));
}

TEST_F(MapChannels, LeavesFurtherChannelsSilent) {
    EXPECT_EQ(map({{1}, {2}}, 4), (Channels{{1}, {2}, {0}, {0}}));
}

}  // namespace
