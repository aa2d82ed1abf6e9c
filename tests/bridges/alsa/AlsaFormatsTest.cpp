#include <cstdlib>
#include <memory>
#include <utility>

#include "bridges/alsa/AlsaFixture.h"
#include "bridges/core/SampleLayouts.h"

// Every layout of samples that ALSA knows, and which channel is for which loudspeaker.

namespace bridgetests {
namespace {

using tq::bridges::NativeSample;

/// What ALSA calls a layout, and what it is on a machine whose lowest byte is the first.
using Layout = std::pair<snd_pcm_format_t, NativeSample>;
class AlsaLayouts : public AlsaCalls, public testing::WithParamInterface<Layout> {};

TEST_P(AlsaLayouts, AreOnTheTrackWithTheirValuesAndPassedOnAsTheyAre) {
    const auto [format, sample] = GetParam();
    configure(*pcm, {.format = format});
    const NoiseIn sound(sample);
    const std::string own = sound.written();
    ASSERT_EQ(snd_pcm_writei(pcm.get(), own.data(), NoiseIn::kFrames),
              static_cast<snd_pcm_sframes_t>(NoiseIn::kFrames));
    EXPECT_EQ(pcm->passed, own.data());
    EXPECT_EQ(pcm->taken, sound.written());
    playOn();
    close();
    sound.expectIs(heard(sound.heardAs()));
}

INSTANTIATE_TEST_SUITE_P(
    All, AlsaLayouts,
    testing::Values(Layout{SND_PCM_FORMAT_S8, NativeSample::kS8},
                    Layout{SND_PCM_FORMAT_U8, NativeSample::kU8},
                    Layout{SND_PCM_FORMAT_S16_LE, NativeSample::kS16},
                    Layout{SND_PCM_FORMAT_S16_BE, NativeSample::kS16Swapped},
                    Layout{SND_PCM_FORMAT_U16_LE, NativeSample::kU16},
                    Layout{SND_PCM_FORMAT_U16_BE, NativeSample::kU16Swapped},
                    Layout{SND_PCM_FORMAT_S24_3LE, NativeSample::kS24In3},
                    Layout{SND_PCM_FORMAT_S24_3BE, NativeSample::kS24In3Swapped},
                    Layout{SND_PCM_FORMAT_U24_3LE, NativeSample::kU24In3},
                    Layout{SND_PCM_FORMAT_U24_3BE, NativeSample::kU24In3Swapped},
                    Layout{SND_PCM_FORMAT_S24_LE, NativeSample::kS24In4},
                    Layout{SND_PCM_FORMAT_S24_BE, NativeSample::kS24In4Swapped},
                    Layout{SND_PCM_FORMAT_U24_LE, NativeSample::kU24In4},
                    Layout{SND_PCM_FORMAT_U24_BE, NativeSample::kU24In4Swapped},
                    Layout{SND_PCM_FORMAT_S32_LE, NativeSample::kS32},
                    Layout{SND_PCM_FORMAT_S32_BE, NativeSample::kS32Swapped},
                    Layout{SND_PCM_FORMAT_U32_LE, NativeSample::kU32},
                    Layout{SND_PCM_FORMAT_U32_BE, NativeSample::kU32Swapped},
                    Layout{SND_PCM_FORMAT_FLOAT_LE, NativeSample::kF32},
                    Layout{SND_PCM_FORMAT_FLOAT_BE, NativeSample::kF32Swapped},
                    Layout{SND_PCM_FORMAT_FLOAT64_LE, NativeSample::kF64},
                    Layout{SND_PCM_FORMAT_FLOAT64_BE, NativeSample::kF64Swapped}));

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
