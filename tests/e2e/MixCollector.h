#pragma once

#include <TQAudioRecord/TQAudioRecord.h>

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

/// A listener that keeps everything: the mix, each track's post PCM, time stamps and events.
class MixCollector : public RZReplayAudioRecorderListener<MixCollector> {
  public:
    using Event = std::tuple<std::uint64_t, std::uint64_t, std::string>;
    struct Track {
        std::vector<std::vector<std::int16_t>> planes;
        std::vector<std::uint64_t> timeStamps;
        RZReplayASBDInfo info;
    };

    explicit MixCollector(std::uint64_t mask) : mask_(mask) {}

    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override;
    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                            const std::string& message) override;
    [[nodiscard]] std::uint64_t getPCMDataType() override { return mask_; }

    /// Left and right of the mix.
    [[nodiscard]] const std::array<std::vector<double>, 2>& mix() const { return mix_; }
    [[nodiscard]] const std::vector<std::uint64_t>& mixTimeStamps() const { return mixStamps_; }
    [[nodiscard]] const std::map<int, Track>& tracks() const { return tracks_; }
    [[nodiscard]] std::vector<Event> events() const;
    [[nodiscard]] bool hasEvent(std::uint64_t category, std::uint64_t code) const;

  private:
    const std::uint64_t mask_;
    std::array<std::vector<double>, 2> mix_;
    std::vector<std::uint64_t> mixStamps_;
    std::map<int, Track> tracks_;
    mutable std::mutex eventMutex_;
    std::vector<Event> events_;
};
