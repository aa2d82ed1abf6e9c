#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>

#include "common/Descriptor.h"
#include "inject/Tap.h"

// A program whose main thread calls pthread_exit() ends with its last thread. Ours do not count:
// they would keep it alive for ever.

namespace tqrecorder {
namespace {

/// What the threads of our libraries call themselves, as far as the system keeps a name.
constexpr std::array<std::string_view, 4> kOurThreads{"TQAudio", "TQPreparing", "TQRebindVerify",
                                                      "RZReplayAudioR"};

constexpr std::chrono::seconds kAlone{1};

/// What a thread calls itself; nothing for one that has gone.
std::optional<std::string> nameOf(const std::filesystem::path& task) {
    const tqcommon::Descriptor file(::open((task / "comm").c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        return errno == ENOENT || errno == ESRCH ? std::nullopt : std::optional<std::string>("");
    }
    std::array<char, 32> text{};
    const ssize_t length = ::read(file.get(), text.data(), text.size());
    if (length < 0) {
        return errno == ESRCH ? std::nullopt : std::optional<std::string>("");
    }
    const std::string_view line(text.data(), static_cast<std::size_t>(length));
    return std::string(line.substr(0, line.find('\n')));
}

bool isOurs(std::string_view name) {
    return std::any_of(kOurThreads.begin(), kOurThreads.end(),
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

/// Whether it has been so for a while: a thread that the program named like one of ours may be
/// there before ours is.
bool Tap::isProgramOver() {
    if (!isMainThreadGone_.load(std::memory_order_relaxed) || isAnyThreadTheirs()) {
        aloneSince_.reset();
        return false;
    }
    const auto now = std::chrono::steady_clock::now();
    aloneSince_ = aloneSince_.value_or(now);
    return now - *aloneSince_ >= kAlone;
}

/// The main thread is there as a zombie until the process ends. A program that is written for the
/// platform plays on by the device's thread alone.
bool Tap::isAnyThreadTheirs() const {
    if (usesPlatform_ && isAnyUnitStarted()) {
        return true;
    }
    const std::string main = std::to_string(getpid());
    std::set<std::string> seen;
    std::error_code failure;
    for (std::filesystem::directory_iterator each("/proc/self/task", failure), end;
         !failure && each != end; each.increment(failure)) {
        if (each->path().filename() == main) {
            continue;
        }
        const std::optional<std::string> name = nameOf(each->path());
        // A thread that the program makes in a callback begins with the name of ours.
        if (name && (!isOurs(*name) || !seen.insert(*name).second)) {
            return true;
        }
    }
    return static_cast<bool>(failure);
}

}  // namespace tqrecorder
