/* Appears only after its function has been asked for. */
__attribute__((visibility("default"))) int late_add(int a, int b) {
    return a + b;
}
