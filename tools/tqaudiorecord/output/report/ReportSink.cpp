#include "output/report/ReportSink.h"

#include <TQAudioRecord/tq_events.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <limits>
#include <utility>

#include "output/files/PartFile.h"
#include "output/files/SoundFile.h"
#include "output/files/WholeFile.h"
#include "output/report/ReportText.h"
#include "picture/Drawing.h"
#include "picture/LevelPng.h"

namespace tqrecorder {
namespace {

constexpr std::size_t kMostTimes = 100;
constexpr std::uint64_t kUnknown = std::numeric_limits<std::uint64_t>::max();

std::string dateText(std::time_t time) {
    std::tm parts{};
    std::array<char, 64> text{};
    if (localtime_r(&time, &parts) == nullptr ||
        std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &parts) == 0) {
        return {};
    }
    return "recorded " + std::string(text.data());
}

/// The files of each lane: those of one stream follow each other, and streams of one name come in
/// the order of their lanes.
class FilesOfLanes {
  public:
    explicit FilesOfLanes(const std::vector<WrittenFile>& files) {
        for (const WrittenFile& file : files) {
            if (holdsSeveral(file.kind)) {
                ofAll_[file.processId].push_back(&file);
                continue;
            }
            auto& streams = streams_[{file.processId, file.name}];
            if (streams.empty() || file.startSeconds == 0) {
                streams.emplace_back();
            }
            streams.back().push_back(&file);
        }
    }
    [[nodiscard]] std::vector<const WrittenFile*> takeFor(const Lane& lane) {
        // A microphone that has a file apart from the tracks' is called as its unit.
        const bool isTrack = streams_.contains({lane.processId, lane.name});
        const Key key{lane.processId, isTrack ? lane.name : lane.unit};
        const auto streams = streams_.find(key);
        std::size_t& taken = taken_[key];
        if (streams == streams_.end() || taken == streams->second.size()) {
            return ofAll_[lane.processId];
        }
        return streams->second[taken++];
    }

  private:
    using Key = std::pair<int, std::string>;
    std::map<Key, std::vector<std::vector<const WrittenFile*>>> streams_;
    std::map<Key, std::size_t> taken_;
    std::map<int, std::vector<const WrittenFile*>> ofAll_;  // those with all lanes of a process
};

}  // namespace

ReportSink::ReportSink(std::string path, bool mayReplace, const Lanes& lanes,
                       std::function<ReportFacts()> facts, std::time_t now)
    : path_(std::move(path)),
      mayReplace_(mayReplace),
      lanes_(lanes),
      facts_(std::move(facts)),
      began_(now) {
}

bool ReportSink::open() {
    if (const PartFile probe(path_, true); !probe.problem().empty()) {
        problems_.push_back(probe.problem());
        return false;
    }
    return true;
}

void ReportSink::lost(const Process& /*process*/, std::uint64_t blocks, std::uint64_t bytes) {
    lostBlocks_ += blocks;
    lostBytes_ += bytes;
}

void ReportSink::event(const Process& /*process*/, const Event& event) {
    // One entry for all that no table knows: a host that spoils the shared memory may say anything.
    const bool isKnown = tq_event_find(event.category, event.code) != nullptr;
    Times& times =
        events_[isKnown ? std::pair(event.category, event.code) : std::pair(kUnknown, kUnknown)];
    ++times.count;
    if (times.microseconds.size() < kMostTimes) {
        times.microseconds.push_back(event.microseconds -
                                     std::min(event.microseconds, event.paused));
    }
}

void ReportSink::finish() {
    if (lanes_.inOrder().empty()) {
        return;
    }
    const std::string page = reportPage(report());
    const WholeFile file =
        writeWholeFile(path_, mayReplace_, lanes_.worth(), std::as_bytes(std::span(page)));
    written_ = file.path;
    if (!file.problem.empty()) {
        problems_.push_back(file.problem);
    }
}

Report ReportSink::report() const {
    ReportFacts facts = facts_();
    Report report;
    report.title = lanes_.title();
    report.date = dateText(began_);
    report.lostBlocks = lostBlocks_;
    report.lostBytes = lostBytes_;
    addLanes(report, facts.files);
    addEvents(report);
    report.leftOut = std::move(facts.leftOut);
    if (lanes_.refused() > 0) {
        report.leftOut.push_back("not shown here: tracks beyond the first " +
                                 std::to_string(tqpicture::kMaximumTracks));
    }
    report.accounts = std::move(facts.accounts);
    report.problems = std::move(facts.problems);
    for (const WrittenFile& file : facts.files) {
        report.files.push_back(file.path + " (" + file.text + ", " + fixed(file.seconds, 2) +
                               " s)");
    }
    report.files.insert(report.files.end(), facts.otherFiles.begin(), facts.otherFiles.end());
    return report;
}

void ReportSink::addLanes(Report& report, const std::vector<WrittenFile>& files) const {
    const std::uint64_t origin = lanes_.origin();
    const std::vector<const Lane*> lanes = lanes_.inOrder();
    double peak = 0;
    double topHertz = 0;
    for (const Lane* lane : lanes) {
        report.seconds =
            std::max(report.seconds, secondsBehind(origin, lane->beganAt) + lane->sound.seconds());
        peak = std::max(peak, lane->sound.peak());
        topHertz = std::max(topHertz, lane->sound.sampleRate() / 2);
    }
    report.amplitude = tqpicture::amplitudeRange(peak);
    report.topHertz = topHertz;
    const double axisSeconds = report.seconds > 1e-6 ? report.seconds : 1;
    const tqpicture::FrequencyScale scale(tqpicture::FrequencyAxis::kLogarithmic, topHertz,
                                          kReportRows);
    FilesOfLanes filesOfLanes(files);
    for (const Lane* lane : lanes) {
        ReportLane shown;
        shown.name = lanes_.titleOf(*lane);
        shown.isMix = lane->track == 0;
        shown.format = textOf(lane->format);
        shown.at = secondsBehind(origin, lane->beganAt);
        shown.seconds = lane->sound.seconds();
        shown.peak = lane->sound.peak();
        shown.rms = lane->sound.rms();
        shown.isLoudnessMeasured = lane->loudness != nullptr;
        if (lane->loudness != nullptr) {
            shown.loudness = lane->loudness->integrated();
            shown.truePeak = lane->loudness->truePeak();
        }
        shown.gaps = lane->clock.gaps();
        shown.gapSeconds = lane->clock.gapSeconds();
        tqpicture::TrackAnalysis analysis =
            lane->sound.analysis(shown.at, axisSeconds, kReportColumns, scale);
        shown.envelope = std::move(analysis.envelope);
        if (!tqpicture::levelsAsPng(analysis.levels, kReportFloorDb, shown.levels)) {
            shown.levels.clear();
        }
        for (const WrittenFile* file : filesOfLanes.takeFor(*lane)) {
            shown.files.push_back({relativeUrl(path_, file->path),
                                   std::filesystem::path(file->path).filename().string(),
                                   file->text, whyNotPlayed(file->kind, file->text),
                                   secondsBehind(origin, file->beganAt) + file->startSeconds,
                                   file->seconds});
        }
        report.lanes.push_back(std::move(shown));
    }
}

void ReportSink::addEvents(Report& report) const {
    const std::uint64_t origin = lanes_.origin();
    for (const auto& [event, times] : events_) {
        const auto& [category, code] = event;
        ReportEvent shown;
        shown.text = tq_event_text(category, code);
        shown.isFailure = tq_event_kind_of(category, code) == TQ_EVENT_KIND_FAILURE;
        shown.count = times.count;
        for (const std::uint64_t time : times.microseconds) {
            shown.seconds.push_back(secondsBehind(origin, time));
        }
        report.events.push_back(std::move(shown));
    }
}

}  // namespace tqrecorder
