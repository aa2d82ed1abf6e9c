// The main() of end-to-end tests: the program arms its own crash guard in a fresh caches folder and
// starts itself again, so that the hooks are installed while the library loads, as in a real host.

#include <TQAudioRecord/TQAudioRecord.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

constexpr const char* kArmed = "TQ_TEST_ARMED_FOLDER";

bool isListing(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--gtest_list_tests") == 0) {
            return true;
        }
    }
    return false;
}

/// In the first process: never returns when all goes well.
int armAndRestart(char** argv) {
    std::string folder = std::filesystem::temp_directory_path() / "tq-e2e-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        std::perror("mkdtemp");
        return 2;
    }
    setenv("XDG_CACHE_HOME", folder.c_str(), 1);
    setenv("TQ_AUDIO_DEVICE", "manual", 0);
    setenv(kArmed, folder.c_str(), 1);
    // The library looked into another folder when it loaded, so it loads anew before it arms.
    execv("/proc/self/exe", argv);
    std::perror("execv");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (isListing(argc, argv)) {
        ::testing::InitGoogleTest(&argc, argv);
        return RUN_ALL_TESTS();
    }
    const char* const folder = std::getenv(kArmed);
    if (folder == nullptr) {
        return armAndRestart(argv);
    }
    if (!TQAudioRecordHookConfig::shared().isHookEnable()) {
        if (TQAudioRecordHookConfig::shared().enableHook(1, YES) != 0) {
            std::fprintf(stderr, "cannot arm the guard in %s\n", folder);
            return 2;
        }
        execv("/proc/self/exe", argv);
        std::perror("execv");
        return 2;
    }
    // Only now: it takes its flags out of argv, which the restarts hand on.
    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return result;
}
