#include <Foundation/NSThread.h>
#include <pthread.h>

#include <array>

namespace {

constexpr std::size_t kKernelNameSize = 16;  // with the terminator

/// The name given through NSThread, and as much of it as the kernel took.
struct KeptName {
    ~KeptName() { gone = true; }

    std::string whole;
    std::string kernel;
    bool isSet = false;
    /// Destructors of other thread-local objects may still ask for the name after this one's ran.
    static thread_local bool gone;
};

thread_local bool KeptName::gone = false;

KeptName& keptName() {
    static thread_local KeptName name;
    return name;
}

std::string kernelName() {
    std::array<char, kKernelNameSize> name{};
    if (pthread_getname_np(pthread_self(), name.data(), name.size()) != 0) {
        return {};
    }
    return name.data();
}

}  // namespace

std::string NSThread::currentThreadName() {
    std::string kernel = kernelName();
    if (KeptName::gone) {
        return kernel;
    }
    // A name that the program gave the thread in the meantime, past this class, is the newer one.
    const KeptName& kept = keptName();
    return kept.isSet && kept.kernel == kernel ? kept.whole : kernel;
}

void NSThread::setCurrentThreadName(const std::string& name) {
    // The C library refuses a longer name instead of cutting it.
    const std::string cut = name.substr(0, kKernelNameSize - 1);
    static_cast<void>(pthread_setname_np(pthread_self(), cut.c_str()));
    if (KeptName::gone) {
        return;
    }
    KeptName& kept = keptName();
    kept.whole = name;
    kept.kernel = kernelName();
    kept.isSet = true;
}
