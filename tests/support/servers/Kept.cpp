#include "Kept.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace tqtest {

ProgramSetup kept(ProgramSetup setup, const std::filesystem::path& folder) {
    std::vector<std::string> command{TQ_TEST_KEEPER, folder.string(), "env"};
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS",
                             "PULSE_SERVER", "PULSE_SINK", "JACK_DEFAULT_SERVER",
                             "ALSA_CONFIG_PATH", "SDL_AUDIODRIVER", "AUDIODEV", "AUDIODRIVER"}) {
        if (!setup.environment.contains(name)) {
            command.insert(command.end(), {"-u", name});
        }
    }
    command.insert(command.end(), setup.arguments.begin(), setup.arguments.end());
    setup.arguments = std::move(command);
    return setup;
}

Kept::Kept(const ProgramSetup& setup, const std::filesystem::path& folder)
    : program_(kept(setup, folder)) {
}

Kept::~Kept() {
    stop();
}

ProgramEnd Kept::wait() {
    isOver_ = true;
    return program_.wait();
}

void Kept::signal(int number) const {
    for (const pid_t program : program_.children()) {
        kill(program, number);
    }
}

void Kept::stop() {
    if (!isOver_) {
        program_.signal(SIGTERM);
        (void)wait();
    }
}

void needTool(const std::string& program, const std::string& package) {
    std::istringstream folders(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (access((folder + "/" + program).c_str(), X_OK) == 0) {
            return;
        }
    }
    throw std::runtime_error(program + " is missing: install the package " + package +
                             ", or start the tests with ./run-tests, which does");
}

}  // namespace tqtest
