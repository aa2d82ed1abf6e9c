#include "output/VoiceSink.h"

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

void VoiceSink::block(const Process& process, const Block& block) {
    const bool isVoice = block.track == kMicrophoneTrack;
    if (!voice_ && (isVoice || (block.track == 0 && block.format == kMixFormat))) {
        mixes_.try_emplace(process.id, Began{block.microseconds, std::chrono::steady_clock::now()});
    }
    if (!isVoice) {
        return;
    }
    if (!voice_) {
        const Began began = mixes_.at(process.id);
        processId_ = process.id;
        voice_.emplace(FileSeries(plan_, block.format),
                       StreamClock(block.format.sampleRate, began.microseconds, kTrackPatience,
                                   began.received, slackOf(block.format)),
                       std::string(kMicrophoneName), began.microseconds);
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
