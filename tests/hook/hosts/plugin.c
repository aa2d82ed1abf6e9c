/* Loaded after the hooks, in each of the ways a library can be linked. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>

#include "target.h"

#define OFFERED __attribute__((visibility("default")))

static int (*volatile variable)(int, int) = t_add;
static int (*const table[])(int, int) = {t_add};
/* Keeps the compiler from calling what it knows the table to hold. */
static int (*const* volatile constants)(int, int) = table;

OFFERED int p_call(int a, int b) {
    return t_add(a, b);
}

OFFERED int p_variable(int a, int b) {
    return variable(a, b);
}

OFFERED int p_constant(int a, int b) {
    return constants[0](a, b);
}

OFFERED int p_lookup(int a, int b) {
    int (*found)(int, int) = (int (*)(int, int))dlsym(RTLD_DEFAULT, "t_add");
    return found != NULL ? found(a, b) : -1;
}
