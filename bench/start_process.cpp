// How long a program takes from exec until it has loaded its images, bare or under the recorder.
//   bench_start_process COUNT          begins itself anew and prints seconds
//   bench_start_process COUNT BEGAN    the second time: BEGAN is when, in nanoseconds
#include <dlfcn.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::int64_t now() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2) {
        execl("/proc/self/exe", argv[0], argv[1], std::to_string(now()).c_str(), nullptr);
        return 1;
    }
    if (argc != 3) {
        return 1;
    }
    for (int n = 1; n <= std::atoi(argv[1]); ++n) {
        const std::string path = std::string(TQ_LOAD_IMAGES "/image") + std::to_string(n) + ".so";
        if (dlopen(path.c_str(), RTLD_LAZY) == nullptr) {
            return 1;
        }
    }
    std::printf("%.9f\n", static_cast<double>(now() - std::atoll(argv[2])) / 1e9);
}
