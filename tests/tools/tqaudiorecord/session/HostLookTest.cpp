// What is seen of processes from outside, in a made-up /proc.

#include "session/HostLook.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/TemporaryFolder.h"

namespace {

using namespace tqrecorder;
namespace fs = std::filesystem;

struct HostLooks : testing::Test {
    TemporaryFolder temporary;
    std::string proc = temporary.file("proc");
    HostLook look{proc};

    void SetUp() override {
        fs::create_directories(proc + "/self/ns");
        fs::create_symlink("net:[1]", proc + "/self/ns/net");
        fs::create_symlink("user:[1]", proc + "/self/ns/user");
        add(100, "game", "");
    }
    [[nodiscard]] std::string folder(pid_t pid) const { return proc + "/" + std::to_string(pid); }
    void write(pid_t pid, const std::string& name, const std::string& text) const {
        std::ofstream(folder(pid) + "/" + name) << text;
    }
    void add(pid_t pid, const std::string& name, const std::string& children,
             const std::string& program = "/usr/bin/true") const {
        const std::string task = folder(pid) + "/task/" + std::to_string(pid);
        fs::create_directories(task);
        fs::create_directories(folder(pid) + "/fd");
        fs::create_directories(folder(pid) + "/ns");
        fs::create_symlink("net:[1]", folder(pid) + "/ns/net");
        fs::create_symlink("user:[1]", folder(pid) + "/ns/user");
        fs::create_symlink(program, folder(pid) + "/exe");
        write(pid, "comm", name + "\n");
        write(pid, "status", "Name:\t" + name + "\nSeccomp:\t0\n");
        std::ofstream(task + "/children") << children;
    }
    SeenProcess seen() {
        look.lookAt(100);
        const auto list = look.processes();
        return list.size() == 1 ? list.front() : SeenProcess{};
    }
};

TEST_F(HostLooks, ShowAnOrdinaryProgramWithoutSound) {
    const SeenProcess expected{100, "game", "/usr/bin/true"};
    EXPECT_EQ(seen(), expected);
}

TEST_F(HostLooks, FindALibraryForSound) {
    write(100, "maps",
          "7f00-7f01 r-xp 00000000 08:01 9   /usr/lib/libc.so.6\n"
          "7f02-7f03 r-xp 00000000 08:01 9   /usr/lib/x86_64-linux-gnu/libpulse.so.0.24.2\n");
    EXPECT_EQ(seen().library, "libpulse.so.0.24.2");
}

TEST_F(HostLooks, KnowAProcessThatHasTheTapOfTheOneItIsForkedFrom) {
    EXPECT_FALSE(seen().isPrepared);
    write(100, "maps", "7f00-7f01 r-xp 00000000 08:01 9   /opt/lib/libtqaudiorecord_tap.so\n");
    EXPECT_TRUE(seen().isPrepared);
}

TEST_F(HostLooks, FindARawDeviceThatPlaysAndNoOther) {
    fs::create_symlink("/dev/snd/controlC0", folder(100) + "/fd/3");
    fs::create_symlink("/dev/snd/pcmC0D0c", folder(100) + "/fd/4");
    EXPECT_EQ(seen().device, "");
    fs::create_symlink("/dev/snd/pcmC0D0p", folder(100) + "/fd/5");
    EXPECT_EQ(seen().device, "/dev/snd/pcmC0D0p");
}

TEST_F(HostLooks, FindASandboxOfFilteredCallsOrAnotherNetwork) {
    add(101, "filtered", "");
    write(101, "status", "Seccomp:\t2\nSeccomp_filters:\t1\n");
    add(102, "elsewhere", "");
    fs::remove(folder(102) + "/ns/net");
    fs::create_symlink("net:[2]", folder(102) + "/ns/net");
    look.lookAt(101);
    look.lookAt(102);
    EXPECT_TRUE(look.processes().at(0).isSandboxed);
    EXPECT_TRUE(look.processes().at(1).isSandboxed);
    EXPECT_FALSE(seen().isSandboxed);
}

TEST_F(HostLooks, FindRaisedPrivileges) {
    const std::string program = temporary.file("raised");
    std::ofstream(program) << "";
    if (chown(program.c_str(), getuid() + 1, getgid()) != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    ASSERT_EQ(chmod(program.c_str(), 04755), 0);
    add(103, "raised", "", program);
    look.lookAt(103);
    EXPECT_TRUE(look.processes().at(0).isPrivileged);
}

TEST_F(HostLooks, GoDownToChildrenOfChildrenOnceEach) {
    std::ofstream(folder(100) + "/task/100/children") << "101 102 ";
    add(101, "one", "102 100 ");
    add(102, "two", "103 ");
    look.lookAt(100);
    look.lookAt(100);
    ASSERT_EQ(look.processes().size(), 3U) << "one of them is gone already";
    EXPECT_EQ(look.processes().at(2).name, "two");
}

TEST_F(HostLooks, KnowWhichProgramOfAProcessIsRecorded) {
    look.setTapped(100);
    EXPECT_TRUE(seen().isTapped);
    fs::remove(folder(100) + "/exe");
    fs::create_symlink("/usr/bin/false", folder(100) + "/exe");
    look.lookAt(100);
    ASSERT_EQ(look.processes().size(), 2U);
    EXPECT_FALSE(look.processes().at(1).isTapped);
}

TEST_F(HostLooks, AreBounded) {
    std::ofstream children(folder(100) + "/task/100/children");
    for (pid_t pid = 200; pid < 500; ++pid) {
        children << pid << " ";
        add(pid, "child", "");
    }
    children.close();
    look.lookAt(100);
    EXPECT_EQ(look.processes().size(), HostLook::kMost);
}

TEST_F(HostLooks, SayNothingThatSteersATerminal) {
    write(100, "comm", "g\x1b[2Jame\n");
    EXPECT_EQ(seen().name, "g [2Jame");
}

}  // namespace
