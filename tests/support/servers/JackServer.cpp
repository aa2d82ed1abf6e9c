#include "JackServer.h"

#include <csignal>

namespace tqtest {

JackServer::JackServer(int framesPerPeriod)
    : framesPerPeriod_(framesPerPeriod), environment_(privateFolders(folder_)) {
    needTool("jackd", "jackd2");
    // The folder's name is this test's alone, as a server's name has to be on one machine.
    environment_["JACK_DEFAULT_SERVER"] = folder_.path().filename();
    environment_["JACK_NO_START_SERVER"] = "1";
    // Its clients hang where the thread sanitizer passes over libraries that it was not built into.
    environment_["TSAN_OPTIONS"] = "atexit_sleep_ms=20";
    start();
}

void JackServer::kill() {
    server_->signal(SIGKILL);
    server_.reset();
}

void JackServer::start() {
    server_ = std::make_unique<Kept>(
        ProgramSetup{.arguments = {"jackd", "-r", "-n", environment_["JACK_DEFAULT_SERVER"], "-d",
                                   "dummy", "-r", "48000", "-p", std::to_string(framesPerPeriod_)},
                     .environment = environment_},
        folder_.path());
    awaitReady(*server_, "jackd", [&] {
        return runProgram({.arguments = {"jack_lsp"}, .environment = environment_}).code == 0;
    });
}

std::unique_ptr<Recording> JackServer::record() const {
    return std::make_unique<Recording>(
        std::vector<std::string>{TQ_TEST_JACK_RECORDER}, environment_, folder_,
        SoundFormat{.rate = 48000, .channels = 2, .encoding = Encoding::F32});
}

}  // namespace tqtest
