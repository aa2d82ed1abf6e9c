#include "output/VoiceSink.h"

#include <cmath>
#include <filesystem>

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

void VoiceSink::block(const Process& process, const Block& block) {
    if (!voice_ && block.track == 0 && block.format == kMixFormat) {
        static_cast<void>(mixOf(process, block).clock.before(block));
    }
    if (block.track != kMicrophoneTrack) {
        return;
    }
    if (!voice_) {
        const Mix& mix = mixOf(process, block);
        // Followed until now: where its first frame lies by the clock of today.
        const double first =
            mix.clock.end() - static_cast<double>(mix.clock.frames()) / kMixFormat.sampleRate * 1e6;
        processId_ = process.id;
        voice_.emplace(
            FileSeries(plan_, block.format),
            StreamClock(block.format.sampleRate, static_cast<std::uint64_t>(std::llround(first)),
                        kTrackPatience, mix.received, slackOf(block.format)),
            std::string(kMicrophoneName), mix.began);
        mixes_.clear();
    }
    voice_->write(block);
}

void VoiceSink::split(const SplitFiles& done) {
    if (voice_) {
        voice_->split(done);
    }
}

void VoiceSink::giveUpSaves() {
    if (voice_) {
        voice_->giveUp();
    }
}

void VoiceSink::refresh() {
    if (voice_) {
        voice_->refresh();
    }
}

void VoiceSink::catchUp(Backlog::Time end) {
    if (voice_) {
        voice_->catchUp(end);
    }
}

void VoiceSink::finish() {
    if (voice_) {
        voice_->finish();
    }
}

std::vector<std::string> VoiceSink::problems() const {
    return voice_ ? voice_->series().problems() : problems_;
}

std::vector<WrittenFile> VoiceSink::files() const {
    return voice_ ? voice_->files(processId_) : std::vector<WrittenFile>{};
}

}  // namespace tqrecorder
