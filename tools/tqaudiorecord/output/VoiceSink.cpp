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
    if (block.track != kMicrophoneTrack) {
        return;
    }
    if (!voice_) {
        processId_ = process.id;
        voice_.emplace(FileSeries(plan_, block.format),
                       StreamClock(block.format.sampleRate, block.microseconds, kTrackPatience,
                                   std::chrono::steady_clock::now(), slackOf(block.format)),
                       std::string(kMicrophoneName), block.microseconds);
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
