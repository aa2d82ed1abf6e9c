#include "PipeWireServer.h"

#include <filesystem>

namespace tqtest {

PipeWireServer::PipeWireServer() : environment_(privateFolders(folder_)) {
    needTool("dbus-daemon", "dbus-daemon");
    needTool("pipewire", "pipewire-bin");
    needTool("wireplumber", "wireplumber");
    needTool("pipewire-pulse", "pipewire-pulse");
    needTool("pactl", "pulseaudio-utils");
    const std::string bus = folder_.file("bus");
    bus_ =
        keep({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=unix:path=" + bus});
    awaitReady(*bus_, "the bus", [&] { return std::filesystem::exists(bus); });
    environment_["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + bus;
    environment_["PIPEWIRE_RUNTIME_DIR"] = folder_.file("run");
    start();
}

void PipeWireServer::start() {
    const std::string socket = folder_.file("run/pipewire-0");
    const std::string pulse = folder_.file("run/pulse/native");
    environment_.erase("PULSE_SERVER");
    // Of one that was killed.
    std::filesystem::remove(socket);
    std::filesystem::remove(pulse);
    servers_.push_back(keep({"pipewire"}));
    awaitReady(*servers_.back(), "pipewire", [&] { return std::filesystem::exists(socket); });
    servers_.push_back(keep({"wireplumber"}));
    servers_.push_back(keep({"pipewire-pulse"}));
    awaitReady(*servers_.back(), "pipewire-pulse", [&] { return std::filesystem::exists(pulse); });
    environment_["PULSE_SERVER"] = "unix:" + pulse;
    awaitReady(*servers_.back(), "the null sink", [&] {
        return run({"pactl", "load-module", "module-null-sink", "sink_name=cap", "rate=48000",
                    "channels=2"})
                   .code == 0;
    });
    // Short blocks would be late on a busy machine, and silence heard instead.
    awaitReady(*servers_.back(), "the length of a block", [&] {
        return run({"pw-metadata", "-n", "settings", "0", "clock.force-quantum", "2048"}).code == 0;
    });
    // The session manager makes it the default when it has come to know it.
    awaitReady(*servers_.back(), "the default sink", [&] {
        return run({"pactl", "get-default-sink"}).output == "cap\n" &&
               run({"pactl", "get-default-source"}).output == "cap.monitor\n";
    });
}

ProgramEnd PipeWireServer::run(const std::vector<std::string>& command) const {
    return Kept({.arguments = command, .environment = environment_}, folder_.path()).wait();
}

std::unique_ptr<Kept> PipeWireServer::keep(const std::vector<std::string>& command) const {
    return std::make_unique<Kept>(ProgramSetup{.arguments = command, .environment = environment_},
                                  folder_.path());
}

void PipeWireServer::signal(int number) const {
    for (const auto& server : servers_) {
        server->signal(number);
    }
}

void PipeWireServer::kill() {
    signal(SIGKILL);
    servers_.clear();
}

std::unique_ptr<Recording> PipeWireServer::record(const std::string& sink) const {
    return recordMonitor(environment_, folder_, format_, sink);
}

PipeWireJackServer::PipeWireJackServer() {
    needTool("pw-jack", "pipewire-jack");
}

std::unique_ptr<Recording> PipeWireJackServer::record() const {
    return std::make_unique<Recording>(
        std::vector<std::string>{"pw-jack", TQ_TEST_JACK_RECORDER, "player"}, environment(),
        folder(), SoundFormat{.rate = 48000, .channels = 2, .encoding = Encoding::F32});
}

}  // namespace tqtest
