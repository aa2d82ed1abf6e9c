#include <Foundation/NSFileManager.h>
#include <errno.h>
#include <pwd.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "common/NeverDestroyed.h"

namespace {

/// Caches are this user's business only.
constexpr mode_t kDirectoryMode = 0700;

bool isDirectory(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// A variable that names an absolute path; anything else counts as not set. A program that runs
/// with more rights than its caller has asks the user database: the caller's wishes are none of its
/// files'.
std::string absolutePathFromEnvironment(const char* variable) {
    const char* const value = secure_getenv(variable);
    return value != nullptr && value[0] == '/' ? value : "";
}

std::string homeFromUserDatabase() {
    std::vector<char> memory(1024);
    passwd entry{};
    passwd* found = nullptr;
    while (getpwuid_r(geteuid(), &entry, memory.data(), memory.size(), &found) == ERANGE) {
        memory.resize(memory.size() * 2);
    }
    return found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/' ? found->pw_dir
                                                                                   : "";
}

std::string cachesOfAllPrograms() {
    if (std::string caches = absolutePathFromEnvironment("XDG_CACHE_HOME"); !caches.empty()) {
        return caches;
    }
    std::string home = absolutePathFromEnvironment("HOME");
    if (home.empty()) {
        home = homeFromUserDatabase();
    }
    // A folder that others could make first would be no place for it.
    return home.empty() ? home : home + "/.cache";
}

std::string programName() {
    if (getauxval(AT_BASE) == 0) {
        // Started as the loader's argument: the file that runs is the loader's.
        return program_invocation_short_name;
    }
    std::string path(256, '\0');
    for (;;) {
        const ssize_t size = readlink("/proc/self/exe", path.data(), path.size());
        if (size < 0) {
            path.clear();
            break;
        }
        if (static_cast<std::size_t>(size) < path.size()) {
            path.resize(static_cast<std::size_t>(size));
            break;
        }
        path.resize(path.size() * 2);
    }
    // The kernel's addition for a program that was replaced while it runs.
    static constexpr std::string_view kDeleted = " (deleted)";
    if (path.ends_with(kDeleted)) {
        path.resize(path.size() - kDeleted.size());
    }
    path.erase(0, path.rfind('/') + 1);
    return path.empty() ? program_invocation_short_name : path;
}

}  // namespace

// There is one directory in one domain, and its path is always written out.
std::vector<std::string> NSSearchPathForDirectoriesInDomains(NSSearchPathDirectory,
                                                             NSSearchPathDomainMask, BOOL) {
    std::string path = cachesOfAllPrograms();
    if (path.empty()) {
        return {};
    }
    if (!path.ends_with('/')) {
        path += '/';
    }
    return {path + programName()};
}

NSFileManager& NSFileManager::defaultManager() {
    static tqcommon::NeverDestroyed<NSFileManager> manager;
    return *manager;
}

BOOL NSFileManager::fileExistsAtPath(const std::string& path, BOOL* isDirectory) const {
    struct stat status {};
    // A path with a zero byte inside names nothing; the system would see a shorter one.
    const bool exists = path.find('\0') == std::string::npos && stat(path.c_str(), &status) == 0;
    if (isDirectory != nullptr) {
        *isDirectory = exists && S_ISDIR(status.st_mode);
    }
    return exists;
}

BOOL NSFileManager::createDirectoryAtPath(const std::string& path, BOOL intermediates) const {
    if (path.empty() || path.find('\0') != std::string::npos) {
        return NO;
    }
    if (!intermediates) {
        return mkdir(path.c_str(), kDirectoryMode) == 0;
    }
    // From the top down. Whatever mkdir says of a part that is there already (a read-only file
    // system has an answer of its own), what counts is that it is a directory.
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), kDirectoryMode) != 0 && !::isDirectory(part)) {
            return NO;
        }
        if (end == std::string::npos) {
            return YES;
        }
    }
}
