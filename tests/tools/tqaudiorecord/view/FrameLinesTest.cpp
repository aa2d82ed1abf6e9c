#include "view/FrameLines.h"

#include <TQAudioRecord/tq_capture.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tqrecorder {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(FrameLines, SayWhatBecameOfTheFramesOfEachTrack) {
    FramesOfTracks tracks;
    tracks[1].rendered = 1000;
    tracks[1].mix.delivered = 1000;
    tracks[1].track.delivered = 700;
    tracks[1].track.lost[TQ_FRAMES_DISCARDED_AT_START] = 200;
    tracks[1].track.lost[TQ_FRAMES_LEFT_AT_STOP] = 60;
    tracks[1].track.waiting = 40;
    tracks[3].rendered = 50;
    tracks[3].mix.delivered = 50;
    tracks[3].track.lost[TQ_FRAMES_NOT_WANTED] = 50;
    EXPECT_THAT(frameLines(tracks),
                ElementsAre("frames of track 1: 1000 rendered; 1000 into the mix; 700 to the "
                            "track, 200 discarded at the start of the capture, 60 not read before "
                            "the end, 40 still in the ring at the end",
                            "frames of track 3: 50 rendered; 50 into the mix"));
}

TEST(FrameLines, AreNoneWhereNothingWasRendered) {
    EXPECT_THAT(frameLines({}), IsEmpty());
}

}  // namespace
}  // namespace tqrecorder
