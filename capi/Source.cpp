#include <RZStreamMixManager.h>
#include <RZUnitFacts.h>
#include <RZUnitFormatChange.h>
#include <audio_hook_config.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Call.h"
#include "StreamReports.h"
#include "tq_source.h"

// What bridges need of the library.

/// Not under a number like other handles: its calls run in every block of the program.
struct tq_source {
    tq_source(const tq_source_description& given, std::shared_ptr<RZReplayAudioUnitObject> of)
        : description(given), obj(std::move(of)), owner{&replaceBlock, this} {
        obj->setBlockOwner(&owner);
    }
    ~tq_source() { obj->setBlockOwner(nullptr); }
    tq_source(const tq_source&) = delete;
    tq_source& operator=(const tq_source&) = delete;

    static void replaceBlock(void* source, AudioBufferList* list, UInt32 frames) {
        const tq_source_description& description = static_cast<tq_source*>(source)->description;
        if (list != nullptr && list->mNumberBuffers != 0 && list->mBuffers[0].mData != nullptr) {
            description.replace_block(description.context, list->mBuffers[0].mData, frames);
        }
    }

    const tq_source_description description;
    const std::shared_ptr<RZReplayAudioUnitObject> obj;
    const RZReplayAudioUnitObject::BlockOwner owner;
};

using tqcapi::call;

namespace {

/// Integers of 16 and 32 bits and floats of 32 are what the gain knows.
bool hasGain(const tq_format& format) {
    constexpr std::uint32_t kMostChannels = 8;
    const bool isKnown =
        format.bits_per_channel == 32 || (format.bits_per_channel == 16 && format.is_float == 0);
    return isKnown && format.is_interleaved != 0 && format.channels >= 1 &&
           format.channels <= kMostChannels && format.sample_rate > 0;
}

AudioStreamBasicDescription descriptionOf(const tq_format& format) {
    AudioStreamBasicDescription desc{};
    desc.mSampleRate = format.sample_rate;
    desc.mFormatID = kAudioFormatLinearPCM;
    desc.mFormatFlags =
        static_cast<AudioFormatFlags>(kAudioFormatFlagIsPacked) |
        static_cast<AudioFormatFlags>(format.is_float != 0 ? kAudioFormatFlagIsFloat
                                                           : kAudioFormatFlagIsSignedInteger);
    desc.mFramesPerPacket = 1;
    desc.mChannelsPerFrame = format.channels;
    desc.mBitsPerChannel = format.bits_per_channel;
    desc.mBytesPerFrame = format.channels * format.bits_per_channel / 8;
    desc.mBytesPerPacket = desc.mBytesPerFrame;
    return desc;
}

bool hasUnit(const tq_source& source) {
    return source.obj->inUnit() != nullptr;
}

RZStreamMixManager& manager() {
    return *RZStreamMixManager::sharedManager();
}

/// The library reads a unit's format when it starts. Its owner processes sound before that.
void takeFormat(const std::shared_ptr<RZReplayAudioUnitObject>& obj) {
    if (!obj->isStarted()) {
        std::optional<RZUnitFormatChange> change;
        (void)manager().updateAudioUnitObjStreamFormat(obj, &change);
    }
}

/// One for the life of the process; where the crash guard keeps count.
korva_audio_utils::AudioHookConfigImpl& guard() {
    return static_cast<korva_audio_utils::AudioHookConfigImpl&>(
        *korva_audio_utils::AudioHookConfig::getInstance());
}

AudioChannelLabel labelOf(tq_speaker speaker) {
    switch (speaker) {
        case TQ_SPEAKER_FRONT_LEFT:
            return kAudioChannelLabel_Left;
        case TQ_SPEAKER_FRONT_RIGHT:
            return kAudioChannelLabel_Right;
        case TQ_SPEAKER_CENTER:
            return kAudioChannelLabel_Center;
        case TQ_SPEAKER_SUBWOOFER:
            return kAudioChannelLabel_LFEScreen;
        case TQ_SPEAKER_BACK_LEFT:
            return kAudioChannelLabel_RearSurroundLeft;
        case TQ_SPEAKER_BACK_RIGHT:
            return kAudioChannelLabel_RearSurroundRight;
        case TQ_SPEAKER_BACK_CENTER:
            return kAudioChannelLabel_CenterSurround;
        case TQ_SPEAKER_SIDE_LEFT:
            return kAudioChannelLabel_LeftSurround;
        case TQ_SPEAKER_SIDE_RIGHT:
            return kAudioChannelLabel_RightSurround;
        case TQ_SPEAKER_FRONT_LEFT_OF_CENTER:
            return kAudioChannelLabel_LeftCenter;
        case TQ_SPEAKER_FRONT_RIGHT_OF_CENTER:
            return kAudioChannelLabel_RightCenter;
        case TQ_SPEAKER_UNKNOWN:
            break;
    }
    return kAudioChannelLabel_Discrete;
}

/// Rings grow at a block that finds no room, and one that grows to exactly the block's size loses
/// it. A stream's first block may be any size and begins with sound: its rings are large before.
void enlargeRings(RZReplayAudioUnitObject& obj) {
    constexpr UInt32 kBytes = 1U << 16U;
    std::vector<std::byte> silence(kBytes);
    RZReplayAudioUnitBuffer& buffer = *obj.getOrCreateBufferAt(0);
    for (const BOOL isProcessed : {NO, YES}) {
        (void)buffer.writeAudioBuffer({1, kBytes, silence.data()}, kBytes, isProcessed);
        buffer.cleanRingBuffer(isProcessed);
        (void)buffer.takeVanished(isProcessed);
    }
}

void raise(const tq_stream& stream) {
    const bool isFormat = stream.fate == TQ_STREAM_NOT_PCM || stream.fate == TQ_STREAM_FORMAT;
    manager().onAudioRecordEvent(
        TQ_EVENT_STREAM, isFormat ? TQ_EVENT_FORMAT_UNSUPPORTED : TQ_EVENT_NOT_RECORDED,
        std::string(stream.name) + ": " + tq_stream_fate_text(stream.fate));
}

}  // namespace

tq_result tq_source_open(const tq_source_description* description, tq_source** source) {
    return call([&] {
        if (source == nullptr) {
            return TQ_ERROR_NULL;
        }
        if (const tq_result result = tqcapi::checked(description); result != TQ_OK) {
            return result;
        }
        if (description->unit == nullptr || description->name == nullptr ||
            description->replace_block == nullptr) {
            return TQ_ERROR_NULL;
        }
        const auto obj = manager().findAudioUnitObj(description->unit);
        if (!obj) {
            return TQ_ERROR_VALUE;
        }
        auto made = std::make_unique<tq_source>(*description, obj);
        RZUnitFacts::shared().named(description->unit, description->name);
        takeFormat(obj);
        manager().giveLevels(obj);
        enlargeRings(*obj);
        *source = made.release();
        return TQ_OK;
    });
}

tq_result tq_source_open_gain(const tq_format* format, tq_source** source) {
    return call([&] {
        if (source == nullptr || format == nullptr) {
            return TQ_ERROR_NULL;
        }
        if (!hasGain(*format)) {
            return TQ_ERROR_VALUE;
        }
        auto obj = std::make_shared<RZReplayAudioUnitObject>();
        obj->setStreamDesc(descriptionOf(*format));
        auto made = std::make_unique<tq_source>(tq_source_description{}, obj);
        manager().addUnitless(obj);
        *source = made.release();
        return TQ_OK;
    });
}

void tq_source_close(tq_source* source) {
    const std::unique_ptr<tq_source> owned(source);
}

tq_result tq_source_rename(tq_source* source, const char* name) {
    return call([&] {
        if (source == nullptr || name == nullptr) {
            return TQ_ERROR_NULL;
        }
        if (!hasUnit(*source)) {
            return TQ_ERROR_VALUE;
        }
        takeFormat(source->obj);
        RZUnitFacts::shared().named(source->obj->inUnit(), name);
        return TQ_OK;
    });
}

tq_result tq_source_set_speakers(tq_source* source, const tq_speaker* speakers, size_t count) {
    return call([&] {
        constexpr std::size_t kMostChannels = 8;
        if (source == nullptr || (speakers == nullptr && count != 0)) {
            return TQ_ERROR_NULL;
        }
        if (count > kMostChannels || !hasUnit(*source)) {
            return TQ_ERROR_VALUE;
        }
        std::vector<AudioChannelLabel> labels(count);
        std::transform(speakers, speakers + count, labels.begin(), labelOf);
        manager().setChannelLabels(source->obj, std::move(labels));
        return TQ_OK;
    });
}

int tq_source_gain_is_on(const tq_source* source) {
    return source != nullptr && (manager().isDuckingEnable() || manager().isCompressorEnable()) ? 1
                                                                                                : 0;
}

void tq_source_begin(tq_source* source) {
    if (source != nullptr) {
        (void)tqcapi::callAnywhere([&] {
            source->obj->beginSamples();
            return TQ_OK;
        });
    }
}

void tq_source_process(tq_source* source, void* samples, uint32_t frames) {
    if (source != nullptr && samples != nullptr) {
        (void)tqcapi::callAnywhere([&] {
            source->obj->processSamples(samples, frames);
            return TQ_OK;
        });
    }
}

void tq_guard_enter(void) {
    guard().enterRoad();
}

void tq_guard_leave(void) {
    guard().exitRoad();
}

tq_result tq_stream_report(const tq_stream* stream) {
    return tqcapi::callAnywhere([&] {
        if (const tq_result result = tqcapi::checked(stream); result != TQ_OK) {
            return result;
        }
        if (stream->name == nullptr) {
            return TQ_ERROR_NULL;
        }
        const bool isAFailure = stream->fate != TQ_STREAM_RECORDED &&
                                stream->fate != TQ_STREAM_NOTHING_WRITTEN &&
                                stream->fate != TQ_STREAM_EXCLUDED;
        if (isAFailure && stream->is_closed == 0) {
            raise(*stream);
        }
        tqcapi::StreamReports::shared().tell(*stream);
        return TQ_OK;
    });
}

const char* tq_stream_fate_text(tq_stream_fate fate) {
    switch (fate) {
        case TQ_STREAM_RECORDED:
            return "it is recorded";
        case TQ_STREAM_NO_UNIT_FREE:
            return "seven other streams were playing";
        case TQ_STREAM_NOT_PCM:
            return "its sound is coded";
        case TQ_STREAM_FORMAT:
            return "it has more than 8 channels or a rate that nobody plays";
        case TQ_STREAM_HOOKS_OUT:
            return "the hooks do not work";
        case TQ_STREAM_NO_MEMORY:
            return "there was no memory for it";
        case TQ_STREAM_NOTHING_WRITTEN:
            return "nothing has been written to it";
        case TQ_STREAM_NOT_OPENED:
            return "the program could not open it";
        case TQ_STREAM_EXCLUDED:
            return "it is not wanted";
    }
    return "unknown";
}
