#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "ipc/Choice.h"

// What the recorder tells the processes that it starts, through one environment variable that
// their children inherit, and what they answer when they connect.

namespace tqrecorder {

inline constexpr const char* kTapName = "libtqaudiorecord_tap.so";
inline constexpr const char* kTapBeginName = "tqaudiorecord_tap_begin";
/// What is preloaded, and opens the tap beside it where that is wanted.
inline constexpr const char* kGateName = "libtqaudiorecord_gate.so";
inline constexpr const char* kSettingsVariable = "TQ_AUDIO_RECORD_TAP";
/// Set for the one exec by which a process starts anew with its guard armed; holds its pid,
/// a colon and the name of its main thread.
inline constexpr const char* kRestartVariable = "TQ_AUDIO_RECORD_TAP_RESTART";
/// Holds COMMAND's process number in as many digits as kCommandDigits says, 0 until COMMAND itself
/// has written it.
inline constexpr const char* kCommandVariable = "TQ_AUDIO_RECORD_COMMAND";
inline constexpr std::size_t kCommandDigits = 10;
/// The id under which recorders ask for hooks in a program's crash guard.
inline constexpr unsigned kGuardHookId = 0x5451;

struct TapSettings {
    enum class Task { kRecord, kGuardStatus, kGuardArm, kGuardDisarm };

    Task task = Task::kRecord;
    std::string socket;  ///< abstract name, without the leading zero byte
    pid_t recorder = 0;
    std::uint64_t soundBytes = 0;  ///< size of the ring of blocks
    bool wantsLog = false;         ///< log lines are to be sent, not only understood
    bool armGuard = false;         ///< the guard may be armed, unless the program decided

    // What the user asked for; the defaults are those of the recorder's options.
    bool duck = false;
    bool duckAlways = false;  ///< else as the shared level says
    float duckDecibels = 0;
    bool compress = false;
    float compressThresholdDecibels = 0;
    float attackSeconds = 0;
    float releaseSeconds = 0;

    Choice choice{};
};

[[nodiscard]] std::string toText(const TapSettings& settings);
/// Nothing for a text that toText() does not make.
[[nodiscard]] std::optional<TapSettings> settingsFromText(const std::string& text);

/// The one message of a process that connects; a memfd comes with it when it records.
struct Hello {
    static constexpr std::uint32_t kMagic = 0x54515450;

    std::uint32_t magic = kMagic;
    std::uint32_t isRecording = 0;
    std::uint32_t usesPlatform = 0;  ///< an image other than ours was linked against it
    std::uint32_t mayPlay = 0;       ///< linked against a library for sound, or names one
    std::uint32_t guard = 0;         ///< GuardState, after what was asked for was done
    std::int32_t retriesLeft = 0;
    std::uint32_t isRestartFailed = 0;   ///< the guard was armed for the next launch only
    std::int32_t result = 0;             ///< of arming or disarming; 0 done
    std::uint32_t lacksDescriptors = 0;  ///< its limit of open files is used up
    std::array<char, 64> name{};         ///< the program's, terminated
    /// The guard's folder where its files cannot be used, terminated; empty when they can.
    std::array<char, 1024> brokenGuard{};
};

}  // namespace tqrecorder
