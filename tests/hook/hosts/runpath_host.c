/* Loads by name what only its own search path leads to.

   runpath_host NAME... */
#include <dlfcn.h>
#include <stdio.h>

int main(int count, char** arguments) {
    for (int i = 1; i < count; ++i) {
        void* handle = dlopen(arguments[i], RTLD_LAZY);
        const char* message = dlerror();
        printf("loaded_%d=%d\n", i, handle != NULL);
        printf("message_%d=%s\n", i, message != NULL ? message : "");
        int (*call)(int, int) = handle != NULL ? (int (*)(int, int))dlsym(handle, "p_call") : NULL;
        printf("call_%d=%d\n", i, call != NULL ? call(1, 2) : -1);
    }
    return 0;
}
