/* A program that knows nothing of hooks and prints what its calls answer, one "name=value" a line.

   host [--hook FILE] [--plugin FILE] [--deepbind] [--reload FILE] */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "target.h"

typedef int (*Add)(int, int);

static Add volatile variable = t_add;
static Add const table[] = {t_add};
/* Keeps the compiler from calling what it knows the table to hold. */
static const Add* volatile constants = table;

static void* load(const char* file, int flags) {
    void* handle = dlopen(file, flags);
    const char* message = dlerror();
    if (handle == NULL) {
        printf("failed=%s\n", message != NULL ? message : "");
    } else {
        printf("message_after_load=%d\n", message != NULL);
    }
    return handle;
}

static void call(void* handle, const char* function) {
    Add found = (Add)dlsym(handle, function);
    printf("%s=%d\n", function, found != NULL ? found(1, 2) : -1);
}

/* How the page that holds `address` is mapped. */
static void printProtection(const char* name, const void* address) {
    FILE* maps = fopen("/proc/self/maps", "r");
    char line[512];
    unsigned long begin;
    unsigned long end;
    char protection[8];
    while (maps != NULL && fgets(line, sizeof line, maps) != NULL) {
        if (sscanf(line, "%lx-%lx %7s", &begin, &end, protection) == 3 &&
            (uintptr_t)address >= begin && (uintptr_t)address < end) {
            printf("%s=%s\n", name, protection);
        }
    }
    if (maps != NULL) {
        fclose(maps);
    }
}

/* Apart, so that addresses fetched before a hook came are not kept in registers. */
__attribute__((noinline)) static void runOwnCalls(void) {
    printf("call_1=%d\n", t_add(1, 2));
    printf("call_2=%d\n", t_add(1, 2));
    int last = 0;
    for (int i = 0; i < 1000; ++i) {
        last = t_add(1, 2);
    }
    printf("call_1000=%d\n", last);
    printf("pick=%d\n", t_pick());
    printf("inner=%d\n", t_twice(1, 2));
    printf("variable=%d\n", variable(1, 2));
    printf("constant=%d\n", constants[0](1, 2));
    printf("one_address=%d\n", variable == constants[0] && variable == t_add);
    printProtection("constant_page", &constants[0]);

    Add found = (Add)dlsym(RTLD_DEFAULT, "t_add");
    printf("default_lookup=%d\n", found != NULL ? found(1, 2) : -1);
    found = (Add)dlsym(RTLD_NEXT, "t_add");
    printf("next_lookup=%d\n", found != NULL ? found(1, 2) : -1);
    void* target = dlopen("libhook_target.so", RTLD_LAZY);
    found = target != NULL ? (Add)dlsym(target, "t_add") : NULL;
    printf("handle_lookup=%d\n", found != NULL ? found(1, 2) : -1);
    const char* message = dlerror();
    printf("message_after_lookup=%d\n", message != NULL);
    found = (Add)dlsym(RTLD_DEFAULT, "t_defined_nowhere");
    message = dlerror();
    printf("missing_lookup=%d\n", found != NULL);
    printf("missing_message=%s\n", message != NULL ? message : "");
}

static void runReloads(const char* file) {
    for (int i = 0; i < 4; ++i) {
        void* handle = dlopen(file, RTLD_LAZY);
        Add found = handle != NULL ? (Add)dlsym(handle, "p_call") : NULL;
        printf("reload_%d=%d\n", i, found != NULL ? found(1, 2) : -1);
        printf("reload_place_%d=%p\n", i, (void*)found);
        if (handle != NULL) {
            dlclose(handle);
        }
    }
}

int main(int count, char** arguments) {
    const char* plugin = NULL;
    int flags = RTLD_LAZY | RTLD_LOCAL;
    printf("before=%d\n", t_add(1, 2));
    for (int i = 1; i < count; ++i) {
        const char* file = i + 1 < count ? arguments[i + 1] : NULL;
        if (strcmp(arguments[i], "--deepbind") == 0) {
            flags |= RTLD_DEEPBIND;
        } else if (strcmp(arguments[i], "--hook") == 0) {
            load(file, RTLD_NOW | RTLD_GLOBAL);
        } else if (strcmp(arguments[i], "--plugin") == 0) {
            plugin = file;
        } else if (strcmp(arguments[i], "--reload") == 0) {
            runReloads(file);
        }
    }
    runOwnCalls();
    void* handle = plugin != NULL ? load(plugin, flags) : NULL;
    if (handle != NULL) {
        call(handle, "p_call");
        call(handle, "p_variable");
        call(handle, "p_constant");
        call(handle, "p_lookup");
    }
    void (*hookPrint)(void) = (void (*)(void))dlsym(RTLD_DEFAULT, "hook_print");
    if (hookPrint != NULL) {
        hookPrint();
    }
    return 0;
}
