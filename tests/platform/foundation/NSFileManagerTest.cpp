#include <Foundation/NSFileManager.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/ProgramRunner.h"
#include "support/TemporaryFolder.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kTestProgram = "foundation_tests";

std::string caches() {
    const auto found =
        NSSearchPathForDirectoriesInDomains(NSCachesDirectory, NSUserDomainMask, YES);
    return found.empty() ? std::string() : found.at(0);
}

class FileManager : public testing::Test {
  protected:
    [[nodiscard]] std::string path(const char* name) const { return folder_ / name; }

    /// What a copy of the probe program under that name prints.
    [[nodiscard]] std::string runProbe(const char* name, const char* argument) const {
        const std::string copy = path(name);
        fs::copy_file(TQ_CACHES_PROBE, copy);
        return tqtest::runProgram(
                   {.arguments = {copy, argument}, .environment = {{"XDG_CACHE_HOME", "/caches"}}})
            .output;
    }

    TemporaryFolder temporary_;
    const fs::path& folder_ = temporary_.path();
    const NSFileManager& manager_ = NSFileManager::defaultManager();
};

}  // namespace

TEST(CachesFolder, IsTheProgramsOwnBelowTheXDGFolder) {
    setenv("XDG_CACHE_HOME", "/var/caches", 1);
    EXPECT_EQ(caches(), std::string("/var/caches/") + kTestProgram);
}

TEST(CachesFolder, HasNoDoubleSlash) {
    setenv("XDG_CACHE_HOME", "/var/caches/", 1);
    EXPECT_EQ(caches(), std::string("/var/caches/") + kTestProgram);
}

TEST(CachesFolder, IsBelowTheHomeFolderWithoutAnXDGFolder) {
    unsetenv("XDG_CACHE_HOME");
    setenv("HOME", "/home/somebody", 1);
    EXPECT_EQ(caches(), std::string("/home/somebody/.cache/") + kTestProgram);
}

TEST(CachesFolder, IgnoresARelativeOrEmptyXDGFolder) {
    setenv("HOME", "/home/somebody", 1);
    for (const char* const value : {"", "relative/caches"}) {
        setenv("XDG_CACHE_HOME", value, 1);
        EXPECT_EQ(caches(), std::string("/home/somebody/.cache/") + kTestProgram);
    }
}

TEST(CachesFolder, ComesFromTheUserDatabaseWithoutAHome) {
    unsetenv("XDG_CACHE_HOME");
    const passwd* const entry = getpwuid(geteuid());
    const std::string expected =
        entry != nullptr ? std::string(entry->pw_dir) + "/.cache/" + kTestProgram : "";
    for (const char* const value : {"", "relative"}) {
        setenv("HOME", value, 1);
        EXPECT_EQ(caches(), expected);
    }
    unsetenv("HOME");
    EXPECT_EQ(caches(), expected);
}

TEST(CachesFolder, IsNowhereForAUserWithoutAHome) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root becomes a user that nobody knows";
    }
    constexpr uid_t kNobodyKnows = 54321;
    const auto child = [] {
        unsetenv("XDG_CACHE_HOME");
        unsetenv("HOME");
        std::_Exit(setuid(kNobodyKnows) == 0 && caches().empty() ? 0 : 1);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

TEST_F(FileManager, ACallerHasNoSayInTheCachesFolderOfAProgramWithMoreRights) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the search for leaks needs rights that such a program has not";
#endif
    const passwd* const other = getpwnam("nobody");
    const std::string copy = path("privileged");
    fs::copy_file(TQ_CACHES_PROBE, copy);
    fs::permissions(folder_, fs::perms(0755));
    if (geteuid() != 0 || other == nullptr || chown(copy.c_str(), other->pw_uid, 0) != 0 ||
        chmod(copy.c_str(), 04755) != 0) {
        GTEST_SKIP() << "no program can be given another user's rights here";
    }
    const auto run =
        tqtest::runProgram({.arguments = {copy, ""},
                            .environment = {{"XDG_CACHE_HOME", "/callers"}, {"HOME", "/callers"}}});
    EXPECT_EQ(run.output, std::string(other->pw_dir) + "/.cache/privileged") << run.errors;
}

TEST_F(FileManager, CachesFoldersOfTwoProgramsDiffer) {
    EXPECT_EQ(runProbe("first host", ""), "/caches/first host");
    EXPECT_EQ(runProbe("second", ""), "/caches/second");
}

TEST_F(FileManager, CachesFolderStaysTheSameWhenTheProgramIsReplaced) {
    EXPECT_EQ(runProbe("updated", "unlink"), "/caches/updated");
    EXPECT_FALSE(fs::exists(folder_ / "updated"));
}

TEST_F(FileManager, TheCachesFolderIsNotMade) {
    setenv("XDG_CACHE_HOME", folder_.c_str(), 1);
    EXPECT_FALSE(fs::exists(caches()));
}

TEST_F(FileManager, TellsDirectoriesFilesAndNothingApart) {
    std::ofstream(path("file")) << "text";
    BOOL isDirectory = NO;
    EXPECT_TRUE(manager_.fileExistsAtPath(folder_, &isDirectory));
    EXPECT_TRUE(isDirectory);
    EXPECT_TRUE(manager_.fileExistsAtPath(path("file"), &isDirectory));
    EXPECT_FALSE(isDirectory);
    isDirectory = YES;
    EXPECT_FALSE(manager_.fileExistsAtPath(path("nothing"), &isDirectory));
    EXPECT_FALSE(isDirectory);
    EXPECT_TRUE(manager_.fileExistsAtPath(path("file"), nullptr));
}

TEST_F(FileManager, NoFileHasAnEmptyPathOrOneWithAZeroByte) {
    EXPECT_FALSE(manager_.fileExistsAtPath("", nullptr));
    EXPECT_FALSE(manager_.fileExistsAtPath(folder_.string() + std::string("\0x", 2), nullptr));
    EXPECT_FALSE(manager_.createDirectoryAtPath("", YES));
    EXPECT_FALSE(manager_.createDirectoryAtPath(path("a") + std::string("\0b", 2), YES));
    EXPECT_FALSE(fs::exists(folder_ / "a"));
}

TEST_F(FileManager, MakesADirectoryForThisUserAlone) {
    EXPECT_TRUE(manager_.createDirectoryAtPath(path("new"), NO));
    struct stat status {};
    ASSERT_EQ(stat(path("new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(FileManager, MakesMissingParentsOnlyWhenAsked) {
    EXPECT_FALSE(manager_.createDirectoryAtPath(path("a/b/c"), NO));
    EXPECT_FALSE(fs::exists(folder_ / "a"));
    EXPECT_TRUE(manager_.createDirectoryAtPath(path("a/b/c"), YES));
    EXPECT_TRUE(fs::is_directory(folder_ / "a/b/c"));
    EXPECT_TRUE(manager_.createDirectoryAtPath(path("d//e/"), YES));
    EXPECT_TRUE(fs::is_directory(folder_ / "d/e"));
}

TEST_F(FileManager, AnExistingDirectoryIsASuccessOnlyWithIntermediates) {
    EXPECT_TRUE(manager_.createDirectoryAtPath(folder_, YES));
    EXPECT_FALSE(manager_.createDirectoryAtPath(folder_, NO));
}

TEST_F(FileManager, AFileInTheWayIsAFailure) {
    std::ofstream(path("file")) << "text";
    EXPECT_FALSE(manager_.createDirectoryAtPath(path("file"), YES));
    EXPECT_FALSE(manager_.createDirectoryAtPath(path("file/below"), YES));
}

TEST_F(FileManager, MakesRelativeDirectories) {
    fs::current_path(folder_);
    EXPECT_TRUE(manager_.createDirectoryAtPath("relative/folder", YES));
    EXPECT_TRUE(fs::is_directory(folder_ / "relative/folder"));
}
