#include "output/Lanes.h"

#include <algorithm>
#include <tuple>

#include "output/FilesSink.h"
#include "picture/Picture.h"

namespace tqrecorder {
namespace {

/// A picture has less columns than that, so that what is merged further back is not seen.
constexpr double kColumnsSeen = 2400;
/// No program plays more; a host that spoils the shared memory may say anything.
constexpr std::uint32_t kMostChannels = 64;

/// As libsndfile calls them.
std::string encodingOf(const BlockFormat& format) {
    const std::string bits = std::to_string(format.bitsPerChannel) + " bit ";
    return format.isFloat ? bits + "float" : "Signed " + bits + "PCM";
}

}  // namespace

void Lanes::processBegan(const Process& process) {
    processNames_[process.id] = process.name;
}

Lane* Lanes::laneFor(const Process& process, const Block& block) {
    const auto found = current_.find({process.id, block.track});
    if (found != current_.end() && found->second->unit == block.unit &&
        found->second->format == block.format) {
        return found->second;
    }
    if (found != current_.end()) {
        end(*found->second);
        current_.erase(found);
    }
    if (lanes_.size() >= tqpicture::kMaximumTracks) {
        return nullptr;
    }
    const bool isMix = block.track == 0;
    const std::uint64_t beganAt = isMix ? began_.at(process.id) : block.microseconds;
    // What has ended shares the time with what goes on.
    for (const auto& lane : lanes_) {
        if (lane->sound.isFinished()) {
            lane->sound.coarsen(secondsBehind(lane->beganAt, block.microseconds) / kColumnsSeen);
        }
    }
    const double rate = block.format.sampleRate;
    lanes_.push_back(std::unique_ptr<Lane>(new Lane{
        process.id, block.track, std::string(block.unit),
        isMix ? "mix" : "track-" + std::to_string(block.track) + "-" + fileNamePart(block.unit),
        block.format, beganAt,
        isMix ? StreamClock(rate, beganAt, kMixPatience)
              : StreamClock(rate, beganAt, kTrackPatience, std::chrono::steady_clock::now(),
                            slackOf(block.format)),
        tqpicture::GrowingTrack(rate, static_cast<int>(block.format.channels),
                                encodingOf(block.format)),
        Floats(block.format), measuresLoudness_ ? Loudness::of(block.format) : nullptr}));
    return current_.emplace(std::pair(process.id, block.track), lanes_.back().get()).first->second;
}

void Lanes::block(const Process& process, const Block& block) {
    (void)names_->additionOf(process);
    processNames_[process.id] = process.name;
    // All files of a process begin with its first block.
    began_.try_emplace(process.id, block.microseconds);
    const std::size_t frameBytes = block.format.frameBytes();
    if (frameBytes == 0 || block.format.sampleRate < 1 || block.format.channels > kMostChannels ||
        (block.track == 0 && block.format != kMixFormat)) {
        return;
    }
    Lane* lane = laneFor(process, block);
    if (lane == nullptr || !lane->floats.isKnown()) {
        refused_ += lane == nullptr ? 1 : 0;
        return;
    }
    const std::size_t frames = block.frames.size() / frameBytes;
    const std::uint64_t silence = lane->clock.before(block);
    const std::span<const float> samples = lane->floats.of(block.frames.first(frames * frameBytes));
    lane->sound.pushSilence(silence);
    lane->sound.push(samples.data(), frames);
    if (lane->loudness != nullptr) {
        lane->loudness->addSilence(silence);
        lane->loudness->add(samples.data(), frames);
    }
}

void Lanes::end(Lane& lane) {
    lane.sound.finish();
}

void Lanes::processEnded(const Process& process, const HostFacts& /*facts*/) {
    std::erase_if(current_, [this, &process](const auto& entry) {
        if (entry.first.first == process.id) {
            end(*entry.second);
        }
        return entry.first.first == process.id;
    });
}

void Lanes::finish() {
    for (auto& [key, lane] : current_) {
        end(*lane);
    }
    current_.clear();
    // A track may come before its mix, and a short one has less to tell than its numbers say.
    std::stable_sort(lanes_.begin(), lanes_.end(), [this](const auto& a, const auto& b) {
        const auto place = [this](const Lane& lane) {
            return std::tuple(!names_->isFirst(lane.processId), lane.processId, lane.track);
        };
        return place(*a) < place(*b);
    });
}

std::vector<const Lane*> Lanes::inOrder() const {
    std::vector<const Lane*> all;
    for (const auto& lane : lanes_) {
        all.push_back(lane.get());
    }
    return all;
}

std::uint64_t Lanes::origin() const {
    return (*std::min_element(lanes_.begin(), lanes_.end(),
                              [](const auto& a, const auto& b) { return a->beganAt < b->beganAt; }))
        ->beganAt;
}

Worth Lanes::worth() const {
    const bool hasSound = std::any_of(lanes_.begin(), lanes_.end(),
                                      [](const auto& lane) { return lane->sound.peak() > 0; });
    return !hasSound ? Worth::kSilence : names_->isHeard() ? Worth::kSound : Worth::kVoiceAlone;
}

std::string Lanes::titleOf(const Lane& lane) const {
    const bool several = std::any_of(lanes_.begin(), lanes_.end(), [&lane](const auto& other) {
        return other->processId != lane.processId;
    });
    return several ? processNames_.at(lane.processId) + ": " + lane.name : lane.name;
}

std::string Lanes::title() const {
    return lanes_.empty() ? std::string() : processNames_.at(lanes_.front()->processId);
}

}  // namespace tqrecorder
