// One file a track, on one time axis.

#include "output/TracksSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <utility>

#include "SinkFixture.h"

namespace tqrecorder::test {
namespace {

class TracksSinkTest : public SinkFixture {};

/// The Broadcast-Wave time reference, in frames; nothing where there is none.
std::optional<std::uint64_t> timeReferenceOf(const std::string& path) {
    SF_INFO info{};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
    SF_BROADCAST_INFO stamp{};
    const bool isThere = sf_command(file, SFC_GET_BROADCAST_INFO, &stamp, sizeof stamp) == SF_TRUE;
    sf_close(file);
    return isThere ? std::optional(std::uint64_t{stamp.time_reference_high} << 32U |
                                   stamp.time_reference_low)
                   : std::nullopt;
}

TEST_F(TracksSinkTest, AFileBeginsWhereItsTrackDoesAndSaysWhen) {
    TracksSink sink({folder_.file("tracks"), 1.0}, names_);
    ASSERT_TRUE(sink.open());
    const BlockFormat music{48000, 2, 32, true};
    const std::vector<std::byte> mix(441 * 4);
    sink.block(game_, mixBlock(mix, kStart));
    // Half an hour later, for a second and a half.
    const std::size_t late = 1800 * 48000;
    for (std::size_t frame = late; frame < late + 72'000; frame += 480) {
        const auto bytes = tone<float>(480, music, 480, frame);
        sink.block(game_, {1, "music", music, at(frame, 48000), bytes});
    }
    sink.finish();
    ASSERT_EQ(sink.files().size(), 2U);
    const std::string first = folder_.file("tracks/track-1-music-001.wav");
    const std::string second = folder_.file("tracks/track-1-music-002.wav");
    EXPECT_EQ(RecordedFile(first).frames(), 48'000U);
    EXPECT_EQ(RecordedFile(second).frames(), 24'000U);
    EXPECT_EQ(timeReferenceOf(first), late);
    EXPECT_EQ(timeReferenceOf(second), late + 48'000);
    EXPECT_EQ(sink.files().at(0).beganAt, at(late, 48000));
}

TEST_F(TracksSinkTest, FromTheStartTracksShareOneTimeAxis) {
    TracksSink sink({folder_.file("tracks"), {}, false, true}, names_);
    ASSERT_TRUE(sink.open());
    const BlockFormat music{48000, 2, 32, true};
    const BlockFormat effects{22050, 1, 16, false};
    for (std::size_t frame = 0; frame < 96000; frame += 480) {
        const auto bytes = tone<float>(480, music, 480, frame);
        sink.block(game_, {1, "unit A", music, at(frame, 48000), bytes});
    }
    // Plays from half a second to one, and again from one and a half to two.
    for (const std::size_t start : {11025U, 33075U}) {
        for (std::size_t frame = start; frame < start + 11025; frame += 225) {
            const auto bytes = tone<std::int16_t>(441, effects, 225, frame);
            sink.block(game_, {2, "unit B", effects, at(frame, 22050), bytes});
        }
    }
    sink.finish();
    EXPECT_TRUE(sink.problems().empty());
    const RecordedFile first(folder_.file("tracks/track-1-unit_A.wav"));
    ASSERT_EQ(first.frames(), 96000U);
    EXPECT_EQ(first.info.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
    const RecordedFile second(folder_.file("tracks/track-2-unit_B.wav"));
    EXPECT_EQ(second.info.samplerate, 22050);
    EXPECT_EQ(second.info.channels, 1);
    ASSERT_NEAR(static_cast<double>(second.frames()), 44100, 2);
    EXPECT_LT(second.amplitude(441, 0, 0.49), 1e-4);
    EXPECT_NEAR(second.amplitude(441, 0.51, 0.99), 0.5, 0.01);
    EXPECT_LT(second.amplitude(441, 1.01, 1.49), 1e-4);
    EXPECT_NEAR(second.amplitude(441, 1.51, 1.99), 0.5, 0.01);
    EXPECT_EQ(sink.files().at(1).gaps, 1U);
}

TEST_F(TracksSinkTest, UnderHeavyLossMixAndTrackStayTogetherToTheFrame) {
    auto mix = mixSink();
    TracksSink tracks({folder_.file("tracks")}, names_);
    ASSERT_TRUE(tracks.open());
    // Of both streams other blocks are lost, and more than the device's jitter hides.
    constexpr std::size_t kBlocks = 2000;
    std::map<int, std::uint64_t> lost;
    for (std::size_t block = 0; block < kBlocks; ++block) {
        const std::uint64_t stamp = at(block * 470) + block * 7919 % 9000;
        const std::vector<std::byte> bytes = counting(470, block * 470);
        for (const int track : {0, 1}) {
            const bool isLost = block > 0 && block + 1 < kBlocks &&
                                (block * 31 + static_cast<std::size_t>(track) * 17) % 5 < 2;
            if (isLost) {
                lost[track] += 470;
                continue;
            }
            Block one{track, track == 0 ? "" : "music", kMixFormat, stamp, bytes};
            one.lostFrames = std::exchange(lost[track], 0);
            Sink& sink = track == 0 ? static_cast<Sink&>(*mix) : tracks;
            sink.block(game_, one);
        }
    }
    mix->finish();
    tracks.finish();
    for (const std::string& path :
         {folder_.file("out.wav"), folder_.file("tracks/track-1-music.wav")}) {
        const RecordedFile recorded(path);
        ASSERT_EQ(recorded.frames(), kBlocks * 470) << path;
        for (std::size_t frame = 0; frame < recorded.frames(); ++frame) {
            const int number = recorded.numberAt(frame);
            ASSERT_TRUE(number == 0 || number == static_cast<int>(frame % 30000 + 1))
                << path << " frame " << frame;
        }
    }
}

TEST_F(TracksSinkTest, ATrackOfAProcessThatEndsIsCompleteOnceItsLongSilenceIsWritten) {
    TracksSink sink({folder_.file("tracks")}, names_);
    ASSERT_TRUE(sink.open());
    constexpr std::size_t kBack = 60 * 44'100;
    for (const std::size_t frame : {std::size_t{0}, kBack}) {
        sink.block(game_, {1, "music", kMixFormat, at(frame), counting(470, frame)});
    }
    EXPECT_LT(sink.files().at(0).seconds, 1);
    sink.processEnded(game_, {});
    while (sink.files().at(0).seconds < 60) {
        const double before = sink.files().at(0).seconds;
        sink.tick(0);
        ASSERT_GT(sink.files().at(0).seconds, before);
    }
    const RecordedFile recorded(folder_.file("tracks/track-1-music.wav"));
    ASSERT_EQ(recorded.frames(), kBack + 470);
    EXPECT_EQ(recorded.numberAt(kBack), static_cast<int>(kBack % 30000 + 1));
    sink.finish();
    EXPECT_EQ(sink.files().size(), 1U);
}

TEST_F(TracksSinkTest, ATrackThatChangesItsFormatBehindLongSilenceGoesOnAtOnce) {
    constexpr BlockFormat kMono{44100, 1, 16, false};
    constexpr std::size_t kBack = 60 * 44'100;
    TracksSink sink({folder_.file("tracks")}, names_);
    ASSERT_TRUE(sink.open());
    names_->hear(game_);
    for (const std::size_t frame : {std::size_t{0}, kBack}) {
        sink.block(game_, {1, "music", kMixFormat, at(frame), counting(470, frame)});
    }
    sink.block(game_, {1, "music", kMono, at(kBack + 470), tone<std::int16_t>(441, kMono, 441)});
    sink.block(game_, {1, "voice", kMono, at(kBack + 911), tone<std::int16_t>(441, kMono, 441)});
    const std::string music = folder_.file("tracks/track-1-music.wav");
    const std::string part = folder_.file("tracks/track-1-music-part2.wav");
    EXPECT_LT(sink.files().at(0).seconds, 1) << "the new file must not wait for the silence";
    EXPECT_EQ(RecordedFile(part).frames(), 441U);
    sink.processEnded(game_, {});
    workUntil(sink, [&] { return sink.files().at(0).seconds >= 60; });
    const RecordedFile recorded(music);
    ASSERT_EQ(recorded.frames(), kBack + 470);
    EXPECT_EQ(recorded.numberAt(469), 470);
    EXPECT_EQ(recorded.numberAt(kBack - 1), 0);
    EXPECT_EQ(recorded.numberAt(kBack), static_cast<int>(kBack % 30000 + 1));
    EXPECT_FALSE(sink.isSaving());
    sink.finish();
    ASSERT_EQ(sink.files().size(), 3U);
    EXPECT_EQ(sink.files()[0].path, music);
    EXPECT_EQ(sink.files()[1].path, part);
    EXPECT_EQ(sink.files()[2].path, folder_.file("tracks/track-1-voice.wav"));
}

struct TrackCase {
    const char* format;
    int subtype;  ///< of a track of floats
    int rate;
    double tolerance;
};

class EveryTrackFormatTest : public TracksSinkTest,
                             public testing::WithParamInterface<TrackCase> {};

TEST_P(EveryTrackFormatTest, HoldsTracksOfEveryKindOfSamples) {
    const TrackCase& expected = GetParam();
    const FileFormat* const kind = formatNamed(expected.format);
    TracksSink sink({folder_.file("tracks"), {}, false, false, kind}, names_);
    ASSERT_TRUE(sink.open());
    const BlockFormat floats{48000, 2, 32, true};
    const BlockFormat doubles{44100, 2, 64, true};
    const auto deep = [] {
        // A tone of 24 bits, as the upper bits of 32.
        std::vector<std::byte> bytes;
        for (std::size_t frame = 0; frame < 48'000; ++frame) {
            const auto sample = static_cast<std::int32_t>(std::lround(
                0.5 * 0x7FFFFF *
                std::sin(2 * std::numbers::pi * 480 * static_cast<double>(frame) / 48'000)));
            for (unsigned byte = 0; byte < 3; ++byte) {
                bytes.push_back(static_cast<std::byte>(sample >> (8 * byte) & 0xFF));
            }
        }
        return bytes;
    }();
    auto loud = tone<float>(480, floats, 48'000);
    const float beyond = 1.5F;
    std::memcpy(loud.data() + 100 * floats.frameBytes(), &beyond, sizeof beyond);
    sink.block(game_, {1, "floats", floats, kStart, loud});
    sink.block(game_, {2, "doubles", doubles, kStart, tone<double>(480, doubles, 44'100)});
    sink.block(game_, {3, "deep", {48000, 1, 24, false}, kStart, deep});
    sink.block(game_, {4, "short", kMixFormat, kStart, mixTone(480, 44'100)});
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
    for (const char* name :
         {"track-1-floats.", "track-2-doubles.", "track-3-deep.", "track-4-short."}) {
        const RecordedFile track(folder_.file("tracks/") + name + std::string(kind->extension));
        ASSERT_TRUE(track.opened) << name;
        EXPECT_NEAR(static_cast<double>(track.frames()) / track.info.samplerate, 1, 0.001) << name;
        EXPECT_NEAR(track.amplitude(480, 0.1, 0.9), 0.5, expected.tolerance) << name;
    }
    const RecordedFile track(folder_.file("tracks/track-1-floats.") + std::string(kind->extension));
    EXPECT_EQ(track.info.format & SF_FORMAT_SUBMASK, expected.subtype);
    EXPECT_EQ(track.info.samplerate, expected.rate);
    // Never the other end of the scale.
    EXPECT_GT(track.at(100), 0.3F);
}

INSTANTIATE_TEST_SUITE_P(Kinds, EveryTrackFormatTest,
                         testing::Values(TrackCase{"wav", SF_FORMAT_FLOAT, 48000, 0.001},
                                         TrackCase{"w64", SF_FORMAT_FLOAT, 48000, 0.001},
                                         TrackCase{"rf64", SF_FORMAT_FLOAT, 48000, 0.001},
                                         TrackCase{"flac", SF_FORMAT_PCM_24, 48000, 0.001},
                                         TrackCase{"ogg", SF_FORMAT_VORBIS, 48000, 0.02},
                                         TrackCase{"opus", SF_FORMAT_OPUS, 48000, 0.02}),
                         [](const auto& kind) { return std::string(kind.param.format); });

TEST_F(TracksSinkTest, ATrackThatChangesItsFormatGoesOnInAnotherFile) {
    TracksSink sink({folder_.file("tracks"), {}, false, true}, names_);
    ASSERT_TRUE(sink.open());
    const BlockFormat slow{22050, 1, 16, false};
    const BlockFormat fast{48000, 2, 16, false};
    const auto slowBytes = tone<std::int16_t>(441, slow, 22050);
    const auto fastBytes = tone<std::int16_t>(441, fast, 48000);
    sink.block(game_, {1, "unit", slow, kStart, slowBytes});
    sink.block(game_, {1, "unit", fast, kStart + 1'000'000, fastBytes});
    sink.block(game_, {1, "other", fast, kStart + 2'000'000, fastBytes});
    sink.finish();
    EXPECT_EQ(RecordedFile(folder_.file("tracks/track-1-unit.wav")).frames(), 22050U);
    const RecordedFile second(folder_.file("tracks/track-1-unit-part2.wav"));
    EXPECT_EQ(second.frames(), 96000U);
    EXPECT_LT(second.amplitude(441, 0, 0.99), 1e-4);
    EXPECT_EQ(RecordedFile(folder_.file("tracks/track-1-other.wav")).frames(), 144000U);
    EXPECT_EQ(sink.files().size(), 3U);
}

TEST_F(TracksSinkTest, OneTrackThatCannotBeWrittenLeavesTheOthersAlone) {
    TracksSink sink({folder_.file("tracks")}, names_);
    ASSERT_TRUE(sink.open());
    std::filesystem::create_directory(folder_.file("tracks/track-1-unit.wav"));
    const auto bytes = mixTone(441, 4410);
    for (std::size_t block = 0; block < 5; ++block) {
        sink.block(game_, {1, "unit", kMixFormat, at(block * 4410), bytes});
        sink.block(game_, {2, "unit", kMixFormat, at(block * 4410), bytes});
    }
    sink.finish();
    ASSERT_EQ(sink.problems().size(), 1U);
    EXPECT_THAT(sink.problems()[0], testing::HasSubstr("track-1-unit.wav: Is a directory"));
    EXPECT_EQ(RecordedFile(folder_.file("tracks/track-2-unit.wav")).frames(), 22050U);
}

TEST_F(TracksSinkTest, TracksOfAnEarlierRecordingGoWhenTheFirstNewOneHasItsName) {
    const std::vector<std::string> old{"track-1-music.wav", "track-2-old-voice.wav",
                                       "track-7-bass-game-002.opus"};
    const std::vector<std::string> others{
        "notes.txt",           "track-1-music.txt", "track-list.wav", "track-x-music.wav",
        "track-01-intro.flac", "track-9-end.wav",   "track-0-mix.wav"};
    for (const std::vector<std::string>& names : {old, others}) {
        for (const std::string& name : names) {
            std::ofstream(folder_.file(name)) << "precious";
        }
    }
    std::vector<std::string> all = folder_.names();
    constexpr BlockFormat kMono{44100, 1, 16, false};
    // As a shell completes a folder's name: other paths of the same files.
    TracksSink::Plan plan{folder_.path() / ""};
    plan.mayReplace = true;
    plan.programs = names_;
    const auto play = [&](TracksSink& sink, int track, const char* unit, std::size_t frame,
                          int level) {
        const std::vector<std::byte> bytes(882, static_cast<std::byte>(level));
        sink.block(game_, {track, unit, kMono, at(frame), bytes});
    };
    {
        TracksSink silent(plan, std::make_shared<ProcessNames>());
        ASSERT_TRUE(silent.open());
        play(silent, 1, "music", 0, 0);
        silent.finish();
    }
    EXPECT_EQ(folder_.names(), all);
    TracksSink sink(plan, names_);
    ASSERT_TRUE(sink.open());
    play(sink, 1, "music", 0, 0);
    EXPECT_EQ(contentOf(folder_.file("track-2-old-voice.wav")), "precious");
    play(sink, kMicrophoneTrack, "microphone", 0, 5);
    EXPECT_EQ(contentOf(folder_.file("track-2-old-voice.wav")), "precious") << "it alone";
    names_->hear(game_);
    play(sink, 1, "music", 441, 5);
    play(sink, 3, "effects", 882, 5);
    sink.finish();
    EXPECT_EQ(RecordedFile(folder_.file("track-1-music.wav")).frames(), 882U);
    EXPECT_EQ(RecordedFile(folder_.file("track-3-effects.wav")).frames(), 441U);
    std::vector<std::string> expected = others;
    expected.insert(expected.end(),
                    {"track-1-music.wav", "track-3-effects.wav", "track-8-microphone.wav"});
    EXPECT_THAT(folder_.names(), testing::UnorderedElementsAreArray(expected));
    EXPECT_EQ(contentOf(folder_.file("notes.txt")), "precious");
}

TEST_F(TracksSinkTest, AFolderThatCannotBeMadeIsFoundAtOnce) {
    std::ofstream(folder_.file("file")) << "in the way";
    TracksSink sink({folder_.file("file/tracks")}, names_);
    EXPECT_FALSE(sink.open());
    ASSERT_EQ(sink.problems().size(), 1U);
    EXPECT_THAT(sink.problems()[0], testing::HasSubstr("file/tracks: Not a directory"));
}

}  // namespace
}  // namespace tqrecorder::test
