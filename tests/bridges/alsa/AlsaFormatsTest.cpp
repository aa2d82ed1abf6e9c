#include <cstdlib>
#include <memory>
#include <ostream>

#include "bridges/alsa/AlsaFixture.h"
#include "bridges/alsa/AlsaFormat.h"
#include "bridges/core/SampleConversion.h"

// Every layout of samples that ALSA knows, and which channel is for which loudspeaker.

namespace bridgetests {
namespace {

using tq::bridges::alsaSample;
using tqtest::Encoding;

constexpr std::size_t kFrames = 9600;

struct Layout {
    snd_pcm_format_t format;
    Encoding heard;  ///< as listeners have it
};

void PrintTo(const Layout& layout, std::ostream* out) {
    *out << "format " << layout.format;
}

class AlsaLayouts : public AlsaCalls, public testing::WithParamInterface<Layout> {};

TEST_P(AlsaLayouts, AreOnTheTrackWithTheirValuesAndPassedOnAsTheyAre) {
    configure(*pcm, {.format = GetParam().format});
    // Values that a float can say as well: what is heard, taken back to what the program writes.
    const SoundFormat heardAs{48000, 2, GetParam().heard};
    const Sound wanted = markedNoise(heardAs, kFrames);
    const auto sample = alsaSample(GetParam().format);
    const std::size_t samples = 2 * kFrames;
    std::string unit = wanted.bytes;
    if (unitSampleOf(sample) == tq::bridges::UnitSample::kF32) {
        const Sound floats = markedNoise({48000, 2, Encoding::F32}, kFrames);
        unit = floats.bytes;
    }
    std::string written(samples * bytesPerSample(sample), '\0');
    tq::bridges::fromUnit(sample)(unit.data(), written.data(), samples);
    // What the layout has no bits for is not there.
    tq::bridges::toUnit(sample)(written.data(), unit.data(), samples);
    const std::string own = written;
    ASSERT_EQ(snd_pcm_writei(pcm.get(), written.data(), kFrames),
              static_cast<snd_pcm_sframes_t>(kFrames));
    EXPECT_EQ(pcm->passed, written.data());
    EXPECT_EQ(pcm->taken, own);
    playOn();
    close();
    const Sound all = heard(heardAs);
    ASSERT_EQ(all.frames(), kFrames);
    if (unitSampleOf(sample) != tq::bridges::UnitSample::kF32) {
        EXPECT_EQ(all.bytes, unit);
        return;
    }
    const Sound floats{{48000, 2, Encoding::F32}, unit};
    for (std::size_t frame = 0; frame < kFrames; ++frame) {
        ASSERT_NEAR(all.value(frame, 1), floats.value(frame, 1), 1.6 / 32768) << frame;
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, AlsaLayouts,
    testing::Values(
        Layout{SND_PCM_FORMAT_S8, Encoding::S16}, Layout{SND_PCM_FORMAT_U8, Encoding::S16},
        Layout{SND_PCM_FORMAT_S16_LE, Encoding::S16}, Layout{SND_PCM_FORMAT_S16_BE, Encoding::S16},
        Layout{SND_PCM_FORMAT_U16_LE, Encoding::S16}, Layout{SND_PCM_FORMAT_U16_BE, Encoding::S16},
        Layout{SND_PCM_FORMAT_S24_3LE, Encoding::S32},
        Layout{SND_PCM_FORMAT_S24_3BE, Encoding::S32},
        Layout{SND_PCM_FORMAT_U24_3LE, Encoding::S32},
        Layout{SND_PCM_FORMAT_U24_3BE, Encoding::S32}, Layout{SND_PCM_FORMAT_S24_LE, Encoding::S32},
        Layout{SND_PCM_FORMAT_S24_BE, Encoding::S32}, Layout{SND_PCM_FORMAT_U24_LE, Encoding::S32},
        Layout{SND_PCM_FORMAT_U24_BE, Encoding::S32}, Layout{SND_PCM_FORMAT_S32_LE, Encoding::S32},
        Layout{SND_PCM_FORMAT_S32_BE, Encoding::S32}, Layout{SND_PCM_FORMAT_U32_LE, Encoding::S32},
        Layout{SND_PCM_FORMAT_U32_BE, Encoding::S32},
        Layout{SND_PCM_FORMAT_FLOAT_LE, Encoding::S16},
        Layout{SND_PCM_FORMAT_FLOAT_BE, Encoding::S16},
        Layout{SND_PCM_FORMAT_FLOAT64_LE, Encoding::S16},
        Layout{SND_PCM_FORMAT_FLOAT64_BE, Encoding::S16}));

struct AlsaFormats : AlsaCalls {
    /// The mix of a stream whose first of three channels alone plays, left and right.
    [[nodiscard]] std::pair<double, double> peaksOfMix() const {
        const Sound all = mix();
        std::pair<double, double> peaks{0, 0};
        for (std::size_t frame = 0; frame < all.frames(); ++frame) {
            peaks.first = std::max(peaks.first, std::abs(all.value(frame, 0)));
            peaks.second = std::max(peaks.second, std::abs(all.value(frame, 1)));
        }
        return peaks;
    }
    /// Returns what is written.
    Sound writeThree() {
        const Sound tone = tqtest::tone({48000, 1}, 9600, 441);
        Sound three{{48000, 3}, {}};
        for (std::size_t frame = 0; frame < tone.frames(); ++frame) {
            three.bytes += std::string(tone.frame(frame)) + std::string(4, '\0');
        }
        write(three);
        playOn();
        return three;
    }
    void setMap(std::initializer_list<unsigned> positions) {
        const auto size = sizeof(unsigned) * (1 + positions.size());
        const std::unique_ptr<snd_pcm_chmap_t, decltype(&std::free)> map(
            static_cast<snd_pcm_chmap_t*>(std::malloc(size)), &std::free);
        map->channels = static_cast<unsigned>(positions.size());
        std::copy(positions.begin(), positions.end(), map->pos);
        ASSERT_EQ(snd_pcm_set_chmap(pcm.get(), map.get()), pcm->answer);
    }
};

TEST_F(AlsaFormats, AMapThatTheDeviceHasIsTheMixs) {
    pcm->positions = {SND_CHMAP_FR, SND_CHMAP_FL, SND_CHMAP_FC};
    configure(*pcm, {.channels = 3});
    (void)writeThree();
    EXPECT_LT(peaksOfMix().first, 0.01);
    EXPECT_NEAR(peaksOfMix().second, 0.5, 0.02);
}

TEST_F(AlsaFormats, AMapThatTheProgramSetsIsTheMixsAndTheStreamKeepsItsName) {
    configure(*pcm, {.channels = 3});
    setMap({SND_CHMAP_FR, SND_CHMAP_FL, SND_CHMAP_FC});
    const Sound three = writeThree();
    EXPECT_LT(peaksOfMix().first, 0.01);
    EXPECT_NEAR(peaksOfMix().second, 0.5, 0.02);
    close();
    EXPECT_EQ(heard(three.format).bytes, three.trimmed().bytes);
}

TEST_F(AlsaFormats, AMapThatIsRefusedOrOfOtherChannelsChangesNothing) {
    configure(*pcm, {.channels = 3});
    setMap({SND_CHMAP_FR, SND_CHMAP_FL});
    pcm->answer = -ENXIO;
    setMap({SND_CHMAP_FR, SND_CHMAP_FL, SND_CHMAP_FC});
    pcm->answer = 0;
    (void)writeThree();
    EXPECT_NEAR(peaksOfMix().first, 0.5, 0.02);
    EXPECT_LT(peaksOfMix().second, 0.01);
}

TEST_F(AlsaFormats, CodedSoundIsPassedOnAndSaidToBe) {
    for (const auto format : {SND_PCM_FORMAT_MU_LAW, SND_PCM_FORMAT_IEC958_SUBFRAME_LE}) {
        forget();
        pcm->taken.clear();
        configure(*pcm, {.format = format});
        ASSERT_EQ(snd_pcm_writei(pcm.get(), noise.bytes.data(), 5000), 5000);
        awaitReport(firstName(), TQ_STREAM_NOT_PCM);
        EXPECT_EQ(pcm->taken, noise.bytes.substr(0, pcm->frameBytes() * 5000));
    }
}

TEST_F(AlsaFormats, AC3OnADigitalOutputIsPassedOnAndSaidToBe) {
    const auto digital = make("iec958:AES0=0x6");
    ASSERT_EQ(snd_pcm_set_params(digital.get(), SND_PCM_FORMAT_S16_LE,
                                 SND_PCM_ACCESS_RW_INTERLEAVED, 2, 48000, 0, 100000),
              0);
    awaitReport("alsa-1 iec958:AES0=0x6", TQ_STREAM_NOT_PCM);
    EXPECT_EQ(snd_pcm_writei(digital.get(), noise.bytes.data(), 100), 100);
    EXPECT_EQ(digital->passed, noise.bytes.data());
    EXPECT_TRUE(tracks().empty() || !tracks().contains("alsa-1 iec958:AES0=0x6"));
}

TEST_F(AlsaFormats, MoreChannelsThanEightAreSaidNotToBeRecorded) {
    configure(*pcm, {.channels = 10});
    awaitReport(firstName(), TQ_STREAM_FORMAT);
    ASSERT_EQ(snd_pcm_writei(pcm.get(), noise.bytes.data(), 100), 100);
    EXPECT_EQ(pcm->passed, noise.bytes.data());
}

TEST_F(AlsaFormats, ThirteenFormatsOneAfterTheOtherOnOnePcmAreWhole) {
    for (unsigned i = 0; i < 13; ++i) {
        forget();
        const SoundFormat format{i % 2 == 0 ? 48000 : 44100, static_cast<int>(1 + i % 3)};
        const Sound sound = markedNoise(format, 6000 + 100 * i, i + 1);
        configure(*pcm, {.channels = 1 + i % 3, .rate = static_cast<unsigned>(format.rate)});
        write(sound);
        playOn(30);
        snd_pcm_hw_free(pcm.get());
        playOut(firstName());
        expectHeard(sound);
    }
}

}  // namespace
}  // namespace bridgetests
