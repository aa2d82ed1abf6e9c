#include "ipc/ControlText.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

namespace tqrecorder {
namespace {

using Kind = ControlCommand::Kind;

constexpr int kBacklog = 128;
constexpr std::array<std::pair<Kind, std::string_view>, 11> kNames{{{Kind::kSave, "save"},
                                                                    {Kind::kPause, "pause"},
                                                                    {Kind::kResume, "resume"},
                                                                    {Kind::kTogglePause, "toggle"},
                                                                    {Kind::kSplit, "split"},
                                                                    {Kind::kStop, "stop"},
                                                                    {Kind::kStatus, "status"},
                                                                    {Kind::kFiles, "files"},
                                                                    {Kind::kList, "list"},
                                                                    {Kind::kDuck, "duck"},
                                                                    {Kind::kUnduck, "unduck"}}};

}  // namespace

std::string toText(const ControlCommand& command) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text.precision(10);
    for (const auto& [kind, name] : kNames) {
        if (kind == command.kind) {
            text << name;
        }
    }
    if (command.number) {
        text << ' ' << *command.number;
    }
    if (command.asJson) {
        text << " json";
    }
    return text.str();
}

std::optional<ControlCommand> commandFromText(std::string_view text) {
    const std::string_view name = text.substr(0, text.find(' '));
    ControlCommand command;
    bool isKnown = false;
    for (const auto& [kind, known] : kNames) {
        if (known == name) {
            command.kind = kind;
            isKnown = true;
        }
    }
    std::string_view rest = text.substr(std::min(name.size() + 1, text.size()));
    if (rest == "json") {
        command.asJson = true;
        rest = {};
    }
    if (!rest.empty()) {
        double number = 0;
        const auto [end, failure] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
        if (failure != std::errc() || end != rest.data() + rest.size()) {
            return std::nullopt;
        }
        command.number = number;
    }
    return isKnown ? std::optional(command) : std::nullopt;
}

std::string controlFolder(std::string& error) {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::string folder = runtime != nullptr && *runtime == '/'
                                   ? std::string(runtime) + "/tqaudiorecord"
                                   : "/tmp/tqaudiorecord-" + std::to_string(geteuid());
    struct stat status {};
    if ((mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) ||
        lstat(folder.c_str(), &status) != 0) {
        error = folder + ": " + std::strerror(errno);
        return {};
    }
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid() ||
        (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        error = folder + ": is not a folder of this user alone";
        return {};
    }
    return folder;
}

tqcommon::Descriptor controlSocket(const std::string& path, SocketEnd end) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return {};
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const auto* name = reinterpret_cast<const sockaddr*>(&address);
    const bool isServer = end == SocketEnd::kServer;
    tqcommon::Descriptor made(
        socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | (isServer ? SOCK_NONBLOCK : 0), 0));
    if (made && !isServer) {
        // Also the connection waits, where a recorder takes no more of them.
        const timeval patience{kControlPatienceSeconds, 0};
        setsockopt(made.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        setsockopt(made.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    const bool isDone = made && (isServer ? bind(made.get(), name, sizeof address) == 0 &&
                                                listen(made.get(), kBacklog) == 0
                                          : connect(made.get(), name, sizeof address) == 0);
    return isDone ? std::move(made) : tqcommon::Descriptor();
}

std::string cutToWholeLines(const std::string& text) {
    if (text.size() <= kLongestControl) {
        return text;
    }
    constexpr std::size_t kRoomForTheRest = 40;
    const std::size_t last = text.rfind('\n', kLongestControl - kRoomForTheRest);
    const std::size_t length = last == std::string::npos ? 0 : last + 1;
    const auto more =
        std::count(text.begin() + static_cast<std::ptrdiff_t>(length), text.end(), '\n');
    return text.substr(0, length) + "and " + std::to_string(more) + " more lines\n";
}

bool isPeerOurs(int socket) {
    ucred peer{};
    socklen_t length = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
           peer.uid == geteuid();
}

}  // namespace tqrecorder
