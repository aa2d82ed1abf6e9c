#include "cli/DefaultOutput.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <thread>

#include "output/files/FileFormats.h"
#include "output/files/FileNames.h"
#include "output/files/PartFile.h"

namespace tqrecorder {
namespace {

std::string fromEnvironment(const char* name) {
    const char* text = std::getenv(name);
    return text != nullptr ? text : "";
}

std::string homeFolder() {
    std::string home = fromEnvironment("HOME");
    if (home.empty()) {
        const passwd* user = getpwuid(geteuid());
        home = user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "/";
    }
    return home;
}

/// The value of a line XDG_MUSIC_DIR="$HOME/Music" of the file in which desktops keep it, whose
/// values are absolute or in the home folder; empty without one.
std::string musicOfDesktop(const std::string& home) {
    constexpr std::string_view kBegin = "XDG_MUSIC_DIR=\"";
    constexpr std::string_view kHome = "$HOME";
    std::string folder = fromEnvironment("XDG_CONFIG_HOME");
    std::ifstream file((folder.empty() ? home + "/.config" : folder) + "/user-dirs.dirs");
    std::string value;
    for (std::string line; std::getline(file, line);) {
        line.erase(0, line.find_first_not_of(" \t"));
        if (line.starts_with(kBegin)) {
            value = line.substr(kBegin.size(), line.find('"', kBegin.size()) - kBegin.size());
        }
    }
    if (value.starts_with(kHome)) {
        return home + value.substr(kHome.size());
    }
    return value.starts_with('/') ? value : std::string();
}

}  // namespace

std::string musicFolder() {
    if (std::string folder = fromEnvironment("XDG_MUSIC_DIR"); folder.starts_with('/')) {
        return folder;
    }
    const std::string home = homeFolder();
    const std::string folder = musicOfDesktop(home);
    return folder.empty() ? home + "/Music" : folder;
}

std::string defaultOutput(const Options& options, std::time_t now) {
    const FileFormat* format = formatNamed(options.format.empty() ? "flac" : options.format);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 32> time{};
    std::strftime(time.data(), time.size(), "-%Y-%m-%d-%H%M%S.", &local);
    const std::string program =
        fileNamePart(std::filesystem::path(options.command.front()).filename().string());
    return freePath((std::filesystem::path(musicFolder()) /
                     (program + time.data() + std::string(format->extension)))
                        .string());
}

tqcommon::Descriptor turnToChoose() {
    constexpr std::chrono::milliseconds kPause{10};
    constexpr int kMostPauses = 200;
    tqcommon::Descriptor turn(::open(homeFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int pause = 0; turn && pause < kMostPauses; ++pause) {
        if (flock(turn.get(), LOCK_EX | LOCK_NB) == 0) {
            break;
        }
        std::this_thread::sleep_for(kPause);
    }
    return turn;
}

}  // namespace tqrecorder
