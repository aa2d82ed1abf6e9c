// The socket through which a recording is controlled.

#include "session/ControlServer.h"

#include <gtest/gtest.h>
#include <unistd.h>

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

}  // namespace
