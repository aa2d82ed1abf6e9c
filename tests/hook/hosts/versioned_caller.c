/* Linked long ago: it calls the first version. */
__asm__(".symver v_changed, v_changed@V_1");

int v_changed(void);

int callChanged(void);
__attribute__((visibility("default"))) int callChanged(void) {
    return v_changed();
}
