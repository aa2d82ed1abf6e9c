#include "inject/HostImage.h"

#include <elf.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

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

const ElfW(Dyn) * dynamicSection(const dl_phdr_info& image) {
    for (ElfW(Half) i = 0; i < image.dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = image.dlpi_phdr[i];
        if (segment.p_type == PT_DYNAMIC) {
            return reinterpret_cast<const ElfW(Dyn)*>(image.dlpi_addr + segment.p_vaddr);
        }
    }
    return nullptr;
}

int lookForPlatform(dl_phdr_info* image, std::size_t /*size*/, void* found) {
    const std::string_view name = baseName(image->dlpi_name == nullptr ? "" : image->dlpi_name);
    if (beginsWithOneOf(name, kOurs) || name.starts_with("linux-vdso")) {
        return 0;
    }
    const ElfW(Dyn)* const dynamic = dynamicSection(*image);
    ElfW(Addr) strings = 0;
    for (const ElfW(Dyn)* entry = dynamic; entry != nullptr && entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_STRTAB) {
            strings = entry->d_un.d_ptr;
        }
    }
    if (strings == 0) {
        return 0;
    }
    // The loader has made it an address on the machines we know; elsewhere it is an offset.
    strings += strings < image->dlpi_addr ? image->dlpi_addr : 0;
    for (const ElfW(Dyn)* entry = dynamic; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_NEEDED &&
            beginsWithOneOf(reinterpret_cast<const char*>(strings + entry->d_un.d_val), kWanted)) {
            *static_cast<bool*>(found) = true;
            return 1;
        }
    }
    return 0;
}

}  // namespace

bool usesPlatform() {
    bool found = false;
    dl_iterate_phdr(lookForPlatform, &found);
    return found;
}

void restartProgram(char** arguments) {
    setenv(kRestartVariable, std::to_string(getpid()).c_str(), 1);
    execve("/proc/self/exe", arguments, environ);
    unsetenv(kRestartVariable);
}

bool isRestarted() {
    const char* const mark = std::getenv(kRestartVariable);
    const bool isOurs = mark != nullptr && mark == std::to_string(getpid());
    unsetenv(kRestartVariable);
    return isOurs;
}

}  // namespace tqrecorder
