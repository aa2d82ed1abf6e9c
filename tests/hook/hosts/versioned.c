/* A function that was changed once, and one that is only kept for programs linked long ago. */
#define OFFERED __attribute__((visibility("default")))

__asm__(".symver changedFirst, v_changed@V_1");
__asm__(".symver changedSecond, v_changed@@V_2");
__asm__(".symver kept, v_kept@V_1");

int changedFirst(void);
int changedSecond(void);
int kept(void);

OFFERED int changedFirst(void) {
    return 1;
}

OFFERED int changedSecond(void) {
    return 2;
}

OFFERED int kept(void) {
    return 1;
}
