#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

#include "inject/Tap.h"

// A program whose main thread calls pthread_exit() ends with its last thread. Ours do not count:
// they would keep it alive for ever.

namespace tqrecorder {
namespace {

/// What the threads of our libraries call themselves, as far as the system keeps a name.
constexpr std::array<std::string_view, 4> kOurThreads{"TQAudio", "TQPreparing", "TQRebindVerify",
                                                      "RZReplayAudioR"};

bool isOurThread(const std::filesystem::path& task) {
    std::ifstream file(task / "comm");
    std::string name;
    std::getline(file, name);
    // One that has gone since counts no more either.
    return name.empty() || std::any_of(kOurThreads.begin(), kOurThreads.end(),
                                       [&](auto begin) { return name.starts_with(begin); });
}

}  // namespace

void Tap::watchMainThread() {
    static pthread_key_t key{};
    static const bool isMade = pthread_key_create(&key, [](void* tap) {
                                   static_cast<Tap*>(tap)->isMainThreadGone_.store(true);
                               }) == 0;
    isMainThreadGone_.store(false);
    if (isMade) {
        (void)pthread_setspecific(key, this);
    }
}

/// The main thread is there as a zombie until the process ends. A program that is written for the
/// platform plays on by the device's thread alone.
bool Tap::isProgramOver() const {
    if (usesPlatform_ && isAnyUnitStarted()) {
        return false;
    }
    const std::string main = std::to_string(getpid());
    std::error_code failure;
    for (std::filesystem::directory_iterator each("/proc/self/task", failure), end;
         !failure && each != end; each.increment(failure)) {
        if (each->path().filename() != main && !isOurThread(each->path())) {
            return false;
        }
    }
    return !failure;
}

}  // namespace tqrecorder
