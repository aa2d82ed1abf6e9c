#include "output/TracksSink.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>

namespace tqrecorder {
namespace {

constexpr std::string_view kTrackPrefix = "track-";

/// Of those that are in a folder; empty when there is none.
std::string firstTrackIn(const std::string& folder) {
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(folder, failure)) {
        std::string name = entry.path().filename().string();
        if (name.starts_with(kTrackPrefix)) {
            return name;
        }
    }
    return {};
}

}  // namespace

TracksSink::TracksSink(std::string folder, std::optional<double> maximumSeconds,
                       std::shared_ptr<ProcessNames> names, bool mayReplace)
    : folder_(std::move(folder)),
      maximumSeconds_(maximumSeconds),
      names_(std::move(names)),
      mayReplace_(mayReplace) {
}

bool TracksSink::open() {
    std::error_code failure;
    std::filesystem::create_directories(folder_, failure);
    if (failure) {
        complain(folder_ + ": " + failure.message());
        return false;
    }
    const std::string probe = folder_ + "/.tqaudiorecord-" + std::to_string(getpid());
    const int file = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0) {
        complain(folder_ + ": " + std::strerror(errno));
        return false;
    }
    ::close(file);
    ::unlink(probe.c_str());
    lock_ = tqcommon::Descriptor(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock_ && flock(lock_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        complain(folder_ + ": another recorder is writing its tracks there");
        return false;
    }
    const std::string there = mayReplace_ ? std::string() : firstTrackIn(folder_);
    if (!there.empty()) {
        complain(folder_ + ": holds tracks already (" + there + "); --overwrite replaces them");
        return false;
    }
    return true;
}

void TracksSink::begin(const Process& process, const Block& block) {
    const Axis& axis = axes_.at(process.id);
    const std::string name =
        std::string(kTrackPrefix) + std::to_string(block.track) + "-" + fileNamePart(block.unit);
    std::string path = folder_ + "/" + withAddition(name + ".wav", axis.addition);
    for (int part = 2; !takenNames_.insert(path).second; ++part) {
        path = folder_ + "/" +
               withAddition(name + ".wav", axis.addition + "-part" + std::to_string(part));
    }
    FileSeries::Plan plan{path, &trackFormat(), maximumSeconds_, mayReplace_};
    Track track{std::string(block.unit), name, FileSeries(plan, block.format),
                StreamClock(block.format.sampleRate, axis.beganAt, kTrackPatience, axis.received,
                            slackOf(block.format))};
    tracks_.insert_or_assign({process.id, block.track}, std::move(track));
}

void TracksSink::block(const Process& process, const Block& block) {
    const auto axis = axes_.find(process.id);
    if (axis == axes_.end()) {
        axes_[process.id] = {names_->additionOf(process), block.microseconds,
                             std::chrono::steady_clock::now()};
    }
    const std::size_t frameBytes = block.format.frameBytes();
    if (block.track == 0 || frameBytes == 0 || block.format.sampleRate < 1) {
        return;
    }
    auto found = tracks_.find({process.id, block.track});
    if (found != tracks_.end() &&
        (found->second.unit != block.unit || found->second.series.format() != block.format)) {
        end(process.id, found->second);
        tracks_.erase(found);
        found = tracks_.end();
    }
    if (found == tracks_.end()) {
        if (takenNames_.size() >= kMostFiles) {
            ++refused_;
            return;
        }
        begin(process, block);
        found = tracks_.find({process.id, block.track});
    }
    Track& track = found->second;
    const std::size_t frames = block.frames.size() / frameBytes;
    const std::uint64_t silence =
        track.clock.before(block.microseconds, frames, std::exchange(track.lost, false));
    if (track.clock.takeJump()) {
        track.series.complain(jumpText(track.series.path()));
    }
    track.series.writeSilence(silence);
    track.series.write(block.frames.first(frames * frameBytes));
    report(track);
}

void TracksSink::lost(const Process& process, std::uint64_t blocks, std::uint64_t /*bytes*/) {
    for (auto& [key, track] : tracks_) {
        track.lost = track.lost || (key.first == process.id && blocks > 0);
    }
}

void TracksSink::end(int processId, Track& track) {
    track.series.finish();
    report(track);
    for (WrittenFile file : track.series.files()) {
        file.gaps = track.clock.gaps();
        file.processId = processId;
        file.name = track.name;
        file.beganAt = axes_.at(processId).beganAt;
        done_.push_back(std::move(file));
    }
}

void TracksSink::processEnded(const Process& process, const HostFacts& /*facts*/) {
    for (auto track = tracks_.begin(); track != tracks_.end();) {
        if (track->first.first == process.id) {
            end(process.id, track->second);
            track = tracks_.erase(track);
        } else {
            ++track;
        }
    }
}

std::vector<WrittenFile> TracksSink::split() {
    std::vector<WrittenFile> done;
    for (auto& [key, track] : tracks_) {
        if (std::optional<WrittenFile> file = track.series.split()) {
            done.push_back(std::move(*file));
        }
    }
    return done;
}

void TracksSink::refresh() {
    for (auto& [key, track] : tracks_) {
        track.series.refresh();
    }
}

void TracksSink::finish() {
    for (auto& [key, track] : tracks_) {
        end(key.first, track);
    }
    tracks_.clear();
    if (refused_ > 0) {
        complain(refusedText(folder_, refused_));
    }
}

void TracksSink::report(Track& track) {
    for (; track.reported < track.series.problems().size(); ++track.reported) {
        complain(track.series.problems()[track.reported]);
    }
}

void TracksSink::complain(const std::string& problem) {
    if (std::find(problems_.begin(), problems_.end(), problem) == problems_.end()) {
        problems_.push_back(problem);
    }
}

std::vector<WrittenFile> TracksSink::files() const {
    std::vector<WrittenFile> all = done_;
    for (const auto& [key, track] : tracks_) {
        for (WrittenFile file : track.series.files()) {
            file.gaps = track.clock.gaps();
            file.processId = key.first;
            file.name = track.name;
            file.beganAt = axes_.at(key.first).beganAt;
            all.push_back(std::move(file));
        }
    }
    std::stable_sort(all.begin(), all.end(), [](const WrittenFile& a, const WrittenFile& b) {
        return std::pair(a.processId, a.name) < std::pair(b.processId, b.name);
    });
    return all;
}

}  // namespace tqrecorder
