#include "RZReplayAudioRecorderDelegate.h"

// What a method answers when a listener lacks it; the senders ask respondsTo() first.

RZReplayAudioRecorderDelegate::~RZReplayAudioRecorderDelegate() = default;
void RZReplayAudioRecorderDelegate::onAudioReceivePCM(AudioBufferList* /*pcm*/,
                                                      const RZReplayASBDInfo& /*info*/) {
}
void RZReplayAudioRecorderDelegate::onAudioRecordEvent(std::uint64_t /*category*/,
                                                       std::uint64_t /*code*/,
                                                       const std::string& /*message*/) {
}
std::uint64_t RZReplayAudioRecorderDelegate::getPCMDataType() {
    return RZPCMDataTypePre;
}

RZReplayAudioRecorderInternalDelegate::~RZReplayAudioRecorderInternalDelegate() = default;
void RZReplayAudioRecorderInternalDelegate::onAudioReceivePrePCM(AudioBufferList* /*pcm*/,
                                                                 const RZReplayASBDInfo& /*info*/) {
}
void RZReplayAudioRecorderInternalDelegate::onAudioReceivePostPCM(
    AudioBufferList* /*pcm*/, const RZReplayASBDInfo& /*info*/) {
}
void RZReplayAudioRecorderInternalDelegate::onAudioRecordEvent(std::uint64_t /*category*/,
                                                               std::uint64_t /*code*/,
                                                               const std::string& /*message*/) {
}
std::int32_t RZReplayAudioRecorderInternalDelegate::getPCMDataType() {
    return RZPCMDataTypePre;
}
