#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "TQAudioRecordExport.h"
#include "tq_events.h"

namespace korva_audio_utils {
struct HookAudioTrackInfo;
struct HookAudioTrackStat;
}  // namespace korva_audio_utils

/// What kind of source a track is (RZHookAudioTrackInfo::track_type).
enum RZHookTrackType : std::int64_t {
    RZHookTrackTypeUnit = TQ_HOOK_TRACK_UNIT,  ///< an audio unit of its own
    RZHookTrackTypeGraphCallback =
        TQ_HOOK_TRACK_GRAPH_CALLBACK,  ///< a graph's unit whose input callback was taken over
    RZHookTrackTypeGraph = TQ_HOOK_TRACK_GRAPH,  ///< a graph's unit without one
};

/// A captured track as it was when its unit first started.
class TQ_RECORD_EXPORT RZHookAudioTrackInfo {
  public:
    [[nodiscard]] std::uint64_t audio_track_id() const { return audio_track_id_; }
    void setAudio_track_id(std::uint64_t id) { audio_track_id_ = id; }
    /// The format flags of the stream.
    [[nodiscard]] std::uint32_t audio_format() const { return audio_format_; }
    void setAudio_format(std::uint32_t flags) { audio_format_ = flags; }
    /// Bytes per packet of the stream.
    [[nodiscard]] std::uint32_t buffersize() const { return buffersize_; }
    void setBuffersize(std::uint32_t bytes) { buffersize_ = bytes; }
    [[nodiscard]] std::int64_t track_type() const { return track_type_; }
    void setTrack_type(std::int64_t type) { track_type_ = type; }
    /// Hz, truncated.
    [[nodiscard]] std::int32_t sample_rate() const { return sample_rate_; }
    void setSample_rate(std::int32_t rate) { sample_rate_ = rate; }
    [[nodiscard]] std::int32_t channel() const { return channel_; }
    void setChannel(std::int32_t channels) { channel_ = channels; }

  private:
    std::uint64_t audio_track_id_ = 0;
    std::uint32_t audio_format_ = 0;
    std::uint32_t buffersize_ = 0;
    std::int64_t track_type_ = 0;
    std::int32_t sample_rate_ = 0;
    std::int32_t channel_ = 0;
};

/// How full a track's rings were at its last mixer cycle, in bytes modulo 65536.
class TQ_RECORD_EXPORT RZHookAudioTrackStat {
  public:
    [[nodiscard]] std::uint64_t audio_track_id() const { return audio_track_id_; }
    void setAudio_track_id(std::uint64_t id) { audio_track_id_ = id; }
    [[nodiscard]] std::uint16_t pre_buffer_size() const { return pre_buffer_size_; }
    void setPre_buffer_size(std::uint16_t bytes) { pre_buffer_size_ = bytes; }
    [[nodiscard]] std::uint16_t post_buffer_size() const { return post_buffer_size_; }
    void setPost_buffer_size(std::uint16_t bytes) { post_buffer_size_ = bytes; }

  private:
    std::uint64_t audio_track_id_ = 0;
    std::uint16_t pre_buffer_size_ = 0;
    std::uint16_t post_buffer_size_ = 0;
};

/// [host thread] Reads the process-wide statistics of captured tracks. Each call can delay a render
/// cycle by one map operation.
class TQ_RECORD_EXPORT RZAudioRecordStat {
  public:
    using InfoMap = std::map<std::uint64_t, std::shared_ptr<RZHookAudioTrackInfo>>;
    using StatMap = std::map<std::uint64_t, std::shared_ptr<RZHookAudioTrackStat>>;

    /// Free for the host's use, null until it sets them.
    [[nodiscard]] const std::shared_ptr<InfoMap>& info() const { return info_; }
    void setInfo(std::shared_ptr<InfoMap> info) { info_ = std::move(info); }
    [[nodiscard]] const std::shared_ptr<StatMap>& stat() const { return stat_; }
    void setStat(std::shared_ptr<StatMap> stat) { stat_ = std::move(stat); }

    /// Tracks registered now.
    [[nodiscard]] std::uint64_t getAudioTrackSize() const;
    /// New records in ascending track order. A track that comes or goes during the call can make
    /// every record of this one answer read zero: ask again.
    [[nodiscard]] std::vector<std::shared_ptr<RZHookAudioTrackInfo>> getHookAudioTrackInfoList()
        const;
    /// A new record, all zero for an unknown track.
    [[nodiscard]] std::shared_ptr<RZHookAudioTrackStat> getHookAudioTrackStat(
        std::uint64_t id) const;

    /// [any thread] Real-time safe. Copy every field of the library's own record.
    static void ConvertAudioTrackInfo(const korva_audio_utils::HookAudioTrackInfo& from,
                                      RZHookAudioTrackInfo& to);
    static void ConvertAudioTrackStat(const korva_audio_utils::HookAudioTrackStat& from,
                                      RZHookAudioTrackStat& to);

  private:
    std::shared_ptr<InfoMap> info_;
    std::shared_ptr<StatMap> stat_;
};
