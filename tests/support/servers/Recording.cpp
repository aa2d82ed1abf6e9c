#include "Recording.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace tqtest {

Recording::Recording(const std::vector<std::string>& recorder, const Environment& environment,
                     const TemporaryFolder& folder, const SoundFormat& format,
                     const std::string& name)
    : file_(folder.file(name + ".raw")), format_(format) {
    descriptor_ = open(file_.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    recorder_ = std::make_unique<Kept>(
        ProgramSetup{.arguments = recorder, .environment = environment, .output = descriptor_},
        folder.path());
    awaitReady(*recorder_, "the recording", [&] { return std::filesystem::file_size(file_) > 0; });
}

Recording::~Recording() {
    recorder_->stop();
    close(descriptor_);
}

Sound Recording::soFar() const {
    return {format_, contentOf(file_)};
}

Sound Recording::finish() {
    const std::size_t before = soFar().frames();
    const std::size_t silence = static_cast<std::size_t>(format_.rate) / 3;
    awaitReady(*recorder_, "silence behind the sound", [&] {
        const Sound sound = soFar();
        return sound.frames() >= before + silence && sound.silenceAtEnd() >= silence;
    });
    recorder_->stop();
    return soFar();
}

std::unique_ptr<Recording> recordMonitor(const Environment& environment,
                                         const TemporaryFolder& folder, const SoundFormat& format,
                                         const std::string& sink) {
    needTool("parec", "pulseaudio-utils");
    const std::vector<std::string> command{"parec",
                                           "-d",
                                           sink + ".monitor",
                                           "--raw",
                                           "--latency-msec=20",
                                           "--format=" + std::string(pulseName(format.encoding)),
                                           "--rate=" + std::to_string(format.rate),
                                           "--channels=" + std::to_string(format.channels)};
    return std::make_unique<Recording>(command, environment, folder, format, sink);
}

Environment privateFolders(const TemporaryFolder& folder) {
    for (const char* name : {"run", "home"}) {
        std::filesystem::create_directory(folder.file(name));
        std::filesystem::permissions(folder.file(name), std::filesystem::perms::owner_all);
    }
    return {{"XDG_RUNTIME_DIR", folder.file("run")},
            {"HOME", folder.file("home")},
            {"XDG_CONFIG_HOME", folder.file("home/.config")},
            {"XDG_STATE_HOME", folder.file("home/.state")},
            {"DBUS_SESSION_BUS_ADDRESS", "disabled:"}};
}

}  // namespace tqtest
