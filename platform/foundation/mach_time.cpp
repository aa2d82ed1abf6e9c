#include <mach/mach_time.h>
#include <time.h>

uint64_t mach_absolute_time() {
    constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * kNanosecondsPerSecond +
           static_cast<uint64_t>(now.tv_nsec);
}

kern_return_t mach_timebase_info(mach_timebase_info_t info) {
    if (info == nullptr) {
        return KERN_INVALID_ARGUMENT;
    }
    info->numer = 1;
    info->denom = 1;
    return KERN_SUCCESS;
}
