#include "ipc/SharedFrames.h"

namespace tqrecorder {
namespace {

void storeSide(SharedFrames::Side& to, const FrameSide& from) {
    to.delivered = from.delivered;
    to.waiting = from.waiting;
    for (std::size_t i = 0; i < kFrameLosses; ++i) {
        to.lost[i] = from.lost[i];
    }
}

void addSide(FrameSide& to, const SharedFrames::Side& from) {
    to.delivered += from.delivered;
    to.waiting += from.waiting;
    for (std::size_t i = 0; i < kFrameLosses; ++i) {
        to.lost[i] += from.lost[i];
    }
}

}  // namespace

void SharedFrames::store(const TrackFrames& frames) {
    rendered = frames.rendered;
    storeSide(mix, frames.mix);
    storeSide(track, frames.track);
}

void SharedFrames::addTo(TrackFrames& frames) const {
    frames.rendered += rendered;
    addSide(frames.mix, mix);
    addSide(frames.track, track);
}

}  // namespace tqrecorder
