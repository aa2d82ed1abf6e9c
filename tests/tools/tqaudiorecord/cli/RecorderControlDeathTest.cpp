// Who asks a recording for something, or is asked, dies meanwhile.

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <memory>
#include <random>

#include "ControlledRecorder.h"

namespace tqrecorder::test {
namespace {

class RecorderControlDeathTest : public ControlledRecorderTest {
  protected:
    [[nodiscard]] std::unique_ptr<Program> beginCtl(std::vector<std::string> words) const {
        words.insert(words.begin(), "ctl");
        return std::make_unique<Program>(reachable(setup(std::move(words), {})));
    }
    /// Whether it has connected to somebody.
    static bool hasSocket(const Program& program) {
        std::error_code failure;
        const std::string folder = "/proc/" + std::to_string(program.pid()) + "/fd";
        const std::filesystem::directory_iterator entries(folder, failure);
        return std::any_of(begin(entries), end(entries), [](const auto& entry) {
            std::error_code unreadable;
            return std::filesystem::read_symlink(entry.path(), unreadable)
                .string()
                .starts_with("socket:");
        });
    }
    /// What a killed recorder leaves.
    void leaveSocket(const std::string& name) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = folder_.file("tqaudiorecord/" + name);
        ASSERT_LT(path.size(), sizeof address.sun_path);
        path.copy(address.sun_path, path.size());
        const int socket = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        close(socket);
    }
};

TEST_F(RecorderControlDeathTest, ARecorderThatIsKilledWhileItIsAskedIsAnAnswer) {
    Program recorder(reachable(setup({"-q", "-o", path_, "--replay", "5"}, game("30"))));
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.1); }));
    recorder.signal(SIGSTOP);
    const auto save = beginCtl({"save"});
    const auto stop = beginCtl({"stop"});
    ASSERT_TRUE(eventually([&] { return hasSocket(*save) && hasSocket(*stop); }));
    recorder.signal(SIGKILL);
    for (Program* const one : {save.get(), stop.get()}) {
        const ProgramEnd end = one->wait();
        EXPECT_EQ(end.code, 2);
        EXPECT_TRUE(end.errors == "tqaudiorecord: the recorder has gone without an answer\n" ||
                    end.errors.starts_with("tqaudiorecord: the recorder cannot be asked: ") ||
                    end.errors == "tqaudiorecord: no recorder is running\n")
            << end.errors;
    }
    EXPECT_THAT(ctl({"status"}).errors, HasSubstr("no recorder is running"));
}

TEST_F(RecorderControlDeathTest, ThoseThatAskMayDieAtAnyMoment) {
    Program recorder(reachable(setup({"-q", "-o", path_}, game("60"))));
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.1); }));
    std::mt19937 random(15);
    for (int round = 0; round < 30; ++round) {
        const auto one = beginCtl({round % 2 == 0 ? "status" : "split"});
        std::this_thread::sleep_for(
            std::chrono::microseconds{std::uniform_int_distribution<int>(0, 30'000)(random)});
        one->signal(SIGKILL);
    }
    EXPECT_EQ(ctl({"status"}).code, 0);
    EXPECT_EQ(ctl({"stop"}).code, 0);
    EXPECT_EQ(recorder.wait().code, 0);
}

TEST_F(RecorderControlDeathTest, WhatKilledRecordersLeftIsRemoved) {
    EXPECT_EQ(ctl({"status"}).code, 2);
    for (const char* name : {"1.sock", "99999999.sock", "0.sock"}) {
        leaveSocket(name);
    }
    Program recorder(reachable(setup({"-q", "-o", path_}, game("30"))));
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.1); }));
    EXPECT_EQ(ctl({"--pid", "99999999", "status"}).code, 2);
    EXPECT_EQ(ctl({"stop"}).code, 0);
    EXPECT_EQ(recorder.wait().code, 0);
    EXPECT_TRUE(std::filesystem::is_empty(folder_.file("tqaudiorecord")));
}

TEST_F(RecorderControlDeathTest, AHundredThatAskAtOnceAreAllAnswered) {
    Program recorder(reachable(setup({"-q", "-o", path_}, game("60"))));
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.1); }));
    std::vector<std::unique_ptr<Program>> clients;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(beginCtl({"status"}));
    }
    for (const auto& client : clients) {
        const ProgramEnd end = client->wait();
        EXPECT_EQ(end.code, 0) << end.errors;
    }
    EXPECT_EQ(ctl({"stop"}).code, 0);
    EXPECT_EQ(recorder.wait().code, 0);
}

TEST_F(RecorderControlDeathTest, ThoseWhoAskedBeforeAStopAreAllAnswered) {
    Program recorder(reachable(setup({"-q", "-o", path_}, game("60"))));
    ASSERT_TRUE(eventually([&] { return hasPlayed(0.1); }));
    // All of them have asked before the first can be answered; none waits longer than two seconds.
    recorder.signal(SIGSTOP);
    std::vector<std::unique_ptr<Program>> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(beginCtl({"stop"}));
    }
    EXPECT_TRUE(eventually([&] {
        return std::all_of(clients.begin(), clients.end(),
                           [](const auto& client) { return hasSocket(*client); });
    }));
    recorder.signal(SIGCONT);
    for (const auto& client : clients) {
        const ProgramEnd end = client->wait();
        EXPECT_EQ(end.code, 0) << end.errors;
    }
    EXPECT_EQ(recorder.wait().code, 0);
}

TEST_F(RecorderControlDeathTest, SavesThatAreUnderWayAtAStopAreWrittenAndAnswered) {
    Program recorder(reachable(setup({"-q", "-o", path_, "--replay", "5"}, game("60"))));
    ASSERT_TRUE(eventually([&] { return hasPlayed(1); }));
    recorder.signal(SIGSTOP);
    std::vector<std::unique_ptr<Program>> saves;
    saves.push_back(beginCtl({"save"}));
    saves.push_back(beginCtl({"save"}));
    const auto stop = beginCtl({"stop"});
    EXPECT_TRUE(eventually(
        [&] { return hasSocket(*saves[0]) && hasSocket(*saves[1]) && hasSocket(*stop); }));
    recorder.signal(SIGUSR1);
    recorder.signal(SIGCONT);
    for (const auto& save : saves) {
        const ProgramEnd end = save->wait();
        EXPECT_EQ(end.code, 0) << end.errors;
        EXPECT_THAT(end.output, testing::StartsWith(folder_.file("out-00")));
    }
    EXPECT_EQ(stop->wait().code, 0);
    EXPECT_EQ(recorder.wait().code, 0);
    for (const char* name : {"out-001.wav", "out-002.wav", "out-003.wav"}) {
        EXPECT_GT(RecordedFile(folder_.file(name)).frames(), 40'000U);
    }
}

}  // namespace
}  // namespace tqrecorder::test
