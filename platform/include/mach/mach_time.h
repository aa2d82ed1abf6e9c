#ifndef TQPLATFORM_MACH_TIME_H
#define TQPLATFORM_MACH_TIME_H

/*
 * Host time: the clock that time stamps count in. Here it is the monotonic clock in nanoseconds,
 * so ticks and nanoseconds are the same; programs still multiply by numer / denom.
 */

#include <stdint.h>

#ifndef AU_EXPORT
#define AU_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef int kern_return_t;

enum { KERN_SUCCESS = 0, KERN_INVALID_ARGUMENT = 4 };

struct mach_timebase_info {
    uint32_t numer;
    uint32_t denom;
};
typedef struct mach_timebase_info* mach_timebase_info_t;
typedef struct mach_timebase_info mach_timebase_info_data_t;

/** [any thread] [real-time safe] Ticks since some moment before the program began; never runs
 *  backwards. */
AU_EXPORT uint64_t mach_absolute_time(void);

/** [any thread] [real-time safe] Fills in numer and denom: nanoseconds = ticks * numer / denom.
 * KERN_SUCCESS, or KERN_INVALID_ARGUMENT for a null pointer. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow" /* the struct has the same name, as on the platform */
AU_EXPORT kern_return_t mach_timebase_info(mach_timebase_info_t info);
#pragma GCC diagnostic pop

#ifdef __cplusplus
}
#endif

#endif
