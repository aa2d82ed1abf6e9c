#include <cstddef>
#include <cstring>

#include "RZStreamMixManager.h"
#include "TQAudioRecordLock.h"

// Which loudspeakers the channels of a unit are meant for: what the mixer needs to fold more than
// two of them. Units of the program say nothing of it.

void RZStreamMixManager::setChannelLabels(const UnitObject& obj,
                                          std::vector<AudioChannelLabel> labels) {
    const TQAudioRecordLock guard(operatorLock_);
    obj->setChannelLabels(std::move(labels));
}

void RZStreamMixManager::giveBusLayout(const RZReplayAudioUnitObject& obj, AudioUnit mixer) {
    const TQAudioRecordLock guard(operatorLock_);
    const auto bus = static_cast<UInt32>(obj.trackId());
    const std::vector<AudioChannelLabel>& labels = obj.channelLabels();
    const bool isSaid = labels.size() > 2 && labels.size() == obj.streamDesc().mChannelsPerFrame;
    if (bus >= hasLayout_.size() || (!isSaid && !hasLayout_[bus])) {
        return;
    }
    std::vector<std::byte> layout;
    if (isSaid) {
        constexpr std::size_t kHead = offsetof(AudioChannelLayout, mChannelDescriptions);
        layout.resize(kHead + labels.size() * sizeof(AudioChannelDescription));
        AudioChannelLayout head{};
        head.mChannelLayoutTag = kAudioChannelLayoutTag_UseChannelDescriptions;
        head.mNumberChannelDescriptions = static_cast<UInt32>(labels.size());
        std::memcpy(layout.data(), &head, kHead);
        for (std::size_t i = 0; i < labels.size(); ++i) {
            AudioChannelDescription description{};
            description.mChannelLabel = labels[i];
            std::memcpy(layout.data() + kHead + i * sizeof description, &description,
                        sizeof description);
        }
    }
    // Refused, it leaves the mix with the first two channels.
    (void)AudioUnitSetProperty(mixer, kAudioUnitProperty_AudioChannelLayout, kAudioUnitScope_Input,
                               bus, isSaid ? layout.data() : nullptr,
                               static_cast<UInt32>(layout.size()));
    hasLayout_[bus] = isSaid;
}
