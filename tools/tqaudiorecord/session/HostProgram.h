#pragma once

#include <string>

namespace tqrecorder {

/// What is known of a command before it is started, from its file alone.
struct HostProgram {
    enum class Problem {
        kNone,
        kNotFound,
        kNotExecutable,  ///< no permission, or a folder
        kNoInterpreter,  ///< a script or program whose interpreter is missing
        kOtherMachine,   ///< an ELF file for another kind of machine than the recorder's
        kStatic,         ///< nothing can be loaded into it
        kPrivileged,     ///< setuid, setgid or capabilities: the loader ignores preloads
        kNoSound,        ///< linked against nothing that plays; it may still open it later
    };

    Problem problem = Problem::kNone;
    std::string path;         ///< of the file; empty when there is none
    std::string interpreter;  ///< of a script

    /// Whether starting it can lead to a recording.
    [[nodiscard]] bool isWorthStarting() const {
        return problem == Problem::kNone || problem == Problem::kNoSound;
    }
    /// One line for the user; empty without a problem.
    [[nodiscard]] std::string text(const std::string& command) const;
};

/// Looks a command up as execvp() would, and at its file.
[[nodiscard]] HostProgram findHostProgram(const std::string& command);

/// Whether a program of this file runs with other rights than its user.
[[nodiscard]] bool raisesPrivileges(const std::string& path);

}  // namespace tqrecorder
