#include <TQPlatform/DevicePause.h>
#include <TQPlatform/Devices.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "common/ForkLocks.h"
#include "device/Device.h"

namespace tqplatform {

namespace {

// Raw and never freed: threads of hosts render until the very end of the process.
constinit std::atomic<Device*> theDevice{nullptr};

Device& makeSharedDevice() {
    theDevice.store(makeDevice(std::getenv("TQ_AUDIO_DEVICE")).release());
    pthread_atfork(nullptr, nullptr, [] { theDevice.load()->resetAfterFork(); });
    return *theDevice.load();
}

bool pauseDevice(UInt64 nanoseconds) {
    Device* const device = theDevice.load();
    return device == nullptr || device->pause(std::chrono::nanoseconds(nanoseconds));
}

void resumeDevice() {
    if (Device* const device = theDevice.load()) {
        device->resume();
    }
}

/// Before the constructors of the libraries above, whose locks are taken before the platform's.
[[gnu::constructor]] void watchForks() {
    static constexpr tqcommon::ForkLock::Pause kPause{pauseDevice, resumeDevice};
    tqcommon::ForkLock::setPause(kPause);
    tqcommon::ForkLock::watch();
}

}  // namespace

std::unique_ptr<Device> makeDevice(const char* name) {
    const std::string_view wanted = name == nullptr || *name == '\0' ? "auto" : name;
    if (auto device = Device::open(wanted, backendTable())) {
        return device;
    }
    const std::string_view instead = backendTable().back().name;
    std::fprintf(stderr, "TQ_AUDIO_DEVICE=%s: unknown, using %s\n", wanted.data(), instead.data());
    return Device::open(instead, backendTable());
}

Device& sharedDevice() {
    static Device& device = makeSharedDevice();
    return device;
}

}  // namespace tqplatform

Boolean TQPauseDevice(UInt64 longestNanoseconds) {
    return tqplatform::pauseDevice(longestNanoseconds) ? 1 : 0;
}

OSStatus TQPreferMicrophone(const char* name) {
    const bool isTaken = tqplatform::sharedDevice().preferMicrophone(name == nullptr ? "" : name);
    return isTaken ? OSStatus{noErr} : OSStatus{kAudioUnitErr_Uninitialized};
}

Boolean TQIsHearing() {
    return tqplatform::sharedDevice().isHearing() ? 1 : 0;
}

void TQResumeDevice() {
    tqplatform::resumeDevice();
}
