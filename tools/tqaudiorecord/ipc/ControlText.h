#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/Descriptor.h"
#include "core/Control.h"

// How a command reaches a running recorder: one message there, one back, over a local socket in a
// folder of the user.

namespace tqrecorder {

[[nodiscard]] std::string toText(const ControlCommand& command);
/// Nothing for a text that toText() does not make.
[[nodiscard]] std::optional<ControlCommand> commandFromText(std::string_view text);

/// Where the sockets of this user's recorders are: tqaudiorecord in XDG_RUNTIME_DIR, or without
/// that in /tmp, with the user's number. Made with mode 0700; empty with the reason in `error`
/// where it cannot be, or is not this user's alone.
[[nodiscard]] std::string controlFolder(std::string& error);

/// How long a client's calls wait in one go; they fail with EAGAIN then.
inline constexpr int kControlPatienceSeconds = 2;

/// A socket that is bound or connected to that path; empty with errno set when that fails.
enum class SocketEnd { kServer, kClient };
[[nodiscard]] tqcommon::Descriptor controlSocket(const std::string& path, SocketEnd end);
/// Whether the process at the other end is this user's.
[[nodiscard]] bool isPeerOurs(int socket);

/// The longest message in bytes.
inline constexpr std::size_t kLongestControl = 100'000;
/// The lines of a text that fit into one message, and how many more there were.
[[nodiscard]] std::string cutToWholeLines(const std::string& text);

}  // namespace tqrecorder
