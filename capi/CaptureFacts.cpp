#include <AudioToolbox/AudioToolbox.h>
#include <RZAudioRecordStat.h>
#include <RZStreamCollectManager.h>
#include <RZStreamMixManager.h>
#include <RZUnitDisposal.h>
#include <TQAudioRecordVersion.h>

#include <algorithm>

#include "Call.h"
#include "UnitText.h"

// What there is: the library's own state, tracks and units.

namespace tqcapi {

int& callbackDepth() noexcept {
    // In the library itself, so that the first use on a render thread allocates nothing.
    [[gnu::tls_model("initial-exec")]] static thread_local int depth = 0;
    return depth;
}

namespace {

/// The format that the statistics keep of a track: what its unit renders.
tq_format formatOf(const RZHookAudioTrackInfo& info) {
    tq_format format{};
    format.sample_rate = std::max(info.sample_rate(), 0);
    format.channels = static_cast<std::uint32_t>(std::max(info.channel(), 0));
    format.is_float = (info.audio_format() & kAudioFormatFlagIsFloat) != 0 ? 1 : 0;
    format.is_interleaved = (info.audio_format() & kAudioFormatFlagIsNonInterleaved) == 0 ? 1 : 0;
    // A packet is a frame, of one channel where each has a buffer of its own.
    const std::uint32_t channels = format.is_interleaved != 0 ? format.channels : 1;
    format.bits_per_channel = channels == 0 ? 0 : info.buffersize() * 8 / channels;
    return format;
}

/// What stands for a native stream was chosen when that was opened.
RZUnitFacts::Choice choiceOf(const tq_capture_rules& rules) {
    if (rules.is_unit_wanted == nullptr) {
        return nullptr;
    }
    return [isWanted = rules.is_unit_wanted,
            context = rules.context](const RZUnitFacts::TrackUnit& unit) {
        const bool isStreams = !unit.isGraphs && RZUnitNames::shared().of(unit.ordinal) != nullptr;
        return isStreams || isWanted(context, UnitText(unit.ordinal, unit.isGraphs).get()) != 0;
    };
}

}  // namespace
}  // namespace tqcapi

using tqcapi::call;
using tqcapi::UnitText;

const char* tq_capture_version(void) {
    return TQAudioRecordVersionString;
}

const char* tq_result_text(tq_result result) {
    switch (result) {
        case TQ_OK:
            return "done";
        case TQ_ERROR_NULL:
            return "a pointer is null";
        case TQ_ERROR_SIZE:
            return "a struct's size field is too small";
        case TQ_ERROR_HANDLE:
            return "there is no such handle, or it has ended";
        case TQ_ERROR_VALUE:
            return "a value is out of its range";
        case TQ_ERROR_INSIDE_CALLBACK:
            return "not from inside a callback";
        case TQ_ERROR_NO_MEMORY:
            return "out of memory";
        case TQ_ERROR_ROOM:
            return "the text does not fit";
        case TQ_ERROR_GUARD_NOT_READY:
            return "the crash guard has no files";
        case TQ_ERROR_UNKNOWN:
            return "unknown";
        case TQ_ERROR_NOT_ON:
            return "the effect is not switched on by this handle";
        case TQ_ERROR_OWNED_BY_ANOTHER:
            return "somebody else has switched the effect on";
        case TQ_ERROR_GUARD_FULL:
            return "the crash guard has no room for another id";
        case TQ_ERROR_NO_BRIDGES:
            return "the library with the bridges is not there";
        case TQ_ERROR_HOOKS_NOT_WORKING:
            return "the hooks are not installed or do not work";
    }
    return "unknown";
}

tq_result tq_capture_get_state(tq_capture_state* state) {
    return tqcapi::callAnywhere([&] {
        auto& manager = RZStreamCollectManager::sharedManager();
        tq_capture_state now{};
        now.hooks_installed = manager.isHookStarted() ? 1 : 0;
        now.self_test_passed = manager.isHookSuccess() ? 1 : 0;
        now.is_capturing = RZStreamMixManager::sharedManager()->isCapturingHere() ? 1 : 0;
        return tqcapi::answer(state, now);
    });
}

tq_result tq_capture_set_rules(const tq_capture_rules* rules) {
    return call([&] {
        if (const tq_result result = tqcapi::checked(rules); result != TQ_OK) {
            return result;
        }
        if (!RZStreamCollectManager::sharedManager().isHookStarted()) {
            return TQ_ERROR_HOOKS_NOT_WORKING;
        }
        RZDisposalHooks.setRecording(rules->ends_disposed_units != 0);
        if (rules->ends_disposed_units != 0) {
            RZHookSet::start({&RZDisposalHooks});
        }
        RZReplayAudioUnitObject::setKeepsFloatTracks(rules->keeps_float_tracks != 0);
        RZStreamMixManager::sharedManager()->setReleasesOwnNumberOnly(
            rules->frees_own_number_only != 0);
        RZUnitFacts::shared().choose(tqcapi::choiceOf(*rules));
        return TQ_OK;
    });
}

tq_result tq_capture_get_unit_counts(tq_unit_counts* counts) {
    return tqcapi::callAnywhere([&] {
        const RZUnitCounts now = RZUnitFacts::shared().counts();
        return tqcapi::answer(counts, {0, now.created, now.started, now.startsWithMicrophone});
    });
}

tq_result tq_capture_tracks(void (*visit)(void* context, const tq_track* track), void* context) {
    return call([&] {
        if (visit == nullptr) {
            return TQ_ERROR_NULL;
        }
        const RZAudioRecordStat statistics;
        for (const auto& info : statistics.getHookAudioTrackInfoList()) {
            const auto number = static_cast<int>(info->audio_track_id());
            // All zero when a track came or went meanwhile.
            if (number < 1 || number > RZUnitFacts::kTracks) {
                continue;
            }
            const auto unit = RZUnitFacts::shared().unitOfTrack(number);
            const UnitText name(unit.ordinal, unit.isGraphs);
            const auto stat = statistics.getHookAudioTrackStat(info->audio_track_id());
            tq_track track{};
            track.size = sizeof track;
            track.track = static_cast<std::uint32_t>(number);
            track.unit_kind = tqcapi::unitKind(unit.isGraphs);
            track.unit = unit.ordinal;
            track.name = name.get();
            track.type = static_cast<tq_hook_track_type>(info->track_type());
            track.format = tqcapi::formatOf(*info);
            track.mix_backlog_bytes = stat->pre_buffer_size();
            track.track_backlog_bytes = stat->post_buffer_size();
            const tqcapi::CallbackScope scope;
            visit(context, &track);
        }
        return TQ_OK;
    });
}

tq_result tq_capture_units(void (*visit)(void* context, const tq_unit* unit), void* context) {
    return call([&] {
        if (visit == nullptr) {
            return TQ_ERROR_NULL;
        }
        for (const RZUnitFact& fact : RZStreamMixManager::sharedManager()->unitFacts()) {
            const UnitText name(fact.ordinal, fact.isGraphs());
            const tq_unit unit = tqcapi::unitOf(fact, name);
            const tqcapi::CallbackScope scope;
            visit(context, &unit);
        }
        return TQ_OK;
    });
}
