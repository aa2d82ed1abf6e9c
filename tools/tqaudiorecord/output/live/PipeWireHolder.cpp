// tqaudiorecord-live-pipewire: holds the recorder's live sources in PipeWire. They are streams of
// this program, which go with it; it goes with the recorder or the server.

#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>
#include <spa/utils/result.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "common/DriftFifo.h"
#include "output/live/LiveHolder.h"

namespace tqrecorder {
namespace {

using Clock = std::chrono::steady_clock;

/// What is kept in hand beyond a block of the recorded program: the recorder looks every 5 ms, and
/// wakes late by as much.
constexpr double kInHandSeconds = 0.010;
/// Where a cycle leaves less than that the recorder was nearly too late.
constexpr double kLeastSeconds = 0.004;
/// Asked of the server: the shorter its cycle, the sooner sound is through.
constexpr unsigned kCycleFrames = 256;
constexpr unsigned kCycleRate = 48000;
/// A source that was not read for so long begins anew.
constexpr std::chrono::milliseconds kUnread{500};

/// One live source.
class Source {
  public:
    /// Called on the main thread, once.
    using Failed = std::function<void(const std::string& why)>;
    /// The texts end with a zero each.
    Source(pw_core* core, const LiveHeader& header, const char* name, const char* description,
           Failed failed);
    ~Source() {
        if (stream_ != nullptr) {
            pw_stream_destroy(stream_);
        }
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    void write(std::span<const std::byte> sound) {
        // Without a reader it would fill up with what is old when one comes.
        if (isRead_.load(std::memory_order_relaxed)) {
            fifo_.write(reinterpret_cast<const float*>(sound.data()),
                        static_cast<std::uint32_t>(sound.size() / sizeof(float) / channels_));
        }
    }

    /// Whether the server has not taken it in yet.
    [[nodiscard]] bool isConnecting() const {
        return stream_ != nullptr &&
               pw_stream_get_state(stream_, nullptr) == PW_STREAM_STATE_CONNECTING;
    }

  private:
    static void stateChanged(void* data, pw_stream_state /*old*/, pw_stream_state state,
                             const char* error) {
        auto& source = *static_cast<Source*>(data);
        source.isRead_.store(state == PW_STREAM_STATE_STREAMING, std::memory_order_relaxed);
        if (state == PW_STREAM_STATE_ERROR) {
            source.fail(error == nullptr ? "the server gives no reason" : error);
        }
    }
    void fail(const std::string& why) {
        if (Failed failed = std::exchange(failed_, {})) {
            failed(why);
        }
    }
    static void process(void* data) { static_cast<Source*>(data)->give(); }
    void give();
    void connect();

    Failed failed_;
    const std::uint32_t channels_;
    const std::uint32_t sampleRate_;
    tqcommon::DriftFifo fifo_;
    /// Written by the main thread from the stream's state and read by it: the reader of the FIFO
    /// needs no order with it.
    std::atomic<bool> isRead_{false};
    Clock::time_point lastGiven_;  ///< the data thread's
    pw_stream* stream_ = nullptr;
    spa_hook listener_{};
};

Source::Source(pw_core* core, const LiveHeader& header, const char* name, const char* description,
               Failed failed)
    : failed_(std::move(failed)),
      channels_(header.channels),
      sampleRate_(header.sampleRate),
      fifo_(header.channels, header.sampleRate,
            header.blockFrames + static_cast<std::uint32_t>(kInHandSeconds * header.sampleRate),
            static_cast<std::uint32_t>(kLeastSeconds * header.sampleRate),
            tqcommon::DriftFifo::Patience::kForAWhile) {
    pw_properties* properties = pw_properties_new(
        PW_KEY_MEDIA_CLASS, "Audio/Source", PW_KEY_NODE_NAME, name, PW_KEY_NODE_DESCRIPTION,
        description, PW_KEY_MEDIA_NAME, description, PW_KEY_NODE_VIRTUAL, "true", nullptr);
    pw_properties_setf(properties, PW_KEY_NODE_LATENCY, "%u/%u", kCycleFrames, kCycleRate);
    stream_ = pw_stream_new(core, name, properties);
    if (stream_ == nullptr) {
        fail(std::strerror(errno));
        return;
    }
    static const pw_stream_events kEvents = [] {
        pw_stream_events events{};
        events.version = PW_VERSION_STREAM_EVENTS;
        events.state_changed = stateChanged;
        events.process = process;
        return events;
    }();
    pw_stream_add_listener(stream_, &listener_, &kEvents, this);
    connect();
}

void Source::connect() {
    static constexpr std::array<std::array<std::uint32_t, kMostLiveChannels>, kMostLiveChannels + 1>
        kPositions{{{},
                    {SPA_AUDIO_CHANNEL_MONO},
                    {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR},
                    {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_LFE},
                    {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_RL,
                     SPA_AUDIO_CHANNEL_RR},
                    {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_FC,
                     SPA_AUDIO_CHANNEL_RL, SPA_AUDIO_CHANNEL_RR},
                    {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_FC,
                     SPA_AUDIO_CHANNEL_LFE, SPA_AUDIO_CHANNEL_RL, SPA_AUDIO_CHANNEL_RR},
                    {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_FC,
                     SPA_AUDIO_CHANNEL_LFE, SPA_AUDIO_CHANNEL_RC, SPA_AUDIO_CHANNEL_SL,
                     SPA_AUDIO_CHANNEL_SR},
                    {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_FC,
                     SPA_AUDIO_CHANNEL_LFE, SPA_AUDIO_CHANNEL_RL, SPA_AUDIO_CHANNEL_RR,
                     SPA_AUDIO_CHANNEL_SL, SPA_AUDIO_CHANNEL_SR}}};
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32;
    format.rate = sampleRate_;
    format.channels = channels_;
    std::copy_n(kPositions[channels_].begin(), channels_, format.position);
    std::array<std::uint8_t, 1024> buffer{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, buffer.data(), buffer.size());
    const spa_pod* parameter = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format);
    const int result = pw_stream_connect(
        stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS),
        &parameter, 1);
    if (result < 0) {
        fail(spa_strerror(result));
    }
}

/// [render thread] of the server's cycle.
void Source::give() {
    pw_buffer* const buffer = pw_stream_dequeue_buffer(stream_);
    if (buffer == nullptr) {
        return;
    }
    const Clock::time_point now = Clock::now();
    if (now - lastGiven_ > kUnread) {
        fifo_.forget();
    }
    lastGiven_ = now;
    spa_data& data = buffer->buffer->datas[0];
    const std::uint32_t frameBytes = channels_ * static_cast<std::uint32_t>(sizeof(float));
    std::uint32_t frames = data.maxsize / frameBytes;
    if (buffer->requested > 0) {
        frames = std::min(frames, static_cast<std::uint32_t>(buffer->requested));
    }
    if (data.data != nullptr) {
        fifo_.read(static_cast<float*>(data.data), frames);
        data.chunk->offset = 0;
        data.chunk->stride = static_cast<std::int32_t>(frameBytes);
        data.chunk->size = frames * frameBytes;
    }
    pw_stream_queue_buffer(stream_, buffer);
}

/// All sources of one recorder.
class Holder : public LiveHolder {
  public:
    Holder();
    ~Holder() override;

    /// Until the recorder or the server goes.
    int run();

  private:
    static void readable(void* data, int /*socket*/, std::uint32_t /*mask*/) {
        auto& holder = *static_cast<Holder*>(data);
        if (!holder.takePackets()) {
            pw_main_loop_quit(holder.loop_);
        }
    }
    static void info(void* data, const pw_core_info* info) {
        static_cast<Holder*>(data)->version_ = info->version;
    }
    static void done(void* data, std::uint32_t /*id*/, int sequence) {
        auto& holder = *static_cast<Holder*>(data);
        if (!std::exchange(holder.isReady_, true)) {
            say(LiveKind::kReady, "PipeWire " + holder.version_);
        }
        holder.tellRefused(sequence);
    }
    static void failed(void* data, std::uint32_t id, int sequence, int result,
                       const char* message) {
        auto& holder = *static_cast<Holder*>(data);
        if (id == PW_ID_CORE && result == -EPIPE) {
            pw_main_loop_quit(holder.loop_);
            return;
        }
        if (holder.error_.empty()) {
            holder.error_ = message;
        }
        // To ask for an answer may be forbidden, too: that is the answer then.
        holder.tellRefused(SPA_RESULT_RETURN_ASYNC(sequence));
    }
    void open(const LiveHeader& header, const std::string& name,
              const std::string& description) override;
    void awaitAnswer(std::uint32_t id) { opened_[pw_core_sync(core_, PW_ID_CORE, 0)] = id; }
    void refuse(std::uint32_t id, const std::string& why);
    void tellRefused(int sequence);
    void close(std::uint32_t id) override {
        sources_.erase(id);
        refused_.erase(id);
    }
    void sound(std::uint32_t id, std::span<const std::byte> frames) override;

    pw_main_loop* loop_;
    pw_context* context_;
    pw_core* core_ = nullptr;
    spa_hook listener_{};
    std::map<std::uint32_t, std::unique_ptr<Source>> sources_;
    std::map<std::uint32_t, std::string> refused_;  ///< why, until the server has answered again
    std::map<int, std::uint32_t> opened_;  ///< sources by the sequence of the answer behind them
    std::string error_;                    ///< the first since the last answer
    std::string version_;
    bool isReady_ = false;
};

Holder::Holder()
    : loop_(pw_main_loop_new(nullptr)),
      // The configuration of clients whose data thread has the machine's attention.
      context_(pw_context_new(pw_main_loop_get_loop(loop_),
                              pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr),
                              0)) {
}

Holder::~Holder() {
    sources_.clear();
    if (core_ != nullptr) {
        pw_core_disconnect(core_);
    }
    if (context_ != nullptr) {
        pw_context_destroy(context_);
    }
    pw_main_loop_destroy(loop_);
}

int Holder::run() {
    core_ = context_ == nullptr
                ? nullptr
                : pw_context_connect(
                      context_, pw_properties_new(PW_KEY_APP_NAME, "tqaudiorecord", nullptr), 0);
    if (core_ == nullptr) {
        say(LiveKind::kFailed, std::string("PipeWire: ") + std::strerror(errno));
        return 1;
    }
    static const pw_core_events kEvents = [] {
        pw_core_events events{};
        events.version = PW_VERSION_CORE_EVENTS;
        events.info = info;
        events.done = done;
        events.error = failed;
        return events;
    }();
    pw_core_add_listener(core_, &listener_, &kEvents, this);
    pw_core_sync(core_, PW_ID_CORE, 0);
    pw_loop* const loop = pw_main_loop_get_loop(loop_);
    pw_loop_add_io(loop, kLiveSocket, SPA_IO_IN | SPA_IO_HUP | SPA_IO_ERR, false, readable, this);
    pw_main_loop_run(loop_);
    return 0;
}

void Holder::open(const LiveHeader& header, const std::string& name,
                  const std::string& description) {
    if (opened_.empty()) {
        // Of what was closed before.
        error_.clear();
    }
    sources_[header.source] = std::make_unique<Source>(
        core_, header, name.c_str(), description.c_str(),
        [this, id = header.source](const std::string& why) { refuse(id, why); });
    awaitAnswer(header.source);
}

/// Streams fail with their server as well, which is no refusal: one that is there answers.
void Holder::refuse(std::uint32_t id, const std::string& why) {
    refused_[id] = why;
    awaitAnswer(id);
}

/// The server tells its own object of what it forbids, and not the stream, which goes on waiting:
/// what it says between a stream's request and the answer behind that is about the stream.
void Holder::tellRefused(int sequence) {
    const auto opened = opened_.find(sequence);
    if (opened == opened_.end()) {
        return;
    }
    const auto source = sources_.find(opened->second);
    if (!error_.empty() && source != sources_.end() && source->second->isConnecting()) {
        refused_.emplace(opened->second, error_);
    }
    opened_.erase(opened);
    error_.clear();
    for (const auto& [id, why] : std::exchange(refused_, {})) {
        sources_.erase(id);
        say(LiveKind::kRefused, why, id);
    }
}

void Holder::sound(std::uint32_t id, std::span<const std::byte> frames) {
    if (const auto found = sources_.find(id); found != sources_.end()) {
        found->second->write(frames);
    }
}

}  // namespace
}  // namespace tqrecorder

int main(int argc, char** argv) {
    tqrecorder::LiveHolder::outliveSignals();
    pw_init(&argc, &argv);
    return tqrecorder::Holder().run();
}
