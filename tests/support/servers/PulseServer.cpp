#include "PulseServer.h"

#include <filesystem>

namespace tqtest {

PulseServer::PulseServer(const SoundFormat& format) : format_(format) {
    needTool("pulseaudio", "pulseaudio");
    needTool("pactl", "pulseaudio-utils");
    environment_ = privateFolders(folder_);
    environment_["PULSE_SERVER"] = "unix:" + socket();
    start();
}

void PulseServer::start() {
    Environment own = environment_;
    own.erase("PULSE_SERVER");
    server_ = std::make_unique<Kept>(
        ProgramSetup{
            .arguments = {"pulseaudio", "-n", "--daemonize=no", "--use-pid-file=no",
                          "--exit-idle-time=-1", "--realtime=no", "--high-priority=no",
                          "--log-level=error", "-L",
                          "module-native-protocol-unix auth-anonymous=1 socket=" + socket(), "-L",
                          // With rewinds a stream's first 8 ms replace silence that the monitor has
                          // given out already.
                          "module-null-sink sink_name=cap norewinds=1 rate=" +
                              std::to_string(format_.rate) +
                              " format=" + std::string(pulseName(format_.encoding)) +
                              " channels=" + std::to_string(format_.channels)},
            .environment = own},
        folder_.path());
    awaitReady(*server_, "pulseaudio", [&] {
        return std::filesystem::exists(socket()) &&
               runProgram({.arguments = {"pactl", "info"}, .environment = environment_})
                       .output.find("Default Source: cap.monitor") != std::string::npos;
    });
}

void PulseServer::kill() {
    server_->signal(SIGKILL);
    server_.reset();
}

std::unique_ptr<Recording> PulseServer::record(const std::string& sink) const {
    return recordMonitor(environment_, folder_, format_, sink);
}

}  // namespace tqtest
