#include <gtest/gtest.h>

#include <fstream>

#include "bridges/programs/RecordedRun.h"
#include "support/sound/Comparison.h"

// Programs whose sound begins where nobody listens yet: in a child, or long after they have
// started. And what is said of those that cannot be followed.

namespace programruns {
namespace {

using tqtest::AlsaFilePcm;
using tqtest::PulseServer;
using tqtest::Sound;

const std::vector<std::string> kNothing;

struct LateAndForked : RecordedRun {
    LateAndForked() { std::ofstream(file, std::ios::binary) << noise.bytes; }

    void expectWhole(const std::vector<std::string>& command) {
        const ProgramRun run = runRecorded(output, command);
        EXPECT_EQ(run.end.code, 0) << run.end.text();
        EXPECT_EQ(tqtest::differences(noise, run.heard), kNothing);
        expectTrackHolds(run, noise);
    }

    FileOutput<AlsaFilePcm> output;
    const Sound noise = tqtest::markedNoise({}, 30000);
    const std::string file = output.folder().file("noise.raw");
};

TEST_F(LateAndForked, TheFirstSoundOfAChildIsOnTheTrack) {
    expectWhole({TQ_TEST_ALSA_FORKS, "own", file});
}

TEST_F(LateAndForked, SoIsThatOfAChildOnADeviceThatItsParentOpened) {
    expectWhole({TQ_TEST_ALSA_FORKS, "inherited", file});
}

TEST_F(LateAndForked, AProgramThatLoadsItsLibraryAndEndsAtOnceIsRecorded) {
    expectWhole({TQ_TEST_SOUND_LATER, "beside", TQ_TEST_ALSA_PLUGIN, file});
}

TEST_F(LateAndForked, OfALibraryThatIsLoadedApartThatIsSaid) {
    const ProgramRun run =
        runRecorded(output, {TQ_TEST_SOUND_LATER, "apart", TQ_TEST_ALSA_PLUGIN, file});
    EXPECT_EQ(run.heard.frames(), noise.frames()) << run.end.text();
    EXPECT_NE(run.end.text().find("libraries apart from its own (dlmopen)"), std::string::npos)
        << run.end.text();
}

TEST_F(LateAndForked, OfADeviceThatIsNotThereThatIsSaid) {
    const std::string wav = output.folder().file("noise.wav");
    writeWav(noise, wav);
    const ProgramRun run = runRecorded(output, {"aplay", "-q", "-D", "nowhere", wav});
    EXPECT_NE(run.end.text().find("alsa nowhere (No such file or directory): the program could "
                                  "not open it"),
              std::string::npos)
        << run.end.text();
}

TEST_F(LateAndForked, OfAServerThatIsNotThereThatIsSaid) {
    const std::string wav = output.folder().file("noise.wav");
    writeWav(noise, wav);
    const ProgramRun run =
        runRecorded(output, {"paplay", "--server=unix:" + output.folder().file("nobody"), wav});
    EXPECT_NE(run.end.text().find("(Connection refused): the program could not open it"),
              std::string::npos)
        << run.end.text();
}

TEST_F(LateAndForked, OfAChildThatPlaysOnWhenCommandHasEndedThatIsSaid) {
    ServerOutput<PulseServer> paced;
    const std::string wav = paced.folder().file("noise.wav");
    writeWav(tqtest::markedNoise({}, std::size_t{4} * 48000), wav);
    const ProgramRun run = runRecorded(paced, {"sh", "-c", "paplay " + wav + " & sleep 1.5"});
    EXPECT_NE(run.end.text().find(") ran on when COMMAND had ended"), std::string::npos)
        << run.end.text();
}

}  // namespace
}  // namespace programruns
