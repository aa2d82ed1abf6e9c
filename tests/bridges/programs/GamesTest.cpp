#include <algorithm>

#include "bridges/programs/RecordedRun.h"

// A game that nobody here wrote, without a screen.

namespace programruns {
namespace {

struct Games : RecordedRun {};

std::string withoutSilence(const tqtest::Sound& sound) {
    std::string loud;
    for (std::size_t frame = 0; frame < sound.frames(); ++frame) {
        if (!sound.isSilent(frame)) {
            loud += sound.frame(frame);
        }
    }
    return loud;
}

TEST_F(Games, NeverballIsOnOneTrackAndHeardAsRecorded) {
    FileOutput<tqtest::SdlDisk> output({.rate = 44100});
    const std::string home = output.folder().file("home");
    const ProgramRun run = runRecorded(
        output, {"sh", "-c",
                 "mkdir -p \"$1\"; HOME=\"$1\" SDL_VIDEODRIVER=x11 exec xvfb-run -a -s '-screen 0 "
                 "320x240x24' sh -c 'exec timeout -s INT 8 /usr/games/neverball >/dev/null 2>&1'",
                 "sh", home});
    ASSERT_EQ(run.tracks.size(), 1U) << run.end.text();
    // A game that is late leaves silence in between, and the sound itself has some.
    const std::string track = withoutSilence(run.tracks.begin()->second);
    const std::string heard = withoutSilence(run.heard);
    // It was not ended in order: what SDL had taken last was heard and may not be recorded.
    const std::size_t common = std::min(track.size(), heard.size());
    EXPECT_GT(common, heard.size() * 3 / 4) << run.end.text();
    EXPECT_GT(common, std::size_t{4} * 44100) << run.end.text();
    EXPECT_TRUE(track.substr(0, common) == heard.substr(0, common)) << run.end.text();
}

}  // namespace
}  // namespace programruns
