#include "view/LeftOut.h"

#include <TQAudioRecord/tq_capture.h>

#include <array>
#include <string_view>

#include "view/Names.h"

namespace tqrecorder {
namespace {

struct Reason {
    tq_unit_reason number;
    std::string_view text;
};
constexpr std::array<Reason, 10> kReasons{{
    {TQ_UNIT_NO_NUMBER_FREE, "seven other units had the track numbers when it was made"},
    {TQ_UNIT_MICROPHONE_ON, "its microphone is on; such units are not captured, by rule"},
    {TQ_UNIT_VOICE_ENGINES, "a voice engine made it; such units are not captured, by rule"},
    {TQ_UNIT_UNINITIALISED, "it was started after the program had uninitialised it"},
    {TQ_UNIT_ANOTHERS, "another library has registered it as its own"},
    {TQ_UNIT_NO_FORMAT, "its stream format could not be read"},
    {TQ_UNIT_MIX_REFUSED, "the graph that mixes the tracks did not take it in"},
    {TQ_UNIT_NUMBER_TAKEN, "a later unit has got its track number"},
    {TQ_UNIT_NOT_SEEN_MADE, "it was made before the hooks came"},
    {TQ_UNIT_EXCLUDED, "--only or --not leaves it out"},
}};

bool has(std::uint32_t reasons, tq_unit_reason reason) {
    return (reasons >> static_cast<std::uint32_t>(reason) & 1U) != 0;
}

}  // namespace

std::vector<std::string> leftOutLines(const ProcessState& state) {
    std::vector<std::string> lines;
    for (const Reason& reason : kReasons) {
        std::vector<std::string> never;
        std::vector<std::string> atTimes;
        for (const LeftOutUnit& unit : state.facts.leftOut) {
            if (has(unit.reasons, reason.number)) {
                (state.units.contains(unit.unit) ? atTimes : never).push_back(unit.unit);
            }
        }
        const std::string because = ": " + std::string(reason.text);
        if (!never.empty()) {
            lines.push_back("not recorded: " + listed(never) + because);
        }
        if (!atTimes.empty()) {
            lines.push_back("not recorded all the time: " + listed(atTimes) + because);
        }
        if (has(state.facts.leftOutMoreReasons, reason.number)) {
            lines.push_back("not recorded: further units" + because);
        }
    }
    return lines;
}

}  // namespace tqrecorder
