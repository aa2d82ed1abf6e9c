#include "output/TracksSink.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

namespace tqrecorder {
namespace {

constexpr std::string_view kTrackPrefix = "track-";
/// Tracks that have ended and may still change their names. Each holds a file open.
constexpr std::size_t kMostUnnamed = 32;

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

/// Whether a recording of tracks may have made a file of that name: "track-1-music.wav",
/// "track-2-voice-game-001.opus". The numbers of an album have two digits.
bool isTracksName(std::string_view name) {
    if (!name.starts_with(kTrackPrefix)) {
        return false;
    }
    const std::string_view rest = name.substr(kTrackPrefix.size());
    return rest.size() > 2 && rest[0] >= '1' && rest[0] <= '0' + kMicrophoneTrack &&
           rest[1] == '-' &&
           std::any_of(fileFormats().begin(), fileFormats().end(), [rest](const FileFormat& kind) {
               return rest.ends_with("." + std::string(kind.extension));
           });
}

}  // namespace

TracksSink::TracksSink(Plan plan, std::shared_ptr<ProcessNames> names)
    : plan_(std::move(plan)), names_(std::move(names)) {
}

bool TracksSink::open() {
    std::error_code failure;
    std::filesystem::create_directories(plan_.folder, failure);
    if (failure) {
        complain(plan_.folder + ": " + failure.message());
        return false;
    }
    const std::string probe = plan_.folder + "/.tqaudiorecord-" + std::to_string(getpid());
    const int file = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0) {
        complain(plan_.folder + ": " + std::strerror(errno));
        return false;
    }
    ::close(file);
    ::unlink(probe.c_str());
    lock_ = tqcommon::Descriptor(::open(plan_.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock_ && flock(lock_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        complain(plan_.folder + ": another recorder is writing its tracks there");
        return false;
    }
    const std::string there = plan_.mayReplace ? std::string() : firstTrackIn(plan_.folder);
    if (!there.empty()) {
        complain(plan_.folder + ": holds tracks already (" + there +
                 "); --overwrite replaces them");
        return false;
    }
    if (plan_.mayReplace) {
        for (const auto& entry : std::filesystem::directory_iterator(plan_.folder, failure)) {
            struct stat status {};
            const std::string path = entry.path().string();
            if (isTracksName(entry.path().filename().string()) &&
                ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
                old_.push_back({path, status.st_dev, status.st_ino});
            }
        }
    }
    return true;
}

std::string TracksSink::takePath(const std::string& name, const std::string& addition) {
    const std::string file = name + "." + std::string(plan_.kind->extension);
    std::string path = plan_.folder + "/" + withAddition(file, addition);
    for (int part = 2; !takenNames_.insert(path).second; ++part) {
        path = plan_.folder + "/" + withAddition(file, addition + "-part" + std::to_string(part));
    }
    return path;
}

void TracksSink::begin(const Process& process, const Block& block) {
    const Axis& axis = axes_.at(process.id);
    const std::string name =
        std::string(kTrackPrefix) + std::to_string(block.track) + "-" + fileNamePart(block.unit);
    const std::string path = takePath(name, axis.addition);
    const std::uint64_t beganAt = plan_.fromStart ? axis.beganAt : block.microseconds;
    const double offset = static_cast<double>(std::max(beganAt, axis.beganAt) - axis.beganAt) / 1e6;
    FileSeries::Plan plan{
        path, plan_.kind, plan_.maximumSeconds, plan_.mayReplace,
        static_cast<std::uint64_t>(std::llround(offset * block.format.sampleRate))};
    const StreamClock clock(block.format.sampleRate, beganAt, kTrackPatience,
                            plan_.fromStart ? axis.received : std::chrono::steady_clock::now(),
                            slackOf(block.format));
    Track track{std::string(block.unit),
                TimedSeries(FileSeries(plan, block.format), clock, name, beganAt)};
    tracks_.insert_or_assign({process.id, block.track}, std::move(track));
}

/// Once a process has sounded it is known whose the names as given are.
void TracksSink::followNames() {
    if (isSettled_ || !names_->isHeard()) {
        return;
    }
    isSettled_ = true;
    // Who gives them up goes first.
    for (const bool isFirst : {false, true}) {
        for (auto& [id, axis] : axes_) {
            const std::string& addition = names_->additionOf(id);
            if (names_->isFirst(id) == isFirst && axis.addition != addition) {
                axis.addition = addition;
                move(id);
            }
        }
    }
    for (auto& [id, track] : unnamed_) {
        nameAndList(id, track);
    }
    unnamed_.clear();
}

void TracksSink::move(int processId) {
    std::vector<Track*> moved;
    for (auto& [id, track] : unnamed_) {
        if (id == processId) {
            moved.push_back(&track);
        }
    }
    for (auto& [key, track] : tracks_) {
        if (key.first == processId) {
            moved.push_back(&track);
        }
    }
    for (Track* const track : moved) {
        takenNames_.erase(track->timed.series().path());
    }
    for (Track* const track : moved) {
        track->timed.moveTo(takePath(track->timed.name(), axes_.at(processId).addition));
    }
}

void TracksSink::block(const Process& process, const Block& block) {
    followNames();
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
    if (found != tracks_.end() && (found->second.unit != block.unit ||
                                   found->second.timed.series().format() != block.format)) {
        end(process.id, std::move(found->second));
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
    found->second.timed.write(block);
    tellOf(found->second);
}

void TracksSink::tellOf(Track& track) {
    const FileSeries& series = track.timed.series();
    if (!old_.empty() && series.isHeard() && series.problems().empty()) {
        removeOld();
    }
    report(track);
}

/// Those that are still the files that were there at the beginning.
void TracksSink::removeOld() {
    for (const Old& old : std::exchange(old_, {})) {
        struct stat status {};
        const bool isThere = ::lstat(old.path.c_str(), &status) == 0 &&
                             status.st_dev == old.device && status.st_ino == old.number;
        if (isThere && ::unlink(old.path.c_str()) != 0 && errno != ENOENT) {
            complain(old.path +
                     ": of an earlier recording, and cannot be removed: " + std::strerror(errno));
        }
    }
}

void TracksSink::end(int processId, Track track) {
    if (names_->isHeard()) {
        nameAndList(processId, track);
        return;
    }
    track.timed.end();
    unnamed_.emplace_back(processId, std::move(track));
    if (unnamed_.size() > kMostUnnamed) {
        nameAndList(unnamed_.front().first, unnamed_.front().second);
        unnamed_.pop_front();
    }
}

void TracksSink::nameAndList(int processId, Track& track) {
    track.timed.finish();
    report(track);
    const std::vector<WrittenFile> files = track.timed.files(processId);
    done_.insert(done_.end(), files.begin(), files.end());
}

TracksSink::Tracks::iterator TracksSink::endIfDone(Tracks::iterator track) {
    if (!track->second.isEnded || track->second.timed.isBehind()) {
        return std::next(track);
    }
    end(track->first.first, std::move(track->second));
    return tracks_.erase(track);
}

void TracksSink::processEnded(const Process& process, const HostFacts& /*facts*/) {
    for (auto track = tracks_.begin(); track != tracks_.end();) {
        track->second.isEnded |= track->first.first == process.id;
        track = endIfDone(track);
    }
}

bool TracksSink::isHeard() const {
    return std::any_of(tracks_.begin(), tracks_.end(),
                       [](const auto& one) { return one.second.timed.series().isHeard(); });
}

std::vector<WrittenFile> TracksSink::split() {
    std::vector<WrittenFile> done;
    for (auto& [key, track] : tracks_) {
        if (std::optional<WrittenFile> file = track.timed.split()) {
            done.push_back(std::move(*file));
        }
    }
    return done;
}

void TracksSink::refresh() {
    for (auto& [key, track] : tracks_) {
        track.timed.refresh();
    }
}

void TracksSink::catchUp(Backlog::Time end) {
    for (auto track = tracks_.begin(); track != tracks_.end();) {
        if (track->second.timed.isBehind()) {
            track->second.timed.catchUp(end);
            tellOf(track->second);
        }
        track = endIfDone(track);
    }
}

void TracksSink::finish() {
    for (auto& [id, track] : unnamed_) {
        nameAndList(id, track);
    }
    unnamed_.clear();
    for (auto& [key, track] : tracks_) {
        nameAndList(key.first, track);
    }
    tracks_.clear();
    if (refused_ > 0) {
        complain(refusedText(plan_.folder, refused_));
    }
}

void TracksSink::report(Track& track) {
    const std::vector<std::string>& problems = track.timed.series().problems();
    for (; track.reported < problems.size(); ++track.reported) {
        complain(problems[track.reported]);
    }
}

void TracksSink::complain(const std::string& problem) {
    if (std::find(problems_.begin(), problems_.end(), problem) == problems_.end()) {
        problems_.push_back(problem);
    }
}

std::vector<WrittenFile> TracksSink::files() const {
    std::vector<WrittenFile> all = done_;
    for (const auto& [id, track] : unnamed_) {
        const std::vector<WrittenFile> files = track.timed.files(id);
        all.insert(all.end(), files.begin(), files.end());
    }
    for (const auto& [key, track] : tracks_) {
        const std::vector<WrittenFile> files = track.timed.files(key.first);
        all.insert(all.end(), files.begin(), files.end());
    }
    std::stable_sort(all.begin(), all.end(), [](const WrittenFile& a, const WrittenFile& b) {
        return std::pair(a.processId, a.name) < std::pair(b.processId, b.name);
    });
    return all;
}

}  // namespace tqrecorder
