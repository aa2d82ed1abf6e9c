// The socket through which a recording is controlled.

#include "session/ControlServer.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "ipc/ControlText.h"
#include "session/ControlClient.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace tqrecorder;

class ControlServerTest : public testing::Test {
  protected:
    ControlServerTest() { setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1); }
    [[nodiscard]] std::string socketPath() const {
        return folder_.file("tqaudiorecord/" + std::to_string(getpid()) + ".sock");
    }
    TemporaryFolder folder_;
};

TEST_F(ControlServerTest, OneThatIsJustOpeningIsNotTakenForADeadOne) {
    std::jthread client([](const std::stop_token& end) {
        while (!end.stop_requested()) {
            (void)controlRecorder({}, {});
        }
    });
    for (int round = 0; round < 2000; ++round) {
        ControlServer server;
        std::string error;
        ASSERT_TRUE(server.open(error)) << error;
        ASSERT_TRUE(std::filesystem::exists(socketPath())) << "round " << round;
    }
    client.request_stop();
    client.join();
    EXPECT_TRUE(std::filesystem::is_empty(folder_.file("tqaudiorecord")));
}

TEST_F(ControlServerTest, OneThatSaysNothingKeepsNobodyFromBeingAnswered) {
    ControlServer server;
    std::string error;
    ASSERT_TRUE(server.open(error)) << error;
    std::vector<tqcommon::Descriptor> silent;
    for (int i = 0; i < 20; ++i) {
        silent.push_back(controlSocket(socketPath(), SocketEnd::kClient));
        ASSERT_TRUE(silent.back());
        EXPECT_TRUE(server.requests().empty());
    }
    ControlAnswer answer;
    std::thread client([&] { answer = controlRecorder({}, {}); });
    std::vector<ControlRequest> requests;
    while (requests.empty()) {
        requests = server.requests();
    }
    ControlServer::answer(requests.front().client, {true, "here\n"});
    client.join();
    EXPECT_EQ(answer.text, "here\n");
}

TEST_F(ControlServerTest, OneThatDoesNotAnswerKeepsTheOthersFromBeingListedForTwoSecondsOnly) {
    ControlServer server;
    std::string error;
    ASSERT_TRUE(server.open(error)) << error;
    // Nobody takes what comes here, as of a recorder that is stopped.
    const tqcommon::Descriptor deaf =
        controlSocket(folder_.file("tqaudiorecord/1.sock"), SocketEnd::kServer);
    ASSERT_TRUE(deaf);
    ControlAnswer answer;
    std::thread client([&] { answer = listRecorders(); });
    std::vector<ControlRequest> requests;
    while (requests.empty()) {
        requests = server.requests();
    }
    ControlServer::answer(requests.front().client, {true, "0:00:07\n"});
    client.join();
    EXPECT_TRUE(answer.isDone);
    const std::string own = std::to_string(getpid());
    EXPECT_EQ(answer.text, "recorder 1 does not answer\n\nrecorder " + own + ", 0:00:07\n");
}

TEST_F(ControlServerTest, OneThatTakesNoMoreConnectionsDoesNotHoldAListUp) {
    ControlServer server;
    std::string error;
    ASSERT_TRUE(server.open(error)) << error;
    std::vector<tqcommon::Descriptor> waiting;
    do {
        waiting.push_back(controlSocket(socketPath(), SocketEnd::kClient));
    } while (waiting.back());
    EXPECT_EQ(errno, EAGAIN);
    const std::string own = std::to_string(getpid());
    EXPECT_EQ(listRecorders().text, "recorder " + own + " does not answer\n");
}

TEST_F(ControlServerTest, AStoppedRecorderIsSaidToBeStopped) {
    const pid_t stopped = fork();
    ASSERT_GE(stopped, 0);
    if (stopped == 0) {
        raise(SIGSTOP);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(stopped, &status, WUNTRACED), stopped);
    ASSERT_TRUE(WIFSTOPPED(status));
    const std::string number = std::to_string(stopped);
    std::string error;
    ASSERT_FALSE(controlFolder(error).empty());
    const tqcommon::Descriptor deaf =
        controlSocket(folder_.file("tqaudiorecord/" + number + ".sock"), SocketEnd::kServer);
    ASSERT_TRUE(deaf);
    const ControlAnswer answer = controlRecorder(stopped, {ControlCommand::Kind::kStop});
    EXPECT_FALSE(answer.isDone);
    EXPECT_EQ(answer.text, "recorder " + number + " is stopped and does not answer; kill -CONT " +
                               number + " lets it go on\n");
    kill(stopped, SIGKILL);
    waitpid(stopped, nullptr, 0);
}

TEST_F(ControlServerTest, WhatDoesNotFitIntoAnAnswerIsCutBetweenLines) {
    std::string text;
    for (int i = 0; i < 20'000; ++i) {
        text += "file " + std::to_string(i) + "\n";
    }
    const std::string cut = cutToWholeLines(text);
    EXPECT_LE(cut.size(), kLongestControl);
    const std::size_t last = cut.rfind('\n', cut.size() - 2) + 1;
    const auto lines = std::count(cut.begin(), cut.end(), '\n') - 1;
    EXPECT_EQ(cut.substr(0, last), text.substr(0, last));
    EXPECT_EQ(cut.substr(last), "and " + std::to_string(20'000 - lines) + " more lines\n");
    EXPECT_EQ(cutToWholeLines("one\n"), "one\n");
}

}  // namespace
