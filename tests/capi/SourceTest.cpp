#include "tq_source.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "CapturePathFixture.h"

// What bridges use: units that stand for streams, and what they say of streams.

namespace {

using testing::ElementsAre;

constexpr std::int16_t kPost = 1234;

void putPost(void* calls, void* samples, std::uint32_t frames) {
    ++*static_cast<int*>(calls);
    std::fill_n(static_cast<std::int16_t*>(samples), 2 * frames, kPost);
}

void ignoreBlock(void* /*context*/, void* /*samples*/, std::uint32_t /*frames*/) {
}

/// A unit of a bridge, recorded.
struct Source : CapturePath {
    std::unique_ptr<HostUnit> host;  ///< made when the hooks are there
    int calls = 0;
    tq_source* source = nullptr;
    tq_volume* volume = nullptr;

    tq_result open(const char* name, void (*replace)(void*, void*, std::uint32_t) = putPost) {
        const tq_source_description description{sizeof description, host->unit(), name, &calls,
                                                replace};
        return tq_source_open(&description, &source);
    }
    /// -20 dB at once, for as long as the outside is louder than -30 dB.
    void duck() {
        tq_ducking ducking{};
        ducking.size = sizeof ducking;
        ASSERT_EQ(tq_volume_open(&volume), TQ_OK);
        ASSERT_EQ(tq_ducking_defaults(&ducking), TQ_OK);
        ducking.attack_seconds = 0.001F;
        ASSERT_EQ(tq_volume_set_ducking(volume, &ducking), TQ_OK);
    }
    void SetUp() override {
        CapturePath::SetUp();
        host = std::make_unique<HostUnit>();
    }
    void TearDown() override {
        host.reset();
        tq_source_close(source);
        if (volume != nullptr) {
            EXPECT_EQ(tq_volume_close(volume), TQ_OK);
        }
        CapturePath::TearDown();
    }
};

TEST_F(Source, TheTrackHoldsWhatTheOwnerPutsInAndTheMixWhatTheCallbackRendered) {
    ASSERT_TRUE(startCapture());
    host->prepare();
    ASSERT_EQ(open("alsa-1"), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    pump(40);
    EXPECT_GE(calls, 40);
    ASSERT_FALSE(listener->posts().empty());
    EXPECT_EQ(listener->posts().back().samples()[100], kPost);
    ASSERT_FALSE(listener->mixes().empty());
    EXPECT_NEAR(listener->mixes().back().samples()[100], 8191, 2);
    stopCapture();
}

TEST_F(Source, AFirstBlockOfExactlyADoubledRingIsKept) {
    ASSERT_TRUE(startCapture());
    host->sound.isRising = true;
    host->sound.value = 0;
    // 256 frames of eight channels fill 8192 bytes, 512 twice that.
    host->setFormat(stream_formats::int32Interleaved(48000, 8));
    ASSERT_EQ(host->setCallback(), 0);
    ASSERT_EQ(host->initialize(), 0);
    ASSERT_EQ(open("alsa-1", ignoreBlock), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    pump(40, 512);
    tq_frames frames{};
    frames.size = sizeof frames;
    ASSERT_EQ(tq_capture_get_frames(1, &frames), TQ_OK);
    EXPECT_EQ(frames.mix.lost[TQ_FRAMES_RING_FULL], 0U);
    EXPECT_EQ(frames.track.lost[TQ_FRAMES_RING_FULL], 0U);
    stopCapture();
}

TEST_F(Source, WhileTheGainIsOnTheLibraryLeavesTheBlockToTheOwner) {
    host->prepare();
    duck();
    ASSERT_EQ(tq_volume_set_ducking_level(volume, 0), TQ_OK);
    ASSERT_EQ(open("alsa-1", ignoreBlock), TQ_OK);
    ASSERT_TRUE(startCapture());
    ASSERT_EQ(host->start(), 0);
    pump(300);
    EXPECT_NEAR(listener->posts().back().samples()[100], 8191, 2);
    stopCapture();
}

TEST_F(Source, TheGainIsOnWithDuckingOrCompression) {
    host->prepare();
    ASSERT_EQ(open("alsa-1"), TQ_OK);
    EXPECT_EQ(tq_source_gain_is_on(source), 0);
    duck();
    EXPECT_NE(tq_source_gain_is_on(source), 0);
    ASSERT_EQ(tq_volume_set_ducking(volume, nullptr), TQ_OK);
    tq_compressor compressor{};
    compressor.size = sizeof compressor;
    ASSERT_EQ(tq_compressor_defaults(&compressor), TQ_OK);
    ASSERT_EQ(tq_volume_set_compressor(volume, &compressor), TQ_OK);
    EXPECT_NE(tq_source_gain_is_on(source), 0);
    EXPECT_EQ(tq_source_gain_is_on(nullptr), 0);
}

TEST_F(Source, ALevelFromBeforeTheSourceCountsFromItsFirstFrame) {
    duck();
    ASSERT_EQ(tq_volume_set_ducking_level(volume, 0), TQ_OK);
    host->prepare();
    ASSERT_EQ(open("alsa-1"), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    std::vector<std::int16_t> block(2 * 48000, 10000);
    tq_source_process(source, block.data(), 48000);
    EXPECT_NEAR(block.back(), 1000, 5) << "-20 dB";
    EXPECT_LT(block[2 * 480], 2000) << "after ten attack times";
}

TEST_F(Source, SoundThatBeginsHasTheLevelFromItsFirstFrame) {
    duck();
    ASSERT_EQ(tq_volume_set_ducking_level(volume, 0), TQ_OK);
    host->prepare();
    ASSERT_EQ(open("alsa-1"), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    for (const float level : {0.0F, -80.0F}) {
        ASSERT_EQ(tq_volume_set_ducking_level(volume, level), TQ_OK);
        std::vector<std::int16_t> block(2 * 480, 10000);
        tq_source_begin(source);
        tq_source_process(source, block.data(), 480);
        EXPECT_NEAR(block.front(), level == 0 ? 1000 : 10000, 1);
        EXPECT_NEAR(block.back(), level == 0 ? 1000 : 10000, 1);
    }
}

TEST_F(Source, SoundIsProcessedInTheUnitsFormatBeforeItsFirstStart) {
    duck();
    ASSERT_EQ(tq_volume_set_ducking_level(volume, 0), TQ_OK);
    host->prepare();
    ASSERT_EQ(open("alsa-1"), TQ_OK);
    std::vector<std::int16_t> block(2 * 48000, 10000);
    tq_source_process(source, block.data(), 48000);
    EXPECT_NEAR(block.back(), 1000, 5) << "-20 dB";
}

TEST_F(Source, SoundOfTheNextStreamIsProcessedInItsOwnFormatBeforeTheUnitsNextStart) {
    duck();
    ASSERT_EQ(tq_volume_set_ducking_level(volume, 0), TQ_OK);
    host->prepare();
    ASSERT_EQ(open("alsa-1"), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    ASSERT_EQ(host->stop(), 0);
    ASSERT_EQ(host->setFormat(stream_formats::floatInterleaved(48000, 1)), 0);
    ASSERT_EQ(tq_source_rename(source, "alsa-2"), TQ_OK);
    std::vector<float> floats(4800, 0.5F);
    tq_source_process(source, floats.data(), 4800);
    EXPECT_NEAR(floats.back(), 0.05F, 0.001F);
}

TEST_F(Source, ALevelIsForgottenWhenDuckingGoesOff) {
    duck();
    ASSERT_EQ(tq_volume_set_ducking_level(volume, 0), TQ_OK);
    ASSERT_EQ(tq_volume_close(volume), TQ_OK);
    duck();
    host->prepare();
    ASSERT_EQ(open("alsa-1"), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    std::vector<std::int16_t> block(2 * 4800, 10000);
    tq_source_process(source, block.data(), 4800);
    EXPECT_EQ(block.back(), 10000);
}

/// -20 dB stand before each of them.
struct GainAlone : Source {
    void SetUp() override {
        Source::SetUp();
        duck();
        ASSERT_EQ(tq_volume_set_ducking_level(volume, 0), TQ_OK);
    }
    static constexpr tq_format kFloats{48000, 2, 32, 1, 1};
};

TEST_F(GainAlone, NeedsNoUnitAndFollowsTheLevel) {
    ASSERT_EQ(tq_source_open_gain(&kFloats, &source), TQ_OK);
    EXPECT_NE(tq_source_gain_is_on(source), 0);
    for (const float level : {0.0F, -80.0F}) {
        ASSERT_EQ(tq_volume_set_ducking_level(volume, level), TQ_OK);
        std::vector<float> block(2 * 480, 0.5F);
        tq_source_begin(source);
        tq_source_process(source, block.data(), 480);
        EXPECT_NEAR(block.front(), level == 0 ? 0.05 : 0.5, 0.001);
        EXPECT_NEAR(block.back(), level == 0 ? 0.05 : 0.5, 0.001);
    }
}

TEST_F(GainAlone, OnlyChangesFormatsThatItKnows) {
    for (const tq_format& format : {tq_format{48000, 2, 24, 0, 1}, tq_format{48000, 2, 64, 1, 1},
                                    tq_format{48000, 2, 16, 1, 1}, tq_format{48000, 2, 16, 0, 0},
                                    tq_format{48000, 9, 16, 0, 1}, tq_format{48000, 0, 16, 0, 1},
                                    tq_format{0, 2, 16, 0, 1}}) {
        EXPECT_EQ(tq_source_open_gain(&format, &source), TQ_ERROR_VALUE);
    }
    EXPECT_EQ(tq_source_open_gain(nullptr, &source), TQ_ERROR_NULL);
    EXPECT_EQ(tq_source_open_gain(&kFloats, nullptr), TQ_ERROR_NULL);
}

TEST_F(GainAlone, HasNeitherNameNorLoudspeakers) {
    ASSERT_EQ(tq_source_open_gain(&kFloats, &source), TQ_OK);
    const tq_speaker left = TQ_SPEAKER_FRONT_LEFT;
    EXPECT_EQ(tq_source_rename(source, "alsa-1"), TQ_ERROR_VALUE);
    EXPECT_EQ(tq_source_set_speakers(source, &left, 1), TQ_ERROR_VALUE);
}

constexpr tq_speaker kFive[] = {TQ_SPEAKER_FRONT_LEFT, TQ_SPEAKER_FRONT_RIGHT,
                                TQ_SPEAKER_CENTER,     TQ_SPEAKER_SUBWOOFER,
                                TQ_SPEAKER_SIDE_LEFT,  TQ_SPEAKER_SIDE_RIGHT};

/// A unit of six channels that all play a tenth of full scale: 3277.
struct SixChannels : Source {
    void SetUp() override {
        Source::SetUp();
        host->sound.format = stream_formats::int16Interleaved(48000, 6);
        host->sound.value = 0.1;
        ASSERT_TRUE(startCapture());
        host->prepare();
    }
    void TearDown() override {
        stopCapture();
        Source::TearDown();
    }
    std::int16_t mixed() {
        pump(60);
        return listener->mixes().back().samples().at(101);
    }
};

TEST_F(SixChannels, AreFoldedInTheMixWhereTheirLoudspeakersAreSaid) {
    ASSERT_EQ(open("sdl-1", ignoreBlock), TQ_OK);
    ASSERT_EQ(tq_source_set_speakers(source, kFive, 6), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    EXPECT_NEAR(mixed(), 3277 * (1 + 2 * 0.70711), 3) << "its side, the middle, the surround";
    EXPECT_EQ(listener->posts().back().samples().size() % 6, 0U) << "the track stays as it is";
    EXPECT_EQ(listener->posts().back().info.channelsPerFrame(), 6);
}

TEST_F(SixChannels, HaveTheirFirstTwoInTheMixWhereNothingIsSaid) {
    ASSERT_EQ(open("sdl-1", ignoreBlock), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    EXPECT_NEAR(mixed(), 3277, 2);
}

TEST_F(SixChannels, HaveTheirFirstTwoInTheMixAgainWhenItIsTakenBack) {
    ASSERT_EQ(open("sdl-1", ignoreBlock), TQ_OK);
    ASSERT_EQ(tq_source_set_speakers(source, kFive, 6), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    EXPECT_GT(mixed(), 7000);
    ASSERT_EQ(host->stop(), 0);
    ASSERT_EQ(tq_source_set_speakers(source, nullptr, 0), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    EXPECT_NEAR(mixed(), 3277, 2);
}

TEST_F(SixChannels, TakeNoMoreThanEightLoudspeakersAndNoNullOnes) {
    ASSERT_EQ(open("sdl-1", ignoreBlock), TQ_OK);
    const std::vector<tq_speaker> nine(9, TQ_SPEAKER_CENTER);
    EXPECT_EQ(tq_source_set_speakers(source, nine.data(), 9), TQ_ERROR_VALUE);
    EXPECT_EQ(tq_source_set_speakers(source, nullptr, 6), TQ_ERROR_NULL);
    EXPECT_EQ(tq_source_set_speakers(nullptr, kFive, 6), TQ_ERROR_NULL);
}

/// The names of all units that are started, and of the tracks' blocks.
std::vector<std::string> startedUnits() {
    std::vector<std::string> names;
    (void)tq_capture_units(
        [](void* context, const tq_unit* unit) {
            if (unit->is_started != 0) {
                static_cast<std::vector<std::string>*>(context)->emplace_back(unit->name);
            }
        },
        &names);
    return names;
}

std::uint32_t unitNumber() {
    std::uint32_t number = 0;
    (void)tq_capture_units(
        [](void* context, const tq_unit* unit) {
            *static_cast<std::uint32_t*>(context) = unit->unit;
        },
        &number);
    return number;
}

TEST_F(Source, AUnitBearsTheNameOfItsStream) {
    host->prepare();
    ASSERT_EQ(open("pulse-1 paplay"), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    EXPECT_THAT(startedUnits(), ElementsAre("pulse-1 paplay"));
    EXPECT_EQ(unitNumber(), 1U) << "a name costs no number";
    ASSERT_EQ(host->stop(), 0);
    ASSERT_EQ(tq_source_rename(source, "pulse-2 mpv"), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    EXPECT_THAT(startedUnits(), ElementsAre("pulse-2 mpv"));
}

TEST_F(Source, AnotherNameIsAnotherUnitToListenersTheSameNameTheSame) {
    host->prepare();
    ASSERT_EQ(open("a"), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    const std::uint32_t first = unitNumber();
    ASSERT_EQ(host->stop(), 0);
    ASSERT_EQ(tq_source_rename(source, "a"), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    EXPECT_EQ(unitNumber(), first);
    ASSERT_EQ(host->stop(), 0);
    ASSERT_EQ(tq_source_rename(source, "b"), TQ_OK);
    ASSERT_EQ(host->start(), 0);
    EXPECT_NE(unitNumber(), first);
}

TEST_F(Source, WhatIsNoUnitOfARecordingIsRefused) {
    tq_source_description description{sizeof description, nullptr, "x", &calls, putPost};
    EXPECT_EQ(tq_source_open(&description, &source), TQ_ERROR_NULL);
    description.unit = this;
    EXPECT_EQ(tq_source_open(&description, &source), TQ_ERROR_VALUE);
    description.size = 8;
    EXPECT_EQ(tq_source_open(&description, &source), TQ_ERROR_SIZE);
    EXPECT_EQ(tq_source_open(nullptr, &source), TQ_ERROR_NULL);
    EXPECT_EQ(tq_source_rename(nullptr, "x"), TQ_ERROR_NULL);
    tq_source_begin(nullptr);
    tq_source_process(nullptr, &description, 1);
    tq_source_close(nullptr);
    EXPECT_EQ(source, nullptr);
}

struct Told {
    std::vector<std::string> streams;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> events;
};

TEST_F(Source, AStreamThatIsNotRecordedIsReportedAndRaisedAsAnEvent) {
    Told heard;
    tq_listener wanted{};
    wanted.size = sizeof wanted;
    wanted.context = &heard;
    wanted.on_stream = [](void* context, const tq_stream* stream) {
        static_cast<Told*>(context)->streams.emplace_back(stream->name);
    };
    wanted.on_event = [](void* context, const tq_event* event) {
        if (event->category == TQ_EVENT_STREAM) {
            static_cast<Told*>(context)->events.emplace_back(event->category, event->code);
        }
    };
    tq_listening* handle = nullptr;
    ASSERT_EQ(tq_capture_listen(&wanted, &handle), TQ_OK);
    ASSERT_EQ(tq_capture_settle(), TQ_OK);
    tq_stream stream{};
    stream.size = sizeof stream;
    stream.name = "alsa-8";
    stream.fate = TQ_STREAM_NO_UNIT_FREE;
    EXPECT_EQ(tq_stream_report(&stream), TQ_OK);
    stream.fate = TQ_STREAM_NOT_PCM;
    stream.name = "alsa-9";
    EXPECT_EQ(tq_stream_report(&stream), TQ_OK);
    stream.fate = TQ_STREAM_RECORDED;
    stream.name = "alsa-1";
    EXPECT_EQ(tq_stream_report(&stream), TQ_OK);
    EXPECT_THAT(heard.streams, ElementsAre("alsa-8", "alsa-9", "alsa-1"));
    using Event = std::pair<std::uint64_t, std::uint64_t>;
    EXPECT_THAT(heard.events, ElementsAre(Event{TQ_EVENT_STREAM, TQ_EVENT_NOT_RECORDED},
                                          Event{TQ_EVENT_STREAM, TQ_EVENT_FORMAT_UNSUPPORTED}));
    ASSERT_EQ(tq_capture_stop(handle), TQ_OK);
    EXPECT_EQ(tq_stream_report(&stream), TQ_OK);
    EXPECT_EQ(heard.streams.size(), 3U);
    stream.name = nullptr;
    EXPECT_EQ(tq_stream_report(&stream), TQ_ERROR_NULL);
    EXPECT_EQ(tq_stream_report(nullptr), TQ_ERROR_NULL);
}

}  // namespace
