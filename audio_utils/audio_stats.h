#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>

namespace korva_audio_utils {

struct HookAudioTrackInfo {
    std::uint64_t audio_track_id = 0;
    std::uint32_t audio_format = 0;  ///< the format flags of the track, not its format id
    std::uint32_t buffersize = 0;    ///< bytes per packet
    std::int32_t track_type = 0;     ///< 8 unit, 16 graph unit with, 32 without own callback
    std::int32_t sample_rate = 0;    ///< hertz
    std::int32_t channel = 0;
};

struct HookAudioTrackStat {
    std::uint64_t audio_track_id = 0;
    std::uint16_t pre_buffer_size = 0;   ///< bytes, low 16 bits
    std::uint16_t post_buffer_size = 0;  ///< bytes, low 16 bits
};

/// The process-wide register of captured tracks: one descriptive record and one pair of buffer
/// fill levels per track.
///
/// [any thread] Every operation takes one mutex for its whole duration. On a render thread
/// updateHookAudioTrackStats allocates only for a track that it sees for the first time, and not
/// for one that was just removed.
class KorvaAudioStats {
  public:
    using HookAudioTrackInfo = korva_audio_utils::HookAudioTrackInfo;
    using HookAudioTrackStat = korva_audio_utils::HookAudioTrackStat;

    /// The one instance; made on first use, never destroyed.
    static KorvaAudioStats* getInstance();

    KorvaAudioStats(const KorvaAudioStats&) = delete;
    KorvaAudioStats& operator=(const KorvaAudioStats&) = delete;

    /// Returns the new number of tracks, or -1 with nothing changed when id is known. The track's
    /// fill levels become 0.
    std::int32_t addHookAudioTrackInfo(unsigned long id, HookAudioTrackInfo info);
    /// Erases record and fill levels of a known id; false, and fill levels kept, for another.
    bool removeHookAudioTrack(unsigned long id);
    /// Stores the two sizes; for an id without fill levels the whole of stat, known track or not.
    /// Always 0.
    std::int32_t updateHookAudioTrackStats(unsigned long id, HookAudioTrackStat stat);
    std::uint64_t getAudioTrackSize();
    /// Copies every record to out in ascending id and returns their number, or returns -1 with
    /// nothing written when count is not that number or out is missing.
    std::int32_t getHookAudioTrackInfos(HookAudioTrackInfo* out, int count);
    /// All zero for an id without fill levels.
    HookAudioTrackStat getHookAudioTrackStat(unsigned long id);

  private:
    KorvaAudioStats() = default;
    ~KorvaAudioStats() = default;

    std::map<std::uint64_t, HookAudioTrackInfo> trackInfos_;
    std::map<std::uint64_t, HookAudioTrackStat> trackStats_;
    std::map<std::uint64_t, HookAudioTrackStat>::node_type spareStat_;

    static std::atomic<KorvaAudioStats*> instance;
    static std::mutex mutex_;
};

}  // namespace korva_audio_utils
