#include "output/TracksSink.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

namespace tqrecorder {
namespace {

/// Tracks that have ended and may still change their names. Each holds a file open.
constexpr std::size_t kMostUnnamed = 32;

}  // namespace

TracksSink::TracksSink(Plan plan, std::shared_ptr<ProcessNames> names)
    : plan_(std::move(plan)), folder_(plan_.folder), names_(std::move(names)) {
}

bool TracksSink::open() {
    const std::string problem = folder_.open(plan_.mayReplace);
    if (!problem.empty()) {
        complain(problem);
    }
    return problem.empty();
}

std::string TracksSink::takePath(const std::string& name, const std::string& addition) {
    const std::string file = name + "." + std::string(plan_.kind->extension);
    std::string path = folder_.path() + "/" + withAddition(file, addition);
    for (int part = 2; !takenNames_.insert(path).second; ++part) {
        path = folder_.path() + "/" + withAddition(file, addition + "-part" + std::to_string(part));
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
        path,
        plan_.kind,
        plan_.maximumSeconds,
        plan_.mayReplace,
        static_cast<std::uint64_t>(std::llround(offset * block.format.sampleRate)),
        plan_.programs};
    const StreamClock clock(block.format.sampleRate, beganAt, kTrackPatience,
                            plan_.fromStart ? axis.received : std::chrono::steady_clock::now(),
                            slackOf(block.format));
    Track track{std::string(block.unit),
                TimedSeries(FileSeries(plan, block.format), clock, name, beganAt)};
    tracks_.insert_or_assign({process.id, block.track}, std::move(track));
}

/// Each process that sounds may get the names of one that does not.
void TracksSink::followNames() {
    if (hearings_ == names_->hearings()) {
        return;
    }
    hearings_ = names_->hearings();
    // Who gives them up goes first.
    for (const bool hasSounded : {false, true}) {
        for (auto& [id, axis] : axes_) {
            const std::string& addition = names_->additionOf(id);
            if (names_->hasSounded(id) == hasSounded && axis.addition != addition) {
                axis.addition = addition;
                move(id);
            }
        }
    }
    unnamed_.remove_if([this](auto& one) {
        const bool isSettled = !names_->mayLoseNames(one.first);
        if (isSettled) {
            nameAndList(one.first, one.second);
        }
        return isSettled;
    });
}

template <typename Use>
void TracksSink::forAllUnderWay(const Use& use) {
    for (auto& [id, track] : ending_) {
        use(id, track);
    }
    for (auto& [key, track] : tracks_) {
        use(key.first, track);
    }
}

void TracksSink::move(int processId) {
    std::vector<Track*> moved;
    for (auto& [id, track] : unnamed_) {
        if (id == processId) {
            moved.push_back(&track);
        }
    }
    forAllUnderWay([&](int id, Track& track) {
        if (id == processId) {
            moved.push_back(&track);
        }
    });
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
            if (refused_++ == 0) {
                complain(fullText(folder_.path()));
            }
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
    if (series.isHeard() && series.problems().empty()) {
        for (const std::string& problem : folder_.removeOld()) {
            complain(problem);
        }
    }
    report(track);
}

void TracksSink::end(int processId, Track track) {
    if (track.timed.isBehind()) {
        ending_.emplace_back(processId, std::move(track));
    } else {
        conclude(processId, std::move(track));
    }
}

void TracksSink::conclude(int processId, Track track) {
    if (!names_->mayLoseNames(processId)) {
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
    names_->settle(processId);  // a finished file cannot move on
    track.timed.finish();
    report(track);
    const std::vector<WrittenFile> files = track.timed.files(processId);
    done_.insert(done_.end(), files.begin(), files.end());
}

void TracksSink::processEnded(const Process& process, const HostFacts& /*facts*/) {
    for (auto track = tracks_.begin(); track != tracks_.end();) {
        if (track->first.first == process.id) {
            end(process.id, std::move(track->second));
            track = tracks_.erase(track);
        } else {
            ++track;
        }
    }
}

bool TracksSink::isHeard() const {
    const auto isHeard = [](const auto& one) { return one.second.timed.series().isHeard(); };
    return std::any_of(tracks_.begin(), tracks_.end(), isHeard) ||
           std::any_of(ending_.begin(), ending_.end(), isHeard);
}

bool TracksSink::isBehind() const {
    return !ending_.empty() || std::any_of(tracks_.begin(), tracks_.end(), [](const auto& one) {
        return one.second.timed.isBehind();
    });
}

void TracksSink::split(const SplitFiles& done) {
    for (auto& [key, track] : tracks_) {
        track.timed.split(done);
    }
}

void TracksSink::giveUpSaves() {
    forAllUnderWay([](int, Track& track) { track.timed.giveUp(); });
}

void TracksSink::refresh() {
    forAllUnderWay([](int, Track& track) { track.timed.refresh(); });
}

void TracksSink::catchUp(Backlog::Time end) {
    // They take turns: a step of each may be more than there is time for.
    for (std::size_t rest = ending_.size(); rest > 0; --rest) {
        const auto track = ending_.begin();
        track->second.timed.catchUp(end);
        tellOf(track->second);
        if (track->second.timed.isBehind()) {
            ending_.splice(ending_.end(), ending_, track);
        } else {
            conclude(track->first, std::move(track->second));
            ending_.erase(track);
        }
        if (std::chrono::steady_clock::now() >= end) {
            break;
        }
    }
    for (auto& [key, track] : tracks_) {
        if (track.timed.isBehind()) {
            track.timed.catchUp(end);
            tellOf(track);
        }
    }
}

void TracksSink::finish() {
    for (auto& [id, track] : unnamed_) {
        nameAndList(id, track);
    }
    unnamed_.clear();
    forAllUnderWay([this](int id, Track& track) { nameAndList(id, track); });
    ending_.clear();
    tracks_.clear();
    if (refused_ > 0) {
        complain(refusedText(folder_.path(), refused_));
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
    const auto add = [&all](int processId, const Track& track) {
        const std::vector<WrittenFile> files = track.timed.files(processId);
        all.insert(all.end(), files.begin(), files.end());
    };
    for (const auto& [id, track] : unnamed_) {
        add(id, track);
    }
    for (const auto& [id, track] : ending_) {
        add(id, track);
    }
    for (const auto& [key, track] : tracks_) {
        add(key.first, track);
    }
    std::stable_sort(all.begin(), all.end(), [](const WrittenFile& a, const WrittenFile& b) {
        return std::tie(a.processId, a.name, a.beganAt) < std::tie(b.processId, b.name, b.beganAt);
    });
    return all;
}

}  // namespace tqrecorder
