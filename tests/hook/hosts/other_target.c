/* A second library that happens to use a name of the first. */
__attribute__((visibility("default"))) int t_add(int a, int b) {
    return a + b + 500;
}
