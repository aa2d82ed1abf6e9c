// Tracks of every kind of samples, from the program to the file.

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "RecorderFixture.h"

namespace tqrecorder::test {
namespace {

struct Kind {
    const char* name;  ///< of what the host is told
    int subtype;       ///< of the track's file
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

class RecorderTrackFormatsTest : public RecorderTest, public testing::WithParamInterface<Kind> {};

TEST_P(RecorderTrackFormatsTest, AreInTheirFileAndInTheMixAsLoudAsPlayed) {
    const ProgramEnd outcome =
        run({"-o", folder_.file("mix.wav"), "--tracks", folder_.file("tracks")},
            {TQ_TONE_HOST, GetParam().name, "0.6"});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    const RecordedFile mix(folder_.file("mix.wav"));
    ASSERT_GT(mix.frames(), 0.5 * 44100);
    EXPECT_NEAR(mix.amplitude(700, 0.2, 0.4), 0.5, 0.01);
    const RecordedFile track(folder_.file("tracks/track-1-unit-1.wav"));
    ASSERT_TRUE(track.opened) << outcome.errors;
    EXPECT_EQ(track.info.samplerate, 48000);
    EXPECT_EQ(track.info.channels, 2);
    EXPECT_EQ(track.info.format & SF_FORMAT_SUBMASK, GetParam().subtype);
    ASSERT_GT(track.frames(), 0.5 * 48000);
    EXPECT_NEAR(track.amplitude(700, 0.2, 0.4), 0.5, 0.01);
    EXPECT_THAT(outcome.errors, HasSubstr("peak -6.0 dBFS"));
}

class RecorderTrackTimeTest : public RecorderTest {};

TEST_F(RecorderTrackTimeTest, WhereATrackBeginsIsReadByOtherProgramsToo) {
    if (!hasTool("ffprobe")) {
        GTEST_SKIP() << "no ffprobe";
    }
    const ProgramEnd outcome = run(
        {"-q", "--tracks", folder_.file("tracks"), "--events", folder_.file("events")}, game("3"));
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    std::ifstream events(folder_.file("events"));
    double latest = 0;
    for (std::string text; std::getline(events, text);) {
        const auto line = nlohmann::json::parse(text);
        if (!line.contains("offset_seconds")) {
            continue;
        }
        // "track 1 begins with UNIT"
        const std::string said = line["text"];
        const std::string file = folder_.file("tracks/track-" + said.substr(6, 1) + "-" +
                                              said.substr(said.rfind(' ') + 1) + ".wav");
        const std::string answer = shell(
            "ffprobe -v error -show_entries stream=sample_rate:format_tags=time_reference "
            "-of default=nw=1:nk=1 " +
            file);
        std::istringstream numbers(answer);
        double rate = 0;
        double reference = -1;
        numbers >> rate >> reference;
        ASSERT_GE(reference, 0) << said << "\n" << file << ": " << answer;
        latest = line["offset_seconds"];
        EXPECT_NEAR(reference, rate * latest, 1) << said;
    }
    EXPECT_GT(latest, 0.1) << "a track that begins later is among them";
}

INSTANTIATE_TEST_SUITE_P(
    Samples, RecorderTrackFormatsTest,
    testing::Values(Kind{"tone", SF_FORMAT_FLOAT}, Kind{"short", SF_FORMAT_PCM_16},
                    Kind{"swapped", SF_FORMAT_PCM_16}, Kind{"eight", SF_FORMAT_PCM_U8},
                    Kind{"fixed", SF_FORMAT_PCM_32}, Kind{"double", SF_FORMAT_DOUBLE}),
    [](const auto& kind) { return std::string(kind.param.name); });

}  // namespace
}  // namespace tqrecorder::test
