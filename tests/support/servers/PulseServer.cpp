#include "PulseServer.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>

namespace tqtest {

MonitorRecording::MonitorRecording(const Environment& environment, const TemporaryFolder& folder,
                                   const SoundFormat& format)
    : file_(folder.file("monitor.raw")), format_(format) {
    needTool("parec", "pulseaudio-utils");
    descriptor_ = open(file_.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    recorder_ = std::make_unique<Kept>(
        ProgramSetup{.arguments = {"parec", "-d", "cap.monitor", "--raw", "--latency-msec=20",
                                   "--format=" + std::string(pulseName(format.encoding)),
                                   "--rate=" + std::to_string(format.rate),
                                   "--channels=" + std::to_string(format.channels)},
                     .environment = environment,
                     .output = descriptor_},
        folder.path());
    awaitReady(*recorder_, "the recording", [&] { return std::filesystem::file_size(file_) > 0; });
}

MonitorRecording::~MonitorRecording() {
    recorder_->stop();
    close(descriptor_);
}

Sound MonitorRecording::soFar() const {
    return {format_, contentOf(file_)};
}

Sound MonitorRecording::finish() {
    const std::size_t before = soFar().frames();
    const std::size_t silence = static_cast<std::size_t>(format_.rate) / 3;
    awaitReady(*recorder_, "silence behind the sound", [&] {
        const Sound sound = soFar();
        return sound.frames() >= before + silence && sound.silenceAtEnd() >= silence;
    });
    recorder_->stop();
    return soFar();
}

PulseServer::PulseServer(const SoundFormat& format) : format_(format) {
    needTool("pulseaudio", "pulseaudio");
    needTool("pactl", "pulseaudio-utils");
    for (const char* name : {"run", "home"}) {
        std::filesystem::create_directory(folder_.file(name));
        std::filesystem::permissions(folder_.file(name), std::filesystem::perms::owner_all);
    }
    environment_ = {{"XDG_RUNTIME_DIR", folder_.file("run")},
                    {"HOME", folder_.file("home")},
                    {"XDG_CONFIG_HOME", folder_.file("home/.config")},
                    {"DBUS_SESSION_BUS_ADDRESS", "disabled:"}};
    server_ = std::make_unique<Kept>(
        ProgramSetup{
            .arguments = {"pulseaudio", "-n", "--daemonize=no", "--use-pid-file=no",
                          "--exit-idle-time=-1", "--realtime=no", "--high-priority=no",
                          "--log-level=error", "-L",
                          "module-native-protocol-unix auth-anonymous=1 socket=" + socket(), "-L",
                          // With rewinds a stream's first 8 ms replace silence that the monitor has
                          // given out already.
                          "module-null-sink sink_name=cap norewinds=1 rate=" +
                              std::to_string(format.rate) +
                              " format=" + std::string(pulseName(format.encoding)) +
                              " channels=" + std::to_string(format.channels)},
            .environment = environment_},
        folder_.path());
    environment_["PULSE_SERVER"] = "unix:" + socket();
    awaitReady(*server_, "pulseaudio", [&] {
        return std::filesystem::exists(socket()) &&
               runProgram({.arguments = {"pactl", "info"}, .environment = environment_})
                       .output.find("Default Source: cap.monitor") != std::string::npos;
    });
}

std::unique_ptr<MonitorRecording> PulseServer::record() const {
    return std::make_unique<MonitorRecording>(environment_, folder_, format_);
}

}  // namespace tqtest
