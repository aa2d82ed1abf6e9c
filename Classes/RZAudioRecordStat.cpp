#include "RZAudioRecordStat.h"

#include <audio_stats.h>

using korva_audio_utils::KorvaAudioStats;

void RZAudioRecordStat::ConvertAudioTrackInfo(const korva_audio_utils::HookAudioTrackInfo& from,
                                              RZHookAudioTrackInfo& to) {
    to.setAudio_track_id(from.audio_track_id);
    to.setAudio_format(from.audio_format);
    to.setBuffersize(from.buffersize);
    to.setTrack_type(from.track_type);
    to.setSample_rate(from.sample_rate);
    to.setChannel(from.channel);
}

void RZAudioRecordStat::ConvertAudioTrackStat(const korva_audio_utils::HookAudioTrackStat& from,
                                              RZHookAudioTrackStat& to) {
    to.setAudio_track_id(from.audio_track_id);
    to.setPre_buffer_size(from.pre_buffer_size);
    to.setPost_buffer_size(from.post_buffer_size);
}

std::uint64_t RZAudioRecordStat::getAudioTrackSize() const {
    return KorvaAudioStats::getInstance()->getAudioTrackSize();
}

std::vector<std::shared_ptr<RZHookAudioTrackInfo>> RZAudioRecordStat::getHookAudioTrackInfoList()
    const {
    const auto count = static_cast<std::int32_t>(getAudioTrackSize());
    // Zeroed: when the number of tracks changes right here, the copy below refuses and the
    // records read zero.
    std::vector<KorvaAudioStats::HookAudioTrackInfo> buffer(static_cast<std::size_t>(count));
    KorvaAudioStats::getInstance()->getHookAudioTrackInfos(buffer.data(), count);
    std::vector<std::shared_ptr<RZHookAudioTrackInfo>> list;
    list.reserve(buffer.size());
    for (const auto& record : buffer) {
        auto object = std::make_shared<RZHookAudioTrackInfo>();
        ConvertAudioTrackInfo(record, *object);
        list.push_back(std::move(object));
    }
    return list;
}

std::shared_ptr<RZHookAudioTrackStat> RZAudioRecordStat::getHookAudioTrackStat(
    std::uint64_t id) const {
    auto object = std::make_shared<RZHookAudioTrackStat>();
    ConvertAudioTrackStat(KorvaAudioStats::getInstance()->getHookAudioTrackStat(id), *object);
    return object;
}
