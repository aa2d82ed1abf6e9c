// A program that dies before any library in it has been initialised.

#include <csignal>

namespace {

void die() {
    std::raise(SIGKILL);
}

}  // namespace

extern "C" {
[[gnu::section(".preinit_array"), gnu::used]] void (*const kFirst)() = die;
}

int main() {
    return 0;
}
