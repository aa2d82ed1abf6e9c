#include "output/VoiceSink.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <utility>

#include "output/files/FileNames.h"

namespace tqrecorder {

std::string VoiceSink::pathBeside(const std::string& mix) {
    return withAddition(std::filesystem::path(mix).replace_extension(".wav").string(),
                        "-" + std::string(kMicrophoneName));
}

bool VoiceSink::open() {
    const PartFile probe(
        plan_.maximumSeconds ? withAddition(plan_.path, numberAddition(1)) : plan_.path,
        plan_.mayReplace);
    if (!probe.problem().empty()) {
        problems_.push_back(probe.problem());
    }
    return problems_.empty();
}

VoiceSink::Mix& VoiceSink::mixOf(const Process& process, const Block& block) {
    const StreamClock::Time now = std::chrono::steady_clock::now();
    return mixes_
        .try_emplace(process.id,
                     Mix{block.microseconds, now,
                         StreamClock(kMixFormat.sampleRate, block.microseconds, kMixPatience, now)})
        .first->second;
}

void VoiceSink::begin(const Process& process, const Block& block) {
    const Mix& mix = mixOf(process, block);
    // Followed until now: where its first frame lies by the clock of today.
    const double first =
        mix.clock.end() - static_cast<double>(mix.clock.frames()) / kMixFormat.sampleRate * 1e6;
    const StreamClock clock(block.format.sampleRate,
                            static_cast<std::uint64_t>(std::llround(first)), kTrackPatience,
                            mix.received, slackOf(block.format));
    voices_.push_front({process.id, plan_.programs && plan_.programs->isFirst(process.id),
                        TimedSeries(FileSeries(plan_, block.format), clock,
                                    std::string(kMicrophoneName), mix.began)});
    isLeft_ = false;
}

/// Before anything is written: the first sound of a program has files take their names.
void VoiceSink::followNames() {
    if (voices_.empty() || !voices_.front().isFirst ||
        plan_.programs->isFirst(voices_.front().processId)) {
        return;
    }
    Voice& voice = voices_.front();
    voice.isFirst = false;
    voice.series.moveTo(plan_.pathWith(plan_.programs->additionOf(voice.processId)));
    isLeft_ = true;
}

void VoiceSink::block(const Process& process, const Block& block) {
    followNames();
    if (block.track == 0 && block.format == kMixFormat) {
        static_cast<void>(mixOf(process, block).clock.before(block));
    }
    if (block.track != kMicrophoneTrack) {
        return;
    }
    // Until the game's mix sounds the microphone lies beside the launcher's.
    if (voices_.empty() || (isLeft_ && voices_.front().processId != process.id)) {
        begin(process, block);
        finishLeft();
    }
    voices_.front().series.write(block);
}

void VoiceSink::finishLeft() {
    for (std::size_t left = 1; left < voices_.size(); ++left) {
        Voice& voice = voices_[left];
        if (!voice.series.isBehind() && !std::exchange(voice.isFinished, true)) {
            voice.series.finish();
        }
    }
}

void VoiceSink::processEnded(const Process& process, const HostFacts& /*facts*/) {
    mixes_.erase(process.id);
}

bool VoiceSink::isHeard() const {
    return std::any_of(voices_.begin(), voices_.end(),
                       [](const Voice& voice) { return voice.series.series().isHeard(); });
}

void VoiceSink::split(const SplitFiles& done) {
    if (!voices_.empty()) {
        voices_.front().series.split(done);
    }
}

void VoiceSink::giveUpSaves() {
    for (Voice& voice : voices_) {
        voice.series.giveUp();
    }
}

void VoiceSink::refresh() {
    for (Voice& voice : voices_) {
        voice.series.refresh();
    }
}

bool VoiceSink::isBehind() const {
    return std::any_of(voices_.begin(), voices_.end(),
                       [](const Voice& voice) { return voice.series.isBehind(); });
}

void VoiceSink::catchUp(Backlog::Time end) {
    followNames();
    for (Voice& voice : voices_) {
        if (!voice.isFinished) {
            voice.series.catchUp(end);
        }
    }
    finishLeft();
}

void VoiceSink::finish() {
    followNames();
    for (Voice& voice : voices_) {
        if (!std::exchange(voice.isFinished, true)) {
            voice.series.finish();
        }
    }
}

std::vector<std::string> VoiceSink::problems() const {
    std::vector<std::string> all = problems_;
    for (const Voice& voice : voices_) {
        const std::vector<std::string>& more = voice.series.series().problems();
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

std::vector<WrittenFile> VoiceSink::files() const {
    std::vector<WrittenFile> all;
    for (const Voice& voice : voices_) {
        const std::vector<WrittenFile> more = voice.series.files(voice.processId);
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

}  // namespace tqrecorder
