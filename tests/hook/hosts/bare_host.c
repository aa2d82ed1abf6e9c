/* Links no target of its own: plug-ins bring theirs.

   bare_host HOOK PLUGIN... */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>

int main(int count, char** arguments) {
    void* found = dlsym(RTLD_DEFAULT, "t_add");
    printf("global_before=%d\n", found != NULL);
    for (int i = 1; i < count; ++i) {
        void* handle = dlopen(arguments[i], RTLD_LAZY | RTLD_LOCAL);
        if (handle == NULL) {
            printf("failed=%s\n", dlerror());
            return 1;
        }
        int (*call)(int, int) = (int (*)(int, int))dlsym(handle, "p_call");
        if (call != NULL) {
            printf("plugin_%d=%d\n", i, call(1, 2));
            printf("plugin_again_%d=%d\n", i, call(1, 2));
        }
    }
    /* What libraries keep to themselves must not become visible to the program. */
    found = dlsym(RTLD_DEFAULT, "t_add");
    printf("global_after=%d\n", found != NULL);
    printf("message=%d\n", dlerror() != NULL);
    return 0;
}
