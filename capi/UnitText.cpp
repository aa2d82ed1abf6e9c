#include "UnitText.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace tqcapi {
namespace {

constexpr bool isSame(RZUnitReason inside, tq_unit_reason outside) {
    return static_cast<std::uint32_t>(inside) == static_cast<std::uint32_t>(outside);
}
static_assert(isSame(RZUnitReason::Captured, TQ_UNIT_CAPTURED) &&
              isSame(RZUnitReason::NotStarted, TQ_UNIT_NOT_STARTED) &&
              isSame(RZUnitReason::CaptureOff, TQ_UNIT_CAPTURE_OFF) &&
              isSame(RZUnitReason::NoNumberFree, TQ_UNIT_NO_NUMBER_FREE) &&
              isSame(RZUnitReason::MicrophoneOn, TQ_UNIT_MICROPHONE_ON) &&
              isSame(RZUnitReason::VoiceEngine, TQ_UNIT_VOICE_ENGINES) &&
              isSame(RZUnitReason::Uninitialised, TQ_UNIT_UNINITIALISED) &&
              isSame(RZUnitReason::Anothers, TQ_UNIT_ANOTHERS) &&
              isSame(RZUnitReason::NoFormat, TQ_UNIT_NO_FORMAT) &&
              isSame(RZUnitReason::MixRefused, TQ_UNIT_MIX_REFUSED) &&
              isSame(RZUnitReason::NumberTaken, TQ_UNIT_NUMBER_TAKEN) &&
              isSame(RZUnitReason::NotSeenMade, TQ_UNIT_NOT_SEEN_MADE) &&
              isSame(RZUnitReason::Excluded, TQ_UNIT_EXCLUDED));

}  // namespace

UnitText::UnitText(std::uint32_t ordinal, bool isGraphs) noexcept {
    if (const char* const own = RZUnitNames::shared().of(ordinal); own != nullptr && !isGraphs) {
        std::string_view(own).copy(text_.data(), text_.size() - 1);
        return;
    }
    const std::string_view kind = isGraphs ? "graph" : "unit";
    char* end = std::copy(kind.begin(), kind.end(), text_.data());
    if (ordinal != 0) {
        *end++ = '-';
        end = std::to_chars(end, text_.data() + text_.size() - 1, ordinal).ptr;
    }
    *end = '\0';
}

tq_unit unitOf(const RZUnitFact& fact, const UnitText& name) noexcept {
    tq_unit unit{};
    unit.size = sizeof unit;
    unit.unit = fact.ordinal;
    unit.kind = unitKind(fact.isGraphs());
    unit.track = static_cast<std::uint32_t>(fact.track);
    unit.is_started = fact.isStarted ? 1 : 0;
    unit.reason = static_cast<tq_unit_reason>(fact.reason);
    unit.name = name.get();
    return unit;
}

}  // namespace tqcapi

const char* tq_unit_reason_text(tq_unit_reason reason) {
    switch (reason) {
        case TQ_UNIT_CAPTURED:
            return "it is captured";
        case TQ_UNIT_NOT_STARTED:
            return "the program has not started it";
        case TQ_UNIT_CAPTURE_OFF:
            return "nobody listens";
        case TQ_UNIT_NO_NUMBER_FREE:
            return "seven other units had the track numbers when it was made";
        case TQ_UNIT_MICROPHONE_ON:
            return "its microphone is on";
        case TQ_UNIT_VOICE_ENGINES:
            return "it belongs to a voice engine";
        case TQ_UNIT_UNINITIALISED:
            return "the program has uninitialised it";
        case TQ_UNIT_ANOTHERS:
            return "another library has registered it as its own";
        case TQ_UNIT_NO_FORMAT:
            return "its stream format could not be read";
        case TQ_UNIT_MIX_REFUSED:
            return "the graph that mixes the tracks did not take it in";
        case TQ_UNIT_NUMBER_TAKEN:
            return "a later unit has got its track number";
        case TQ_UNIT_NOT_SEEN_MADE:
            return "it was made before the hooks came";
        case TQ_UNIT_EXCLUDED:
            return "it is not wanted";
    }
    return "unknown";
}
