#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "RenderFixture.h"
#include "SampleEncoder.h"

// A unit whose format changes, while it plays and between two starts: what is recorded is what it
// renders, or silence, never a sample read in another format.

namespace {

using sample_encoder::formatsThatMix;
using sample_encoder::NamedFormat;

/// Plays one level on the left and half of it, upside down, on the right, in any format.
struct LevelHost {
    HostUnit unit;
    AudioStreamBasicDescription format{};
    double level = 0;

    static OSStatus render(void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                           UInt32 frames, AudioBufferList* ioData) {
        const auto& host = *static_cast<const LevelHost*>(refCon);
        sample_encoder::fill(host.format, frames, *ioData,
                             [&](UInt32 channel) { return host.levelOf(channel); });
        return noErr;
    }
    [[nodiscard]] double levelOf(UInt32 channel) const { return channel == 0 ? level : -level / 2; }
    /// What channel of a stereo mix has it.
    [[nodiscard]] double mixedLevelOf(UInt32 channel) const {
        return format.mChannelsPerFrame == 1 ? level : levelOf(channel);
    }
    void play(const AudioStreamBasicDescription& wanted, double wantedLevel) {
        change(wanted, wantedLevel);
        const AURenderCallbackStruct callback{render, this};
        ASSERT_EQ(AudioUnitSetProperty(unit.unit(), kAudioUnitProperty_SetRenderCallback,
                                       kAudioUnitScope_Input, 0, &callback, sizeof callback),
                  0);
        ASSERT_EQ(unit.initialize(), 0);
        ASSERT_EQ(unit.start(), 0);
    }
    void change(const AudioStreamBasicDescription& wanted, double wantedLevel) {
        ASSERT_EQ(unit.setFormat(wanted), 0);
        format = wanted;
        level = wantedLevel;
    }
};

/// Where each frame of the mix comes from.
enum class Source { silence, before, after, noise };

struct FormatChange : RenderCallbacks {
    static constexpr double kBefore = 0.25;
    static constexpr double kAfter = 0.5;

    /// Slices of uneven size, so that the rings hold a rest that is no whole block.
    void unevenSlices() {
        for (const UInt32 frames : {441U, 300U, 441U, 137U}) {
            pump(1, frames);
        }
    }
    static bool isNear(int sample, double level) { return std::abs(sample - level * 32767) < 300; }
    [[nodiscard]] std::vector<Source> sources(const LevelHost& before,
                                              const LevelHost& after) const {
        std::vector<Source> result;
        for (const CaptureListener::Block& block : listener->mixes()) {
            const std::vector<std::int16_t> samples = block.samples();
            for (std::size_t i = 0; i + 1 < samples.size(); i += 2) {
                const auto is = [&](const LevelHost& host) {
                    return isNear(samples[i], host.mixedLevelOf(0)) &&
                           isNear(samples[i + 1], host.mixedLevelOf(1));
                };
                result.push_back(samples[i] == 0 && samples[i + 1] == 0 ? Source::silence
                                 : is(before)                           ? Source::before
                                 : is(after)                            ? Source::after
                                                                        : Source::noise);
            }
        }
        return result;
    }
};

TEST_F(FormatChange, BetweenTwoStartsLeavesNoStaleOrRotatedSound) {
    listener = std::make_shared<CaptureListener>(1);
    ASSERT_TRUE(startCapture());
    const std::vector<NamedFormat> formats = formatsThatMix(44100);
    for (const NamedFormat& first : formats) {
        for (const NamedFormat& second : formats) {
            LevelHost host;
            host.play(first.format, kBefore);
            unevenSlices();
            ASSERT_EQ(host.unit.stop(), 0);
            slices(3);
            listener->clear();
            host.change(second.format, kAfter);
            ASSERT_EQ(host.unit.start(), 0);
            unevenSlices();
            unevenSlices();
            const std::vector<Source> heard = sources(host, host);
            ASSERT_EQ(std::count(heard.begin(), heard.end(), Source::noise), 0)
                << first.name << " to " << second.name;
            const auto played = std::count(heard.begin(), heard.end(), Source::before);
            ASSERT_GE(played, static_cast<long>(heard.size()) - 2 * 441)
                << first.name << " to " << second.name;
        }
    }
}

TEST_F(FormatChange, WhilePlayingIsFollowedByMixTrackAndDevice) {
    ASSERT_TRUE(startCapture());
    const std::vector<NamedFormat> formats = formatsThatMix(44100);
    const Speaker speaker;
    for (const NamedFormat& first : formats) {
        for (const NamedFormat& second : formats) {
            SCOPED_TRACE(first.name + " to " + second.name);
            LevelHost host;
            host.play(first.format, kBefore);
            unevenSlices();
            LevelHost before;
            before.format = first.format;
            before.level = kBefore;
            ASSERT_NEAR(speaker.level(), kBefore, 0.01);
            listener->clear();
            host.change(second.format, kAfter);
            unevenSlices();
            unevenSlices();
            ASSERT_NEAR(speaker.level(), kAfter, 0.01) << "the device plays on";
            const std::vector<Source> heard = sources(before, host);
            ASSERT_EQ(std::count(heard.begin(), heard.end(), Source::noise), 0);
            ASSERT_TRUE(std::none_of(std::find(heard.begin(), heard.end(), Source::after),
                                     heard.end(), [](Source s) { return s == Source::before; }))
                << "nothing of the old format comes late";
            const auto played = std::count(heard.begin(), heard.end(), Source::after);
            ASSERT_GE(played, static_cast<long>(heard.size()) - 3 * 441);
        }
    }
}

TEST_F(FormatChange, WhilePlayingLabelsEveryTrackBlockWithItsOwnFormat) {
    listener = std::make_shared<CaptureListener>(2);
    ASSERT_TRUE(startCapture());
    LevelHost host;
    host.play(stream_formats::int16Interleaved(44100, 2), kBefore);
    slices(3);
    host.change(stream_formats::floatPlanar(44100, 2), kAfter);
    slices(3);
    host.change(stream_formats::int32Interleaved(22050, 1), kBefore);
    slices(8);
    std::vector<int> order;
    for (const CaptureListener::Block& block : listener->posts()) {
        if (block.isSilent()) {
            continue;
        }
        const bool isLast = block.info.sampleRate() == 22050;
        EXPECT_EQ(block.info.bitsPerChannel(), isLast ? 32 : 16);
        const bool isPlanar = (block.info.formatFlags() & kAudioFormatFlagIsNonInterleaved) != 0;
        EXPECT_EQ(block.buffers.size(), isPlanar ? 2U : 1U);
        if (isLast) {
            std::int32_t sample = 0;
            std::memcpy(&sample, block.buffers[0].data(), sizeof sample);
            EXPECT_NEAR(sample / 2147483648.0, kBefore, 0.001);
            order.push_back(3);
        } else {
            EXPECT_NEAR(block.samples()[0], (isPlanar ? kAfter : kBefore) * 32767, 2);
            order.push_back(isPlanar ? 2 : 1);
        }
    }
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_THAT(order, testing::IsSupersetOf({1, 2, 3}));
}

TEST_F(FormatChange, TellsTheMixOnceForEachChangeAndNeverForWhatIsNone) {
    LevelHost host;
    host.play(stream_formats::int16Interleaved(44100, 2), kBefore);
    ASSERT_TRUE(startCapture());
    listener->clear();
    host.change(stream_formats::int16Interleaved(44100, 2), kBefore);
    EXPECT_THAT(listener->events(), testing::IsEmpty());
    host.change(stream_formats::floatPlanar(22050, 1), kBefore);
    const std::string text =
        "[mix] resample set input streamFormat success, key: " + pointerText(host.unit.unit()) +
        " trackId: " + std::to_string(host.unit.object()->trackId());
    EXPECT_THAT(listener->events(), testing::ElementsAre(event(1, 0, text)));
}

TEST_F(FormatChange, OfAGraphsUnitIsFollowedAtOnceAndToldWithTheUpdate) {
    HostGraph host;
    host.sound.format = stream_formats::int16Interleaved(44100, 2);
    host.play();
    ASSERT_TRUE(startCapture());
    slices(2);
    listener->clear();
    host.sound.format = stream_formats::floatPlanar(44100, 1);
    host.setOutputFormat();
    EXPECT_THAT(listener->events(), testing::IsEmpty());
    slices(3);
    EXPECT_EQ(listener->posts().back().samples()[0], 8191);
    for (const CaptureListener::Block& block : listener->mixes()) {
        EXPECT_TRUE(block.isSilent() || isNear(block.samples()[100], 0.25));
    }
    EXPECT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    EXPECT_THAT(listener->events(), testing::SizeIs(1));
}

TEST_F(FormatChange, ThatThePlatformRefusesLosesNothing) {
    LevelHost host;
    host.play(stream_formats::int16Interleaved(44100, 2), kBefore);
    listener = std::make_shared<CaptureListener>(1);
    ASSERT_TRUE(startCapture());
    slices(2);
    listener->clear();
    AudioStreamBasicDescription wrong = host.format;
    wrong.mBytesPerFrame = 3;
    EXPECT_NE(host.unit.setFormat(wrong), 0);
    slices(3);
    const std::vector<Source> heard = sources(host, host);
    EXPECT_EQ(std::count(heard.begin(), heard.end(), Source::before), 3 * 441);
    EXPECT_THAT(listener->events(), testing::IsEmpty());
}

TEST_F(FormatChange, OfTheSampleRateAloneIsFollowedToo) {
    LevelHost host;
    host.play(stream_formats::int16Interleaved(44100, 2), kBefore);
    ASSERT_TRUE(startCapture());
    const Float64 rate = 22050;
    ASSERT_EQ(AudioUnitSetProperty(host.unit.unit(), kAudioUnitProperty_SampleRate,
                                   kAudioUnitScope_Input, 0, &rate, sizeof rate),
              0);
    EXPECT_EQ(host.unit.object()->streamDesc().mSampleRate, 22050);
    slices(3);
    EXPECT_EQ(listener->posts().back().info.sampleRate(), 22050);
}

TEST_F(FormatChange, WithNobodyRecordingKeepsDuckingInTheRightFormat) {
    const Speaker speaker;
    LevelHost host;
    host.play(stream_formats::int16Interleaved(44100, 2), kBefore);
    const RZReplayVolumeDuckingParam ducking(YES);
    ASSERT_EQ(manager().enableDucking(&ducking), 0);
    slices(2);
    host.change(stream_formats::floatInterleaved(44100, 2), kAfter);
    slices(3);
    EXPECT_NEAR(speaker.level(), kAfter, 0.001) << "the outside is quiet: nothing is ducked";
    const RZReplayVolumeDuckingParam off(NO);
    manager().enableDucking(&off);
}

/// A host that knows the format of its unit except while it changes it: then it plays silence.
struct TaggingHost {
    // As the other format the one would be about 0.48 of full scale, the other full scale.
    static constexpr std::int32_t kInteger = 0x3F800000;
    static constexpr float kFloat = 0.125F;

    std::atomic<int> bits{0};  ///< 32 for integers, 33 for floats, 0 in between

    static OSStatus render(void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                           UInt32 frames, AudioBufferList* ioData) {
        const int known = static_cast<const TaggingHost*>(refCon)->bits;
        std::int32_t word = known == 32 ? kInteger : 0;
        if (known == 33) {
            std::memcpy(&word, &kFloat, sizeof word);
        }
        auto* const first = static_cast<std::int32_t*>(ioData->mBuffers[0].mData);
        std::fill(first, first + std::size_t{frames} * 2, word);
        return noErr;
    }
};

TEST_F(FormatChange, FromAnotherThreadWhileRenderingStoresNoBlockUnderTheOtherFormat) {
    listener = std::make_shared<CaptureListener>(3);
    ASSERT_TRUE(startCapture());
    TaggingHost host;
    HostUnit unit;
    const auto change = [&](int bits) {
        host.bits = 0;
        EXPECT_EQ(unit.setFormat(bits == 32 ? stream_formats::int32Interleaved(44100, 2)
                                            : stream_formats::floatInterleaved(44100, 2)),
                  0);
        host.bits = bits;
    };
    change(32);
    const AURenderCallbackStruct callback{TaggingHost::render, &host};
    ASSERT_EQ(AudioUnitSetProperty(unit.unit(), kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, &callback, sizeof callback),
              0);
    ASSERT_EQ(unit.initialize(), 0);
    ASSERT_EQ(unit.start(), 0);
    std::atomic<bool> isDone{false};
    std::thread changes([&] {
        for (int i = 0; i < 200; ++i) {
            change(32 + i % 2);
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
        isDone = true;
    });
    while (!isDone) {
        slices(1);
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    changes.join();
    slices(4);
    for (const RecordedEvent& told : listener->events()) {
        EXPECT_NE(told.code, 109U) << told.message;
    }
    int sounding = 0;
    for (const CaptureListener::Block& block : listener->posts()) {
        if (block.isSilent()) {
            continue;
        }
        ++sounding;
        if (block.info.bitsPerChannel() == 32) {
            std::int32_t sample = 0;
            std::memcpy(&sample, block.buffers[0].data(), sizeof sample);
            EXPECT_EQ(sample, TaggingHost::kInteger);
        } else {
            EXPECT_EQ(block.samples()[0], 4095);
        }
    }
    EXPECT_GT(sounding, 3);
}

}  // namespace
