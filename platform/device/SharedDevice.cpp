#include <pthread.h>

#include <cstdio>
#include <cstdlib>

#include "device/Driver.h"

namespace tqplatform {

namespace {

struct DriverEntry {
    std::string_view name;
    std::unique_ptr<Driver> (*make)();
    bool automatic;  ///< "auto" may choose it
};

/// All drivers, in the order in which "auto" tries them. The null driver always runs.
constexpr DriverEntry kDrivers[] = {
    {"manual", &makeManualDevice, false},
    {"null", &makeNullDevice, true},
};

// Raw and never freed: threads of hosts render until the very end of the process.
Driver* theDevice = nullptr;

Driver& makeSharedDevice() {
    theDevice = makeDevice(std::getenv("TQ_AUDIO_DEVICE")).release();
    pthread_atfork(nullptr, nullptr, [] { theDevice->resetAfterFork(); });
    return *theDevice;
}

}  // namespace

std::unique_ptr<Driver> makeDevice(const char* name) {
    const std::string_view wanted = name == nullptr || *name == '\0' ? "auto" : name;
    for (const DriverEntry& entry : kDrivers) {
        if (wanted == "auto" ? entry.automatic : entry.name == wanted) {
            if (auto driver = entry.make()) {
                return driver;
            }
        }
    }
    std::fprintf(stderr, "TQ_AUDIO_DEVICE=%s: unknown, using null\n", wanted.data());
    return makeNullDevice();
}

Device& sharedDevice() {
    static Driver& device = makeSharedDevice();
    return device;
}

}  // namespace tqplatform
