#include <Foundation/NSFileManager.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string_view>

// Prints its caches folder. With "unlink" it removes its own file first, as an update of a running
// program does.
int main(int argc, char** argv) {
    if (argc > 1 && std::string_view(argv[1]) == "unlink") {
        std::array<char, 4096> path{};
        if (readlink("/proc/self/exe", path.data(), path.size() - 1) < 0 ||
            unlink(path.data()) != 0) {
            return 1;
        }
    }
    const auto folders =
        NSSearchPathForDirectoriesInDomains(NSCachesDirectory, NSUserDomainMask, YES);
    std::fputs(folders.at(0).c_str(), stdout);
    return 0;
}
