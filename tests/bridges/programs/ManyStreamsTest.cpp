#include <fstream>
#include <regex>

#include "bridges/programs/RecordedRun.h"
#include "support/sound/Comparison.h"

// More streams than there are tracks, at once and one after the other.

namespace programruns {
namespace {

using tqtest::Sound;

struct ManyStreams : RecordedRun {
    std::string fileOf(const std::string& name, const Sound& sound) const {
        const std::string file = output.folder().file(name);
        std::ofstream(file, std::ios::binary) << sound.bytes;
        return file;
    }
    FileOutput<tqtest::AlsaFilePcm> output;
};

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

TEST_F(ManyStreams, OfTenAtOnceSevenAreRecordedAndThreeNamed) {
    const Sound noise = tqtest::markedNoise({}, 72000);
    const ProgramRun run =
        runRecorded(output, {TQ_TEST_MANY_STREAMS, "together", "10", fileOf("noise.raw", noise)});
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    std::size_t recorded = 0;
    for (const auto& [name, track] : run.tracks) {
        // One that was left out may get a track when another has ended: there it is silent.
        if (const Sound sound = track.trimmed(); sound.frames() != 0) {
            EXPECT_EQ(tqtest::differences(noise, sound), std::vector<std::string>{}) << name;
            ++recorded;
        }
    }
    EXPECT_EQ(recorded, 7U) << run.end.text();
    const std::regex named("not recorded: (alsa-[0-9]+ null(, |: )){3}seven other streams");
    EXPECT_TRUE(std::regex_search(run.end.text(), named)) << run.end.text();
}

TEST_F(ManyStreams, OfEightAtOnceSevenAreRecordedWhereOneIsLeftOut) {
    const Sound noise = tqtest::markedNoise({}, 72000);
    const ProgramRun run =
        runRecorded(output, {TQ_TEST_MANY_STREAMS, "together", "8", fileOf("noise.raw", noise)},
                    {"--not", "alsa-3 *"});
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    EXPECT_EQ(run.tracks.size(), 7U) << run.end.text();
    for (const auto& [name, track] : run.tracks) {
        EXPECT_EQ(tqtest::differences(noise, track.trimmed()), std::vector<std::string>{}) << name;
    }
    EXPECT_NE(run.end.text().find("not recorded: alsa-3 null: --only or --not leaves it out"),
              std::string::npos)
        << run.end.text();
}

TEST_F(ManyStreams, FiftyShortOnesOverMusicAreWholeAndSoIsTheMusic) {
    const Sound music = tqtest::markedNoise({}, 6 * 48000, 1);
    const Sound shot = tqtest::markedNoise({}, 3000, 2);
    const ProgramRun run =
        runRecorded(output, {TQ_TEST_MANY_STREAMS, "after", "50", fileOf("music.raw", music),
                             fileOf("shot.raw", shot)});
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    expectOnTracks(run, music);
    std::size_t shots = 0;
    for (const auto& [name, track] : run.tracks) {
        shots += countOf(track.bytes, shot.bytes);
    }
    EXPECT_EQ(shots, 50U) << run.end.text();
}

}  // namespace
}  // namespace programruns
