#pragma once

namespace korva_audio_utils {

/// Success lines are Info, failures Error.
enum class LogPriority : int {
    Debug = 0,
    Info = 1,
    Warn = 2,
    Error = 3,
};

/// [any thread] The logging thread calls it, a render thread too. text is valid during the call.
using LogHandler = void (*)(LogPriority priority, const char* tag, const char* text);

/// The tag of every line that the utility layer writes.
inline constexpr const char* kUtilityLogTag = "KorvaAudioUtils";

/// [any thread] Replaces the one process-wide handler; null switches utility logging off.
void setLogHandler(LogHandler handler) noexcept;

/// [any thread] Allocates. Formats like printf, at any length, and hands the text to the handler
/// on the calling thread. Without a handler nothing is formatted. What the handler throws, and a
/// failure to allocate (std::bad_alloc) or to format (std::system_error), reach the caller; the
/// text is freed in every case.
[[gnu::format(printf, 3, 4)]] void log(LogPriority priority, const char* tag, const char* format,
                                       ...);

}  // namespace korva_audio_utils
