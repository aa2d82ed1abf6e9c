#include "Listening.h"

#include <Foundation/NSException.h>
#include <RZReplayAudioRecorder.h>
#include <RZStreamCollectManager.h>
#include <RZStreamMixManager.h>
#include <TQAudioRecordLock.h>
#include <mach/mach_time.h>

#include <algorithm>
#include <array>

#include "Call.h"
#include "HandleTable.h"
#include "LogListeners.h"
#include "StreamReports.h"
#include "UnitText.h"

namespace tqcapi {
namespace {

tq_format formatOf(const RZReplayASBDInfo& info) {
    tq_format format{};
    format.sample_rate = info.sampleRate();
    format.channels = static_cast<std::uint32_t>(info.channelsPerFrame());
    format.bits_per_channel = static_cast<std::uint32_t>(info.bitsPerChannel());
    format.is_float = (info.formatFlags() & kAudioFormatFlagIsFloat) != 0 ? 1 : 0;
    format.is_interleaved = (info.formatFlags() & kAudioFormatFlagIsNonInterleaved) == 0 ? 1 : 0;
    return format;
}

std::uint32_t framesOf(const AudioBuffer& buffer, std::uint32_t bitsPerChannel) {
    const std::uint32_t frameBytes = buffer.mNumberChannels * bitsPerChannel / 8;
    return frameBytes == 0 ? 0 : buffer.mDataByteSize / frameBytes;
}

}  // namespace

/// Receives blocks of one source, and events where they are wanted. The source is known by which of
/// two listeners gets a block: the record that comes with it does not say.
class BlockListener : public RZReplayAudioRecorderListener<BlockListener> {
  public:
    using Receive = void (*)(void*, const tq_block*);

    BlockListener(const tq_listener& wanted, tq_block_source source)
        : context_(wanted.context),
          source_(source),
          onBlock_(source == TQ_BLOCK_MIX ? wanted.on_mix : wanted.on_track),
          onEvent_(source == TQ_BLOCK_MIX ? wanted.on_event : nullptr) {}

    /// [host thread, with the collect manager's lock held] No calls from now on.
    void end() noexcept { isOver_ = true; }

    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override {
        if (isOver_) {
            return;
        }
        const std::size_t count = std::min<std::size_t>(pcm->mNumberBuffers, kMostBuffers);
        std::array<tq_buffer, kMostBuffers> buffers;
        for (std::size_t i = 0; i < count; ++i) {
            const AudioBuffer& buffer = pcm->mBuffers[i];
            buffers[i] = {buffer.mData, buffer.mData == nullptr ? 0 : buffer.mDataByteSize,
                          buffer.mNumberChannels};
        }
        RZUnitFacts::TrackUnit unit;
        tq_block block{};
        if (source_ == TQ_BLOCK_TRACK) {
            unit = RZUnitFacts::TrackUnit::ofWord(info.unit());
            block.track = static_cast<std::uint32_t>(info.trackId());
            block.unit_kind = unitKind(unit.isGraphs);
            block.unit = unit.ordinal;
        }
        const UnitText name(unit.ordinal, unit.isGraphs);
        block.size = sizeof block;
        block.source = source_;
        block.name = source_ == TQ_BLOCK_MIX ? "mix" : name.get();
        block.format = formatOf(info);
        block.frames = count == 0 ? 0 : framesOf(pcm->mBuffers[0], block.format.bits_per_channel);
        block.buffer_count = static_cast<std::uint32_t>(count);
        block.buffers = buffers.data();
        block.host_microseconds = info.timeStamp();
        block.is_big_endian = (info.formatFlags() & kAudioFormatFlagIsBigEndian) != 0 ? 1 : 0;
        constexpr std::uint32_t kSigned = kAudioFormatFlagIsFloat | kAudioFormatFlagIsSignedInteger;
        block.is_unsigned = (info.formatFlags() & kSigned) == 0 ? 1 : 0;
        block.fraction_bits = (info.formatFlags() & kLinearPCMFormatFlagsSampleFractionMask) >>
                              kLinearPCMFormatFlagsSampleFractionShift;
        const CallbackScope scope;
        onBlock_(context_, &block);
    }

    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                            const std::string& message) override {
        if (onEvent_ == nullptr || isOver_) {
            return;
        }
        tq_event event{};
        event.size = sizeof event;
        event.category = category;
        event.code = code;
        event.message = message.c_str();
        event.host_microseconds =
            RZStreamMixManager::sharedManager()->microsecondsOfHostTime(mach_absolute_time());
        const CallbackScope scope;
        onEvent_(context_, &event);
    }

    [[nodiscard]] std::uint64_t getPCMDataType() override {
        if (onBlock_ == nullptr || isOver_) {
            return 0;
        }
        return source_ == TQ_BLOCK_MIX ? RZPCMDataTypePre : RZPCMDataTypePost;
    }

  private:
    /// More channels in buffers of their own than any unit has.
    static constexpr std::size_t kMostBuffers = 32;

    void* const context_;
    const tq_block_source source_;
    const Receive onBlock_;
    void (*const onEvent_)(void*, const tq_event*);
    /// Guarded by the collect manager's lock, which is held for every call of a listener.
    bool isOver_ = false;
};

Listening::Listening(const tq_listener& wanted) : wanted_(wanted) {
    if (wanted_.on_mix != nullptr || wanted_.on_event != nullptr) {
        mix_ = std::make_shared<BlockListener>(wanted_, TQ_BLOCK_MIX);
    }
    if (wanted_.on_track != nullptr) {
        tracks_ = std::make_shared<BlockListener>(wanted_, TQ_BLOCK_TRACK);
    }
}

Listening::~Listening() = default;

void Listening::start() {
    if (wanted_.on_log != nullptr) {
        LogListeners::shared().add(wanted_);
    }
    if (wanted_.on_stream != nullptr) {
        StreamReports::shared().add(wanted_);
    }
    if (wanted_.on_unit != nullptr) {
        observer_ = RZUnitFacts::shared().observe([this](const RZUnitFact& fact) {
            const UnitText name(fact.ordinal, fact.isGraphs());
            const tq_unit unit = unitOf(fact, name);
            const CallbackScope scope;
            wanted_.on_unit(wanted_.context, &unit);
        });
    }
    for (const auto& listener : {mix_, tracks_}) {
        if (listener) {
            RZStreamCollectManager::sharedManager().startAudioStreamCollect(listener);
        }
    }
}

void Listening::stop() noexcept {
    auto& manager = RZStreamCollectManager::sharedManager();
    for (const auto* const listener : {&tracks_, &mix_}) {
        if (*listener && !NSCallGuarded([&] { manager.stopAudioStreamCollect(*listener); })) {
            // Out of memory: it may still be in the manager's list, but is called no more.
            const TQAudioRecordLock guard(manager.lock());
            (*listener)->end();
        }
    }
    if (wanted_.on_stream != nullptr) {
        StreamReports::shared().remove(wanted_);
    }
    if (observer_ != 0) {
        RZUnitFacts::shared().stopObserving(observer_);
    }
    if (wanted_.on_log != nullptr) {
        LogListeners::shared().remove(wanted_);
    }
}

}  // namespace tqcapi

using tqcapi::call;
using tqcapi::Listening;

using Listenings = tqcapi::HandleTable<tq_listening, Listening>;

tq_result tq_capture_listen(const tq_listener* listener, tq_listening** listening) {
    return call([&] {
        if (listening == nullptr) {
            return TQ_ERROR_NULL;
        }
        if (const tq_result result = tqcapi::checked(listener); result != TQ_OK) {
            return result;
        }
        if (listener->on_mix == nullptr && listener->on_track == nullptr &&
            listener->on_event == nullptr && listener->on_log == nullptr &&
            listener->on_unit == nullptr && listener->on_stream == nullptr) {
            return TQ_ERROR_VALUE;
        }
        const auto object = std::make_shared<Listening>(*listener);
        tq_listening* const handle = Listenings::shared().add(object);
        try {
            object->start();
        } catch (...) {
            object->stop();
            (void)Listenings::shared().take(handle);
            throw;
        }
        *listening = handle;
        return TQ_OK;
    });
}

tq_result tq_capture_stop(tq_listening* listening) {
    return call([&] {
        const auto object = Listenings::shared().take(listening);
        if (!object) {
            return TQ_ERROR_HANDLE;
        }
        object->stop();
        return TQ_OK;
    });
}

tq_result tq_capture_settle(void) {
    return call([] {
        dispatch_sync(RZStreamCollectManager::sharedManager().audioRecorder()->queue(), [] {});
        return TQ_OK;
    });
}

tq_result tq_capture_restart(void) {
    return call([] {
        auto& manager = RZStreamCollectManager::sharedManager();
        // Held, so that no listener comes or goes between the two.
        const TQAudioRecordLock guard(manager.lock());
        manager.audioRecorder()->stopRecord();
        if (!manager.arrAudioListener().empty()) {
            manager.audioRecorder()->startRecord();
        }
        return TQ_OK;
    });
}
