// What is heard and held of the login manager; it and its bus are the test's own.

#include "platform/cubeb/LoginManager.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include "support/ProgramRunner.h"
#include "support/TemporaryFolder.h"
#include "support/servers/Kept.h"

namespace {

using namespace tqtest;
using tqcubeb::LoginManager;

class LoginManagerTest : public testing::Test {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "the thread sanitizer dislikes how the D-Bus library orders its locks";
#endif
        needTool("dbus-daemon", "dbus-daemon");
        const std::string address = "unix:path=" + folder_.file("bus");
        bus_.emplace(ProgramSetup{.arguments = {"dbus-daemon", "--session", "--nofork",
                                                "--nopidfile", "--address=" + address}},
                     folder_.path());
        awaitReady(*bus_, "the bus", [&] { return std::filesystem::exists(folder_.file("bus")); });
        setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
        manager_.emplace(ProgramSetup{.arguments = {TQ_LOGIN_MANAGER, folder_.file("sleep"),
                                                    folder_.file("wake")}},
                         folder_.path());
        ASSERT_TRUE(managerSays("ready"));
    }
    [[nodiscard]] bool managerSays(const char* word) const {
        return eventually([&] { return manager_->text().find(word) != std::string::npos; });
    }
    void goToSleep() const {
        std::ofstream(folder_.file("sleep")) << "now";
    }

    TemporaryFolder folder_;
    std::optional<Kept> bus_;
    std::optional<Kept> manager_;
};

/// The next news, waited for.
std::optional<bool> nextOf(LoginManager& watch) {
    std::optional<bool> news;
    static_cast<void>(eventually([&] {
        news = watch.news();
        return news.has_value();
    }));
    return news;
}

TEST_F(LoginManagerTest, AMachineThatSleptWhenTheBusWentIsAwakeOnce) {
    LoginManager watch;
    ASSERT_TRUE(managerSays("delayed"));
    goToSleep();
    ASSERT_EQ(nextOf(watch), true);
    bus_->stop();
    EXPECT_EQ(nextOf(watch), false);
    EXPECT_EQ(watch.news(), std::nullopt);
}

TEST_F(LoginManagerTest, AChildDoesNotKeepTheMachineAwake) {
    LoginManager watch;
    ASSERT_TRUE(managerSays("delayed"));
    // Taken over before the child is made: there is no news to tell by.
    ASSERT_TRUE(eventually([&] {
        static_cast<void>(watch.news());
        return watch.isDelaying();
    }));
    const pid_t child = fork();
    if (child == 0) {
        watch.forgetAfterFork();
        pause();
        _exit(0);
    }
    ASSERT_GT(child, 0);
    goToSleep();
    EXPECT_EQ(nextOf(watch), true);
    static_cast<void>(watch.news());
    EXPECT_TRUE(managerSays("released"));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

}  // namespace
