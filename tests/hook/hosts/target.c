#include "target.h"

#define OFFERED __attribute__((visibility("default")))

OFFERED int t_add(int a, int b) {
    return a + b;
}

OFFERED int t_twice(int a, int b) {
    return t_add(a, b) + t_add(a, b);
}

static int pick(void) {
    return 7;
}

/* The loader calls this before any run-time of a sanitizer is up. */
__attribute__((used,
               no_sanitize("address", "thread", "undefined"))) static int (*choose(void))(void) {
    return pick;
}

OFFERED int t_pick(void) __attribute__((ifunc("choose")));
