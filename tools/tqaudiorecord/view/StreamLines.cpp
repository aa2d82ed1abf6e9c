#include "view/StreamLines.h"

#include <TQAudioRecord/tq_capture.h>

#include <map>
#include <string_view>

#include "view/Names.h"

namespace tqrecorder {
namespace {

constexpr std::size_t kMostLines = 16;

std::string_view whyNot(std::uint32_t fate) {
    switch (fate) {
        case TQ_STREAM_NO_UNIT_FREE:
            return "seven other streams were playing, which is the most that are recorded at a "
                   "time";
        case TQ_STREAM_NOT_PCM:
            return "coded sound (AC3, DTS) that goes to the receiver as it is; switch pass-through "
                   "off in the program's settings";
        case TQ_STREAM_FORMAT:
            return "more than 8 channels, or a rate that nobody plays";
        case TQ_STREAM_HOOKS_OUT:
            return "the hooks do not work in this program; -v shows the library's log";
        case TQ_STREAM_NO_MEMORY:
            return "there was no memory for it";
        case TQ_STREAM_EXCLUDED:
            return "--only or --not leaves it out";
        default:
            return "for a reason that this version does not know";
    }
}

std::string framesOf(const StreamFacts& stream) {
    std::string text = std::to_string(stream.written) + " written, " +
                       std::to_string(stream.played) + " into its track";
    if (stream.dropped > 0) {
        text += ", " + std::to_string(stream.dropped) + " thrown away by the program";
    }
    if (stream.lost > 0) {
        text += ", " + std::to_string(stream.lost) + " lost";
    }
    const std::uint64_t settled = stream.played + stream.dropped + stream.lost;
    if (stream.written > settled) {
        text += ", " + std::to_string(stream.written - settled) + " not yet played at the end";
        text += stream.isPaused ? ", in a pause" : "";
    }
    return text;
}

/// Whether the program has never had anything to be heard on it: reasons for silence, and nothing
/// to say of a program that was heard.
bool isWithoutSound(const StreamFacts& stream) {
    return stream.fate == TQ_STREAM_NOTHING_WRITTEN || stream.fate == TQ_STREAM_NOT_OPENED;
}

template <class Condition>
std::vector<std::string> namesWhere(const ProcessState& state, Condition isMeant) {
    std::vector<std::string> names;
    for (const auto& [id, stream] : state.streams) {
        if (isMeant(stream)) {
            names.push_back(stream.name);
        }
    }
    return names;
}

}  // namespace

std::vector<std::string> unrecordedStreamLines(const ProcessState& state) {
    std::map<std::uint32_t, std::vector<std::string>> namesByFate;
    for (const auto& [id, stream] : state.streams) {
        if (stream.fate != TQ_STREAM_RECORDED && !isWithoutSound(stream)) {
            namesByFate[stream.fate].push_back(stream.name);
        }
    }
    std::vector<std::string> lines;
    for (const auto& [fate, names] : namesByFate) {
        lines.push_back("not recorded: " + listed(names) + ": " + std::string(whyNot(fate)));
    }
    return lines;
}

std::string framesNeverPlayed(const ProcessState& state) {
    std::uint64_t frames = 0;
    std::vector<std::string> names;
    for (const auto& [id, stream] : state.streams) {
        if (stream.played > 0) {
            return {};
        }
        const std::uint64_t settled = stream.played + stream.dropped + stream.lost;
        if (stream.fate == TQ_STREAM_RECORDED && !stream.isPaused && stream.written > settled) {
            frames += stream.written - settled;
            names.push_back(stream.name);
        }
    }
    return names.empty() ? "" : std::to_string(frames) + " frames of " + listed(names);
}

std::vector<std::string> silentStreamLines(const ProcessState& state) {
    std::vector<std::string> lines;
    const auto add = [&](const std::vector<std::string>& names, const std::string& why) {
        if (!names.empty()) {
            lines.push_back(listed(names) + ": " + why);
        }
    };
    add(namesWhere(state, [](const auto& one) { return one.fate == TQ_STREAM_NOT_OPENED; }),
        "the program could not open it; is the device there and free, does the sound server run?");
    add(namesWhere(state, [](const auto& one) { return one.fate == TQ_STREAM_NOTHING_WRITTEN; }),
        "opened, but the program wrote no sound to it");
    add(namesWhere(state,
                   [](const auto& one) {
                       return one.fate == TQ_STREAM_RECORDED && one.isPaused && one.played == 0;
                   }),
        "the program paused it before its first sound was heard");
    add(namesWhere(state,
                   [](const auto& one) {
                       return one.fate == TQ_STREAM_RECORDED && !one.isPaused && one.played == 0 &&
                              one.dropped > 0;
                   }),
        "the program threw its sound away before it was heard: its device was never started, or "
        "closed too early");
    return lines;
}

std::vector<std::string> streamFrameLines(const ProcessState& state) {
    std::vector<std::string> lines;
    StreamFacts rest;
    std::uint64_t more = 0;
    for (const auto& [id, stream] : state.streams) {
        if (stream.fate != TQ_STREAM_RECORDED) {
            continue;
        }
        if (lines.size() < kMostLines) {
            lines.push_back("frames of " + stream.name + ": " + framesOf(stream));
            continue;
        }
        ++more;
        rest.written += stream.written;
        rest.played += stream.played;
        rest.dropped += stream.dropped;
        rest.lost += stream.lost;
    }
    if (more > 0) {
        lines.push_back("frames of " + std::to_string(more) +
                        " further streams: " + framesOf(rest));
    }
    if (state.moreStreams > 0) {
        lines.push_back("and streams of which no account is kept");
    }
    return lines;
}

}  // namespace tqrecorder
