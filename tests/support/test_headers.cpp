// Stands for the tests while their common headers are compiled.
int main() {
    return 0;
}
