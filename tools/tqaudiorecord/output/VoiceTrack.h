#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "core/Records.h"
#include "output/StreamClock.h"
#include "output/VoiceAligner.h"

namespace tqrecorder {

/// The microphone beside what programs play: a track of the first process that has a mix, frame for
/// frame on that mix's time, and when asked for in the mix itself. When that process ends it goes
/// on with the next one's, and with the first that sounds where it was silent. [one host thread at
/// a time]
class VoiceTrack {
  public:
    using Out = std::function<void(const Process&, const Block&)>;
    using Lost = std::function<void(const Process&, std::uint64_t bytes)>;
    /// `out` gets the programs' blocks and the microphone's; `lost` is told what of a mix came when
    /// silence stood for it already.
    VoiceTrack(Out out, Lost lost, bool isInMix)
        : out_(std::move(out)), lost_(std::move(lost)), isInMix_(isInMix) {}

    void heard(const HeardBlock& block);
    void block(const Process& process, const Block& block);
    void ended(const Process& process);
    /// As Sink has it.
    void turnEnded(bool isAll);
    /// Nothing more comes: what waits goes out.
    void finish();
    /// Seconds that were heard and lie beside no mix, as nothing played: they went nowhere.
    [[nodiscard]] double leftOutSeconds() const;
    /// The same since a mix was there last; 0 while there is one.
    [[nodiscard]] double waitsForSeconds() const;

  private:
    /// A block as it was heard, until it is known what it stands beside.
    struct Waiting {
        std::uint64_t microseconds;
        std::vector<float> samples;
        bool isOpen;  ///< else there is no microphone, and nothing to miss
    };
    struct MixBlock {
        std::int64_t position;
        std::vector<std::int16_t> samples;
        std::uint64_t filledFrames;  ///< a hole of the mix, right before it
    };
    /// The process whose mix it lies beside.
    struct Beside {
        Process process;
        StreamClock clock;  ///< as the mix's file has it
        bool hasSounded = false;

        /// Host time of a frame of the mix, which others follow as they do that of tracks.
        [[nodiscard]] std::uint64_t timeAt(std::int64_t position) const;
    };

    void lay(std::uint64_t microseconds, std::span<const float> samples);
    void keepVoice(std::int64_t position, const std::vector<float>& samples);
    void takeMix(const Block& block);
    /// Mix blocks that the microphone has caught up with.
    void pump();
    void sendFirst();
    [[nodiscard]] std::int64_t endOfFirst() const;
    void sendMix(std::int64_t until, const MixBlock* block);
    [[nodiscard]] std::int64_t voiceEnd() const;
    void leaveOut();
    void settleWaiting();
    void leave();

    const Out out_;
    const Lost lost_;
    const bool isInMix_;
    std::uint32_t channels_ = 1;
    std::deque<Waiting> waiting_;
    std::uint64_t leftOutFrames_ = 0;
    std::uint64_t leftOutBefore_ = 0;  ///< of them, when there was a mix last
    std::optional<Beside> beside_;
    std::optional<VoiceAligner> aligner_;

    // Of the microphone in the mix. Positions are frames of the mix.
    std::deque<MixBlock> mix_;
    std::int64_t mixBefore_ = 0;    ///< how far the mix was read when the last turn ended
    std::int64_t sent_ = 0;         ///< of the mix, to the outputs
    std::int64_t voiceBegins_ = 0;  ///< of voice_
    std::deque<float> voice_;
};

}  // namespace tqrecorder
