#include "session/Launch.h"

#include <spawn.h>

#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>

#include "session/ProcessHandle.h"

namespace tqrecorder {
namespace {

namespace fs = std::filesystem;

std::string assignment(const char* name, const std::string& value) {
    return std::string(name) + "=" + value;
}

/// The loader cuts a preload list at spaces and colons. A library whose path contains one is
/// preloaded through a link in `linkFolder`, whose path contains none. False when there is no place
/// for one.
bool makeListable(std::string& gate, std::string& linkFolder) {
    constexpr const char* kSeparators = " :\t\n";
    if (gate.find_first_of(kSeparators) == std::string::npos) {
        return true;
    }
    std::error_code failure;
    std::string folder = fs::temp_directory_path(failure) / "tqaudiorecord-XXXXXX";
    if (failure || folder.find_first_of(kSeparators) != std::string::npos ||
        mkdtemp(folder.data()) == nullptr) {
        return false;
    }
    linkFolder = folder;
    // The folder, not the file: the library finds its own libraries beside itself.
    fs::create_directory_symlink(fs::path(gate).parent_path(), folder + "/lib", failure);
    gate = folder + "/lib/" + fs::path(gate).filename().string();
    return !failure;
}

std::vector<std::string> environmentFor(const TapSettings& settings, const std::string& gate) {
    std::vector<std::string> list;
    std::string preload = gate;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const std::string_view name = text.substr(0, text.find('='));
        if (name == "LD_PRELOAD" && text.size() > name.size() + 1) {
            preload += ':';
            preload += text.substr(name.size() + 1);
        }
        if (name != "LD_PRELOAD" && name != kSettingsVariable && name != kRestartVariable &&
            name != kCommandVariable) {
            list.emplace_back(text);
        }
    }
    list.push_back(assignment("LD_PRELOAD", preload));
    list.push_back(assignment(kSettingsVariable, toText(settings)));
    list.push_back(assignment(kCommandVariable, std::string(kCommandDigits, '0')));
    return list;
}

std::vector<char*> pointersTo(const std::vector<std::string>& list) {
    std::vector<char*> pointers;
    for (const std::string& text : list) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// Signals that stop who uses the terminal without being in its foreground. While this lives they
/// are ignored, which a program that is started then inherits: it may change the terminal and write
/// to it, and reading fails.
class TerminalStopsIgnored {
  public:
    TerminalStopsIgnored() {
        struct sigaction ignored {};
        ignored.sa_handler = SIG_IGN;
        for (std::size_t i = 0; i < kNumbers.size(); ++i) {
            sigaction(kNumbers[i], &ignored, &before_[i]);
        }
    }
    ~TerminalStopsIgnored() {
        for (std::size_t i = 0; i < kNumbers.size(); ++i) {
            sigaction(kNumbers[i], &before_[i], nullptr);
        }
    }
    TerminalStopsIgnored(const TerminalStopsIgnored&) = delete;
    TerminalStopsIgnored& operator=(const TerminalStopsIgnored&) = delete;

  private:
    static constexpr std::array kNumbers{SIGTTIN, SIGTTOU};
    std::array<struct sigaction, kNumbers.size()> before_{};
};

/// Attributes and file actions of posix_spawn().
class SpawnSettings {
  public:
    explicit SpawnSettings(const LaunchPlan& plan) {
        posix_spawnattr_init(&attributes_);
        posix_spawn_file_actions_init(&actions_);
        sigset_t defaults;
        sigemptyset(&defaults);
        // The recorder ignores these; the command gets the defaults that programs expect.
        sigaddset(&defaults, SIGPIPE);
        sigaddset(&defaults, SIGXFSZ);
        posix_spawnattr_setsigdefault(&attributes_, &defaults);
        posix_spawnattr_setsigmask(&attributes_, &plan.signals);
        short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (plan.ownGroup) {
            stops_.emplace();
            posix_spawnattr_setpgroup(&attributes_, 0);
            flags = static_cast<short>(flags | POSIX_SPAWN_SETPGROUP);
        }
        posix_spawnattr_setflags(&attributes_, flags);
        if (plan.outputToError) {
            posix_spawn_file_actions_adddup2(&actions_, STDERR_FILENO, STDOUT_FILENO);
        }
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    [[nodiscard]] int spawn(pid_t& pid, const std::string& path,
                            const std::vector<std::string>& arguments,
                            const std::vector<std::string>& environment) const {
        return posix_spawn(&pid, path.c_str(), &actions_, &attributes_,
                           pointersTo(arguments).data(), pointersTo(environment).data());
    }

  private:
    std::optional<TerminalStopsIgnored> stops_;
    posix_spawnattr_t attributes_{};
    posix_spawn_file_actions_t actions_{};
};

}  // namespace

std::string findGate() {
    std::error_code failure;
    const fs::path folder = fs::read_symlink("/proc/self/exe", failure).parent_path();
    for (const fs::path& place :
         {folder / ".." / TQ_RECORDER_LIBRARY_FOLDER / "tqaudiorecord" / kGateName,
          folder / ".." / "lib" / kGateName}) {
        const fs::path real = fs::canonical(place, failure);
        if (!failure) {
            return real.string();
        }
    }
    return {};
}

Launch::~Launch() {
    // While anything of it runs, programs that this starts look for the library there.
    if (!linkFolder_.empty() && (pid_ == 0 || isOver()) && !isAnyLeft_) {
        std::error_code ignored;
        fs::remove_all(linkFolder_, ignored);
    }
}

bool Launch::start(const LaunchPlan& plan, std::string& error) {
    std::string gate = plan.gate;
    if (!makeListable(gate, linkFolder_)) {
        error = "no folder for temporary files can be used";
        return false;
    }
    const std::vector<std::string> environment = environmentFor(plan.settings, gate);
    const SpawnSettings settings(plan);
    int failure = settings.spawn(pid_, plan.program.path, plan.command, environment);
    if (failure == ENOEXEC && !plan.program.interpreter.empty()) {
        // A script without "#!": the shell runs it, as execvp() would have it.
        std::vector<std::string> command{plan.program.interpreter, plan.program.path};
        command.insert(command.end(), plan.command.begin() + 1, plan.command.end());
        failure = settings.spawn(pid_, plan.program.interpreter, command, environment);
    }
    if (failure != 0) {
        pid_ = 0;
        error = plan.command.front() + ": " + std::strerror(failure);
        return false;
    }
    end_ = openProcess(pid_);
    return true;
}

bool Launch::isOver() {
    if (!isOver_ && pid_ != 0) {
        int status = 0;
        const pid_t found = waitpid(pid_, &status, WNOHANG);
        if (found == pid_) {
            isOver_ = true;
            endSignal_ = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
            exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + endSignal_;
        } else if (found < 0 && errno == ECHILD) {
            // Another part of this process has waited for it: its exit code is lost.
            isOver_ = true;
        }
    }
    return isOver_;
}

void Launch::signal(int number) const {
    if (pid_ != 0 && !isOver_) {
        kill(pid_, number);
    }
}

}  // namespace tqrecorder
