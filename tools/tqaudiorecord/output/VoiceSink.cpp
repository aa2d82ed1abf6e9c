#include "output/VoiceSink.h"

#include <filesystem>

#include "output/files/FileNames.h"

namespace tqrecorder {

std::string VoiceSink::pathBeside(const std::string& mix) {
    return withAddition(std::filesystem::path(mix).replace_extension(".wav").string(),
                        "-" + std::string(kMicrophoneName));
}

void VoiceSink::block(const Process& process, const Block& block) {
    if (block.track != kMicrophoneTrack) {
        return;
    }
    if (!stream_) {
        stream_.emplace(
            Stream{FileSeries(plan_, block.format),
                   StreamClock(block.format.sampleRate, block.microseconds, kTrackPatience,
                               std::chrono::steady_clock::now(), slackOf(block.format)),
                   process.id, block.microseconds});
    }
    const std::size_t frames = block.frames.size() / block.format.frameBytes();
    stream_->series.writeSilence(stream_->clock.before(block.microseconds, frames, 0));
    stream_->series.write(block.frames);
}

std::vector<WrittenFile> VoiceSink::split() {
    std::optional<WrittenFile> file = stream_ ? stream_->series.split() : std::nullopt;
    return file ? std::vector{std::move(*file)} : std::vector<WrittenFile>{};
}

void VoiceSink::refresh() {
    if (stream_) {
        stream_->series.refresh();
    }
}

void VoiceSink::finish() {
    if (stream_) {
        stream_->series.finish();
    }
}

std::vector<std::string> VoiceSink::problems() const {
    return stream_ ? stream_->series.problems() : std::vector<std::string>{};
}

std::vector<WrittenFile> VoiceSink::files() const {
    std::vector<WrittenFile> all = stream_ ? stream_->series.files() : std::vector<WrittenFile>{};
    for (WrittenFile& file : all) {
        file.gaps = stream_->clock.gaps();
        file.processId = stream_->processId;
        file.name = kMicrophoneName;
        file.beganAt = stream_->beganAt;
    }
    return all;
}

}  // namespace tqrecorder
