/* Redirects the target's functions when it is loaded, in each of the ways a library can be. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>

#include "hook/tq_hook.h"
#include "target.h"

#define OFFERED __attribute__((visibility("default")))

static int (*savedAdd)(int, int);
static int (*savedPick)(void);
static void* savedNothing;
static int rebindStatus;

static int hookedAdd(int a, int b) {
    return savedAdd(a, b) + HOOK_STEP;
}

static int hookedPick(void) {
    return savedPick() + HOOK_STEP;
}

__attribute__((constructor)) static void install(void) {
    struct tqhook_rebinding rebindings[] = {
        {"t_add", (void*)&hookedAdd, (void**)&savedAdd},
        {"t_defined_nowhere", (void*)&hookedPick, &savedNothing},
        {"t_pick", (void*)&hookedPick, (void**)&savedPick},
    };
    rebindStatus = tqhook_rebind(rebindings, 3, NULL);
}

/* Prints what only the hook knows. */
OFFERED void hook_print(void) {
    Dl_info info;
    const int isKnown = dladdr((void*)savedAdd, &info);
    struct tqhook_counts report;
    tqhook_report(&report);
    printf("rebind_status=%d\n", rebindStatus);
    printf("missing_saved=%d\n", savedNothing != NULL);
    printf("own_call=%d\n", t_add(1, 2));
    /* A PLT entry would be unnamed, or named after another symbol. */
    printf("original_is_definition=%d\n",
           isKnown && info.dli_sname != NULL && info.dli_saddr == (void*)savedAdd);
    printf("refused_images=%zu\n", report.refusedImages);
}
