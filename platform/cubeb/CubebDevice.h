#pragma once

#include <cubeb/cubeb.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "JackWatch.h"
#include "PlayClock.h"
#include "PulseWatch.h"
#include "StreamLengths.h"
#include "common/DriftFifo.h"
#include "device/HeardDevice.h"

namespace tqcubeb {

/// Speakers and microphone behind PulseAudio, JACK or ALSA, whatever answers. The speakers' clock
/// is the device's; the microphone has a stream of its own, which is open only while somebody
/// listens, and follows. Where nobody plays, the microphone's clock is the device's, and nothing is
/// opened to play on. Verbs come one at a time; the library calls from threads of its own.
class CubebDevice final : public tqplatform::HeardDevice {
  public:
    /// `kind` is the library's name for one of them; empty for the first that answers.
    explicit CubebDevice(std::string kind) : kind_(std::move(kind)) {}
    ~CubebDevice() override;

    std::optional<tqplatform::DeviceFormat> open(tqplatform::HeardHost& host,
                                                 const tqplatform::HeardWish& wish) override;
    bool start() override;
    bool accepts() override { return !isToPlay_ || makeStream(); }
    [[nodiscard]] bool hear(bool isHearing) override;
    [[nodiscard]] bool isHearing() const override;
    [[nodiscard]] bool isStill() const override;
    void choose(const std::string& microphone) override;
    [[nodiscard]] bool hasLengthOf(Float64 seconds) const override;
    bool finish() noexcept override;
    [[nodiscard]] tqplatform::HeardPlace place() override;
    /// [host thread] Reaches the server and tells of all that it has; false when none answers.
    bool list(TQDeviceListing each, void* refCon);

  private:
    struct EndContext {
        void operator()(cubeb* context) const noexcept { cubeb_destroy(context); }
    };
    struct EndStream {
        void operator()(cubeb_stream* stream) const noexcept {
            cubeb_stream_stop(stream);
            cubeb_stream_destroy(stream);
        }
    };
    /// What becomes of the stream: written by the library's threads and by finish(). One that is
    /// draining asks for nothing more and cannot go on.
    enum class Stage { playing, finishing, draining, drained };

    /// The first of its kinds that answers; of all kinds the one that was reached before.
    bool reach();
    bool reach(const char* kind);
    /// What plays, not yet started.
    [[nodiscard]] bool makeStream();
    [[nodiscard]] StreamLengths lengthsFor(Float64 seconds) const noexcept;
    /// The microphone that is wanted.
    struct Microphone {
        UInt32 channels = 0;  ///< 0 where there is none
        cubeb_devid id = nullptr;
    };
    [[nodiscard]] Microphone microphone();
    /// Whether the server lets it hear something else than what is wanted.
    [[nodiscard]] bool mishears() const noexcept;
    [[nodiscard]] bool listen(cubeb_data_callback each, cubeb_state_callback state, UInt32 frames);

    // [render thread] The library's.
    static long onBlock(cubeb_stream* stream, void* self, const void* heard, void* played,
                        long frames);
    static long onHeard(cubeb_stream* stream, void* self, const void* heard, void* played,
                        long frames);
    static long onHeardAlone(cubeb_stream* stream, void* self, const void* heard, void* played,
                             long frames);
    long play(float* played, UInt32 frames) noexcept;
    void hearAlone(const float* heard, UInt32 frames) noexcept;
    void bring(const float* heard, UInt32 frames) noexcept;
    /// When the microphone heard the first frame of what was just read; 0 when that is not known.
    [[nodiscard]] UInt64 heardTimeOf(UInt32 frames) const noexcept;
    [[nodiscard]] UInt64 durationOf(UInt32 frames) const noexcept;
    void hurry() noexcept;
    // [any thread] The library's.
    static void onState(cubeb_stream* stream, void* self, cubeb_state state);
    static void onHeardState(cubeb_stream* stream, void* self, cubeb_state state);
    static void onHeardAloneState(cubeb_stream* stream, void* self, cubeb_state state);
    /// The server has gone, or has ended what plays.
    void lose() noexcept;

    const std::string kind_;
    tqplatform::HeardHost* host_ = nullptr;
    std::unique_ptr<cubeb, EndContext> context_;
    std::unique_ptr<cubeb_stream, EndStream> stream_;
    const char* reached_ = nullptr;  ///< its kind
    UInt32 sampleRate_ = 0;
    UInt32 least_ = 0;  ///< frames, that the server calls its latency; of JACK its period
    StreamLengths lengths_;
    bool isJack_ = false;
    bool isToPlay_ = true;
    std::string microphoneName_;  ///< empty for the default, if that is a microphone
    UInt32 inputChannels_ = 0;    ///< 0 where there is no microphone
    /// Made once, before requests come, and kept: requests read it whether somebody listens or not.
    std::unique_ptr<tqcommon::DriftFifo> heard_;
    std::vector<float> heardBlock_;       ///< of one request
    std::atomic<bool> isHearing_{false};  ///< the microphone's stream runs
    /// In host time: when it counts as standing still unless it has brought something by then.
    std::atomic<UInt64> heardUntil_{0};
    bool stoodStill_ = false;  ///< when it was closed the last time
    std::unique_ptr<cubeb_stream, EndStream> microphone_;
    std::unique_ptr<PulseWatch> watch_;     ///< where there is such a server
    std::unique_ptr<JackWatch> jackWatch_;  ///< the same
    std::atomic<Stage> stage_{Stage::playing};
    PlayClock heardClock_{1};  ///< of the microphone beside speakers, on its thread only
    /// When it would have heard the first frame ever, in ns; 0 before it has brought one. Written
    /// on its thread with each block, read in requests; a block that comes in between moves it by
    /// no more than the clocks drift.
    std::atomic<Float64> heardSince_{0};
    PlayClock clock_{1};       ///< in requests only
    UInt32 silentFrames_ = 0;  ///< the same: behind the last block that was rendered
    bool isHurried_ = false;   ///< the same: their thread has its niceness
};

}  // namespace tqcubeb
