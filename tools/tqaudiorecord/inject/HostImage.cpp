#include "inject/HostImage.h"

#include <elf.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "common/ElfNames.h"
#include "core/Services.h"
#include "core/SoundLibraries.h"
#include "ipc/TapSettings.h"

namespace tqrecorder {
namespace {

constexpr std::array<std::string_view, 6> kOurs{
    kTapName, kGateName, "libTQAudioRecord", "libtqplatform.so", "libtqhook.so", "linux-vdso"};
/// Libraries there are the system's: what they could open says nothing about the program.
constexpr std::array<std::string_view, 3> kSystemFolders{"/lib", "/usr/lib", "/usr/local/lib"};

/// How their files are called; versions may follow.
constexpr std::array<std::string_view, 14> kInterpreters{
    "python", "pypy", "java", "wine", "mono", "node",  "electron",
    "perl",   "ruby", "lua",  "love", "php",  "guile", "dotnet"};

/// Empty where the system does not say.
std::string programFile() {
    std::array<char, 4096> path{};
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    return {path.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

std::string_view nameOf(const dl_phdr_info& image) {
    return image.dlpi_name == nullptr ? "" : image.dlpi_name;
}

template <class Wanted>
bool needs(const dl_phdr_info& image, Wanted wanted) {
    const tqcommon::MappedDynamic dynamic(image.dlpi_addr, image.dlpi_phdr, image.dlpi_phnum);
    bool isFound = false;
    tqcommon::forEachDynamicName(
        dynamic, DT_NEEDED, [&](std::string_view needed) { isFound = isFound || wanted(needed); });
    return isFound;
}

int lookForPlatform(dl_phdr_info* image, std::size_t /*size*/, void* /*context*/) {
    return !beginsWithOneOf(withoutFolders(nameOf(*image)), kOurs) &&
                   needs(*image,
                         [](std::string_view name) {
                             return beginsWithOneOf(name, kPlatformLibraries);
                         })
               ? 1
               : 0;
}

int lookForSound(dl_phdr_info* image, std::size_t /*size*/, void* /*context*/) {
    const std::string_view name = withoutFolders(nameOf(*image));
    return !beginsWithOneOf(name, kOurs) && (isSoundLibrary(name) || needs(*image, isSoundLibrary))
               ? 1
               : 0;
}

bool namesSoundLibrary(std::string_view text) {
    constexpr std::string_view kBeginning = "lib";
    while (true) {
        const void* const found =
            memmem(text.data(), text.size(), kBeginning.data(), kBeginning.size());
        if (found == nullptr) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(static_cast<const char*>(found) - text.data()));
        if (isSoundLibrary(text)) {
            return true;
        }
        text.remove_prefix(kBeginning.size());
    }
}

/// What the program's files hold as constants, where it cannot change them.
int lookForNames(dl_phdr_info* image, std::size_t /*size*/, void* room) {
    std::size_t& left = *static_cast<std::size_t*>(room);
    const std::string_view path = nameOf(*image);
    if (beginsWithOneOf(withoutFolders(path), kOurs) || beginsWithOneOf(path, kSystemFolders)) {
        return 0;
    }
    const std::span segments(image->dlpi_phdr, image->dlpi_phnum);
    const auto isConstant = [](const ElfW(Phdr) & segment) {
        return segment.p_type == PT_LOAD && (segment.p_flags & (PF_R | PF_W | PF_X)) == PF_R;
    };
    // Older linkers put constants beside the code.
    const bool isApart = std::any_of(segments.begin(), segments.end(), isConstant);
    for (const ElfW(Phdr) & segment : segments) {
        const bool isMixed = segment.p_type == PT_LOAD && (segment.p_flags & (PF_R | PF_W)) == PF_R;
        if (isApart ? !isConstant(segment) : !isMixed) {
            continue;
        }
        const std::size_t size = std::min<std::size_t>(segment.p_filesz, left);
        left -= size;
        if (namesSoundLibrary(
                {reinterpret_cast<const char*>(image->dlpi_addr + segment.p_vaddr), size})) {
            return 1;
        }
    }
    return 0;
}

}  // namespace

bool usesPlatform() {
    return dl_iterate_phdr(lookForPlatform, nullptr) != 0;
}

bool isInterpreter() {
    return beginsWithOneOf(withoutFolders(programFile()), kInterpreters);
}

bool isServing() {
    return isService(withoutFolders(programFile()));
}

bool isCommand(const TapSettings& settings) {
    char* const place = std::getenv(kCommandVariable);
    if (place == nullptr || std::strlen(place) != kCommandDigits) {
        return getppid() == settings.recorder;
    }
    if (const long known = std::strtol(place, nullptr, 10); known != 0) {
        return known == getpid();
    }
    if (getppid() != settings.recorder) {
        return false;
    }
    // In its place: a program may have taken its environment's addresses already.
    const std::string number = std::to_string(getpid());
    std::memcpy(place + kCommandDigits - number.size(), number.data(), number.size());
    return true;
}

bool mayHaveSound() {
    std::size_t room = std::size_t{64} << 20U;
    return dl_iterate_phdr(lookForSound, nullptr) != 0 || dl_iterate_phdr(lookForNames, &room) != 0;
}

}  // namespace tqrecorder
