#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <system_error>

#include "FaultLaunches.h"

// What a full disk and other programs do to the flag files must not reach the host.

namespace {

namespace fs = std::filesystem;
using FlagFiles = FaultLaunches;

/// Runs the player with its caches folder on a file system that has no room left, in a user
/// namespace of its own. `prepare` is a shell script that runs in the folder before it is filled.
tqtest::ProgramEnd launchOnAFullDisk(tqtest::ProgramSetup setup, const std::string& folder,
                                     const std::string& prepare) {
    const std::string script = "set -e; mount -t tmpfs -o size=64k none " + folder + "; cd " +
                               folder + "; " + prepare + "; dd if=/dev/zero of=filler 2>/dev/null" +
                               " || true; exec env LD_PRELOAD=" + TQ_CAPTURE_LIBRARY +
                               " \"$0\" \"$1\"";
    setup.environment.erase("LD_PRELOAD");
    setup.arguments = {"unshare",         "-rm", "sh", "-c", script, setup.arguments[0],
                       setup.arguments[1]};
    return tqtest::runProgram(setup);
}

bool canMount() {
    return tqtest::runProgram(
               {.arguments = {"unshare", "-rm", "mount", "-t", "tmpfs", "none", "/mnt"}})
               .code == 0;
}

TEST_F(FlagFiles, AFreshFolderOnAFullDiskLeavesTheHooksOutAndTheHostPlays) {
    if (!canMount()) {
        GTEST_SKIP() << "no file system may be mounted here";
    }
    for (const char* const prepare :
         {"true", "mkdir -p player/korva_audio_utils; chmod 700 player/korva_audio_utils"}) {
        expectPlays(launchOnAFullDisk(hooked("play"), caches, prepare), "out");
    }
}

TEST_F(FlagFiles, FilesWithHolesOnAFullDiskLeaveTheHooksOutAndTheHostPlays) {
    if (!canMount()) {
        GTEST_SKIP() << "no file system may be mounted here";
    }
    arm();
    TemporaryFolder saved;
    fs::copy(flags, saved.path(), fs::copy_options::recursive);
    const std::string copies =
        "mkdir -p player/korva_audio_utils; chmod 700 player/korva_audio_utils;"
        "cp --sparse=always " +
        saved.path().string() + "/* player/korva_audio_utils/";
    expectPlays(launchOnAFullDisk(hooked("play"), caches, copies), "out");
}

TEST_F(FlagFiles, AFlagFileThatIsEmptiedWhileTheHostPlaysDoesNotStopIt) {
    for (const fs::path& file : {count, config, records}) {
        arm();
        expectPlays(launch("cut:" + file.string()), "started");
    }
}

TEST_F(FlagFiles, NorDoesItWhereTheThreadsThatPlayBlockAllSignals) {
    for (const fs::path& file : {count, config, records}) {
        arm();
        expectPlays(launch("blocked:" + file.string()), "started");
    }
}

TEST_F(FlagFiles, NorDoesItWhereTheHostHasAHandlerOfItsOwnWhichItKeeps) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer takes the calls of signals for itself";
#endif
    arm();
    const tqtest::ProgramEnd run = launch("reported:" + count.string());
    expectPlays(run, "started");
    EXPECT_EQ(run["own"], "1") << run.text();
}

TEST_F(FlagFiles, WhereTheHooksStayOutTheSignalIsTheHostsAndAnEmptiedFileChangesNothing) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer takes the signal for itself";
#endif
    for (const fs::path& file : {count, config, records}) {
        fs::remove_all(flags);
        expectPlays(launch("play"), "out");
        const tqtest::ProgramEnd run = launch("cut:" + file.string());
        expectPlays(run, "out");
        EXPECT_EQ(run["signal"], "free") << run.text();
    }
    arm();
    EXPECT_EQ(launch("play")["signal"], "free") << "what is asked for is the program's own";
}

TEST_F(FlagFiles, EightProcessesThatArmAtOnceAreAllHeard) {
    for (int round = 0; round < 5; ++round) {
        fs::remove_all(caches / kName);
        std::vector<std::unique_ptr<tqtest::Program>> processes;
        for (int id = 1; id <= 8; ++id) {
            processes.push_back(std::make_unique<tqtest::Program>(
                tqtest::ProgramSetup{.arguments = {TQ_FAULT_ARM, "on"},
                                     .environment = {{"XDG_CACHE_HOME", caches.string()},
                                                     {"TQ_TEST_HOOK", std::to_string(id)}}}));
        }
        for (const auto& process : processes) {
            EXPECT_EQ(process->wait()["result"], "0");
        }
        ASSERT_EQ(word(config, 0), 8U);
        for (std::uint32_t id = 1; id <= 8; ++id) {
            EXPECT_EQ(word(config, 8 * id), id);
        }
    }
}

/// What every descriptor of a process stands for.
std::map<int, std::string> descriptorsOf(pid_t process) {
    std::map<int, std::string> found;
    std::error_code gone;
    for (const auto& entry :
         fs::directory_iterator("/proc/" + std::to_string(process) + "/fd", gone)) {
        found[std::stoi(entry.path().filename())] = fs::read_symlink(entry, gone);
    }
    return found;
}

TEST_F(FlagFiles, AHostWithoutStandardStreamsWritesNothingIntoThem) {
    arm();
    const fs::path end = folder.path() / "end";
    tqtest::ProgramSetup setup = hooked("wait:" + end.string());
    setup.arguments = {"sh", "-c",
                       "export LD_PRELOAD=" TQ_CAPTURE_LIBRARY "; exec \"$0\" \"$1\" <&- >&- 2>&-",
                       setup.arguments[0], setup.arguments[1]};
    setup.environment.erase("LD_PRELOAD");
    tqtest::Program program(setup);
    const auto filesAreAtNumbersOfTheirOwn = [&] {
        int files = 0;
        for (const auto& [number, path] : descriptorsOf(program.pid())) {
            files += number > STDERR_FILENO && path.starts_with(flags.string() + "/") ? 1 : 0;
        }
        return files == 3;
    };
    EXPECT_TRUE(tqtest::eventually(filesAreAtNumbersOfTheirOwn));
    std::ofstream(end) << "now";
    EXPECT_EQ(program.wait().code, 0);
    for (const fs::path& file : {config, count}) {
        EXPECT_EQ(contentOf(file).find("hooks="), std::string::npos) << file;
        EXPECT_EQ(contentOf(file).find("played="), std::string::npos) << file;
    }
}

TEST_F(FlagFiles, ALimitOfFileSizesLeavesTheHooksOutAndTheHostPlays) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "an empty program under the thread sanitizer dies by this limit";
#endif
    tqtest::ProgramSetup setup = hooked("play");
    // The output goes through a pipe, which has no such limit.
    setup.arguments = {"sh", "-c",
                       "{ (ulimit -f 0; export LD_PRELOAD=" TQ_CAPTURE_LIBRARY
                       "; exec \"$0\" \"$1\"); echo code=$?; } | cat",
                       setup.arguments[0], setup.arguments[1]};
    setup.environment.erase("LD_PRELOAD");
    const tqtest::ProgramEnd run = tqtest::runProgram(setup);
    expectPlays(run, "out");
    EXPECT_EQ(run["code"], "0") << run.text();
}

TEST_F(FlagFiles, ALimitOfAddressSpaceThatTheHostKeepsToLeavesRoomForTheLibrary) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer takes more than any limit";
#endif
    arm();
    tqtest::ProgramSetup setup = hooked("play");
    // What may be locked into memory is counted by the same size.
    setup.arguments = {"sh", "-c",
                       "ulimit -v 100000; export LD_PRELOAD=" TQ_CAPTURE_LIBRARY
                       "; exec \"$0\" \"$1\"",
                       setup.arguments[0], setup.arguments[1]};
    setup.environment.erase("LD_PRELOAD");
    expectPlays(tqtest::runProgram(setup), "started");
}

/// A user's document, with which nobody but the user has to do.
struct Document {
    TemporaryFolder folder;
    fs::path path = folder.path() / "letter";
    Document() { std::ofstream(path) << "dear reader"; }
    [[nodiscard]] bool isUntouched() const { return contentOf(path) == "dear reader"; }
};

TEST_F(FlagFiles, ALinkInPlaceOfAFlagFileIsNotFollowed) {
    const Document document;
    arm();
    for (const fs::path& file : {config, count}) {
        for (const bool isSymbolic : {true, false}) {
            fs::rename(file, folder.path() / "saved");
            isSymbolic ? fs::create_symlink(document.path, file)
                       : fs::create_hard_link(document.path, file);
            expectPlays(launch("play"), "out");
            EXPECT_TRUE(document.isUntouched());
            fs::remove(file);
            fs::rename(folder.path() / "saved", file);
        }
    }
    expectPlays(launch("play"), "started");
}

TEST_F(FlagFiles, ALinkInPlaceOfTheFolderIsNotFollowed) {
    arm();
    fs::rename(flags, folder.path() / "elsewhere");
    fs::create_directory_symlink(folder.path() / "elsewhere", flags);
    expectPlays(launch("play"), "out");
}

TEST_F(FlagFiles, AFolderThatOthersMayWriteToIsNotUsed) {
    arm();
    for (const auto others : {fs::perms::group_write, fs::perms::others_write}) {
        fs::permissions(flags, fs::perms::owner_all | others);
        expectPlays(launch("play"), "out");
    }
    fs::permissions(flags, fs::perms::owner_all);
    expectPlays(launch("play"), "started");
}

TEST_F(FlagFiles, AnotherUsersFolderOrFileIsNotUsed) {
    arm();
    for (const fs::path& whose : {flags, config, count}) {
        if (chown(whose.c_str(), 65534, 65534) != 0) {
            GTEST_SKIP() << "files cannot be given away here";
        }
        expectPlays(launch("play"), "out");
        ASSERT_EQ(chown(whose.c_str(), geteuid(), getegid()), 0);
    }
    expectPlays(launch("play"), "started");
}

TEST_F(FlagFiles, WhatIsArmedAfterTheFileWasEmptiedIsKept) {
    // The running process mends the file; the test empties it in between.
    ASSERT_EQ(arming("on")["result"], "0");
    const auto run = tqtest::runProgram({.arguments = {TQ_FAULT_ARM, "on", config},
                                         .environment = {{"XDG_CACHE_HOME", caches.string()}}});
    EXPECT_EQ(run["result"], "0") << run.text();
    expectPlays(launch("play"), "started");
}

}  // namespace
