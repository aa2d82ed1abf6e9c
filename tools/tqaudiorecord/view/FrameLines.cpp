#include "view/FrameLines.h"

#include <TQAudioRecord/tq_capture.h>

#include <string_view>

namespace tqrecorder {
namespace {

/// Empty for a side that nobody has listened to.
std::string sideText(const FrameSide& side, std::string_view where) {
    if (side.delivered == 0 && side.lost[TQ_FRAMES_NOT_WANTED] > 0) {
        return {};
    }
    std::string text = "; " + std::to_string(side.delivered) + std::string(where);
    for (std::size_t i = 0; i < side.lost.size(); ++i) {
        if (side.lost[i] > 0) {
            text += ", " + std::to_string(side.lost[i]) + " " +
                    tq_frame_loss_text(static_cast<tq_frame_loss>(i));
        }
    }
    return side.waiting == 0
               ? text
               : text + ", " + std::to_string(side.waiting) + " still in the ring at the end";
}

}  // namespace

std::vector<std::string> frameLines(const FramesOfTracks& tracks) {
    std::vector<std::string> lines;
    for (std::size_t number = 1; number < tracks.size(); ++number) {
        const TrackFrames& frames = tracks[number];
        if (frames.rendered > 0) {
            lines.push_back("frames of track " + std::to_string(number) + ": " +
                            std::to_string(frames.rendered) + " rendered" +
                            sideText(frames.mix, " into the mix") +
                            sideText(frames.track, " to the track"));
        }
    }
    return lines;
}

}  // namespace tqrecorder
