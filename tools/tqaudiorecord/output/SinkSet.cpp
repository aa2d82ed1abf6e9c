#include "output/SinkSet.h"

#include <algorithm>

namespace tqrecorder {

void SinkSet::processBegan(const Process& process) {
    for (const auto& sink : sinks_) {
        sink->processBegan(process);
    }
}

void SinkSet::block(const Process& process, const Block& block) {
    for (const auto& sink : sinks_) {
        sink->block(process, block);
    }
}

void SinkSet::lost(const Process& process, std::uint64_t blocks, std::uint64_t bytes) {
    for (const auto& sink : sinks_) {
        sink->lost(process, blocks, bytes);
    }
}

void SinkSet::event(const Process& process, const Event& event) {
    for (const auto& sink : sinks_) {
        sink->event(process, event);
    }
}

void SinkSet::log(const Process& process, const LogLine& line) {
    for (const auto& sink : sinks_) {
        sink->log(process, line);
    }
}

void SinkSet::stream(const Process& process, const StreamFacts& facts) {
    for (const auto& sink : sinks_) {
        sink->stream(process, facts);
    }
}

void SinkSet::numbers(const Process& process, std::span<const TrackNumbers> tracks,
                      const HostFacts& facts, double ringFill) {
    for (const auto& sink : sinks_) {
        sink->numbers(process, tracks, facts, ringFill);
    }
}

void SinkSet::seen(const SeenProcess& process) {
    for (const auto& sink : sinks_) {
        sink->seen(process);
    }
}

void SinkSet::processEnded(const Process& process, const HostFacts& facts) {
    for (const auto& sink : sinks_) {
        sink->processEnded(process, facts);
    }
}

void SinkSet::tick(std::uint64_t elapsedMicroseconds) {
    for (const auto& sink : sinks_) {
        sink->tick(elapsedMicroseconds);
    }
}

bool SinkSet::isSaving() {
    // All are asked, as each goes on with its own.
    return std::count_if(sinks_.begin(), sinks_.end(),
                         [](const auto& sink) { return sink->isSaving(); }) > 0;
}

void SinkSet::giveUpSaves() {
    for (const auto& sink : sinks_) {
        sink->giveUpSaves();
    }
}

void SinkSet::finish() {
    for (const auto& sink : sinks_) {
        sink->finish();
    }
}

std::string SinkSet::reasonToEnd() const {
    for (const auto& sink : sinks_) {
        if (std::string reason = sink->reasonToEnd(); !reason.empty()) {
            return reason;
        }
    }
    return {};
}

std::vector<std::string> SinkSet::problems() const {
    std::vector<std::string> all;
    for (const auto& sink : sinks_) {
        const std::vector<std::string> more = sink->problems();
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

}  // namespace tqrecorder
