#include "output/PictureSink.h"

#include <TQAudioRecord/tq_events.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "output/files/PartFile.h"
#include "picture/Picture.h"

namespace tqrecorder {
namespace {

// A mark is a line through the whole picture; more than this many would cover it.
constexpr std::size_t kMostMarks = 200;
/// The same event again within this time would only draw over its first mark.
constexpr std::uint64_t kRepeatedMicroseconds = 20'000;

/// One lane of the picture. `origin` is the host time at which the picture begins.
tqpicture::Track drawn(const WrittenFile& file, const std::string& processName,
                       std::uint64_t origin) {
    tqpicture::Track track;
    track.name = processName.empty() ? file.name : processName + ": " + file.name;
    track.path = file.path;
    track.startSeconds =
        file.beganAt > origin ? static_cast<double>(file.beganAt - origin) / 1e6 : 0;
    return track;
}

}  // namespace

PictureSink::PictureSink(std::string path, const MixSink* mix, const TracksSink* tracks,
                         std::shared_ptr<ProcessNames> names)
    : path_(std::move(path)), mix_(mix), tracks_(tracks), names_(std::move(names)) {
}

PictureSink::~PictureSink() {
    ownMix_.reset();
    ownTracks_.reset();
    if (!hidden_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(hidden_, ignored);
    }
}

bool PictureSink::open() {
    if (const PartFile probe(path_, true); !probe.problem().empty()) {
        problems_.push_back(probe.problem());
        return false;
    }
    if (mix_ != nullptr && tracks_ != nullptr) {
        return true;
    }
    const std::filesystem::path whole(path_);
    hidden_ = (whole.parent_path() / ("." + whole.filename().string() + ".XXXXXX")).string();
    if (mkdtemp(hidden_.data()) == nullptr) {
        problems_.push_back(hidden_ + ": " + std::strerror(errno));
        hidden_.clear();
        return false;
    }
    if (mix_ == nullptr) {
        ownMix_ = std::make_unique<MixSink>(
            FileSeries::Plan{hidden_ + "/mix.wav", formatNamed("wav")}, names_);
        mix_ = ownMix_.get();
    }
    if (tracks_ == nullptr) {
        ownTracks_ = std::make_unique<TracksSink>(TracksSink::Plan{hidden_}, names_);
        tracks_ = ownTracks_.get();
    }
    return true;
}

void PictureSink::processBegan(const Process& process) {
    processNames_[process.id] = process.name;
}

void PictureSink::block(const Process& process, const Block& block) {
    if (ownMix_ != nullptr) {
        ownMix_->block(process, block);
    }
    if (ownTracks_ != nullptr) {
        ownTracks_->block(process, block);
    }
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

void PictureSink::processEnded(const Process& process, const HostFacts& facts) {
    if (ownMix_ != nullptr) {
        ownMix_->processEnded(process, facts);
    }
    if (ownTracks_ != nullptr) {
        ownTracks_->processEnded(process, facts);
    }
}

void PictureSink::finish() {
    for (FilesSink* sink :
         {static_cast<FilesSink*>(ownMix_.get()), static_cast<FilesSink*>(ownTracks_.get())}) {
        if (sink != nullptr) {
            sink->finish();
            const std::vector<std::string> more = sink->problems();
            problems_.insert(problems_.end(), more.begin(), more.end());
        }
    }
    draw();
}

void PictureSink::draw() {
    std::vector<WrittenFile> files = mix_->files();
    const std::vector<WrittenFile> tracks = tracks_->files();
    files.insert(files.end(), tracks.begin(), tracks.end());
    // A mix that was opened and never used belongs to no process.
    std::erase_if(files, [](const WrittenFile& file) { return file.processId == 0; });
    if (files.empty()) {
        return;
    }
    // Each mix with its tracks behind it, the first process first.
    std::stable_sort(files.begin(), files.end(), [this](const auto& a, const auto& b) {
        return std::pair(!names_->isFirst(a.processId), a.processId) <
               std::pair(!names_->isFirst(b.processId), b.processId);
    });
    files.resize(std::min(files.size(), tqpicture::kMaximumTracks));
    const std::uint64_t origin =
        std::min_element(files.begin(), files.end(), [](const auto& a, const auto& b) {
            return a.beganAt < b.beganAt;
        })->beganAt;
    std::vector<tqpicture::Track> lanes;
    const bool several = files.front().processId != files.back().processId;
    for (const WrittenFile& file : files) {
        lanes.push_back(drawn(file, several ? processNames_[file.processId] : "", origin));
    }
    tqpicture::Options options;
    options.title = processNames_[files.front().processId];
    for (const Mark& mark : marks_) {
        const double seconds =
            (static_cast<double>(mark.microseconds) - static_cast<double>(origin)) / 1e6;
        // Events before the first block stand at its time: the axis has no time before 0.
        options.events.push_back({std::max(seconds, 0.0), mark.label, mark.isQuiet});
    }
    std::string error;
    drawn_ = tqpicture::drawPicture(lanes, path_, options, error);
    if (!drawn_) {
        problems_.push_back("picture: " + error);
    }
}

std::vector<std::string> PictureSink::problems() const {
    return problems_;
}

}  // namespace tqrecorder
