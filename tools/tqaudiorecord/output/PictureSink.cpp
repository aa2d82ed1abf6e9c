#include "output/PictureSink.h"

#include <TQAudioRecord/tq_events.h>

#include <algorithm>
#include <utility>

#include "output/files/PartFile.h"
#include "output/files/WholeFile.h"

namespace tqrecorder {
namespace {

// A mark is a line through the whole picture; more than this many would cover it.
constexpr std::size_t kMostMarks = 200;
/// The same event again within this time would only draw over its first mark.
constexpr std::uint64_t kRepeatedMicroseconds = 20'000;

}  // namespace

PictureSink::PictureSink(std::string path, bool mayReplace, const Lanes& lanes)
    : path_(std::move(path)), mayReplace_(mayReplace), lanes_(lanes) {
}

bool PictureSink::open() {
    if (const PartFile probe(path_, true); !probe.problem().empty()) {
        problems_.push_back(probe.problem());
        return false;
    }
    return true;
}

void PictureSink::event(const Process& /*process*/, const Event& event) {
    const bool isFailure = tq_event_kind_of(event.category, event.code) == TQ_EVENT_KIND_FAILURE;
    const std::string label = tq_event_text(event.category, event.code);
    const bool isRepeated = std::any_of(marks_.begin(), marks_.end(), [&](const Mark& mark) {
        const auto [earlier, later] = std::minmax(mark.microseconds, event.microseconds);
        return mark.label == label && later - earlier < kRepeatedMicroseconds;
    });
    if (isRepeated) {
        return;
    }
    const Mark wanted{event.microseconds - std::min(event.microseconds, event.paused), label,
                      !isFailure};
    if (marks_.size() < kMostMarks) {
        marks_.push_back(wanted);
    } else if (isFailure) {
        // In a long recording what belongs to it has taken all the room.
        const auto quiet = std::find_if(marks_.rbegin(), marks_.rend(),
                                        [](const Mark& mark) { return mark.isQuiet; });
        if (quiet != marks_.rend()) {
            *quiet = wanted;
        }
    }
}

void PictureSink::finish() {
    if (lanes_.inOrder().empty()) {
        return;
    }
    tqpicture::Png png;
    std::string error;
    if (!draw(png, error)) {
        problems_.push_back("picture: " + error);
        return;
    }
    const WholeFile file =
        writeWholeFile(path_, mayReplace_, lanes_.worth(), std::as_bytes(std::span(png)));
    written_ = file.path;
    if (!file.problem.empty()) {
        problems_.push_back(file.problem);
    }
}

bool PictureSink::draw(tqpicture::Png& png, std::string& error) const {
    const std::uint64_t origin = lanes_.origin();
    std::vector<tqpicture::KeptTrack> tracks;
    for (const Lane* lane : lanes_.inOrder()) {
        tracks.push_back(
            {lanes_.titleOf(*lane), &lane->sound, secondsBehind(origin, lane->beganAt)});
    }
    tqpicture::Options options;
    options.title = lanes_.title();
    for (const Mark& mark : marks_) {
        // Events before the first block stand at its time: the axis has no time before 0.
        options.events.push_back(
            {secondsBehind(origin, mark.microseconds), mark.label, mark.isQuiet});
    }
    return tqpicture::drawPicture(tracks, options, png, error);
}

}  // namespace tqrecorder
