#include "MixCollector.h"

#include <algorithm>

namespace {
/// The mix is the only block whose volume is 0: tracks bear 1.
bool isMix(const RZReplayASBDInfo& info) {
    return info.volume() == 0.0;
}
}  // namespace

void MixCollector::onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) {
    if (isMix(info)) {
        const AudioBuffer& buffer = pcm->mBuffers[0];
        const auto* const samples = static_cast<const std::int16_t*>(buffer.mData);
        for (UInt32 i = 0; i < buffer.mDataByteSize / 4; ++i) {
            mix_[0].push_back(samples[2 * i] / 32768.0);
            mix_[1].push_back(samples[2 * i + 1] / 32768.0);
        }
        mixStamps_.push_back(info.timeStamp());
        return;
    }
    Track& track = tracks_[info.trackId()];
    track.info = info;
    track.timeStamps.push_back(info.timeStamp());
    const auto channels = static_cast<std::size_t>(info.channelsPerFrame());
    track.planes.resize(channels);
    const bool isInterleaved = pcm->mNumberBuffers == 1;
    for (std::size_t channel = 0; channel < channels; ++channel) {
        const AudioBuffer& buffer = pcm->mBuffers[isInterleaved ? 0 : channel];
        const auto* const samples = static_cast<const std::int16_t*>(buffer.mData);
        const std::size_t step = isInterleaved ? channels : 1;
        const std::size_t frames = buffer.mDataByteSize / (2 * step);
        for (std::size_t i = 0; i < frames; ++i) {
            track.planes[channel].push_back(samples[i * step + (isInterleaved ? channel : 0)]);
        }
    }
}

void MixCollector::onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                                      const std::string& message) {
    const std::scoped_lock guard(eventMutex_);
    events_.emplace_back(category, code, message);
}

std::vector<MixCollector::Event> MixCollector::events() const {
    const std::scoped_lock guard(eventMutex_);
    return events_;
}

bool MixCollector::hasEvent(std::uint64_t category, std::uint64_t code) const {
    const auto all = events();
    return std::any_of(all.begin(), all.end(), [&](const Event& event) {
        return std::get<0>(event) == category && std::get<1>(event) == code;
    });
}
