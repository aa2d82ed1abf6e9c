#include "inject/HostImage.h"

#include <link.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "common/ElfNames.h"
#include "ipc/TapSettings.h"

namespace tqrecorder {
namespace {

constexpr std::array<std::string_view, 4> kOurs{kTapName, kGateName, "libTQAudioRecord",
                                                "libtqplatform.so"};
constexpr std::array<std::string_view, 2> kWanted{"libtqplatform.so", "libTQAudioRecord.so"};

std::string_view baseName(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

template <std::size_t Count>
bool beginsWithOneOf(std::string_view name, const std::array<std::string_view, Count>& list) {
    return std::any_of(list.begin(), list.end(),
                       [name](std::string_view one) { return name.starts_with(one); });
}

int lookForPlatform(dl_phdr_info* image, std::size_t /*size*/, void* found) {
    const std::string_view name = baseName(image->dlpi_name == nullptr ? "" : image->dlpi_name);
    if (beginsWithOneOf(name, kOurs) || name.starts_with("linux-vdso")) {
        return 0;
    }
    const tqcommon::MappedDynamic dynamic(image->dlpi_addr, image->dlpi_phdr, image->dlpi_phnum);
    bool& isFound = *static_cast<bool*>(found);
    tqcommon::forEachDynamicName(dynamic, DT_NEEDED, [&isFound](std::string_view needed) {
        isFound = isFound || beginsWithOneOf(needed, kWanted);
    });
    return isFound ? 1 : 0;
}

}  // namespace

bool usesPlatform() {
    bool found = false;
    dl_iterate_phdr(lookForPlatform, &found);
    return found;
}

void restartProgram(char** arguments) {
    setenv(kRestartVariable, std::to_string(getpid()).c_str(), 1);
    if (getauxval(AT_BASE) == 0) {
        // Started as the loader's argument: the file that runs is the loader, which needs its own
        // arguments again.
        std::ifstream file("/proc/self/cmdline", std::ios::binary);
        std::vector<std::string> list;
        for (std::string argument; std::getline(file, argument, '\0');) {
            list.push_back(argument);
        }
        std::vector<char*> pointers;
        for (std::string& argument : list) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        execve("/proc/self/exe", pointers.data(), environ);
    } else {
        execve("/proc/self/exe", arguments, environ);
    }
    unsetenv(kRestartVariable);
}

bool isRestarted() {
    const char* const mark = std::getenv(kRestartVariable);
    const bool isOurs = mark != nullptr && mark == std::to_string(getpid());
    unsetenv(kRestartVariable);
    return isOurs;
}

}  // namespace tqrecorder
