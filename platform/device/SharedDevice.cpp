#include <pthread.h>

#include <cstdio>
#include <cstdlib>

#include "device/Device.h"

namespace tqplatform {

namespace {

// Raw and never freed: threads of hosts render until the very end of the process.
Device* theDevice = nullptr;

Device& makeSharedDevice() {
    theDevice = makeDevice(std::getenv("TQ_AUDIO_DEVICE")).release();
    pthread_atfork(nullptr, nullptr, [] { theDevice->resetAfterFork(); });
    return *theDevice;
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
