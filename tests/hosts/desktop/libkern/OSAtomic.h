#pragma once

#include <stdbool.h>
#include <stdint.h>

static inline int32_t OSAtomicAdd32Barrier(int32_t amount, volatile int32_t* value) {
    return __atomic_add_fetch(value, amount, __ATOMIC_SEQ_CST);
}
#define OSAtomicAdd32 OSAtomicAdd32Barrier
static inline bool OSAtomicCompareAndSwap32Barrier(int32_t before, int32_t after,
                                                   volatile int32_t* value) {
    return __atomic_compare_exchange_n(value, &before, after, false, __ATOMIC_SEQ_CST,
                                       __ATOMIC_SEQ_CST);
}
#define OSAtomicCompareAndSwap32 OSAtomicCompareAndSwap32Barrier
static inline int32_t OSAtomicOr32(uint32_t mask, volatile uint32_t* value) {
    return (int32_t)__atomic_or_fetch(value, mask, __ATOMIC_SEQ_CST);
}
static inline int32_t OSAtomicAnd32(uint32_t mask, volatile uint32_t* value) {
    return (int32_t)__atomic_and_fetch(value, mask, __ATOMIC_SEQ_CST);
}
