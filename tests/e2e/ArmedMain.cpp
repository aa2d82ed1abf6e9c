// The main() of end-to-end tests: the program arms its own crash guard in a fresh caches folder and
// starts itself again, so that the hooks are installed while the library loads, as in a real host.

#include <TQAudioRecord/TQAudioRecord.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/EachCase.h"

namespace {

constexpr const char* kArmed = "TQ_TEST_ARMED_FOLDER";

/// In the first process: never returns when all goes well.
int armAndRestart(char* const* argv) {
    std::string folder = std::filesystem::temp_directory_path() / "tq-e2e-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        std::perror("mkdtemp");
        return 2;
    }
    setenv("XDG_CACHE_HOME", folder.c_str(), 1);
    setenv(kArmed, folder.c_str(), 1);
    // The library looked into another folder when it loaded, so it loads anew before it arms.
    execv("/proc/self/exe", argv);
    std::perror("execv");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    // The restarts need the flags that are taken out of argv.
    const std::vector<char*> arguments(argv, argv + argc + 1);
    if (const std::optional<int> code = tqtest::runEachCase(argc, argv)) {
        return *code;
    }
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    const char* const folder = std::getenv(kArmed);
    if (folder == nullptr) {
        return armAndRestart(arguments.data());
    }
    if (!TQAudioRecordHookConfig::shared().isHookEnable()) {
        if (TQAudioRecordHookConfig::shared().enableHook(1, YES) != 0) {
            std::fprintf(stderr, "cannot arm the guard in %s\n", folder);
            return 2;
        }
        execv("/proc/self/exe", arguments.data());
        std::perror("execv");
        return 2;
    }
    const int result = RUN_ALL_TESTS();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return result;
}
