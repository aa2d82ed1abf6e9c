#include "output/files/TracksFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

#include "core/Records.h"
#include "output/files/FileFormats.h"

namespace tqrecorder {
namespace {

/// Of those that are in a folder; empty when there is none.
std::string firstTrackIn(const std::string& folder) {
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(folder, failure)) {
        std::string name = entry.path().filename().string();
        if (name.starts_with(kTrackPrefix)) {
            return name;
        }
    }
    return {};
}

/// Whether a recording of tracks may have made a file of that name: "track-1-music.wav",
/// "track-2-voice-game-001.opus". The numbers of an album have two digits.
bool isTracksName(std::string_view name) {
    if (!name.starts_with(kTrackPrefix)) {
        return false;
    }
    const std::string_view rest = name.substr(kTrackPrefix.size());
    return rest.size() > 2 && rest[0] >= '1' && rest[0] <= '0' + kMicrophoneTrack &&
           rest[1] == '-' &&
           std::any_of(fileFormats().begin(), fileFormats().end(), [rest](const FileFormat& kind) {
               return rest.ends_with("." + std::string(kind.extension));
           });
}

}  // namespace

std::string TracksFolder::open(bool mayReplace) {
    std::error_code failure;
    std::filesystem::create_directories(path_, failure);
    if (failure) {
        return path_ + ": " + failure.message();
    }
    const std::string probe = path_ + "/.tqaudiorecord-" + std::to_string(getpid());
    const int file = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0) {
        return path_ + ": " + std::strerror(errno);
    }
    ::close(file);
    ::unlink(probe.c_str());
    lock_ = tqcommon::Descriptor(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock_ && flock(lock_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return path_ + ": another recorder is writing its tracks there";
    }
    const std::string there = mayReplace ? std::string() : firstTrackIn(path_);
    if (!there.empty()) {
        return path_ + ": holds tracks already (" + there + "); --overwrite replaces them";
    }
    if (mayReplace) {
        for (const auto& entry : std::filesystem::directory_iterator(path_, failure)) {
            struct stat status {};
            const std::string path = entry.path().string();
            if (isTracksName(entry.path().filename().string()) &&
                ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
                old_.push_back({path, status.st_dev, status.st_ino});
            }
        }
    }
    return {};
}

std::vector<std::string> TracksFolder::removeOld() {
    std::vector<std::string> problems;
    for (const Old& old : std::exchange(old_, {})) {
        struct stat status {};
        const bool isThere = ::lstat(old.path.c_str(), &status) == 0 &&
                             status.st_dev == old.device && status.st_ino == old.number;
        if (isThere && ::unlink(old.path.c_str()) != 0 && errno != ENOENT) {
            problems.push_back(old.path + ": of an earlier recording, and cannot be removed: " +
                               std::strerror(errno));
        }
    }
    return problems;
}

}  // namespace tqrecorder
