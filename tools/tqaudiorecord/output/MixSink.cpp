#include "output/MixSink.h"

#include <algorithm>
#include <utility>

namespace tqrecorder {

MixSink::MixSink(FileSeries::Plan plan, std::shared_ptr<ProcessNames> names)
    : plan_(std::move(plan)), names_(std::move(names)) {
}

bool MixSink::open() {
    opened_ = std::make_unique<FileSeries>(plan_, kMixFormat);
    return opened_->open();
}

MixSink::Stream* MixSink::streamOf(const Process& process, std::uint64_t microseconds) {
    const auto found = streams_.find(process.id);
    if (found != streams_.end()) {
        return &found->second;
    }
    if (streams_.size() >= kMostFiles) {
        ++refused_;
        return nullptr;
    }
    const std::string& addition = names_->additionOf(process);
    std::unique_ptr<FileSeries> series;
    if (addition.empty() && opened_ != nullptr) {
        series = std::move(opened_);
    } else {
        FileSeries::Plan plan = plan_;
        plan.path = withAddition(plan_.path, addition);
        if (!plan.mayReplace && !plan.maximumSeconds) {
            plan.path = freePath(plan.path);
        }
        series = std::make_unique<FileSeries>(plan, kMixFormat);
    }
    Stream stream{std::move(series), StreamClock(kMixFormat.sampleRate, microseconds, kMixPatience),
                  microseconds};
    return &streams_.emplace(process.id, std::move(stream)).first->second;
}

void MixSink::block(const Process& process, const Block& block) {
    // A track's first block may come before the mix's: all files of a process begin with it.
    Stream* stream = streamOf(process, block.microseconds);
    if (stream == nullptr || block.track != 0 || block.format != kMixFormat) {
        return;
    }
    const std::size_t frames = block.frames.size() / kMixFormat.frameBytes();
    const std::uint64_t silence =
        stream->clock.before(block.microseconds, frames, block.lostFrames);
    if (stream->clock.takeJump()) {
        stream->series->complain(jumpText(stream->series->path()));
    }
    stream->series->writeSilence(silence);
    stream->series->write(block.frames.first(frames * kMixFormat.frameBytes()));
}

void MixSink::processEnded(const Process& process, const HostFacts& /*facts*/) {
    const auto found = streams_.find(process.id);
    if (found != streams_.end()) {
        found->second.series->finish();
    }
}

std::vector<WrittenFile> MixSink::split() {
    std::vector<WrittenFile> done;
    for (auto& [id, stream] : streams_) {
        if (std::optional<WrittenFile> file = stream.series->split()) {
            done.push_back(std::move(*file));
        }
    }
    return done;
}

void MixSink::refresh() {
    for (auto& [id, stream] : streams_) {
        stream.series->refresh();
    }
}

void MixSink::finish() {
    isFinished_ = true;
    if (opened_ != nullptr) {
        opened_->finish();
    }
    for (auto& [id, stream] : streams_) {
        stream.series->finish();
    }
}

std::vector<std::string> MixSink::problems() const {
    std::vector<std::string> all;
    const auto add = [&all](const FileSeries& series) {
        all.insert(all.end(), series.problems().begin(), series.problems().end());
    };
    if (opened_ != nullptr) {
        add(*opened_);
    }
    for (const auto& [id, stream] : streams_) {
        add(*stream.series);
    }
    if (isFinished_ && refused_ > 0) {
        all.push_back(refusedText(plan_.path, refused_));
    }
    return all;
}

std::vector<WrittenFile> MixSink::files() const {
    std::vector<WrittenFile> all;
    if (opened_ != nullptr) {
        all = opened_->files();
    }
    for (const auto& [id, stream] : streams_) {
        for (WrittenFile file : stream.series->files()) {
            file.gaps = stream.clock.gaps();
            file.processId = id;
            file.name = "mix";
            file.beganAt = stream.beganAt;
            // The file that was opened at the start has the names as given: the first process gets
            // it.
            all.insert(
                names_->isFirst(id)
                    ? all.begin() + std::count_if(all.begin(), all.end(),
                                                  [this](const WrittenFile& other) {
                                                      return names_->isFirst(other.processId);
                                                  })
                    : all.end(),
                std::move(file));
        }
    }
    return all;
}

}  // namespace tqrecorder
