#include "hook/rebind/SearchPath.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "common/Machine.h"
#include "hook/elf/LoaderMemory.h"

namespace tqhook {

namespace {

constexpr std::array<std::string_view, 2> kOriginTokens{"${ORIGIN}", "$ORIGIN"};

link_map* imageOf(const void* caller) {
    Dl_info info{};
    void* map = nullptr;
    return dladdr1(caller, &info, &map, RTLD_DL_LINKMAP) != 0 ? static_cast<link_map*>(map)
                                                              : nullptr;
}

// Where the file lies that makes the loader stop searching: one of this machine's kind.
bool isLibraryForUs(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    ElfW(Ehdr) header{};
    const ssize_t length = read(file, &header, sizeof header);
    close(file);
    return length == static_cast<ssize_t>(sizeof header) && tqcommon::isForThisMachine(header);
}

// The directories that the loader searches for an image, in order, its own last.
std::vector<std::string> searchDirectories(link_map* map) {
    Dl_serinfo size{};
    if (map == nullptr || dlinfo(map, RTLD_DI_SERINFOSIZE, &size) != 0) {
        return {};
    }
    std::vector<std::max_align_t> room(size.dls_size / sizeof(std::max_align_t) + 1);
    auto* paths = reinterpret_cast<Dl_serinfo*>(room.data());
    paths->dls_size = size.dls_size;
    paths->dls_cnt = size.dls_cnt;
    if (dlinfo(map, RTLD_DI_SERINFO, paths) != 0) {
        return {};
    }
    std::vector<std::string> directories;
    const Dl_serpath* path = &paths->dls_serpath[0];
    for (unsigned i = 0; i < paths->dls_cnt; ++i) {
        directories.emplace_back(path[i].dls_name);
    }
    return directories;
}

// The directories that are searched for the caller before those that are searched for us, too.
// The loader does not say which of an image's directories come from where, but what all images
// share stands last.
std::vector<std::string> callersDirectories(link_map* map) {
    std::vector<std::string> directories = searchDirectories(map);
    const std::vector<std::string> ours =
        searchDirectories(imageOf(reinterpret_cast<const void*>(&searchDirectories)));
    const auto [end, ignored] =
        std::mismatch(directories.rbegin(), directories.rend(), ours.rbegin(), ours.rend());
    directories.erase(end.base(), directories.end());
    return directories;
}

// The folder of the image's file, empty when only the loader knows it. It is not asked: where it
// has not needed the folder itself yet, its answer is a crash.
std::string originOf(const link_map* map) {
    std::string file = loaderNameOf(map);
    if (map != nullptr && file.empty()) {
        std::array<char, PATH_MAX> program{};
        const ssize_t length = readlink("/proc/self/exe", program.data(), program.size());
        file.assign(program.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    return file.starts_with('/') ? file.substr(0, std::max<std::size_t>(file.rfind('/'), 1)) : "";
}

std::string withOrigin(std::string_view name, const std::string& origin) {
    std::string text(name);
    for (const std::string_view token : kOriginTokens) {
        for (std::size_t at = text.find(token); at != std::string::npos;
             at = text.find(token, at + origin.size())) {
            text.replace(at, token.size(), origin);
        }
    }
    return text;
}

bool hasForeignToken(std::string_view name) {
    for (std::size_t at = name.find('$'); at != std::string_view::npos;
         at = name.find('$', at + 1)) {
        const std::string_view rest = name.substr(at);
        if (!rest.starts_with(kOriginTokens[0]) && !rest.starts_with(kOriginTokens[1])) {
            return true;
        }
    }
    return false;
}

}  // namespace

bool canLoadFor(const char* name, const void* caller) {
    link_map* map = imageOf(caller);
    if (std::strchr(name, '$') != nullptr && (hasForeignToken(name) || originOf(map).empty())) {
        return false;
    }
    Lmid_t space = LM_ID_BASE;
    return map == nullptr || dlinfo(map, RTLD_DI_LMID, &space) != 0 || space == LM_ID_BASE;
}

void* openFor(const LoaderCalls& calls, const char* name, int flags, const void* caller) {
    const std::string_view text(name);
    link_map* map = imageOf(caller);
    if (text.find('$') != std::string_view::npos) {
        return calls.open(withOrigin(text, originOf(map)).c_str(), flags);
    }
    if (map == nullptr || text.empty() || text.find('/') != std::string_view::npos) {
        return calls.open(name, flags);
    }
    const std::vector<std::string> directories = callersDirectories(map);
    if (directories.empty()) {
        return calls.open(name, flags);
    }
    // A library that is loaded already is found by its name, whatever the paths say.
    if (void* handle = calls.open(name, flags | RTLD_NOLOAD)) {
        return handle;
    }
    for (const std::string& directory : directories) {
        const std::string path = directory + "/" + name;
        if (isLibraryForUs(path)) {
            return calls.open(path.c_str(), flags);
        }
    }
    return calls.open(name, flags);
}

void* lookUpFor(const LoaderCalls& calls, void* handle, const void* caller,
                const std::function<void*(void* scope)>& ask) {
    if (handle != RTLD_DEFAULT) {
        return ask(handle);
    }
    // Not a guarded static: the guard would be waited for under the loader's lock.
    static std::atomic<void*> program{nullptr};
    if (program.load() == nullptr) {
        program.store(calls.open(nullptr, RTLD_LAZY));
    }
    void* found = ask(program.load());
    const std::string file = found == nullptr ? loaderNameOf(imageOf(caller)) : std::string();
    if (!file.empty()) {
        // The loader's record of an image is no handle: it has a scope only once it is opened.
        if (void* scope = calls.open(file.c_str(), RTLD_LAZY | RTLD_NOLOAD)) {
            found = ask(scope);
            dlclose(scope);
        }
        // Closing dropped the message that a failed lookup leaves.
        found = found != nullptr ? found : ask(program.load());
    }
    return found;
}

}  // namespace tqhook
