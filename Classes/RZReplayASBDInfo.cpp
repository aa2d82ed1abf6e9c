#include "RZReplayASBDInfo.h"

std::shared_ptr<RZReplayASBDInfo> RZReplayASBDInfo::formatInfoWithDesc(
    const AudioStreamBasicDescription& desc) {
    auto info = std::make_shared<RZReplayASBDInfo>();
    info->updateInfoWithDesc(desc);
    return info;
}

void RZReplayASBDInfo::updateInfoWithDesc(const AudioStreamBasicDescription& desc) {
    sampleRate_ = desc.mSampleRate;
    bytesPerPacket_ = desc.mBytesPerPacket;
    bytesPerFrame_ = static_cast<std::int32_t>(desc.mBytesPerFrame);
    channelsPerFrame_ = static_cast<std::int32_t>(desc.mChannelsPerFrame);
    bitsPerChannel_ = static_cast<std::int32_t>(desc.mBitsPerChannel);
    formatFlags_ = desc.mFormatFlags;
    volume_ = 1.0;
}
