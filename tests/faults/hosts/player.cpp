// A host that knows nothing of capture. It plays one unit on the manual device, from a thread of
// its own, and says in "name=value" lines what it sees. What it is told to do in the meantime:
//   play            nothing: ten slices
//   cut:FILE        the file is emptied after five of the ten slices
//   blocked:FILE    the same, on threads that block all signals
//   reported:FILE   the same in a program with a handler of SIGBUS of its own, which it needs
//                   itself at the end
//   inside:ENDING   the callback of the third slice does not come back, and the process ends as
//   told:
//                   exit, quick_exit, _exit, exec, self (exec of this program, which then plays),
//                   kill
//   wait:FILE       the third slice stays inside its callback until the file exists

#include <AudioToolbox/AudioToolbox.h>
#include <TQPlatform/ManualDevice.h>
#include <fcntl.h>
#include <setjmp.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "HookState.h"

namespace {

using namespace std::chrono_literals;

struct Tone {
    std::atomic<int> calls{0};
    std::function<void()> third = [] {};  ///< done inside the third callback
};

OSStatus render(void* refCon, AudioUnitRenderActionFlags* /*flags*/, const AudioTimeStamp* /*ts*/,
                UInt32 /*bus*/, UInt32 /*frames*/, AudioBufferList* ioData) {
    Tone& tone = *static_cast<Tone*>(refCon);
    for (UInt32 i = 0; i < ioData->mNumberBuffers; ++i) {
        auto* const samples = static_cast<float*>(ioData->mBuffers[i].mData);
        for (UInt32 k = 0; k < ioData->mBuffers[i].mDataByteSize / sizeof(float); ++k) {
            samples[k] = 0.25F;
        }
    }
    if (++tone.calls == 3) {
        tone.third();
    }
    return 0;
}

AudioUnit startUnit(Tone& tone) {
    const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    AudioUnit unit = nullptr;
    const AURenderCallbackStruct callback{render, &tone};
    const bool isGood =
        AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit) == 0 &&
        AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                             &callback, sizeof(callback)) == 0 &&
        AudioUnitInitialize(unit) == 0 && AudioOutputUnitStart(unit) == 0;
    return isGood ? unit : nullptr;
}

void pump(int from, int to) {
    for (int i = from; i < to; ++i) {
        TQManualDevicePump(480, static_cast<UInt64>(i) * 10'000'000);
    }
}

/// By the call of that name, if it is one of exec.
void becomeTrue(const std::string& how) {
    const char* const path = "/bin/true";
    char name[] = "true";
    char* const arguments[] = {name, nullptr};
    if (how == "execv") {
        execv(path, arguments);
    }
    if (how == "execvp") {
        execvp(name, arguments);
    }
    if (how == "execve") {
        execve(path, arguments, environ);
    }
    if (how == "execvpe") {
        execvpe(name, arguments, environ);
    }
    if (how == "fexecve") {
        fexecve(open(path, O_RDONLY | O_CLOEXEC), arguments, environ);
    }
    if (how == "execle") {
        execle(path, name, nullptr, environ);
    }
    if (how == "execveat") {
        execveat(AT_FDCWD, path, arguments, environ, 0);
    }
}

void end(const std::string& how, char** argv) {
    if (how == "exit") {
        std::exit(0);
    }
    if (how == "quick_exit") {
        std::quick_exit(0);
    }
    if (how == "_exit") {
        _exit(0);
    }
    if (how == "exec") {
        execlp("true", "true", nullptr);
    }
    if (how == "self") {
        execl(argv[0], argv[0], "play", nullptr);
    }
    becomeTrue(how);
    if (how == "noexec") {
        execl("/nowhere", "nowhere", nullptr);
    }
    std::raise(SIGKILL);
}

sigjmp_buf afterOwnError;

void onOwnError(int /*number*/, siginfo_t* /*info*/, void* /*context*/) {
    siglongjmp(afterOwnError, 1);
}

void takeBusErrors() {
    struct sigaction own {};
    own.sa_sigaction = onOwnError;
    own.sa_flags = SA_SIGINFO;
    sigaction(SIGBUS, &own, nullptr);
}

/// Whether an access of the program's own that fails reaches its handler, and whether it finds that
/// handler where it asks.
bool hasItsBusErrors() {
    struct sigaction found {};
    sigaction(SIGBUS, nullptr, &found);
    const int file = memfd_create("own", MFD_CLOEXEC);
    volatile char* const page = static_cast<volatile char*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    if (sigsetjmp(afterOwnError, 1) != 0) {
        return found.sa_sigaction == onOwnError;
    }
    page[0] = 1;
    return false;
}

/// Plays, and ends while a thread is inside the callback.
[[noreturn]] void playUntilInside(const std::string& how, char** argv) {
    static Tone tone;
    static std::atomic<bool> isInside{false};
    tone.third = [] {
        isInside = true;
        std::this_thread::sleep_for(1h);
    };
    startUnit(tone);
    std::thread([] { pump(0, 10); }).detach();
    while (!isInside) {
        std::this_thread::sleep_for(1ms);
    }
    end(how, argv);
    std::abort();
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "play";
    const std::string with = what.substr(what.find(':') + 1);
    std::printf("hooks=%s\n", hookState());
    struct sigaction found {};
    sigaction(SIGBUS, nullptr, &found);
    std::printf("signal=%s\n", found.sa_handler == SIG_DFL ? "free" : "taken");
    std::fflush(stdout);
    Tone tone;
    if (what.starts_with("wait:")) {
        tone.third = [&] {
            std::printf("inside=1\n");
            std::fflush(stdout);
            while (access(with.c_str(), F_OK) != 0) {
                std::this_thread::sleep_for(1ms);
            }
        };
    }
    if (what.starts_with("child:")) {
        if (const pid_t child = fork(); child != 0) {
            waitpid(child, nullptr, 0);
        } else {
            playUntilInside(with, argv);
        }
    }
    if (what.starts_with("inside:")) {
        playUntilInside(with, argv);
    }
    const bool isBlocked = what.starts_with("blocked:");
    if (isBlocked) {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
    }
    const bool reports = what.starts_with("reported:");
    if (reports) {
        takeBusErrors();
    }
    AudioUnit const unit = startUnit(tone);
    std::thread([] { pump(0, 5); }).join();
    if ((isBlocked || reports || what.starts_with("cut:")) && truncate(with.c_str(), 0) != 0) {
        std::perror("truncate");
    }
    std::thread([] { pump(5, 10); }).join();
    const bool isGood = AudioOutputUnitStop(unit) == 0 && AudioUnitUninitialize(unit) == 0 &&
                        AudioComponentInstanceDispose(unit) == 0;
    if (reports) {
        std::printf("own=%d\n", hasItsBusErrors() ? 1 : 0);
    }
    std::printf("played=%d\n", isGood ? tone.calls.load() : -1);
    return 0;
}
