/* Defines a function that is redirected, and loads plug-ins of its own. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>

#define OFFERED __attribute__((visibility("default")))

OFFERED int t_add(int a, int b) {
    return a + b + 500;
}

/* What a plug-in's call answers, -1 when there is none. */
OFFERED int b_callOfPlugin(const char* path, int a, int b) {
    void* plugin = dlopen(path, RTLD_LAZY | RTLD_LOCAL);
    int (*call)(int, int) = plugin != NULL ? (int (*)(int, int))dlsym(plugin, "p_call") : NULL;
    return call != NULL ? call(a, b) : -1;
}

OFFERED void* b_lookUp(const char* name) {
    /* Not the last thing it does: the loader would take the caller of this for its own. */
    void* volatile found = dlsym(RTLD_DEFAULT, name);
    return found;
}
