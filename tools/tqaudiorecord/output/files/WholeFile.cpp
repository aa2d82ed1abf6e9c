#include "output/files/WholeFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "output/files/PartFile.h"

namespace tqrecorder {
namespace {

bool writeAll(int file, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            errno = written < 0 ? errno : ENOSPC;
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace

WholeFile writeWholeFile(const std::string& path, bool mayReplace, Worth worth,
                         std::span<const std::byte> bytes) {
    PartFile part(path, mayReplace);
    if (!part.problem().empty()) {
        return {"", part.problem()};
    }
    if (worth == Worth::kSilence && part.isNameTaken()) {
        return {"", path + ": stays as it was; the new recording is silent"};
    }
    if (!writeAll(part.descriptor().get(), bytes)) {
        return {"", path + ": " + std::strerror(errno)};
    }
    std::string problem =
        worth == Worth::kVoiceAlone && part.isNameTaken() ? part.takeNameBeside() : part.takeName();
    return {part.hasName() ? part.path() : std::string(), std::move(problem)};
}

}  // namespace tqrecorder
