// Starts a command and sees to it that nothing of it is left:
//   tq_test_keeper FOLDER COMMAND [ARG...]
// Whatever the command starts, daemons included, becomes the keeper's own child when its parent
// goes, and is ended with the command, on SIGTERM, or when the test dies. In that last case nobody
// else is there to remove the test's FOLDER ("" for none). The command's exit code is passed on.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

/// How long a command may take to tidy up after itself.
constexpr std::chrono::seconds kPatience{10};

void addBelow(pid_t process, std::vector<pid_t>& all) {
    const std::string folder = "/proc/" + std::to_string(process) + "/task";
    std::error_code gone;
    for (const auto& thread : std::filesystem::directory_iterator(folder, gone)) {
        std::ifstream list(thread.path() / "children");
        for (pid_t child = 0; list >> child;) {
            all.push_back(child);
            addBelow(child, all);
        }
    }
}

/// Servers and players keep the time of the wall clock: what gets no processor in time is heard as
/// a hole, with and without us. On a busy machine they go first, where that is allowed. A real-time
/// priority would be worse: one that computes holds up its equals for as long as it likes.
void beInTime() {
    (void)setpriority(PRIO_PROCESS, 0, -11);
}

class Keeper {
  public:
    Keeper() {
        sigemptyset(&awaited_);
        sigaddset(&awaited_, SIGCHLD);
        sigaddset(&awaited_, SIGTERM);
        sigaddset(&awaited_, SIGINT);
        sigprocmask(SIG_BLOCK, &awaited_, &before_);
        prctl(PR_SET_CHILD_SUBREAPER, 1);
    }

    void start(char** command) {
        const pid_t self = getpid();
        command_ = fork();
        if (command_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            sigprocmask(SIG_SETMASK, &before_, nullptr);
            beInTime();
            if (getppid() == self) {
                execvp(command[0], command);
            }
            _exit(127);
        }
    }

    /// Until the command has ended or its end is asked for.
    void watch() {
        while (command_ > 0) {
            siginfo_t what{};
            if (sigwaitinfo(&awaited_, &what) == SIGTERM || what.si_signo == SIGINT) {
                return;
            }
            reap();
        }
    }

    /// Asks the command first, so that it removes what it made; then everything below goes.
    void endAll() {
        if (command_ > 0) {
            kill(command_, SIGTERM);
        }
        const auto deadline = Clock::now() + kPatience;
        while (command_ > 0 && Clock::now() < deadline) {
            const timespec nap{0, 10'000'000};
            sigtimedwait(&awaited_, nullptr, &nap);
            reap();
        }
        std::vector<pid_t> below;
        do {
            below.clear();
            addBelow(getpid(), below);
            for (const pid_t process : below) {
                kill(process, SIGKILL);
            }
            const timespec nap{0, 1'000'000};
            sigtimedwait(&awaited_, nullptr, &nap);
            reap();
        } while (!below.empty());
    }

    [[nodiscard]] int code() const {
        return WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
    }

  private:
    void reap() {
        int status = 0;
        for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
            if (ended == command_) {
                command_ = 0;
                status_ = status;
            }
        }
    }

    sigset_t awaited_{};
    sigset_t before_{};
    pid_t command_ = -1;
    int status_ = 0;
};

}  // namespace

int main(int count, char** arguments) {
    if (count < 3) {
        return 126;
    }
    // Set before the parent is asked for: whichever way the race goes, one of both tells.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    const pid_t test = getppid();
    Keeper keeper;
    keeper.start(arguments + 2);
    if (test != 1) {
        keeper.watch();
    }
    keeper.endAll();
    const std::string folder = arguments[1];
    if (getppid() != test && !folder.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    return keeper.code();
}
