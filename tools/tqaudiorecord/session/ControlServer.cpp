#include "session/ControlServer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "ipc/ControlText.h"

namespace tqrecorder {
namespace {

constexpr std::size_t kMostSilent = 16;

}  // namespace

ControlServer::~ControlServer() {
    if (socket_) {
        unlink(path_.c_str());
    }
}

bool ControlServer::open(std::string& error) {
    const std::string folder = controlFolder(error);
    if (folder.empty()) {
        return false;
    }
    path_ = folder + "/" + std::to_string(getpid()) + ".sock";
    // One of a process with this number that was killed.
    unlink(path_.c_str());
    socket_ = controlSocket(path_, SocketEnd::kServer);
    if (!socket_) {
        error = path_ + ": " + std::strerror(errno);
    }
    return static_cast<bool>(socket_);
}

std::vector<ControlRequest> ControlServer::requests() {
    for (std::size_t turn = 0; turn < kMostSilent; ++turn) {
        tqcommon::Descriptor client(
            accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!client) {
            break;
        }
        if (isPeerOurs(client.get())) {
            if (silent_.size() == kMostSilent) {
                silent_.erase(silent_.begin());
            }
            silent_.push_back(std::move(client));
        }
    }
    std::vector<ControlRequest> list;
    std::vector<tqcommon::Descriptor> still;
    for (tqcommon::Descriptor& client : silent_) {
        std::array<char, 256> text{};
        const ssize_t size = recv(client.get(), text.data(), text.size(), 0);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
            still.push_back(std::move(client));
        } else if (const auto command = commandFromText(
                       {text.data(), static_cast<std::size_t>(size > 0 ? size : 0)})) {
            list.push_back({*command, std::move(client)});
        } else if (size > 0) {
            answer(client, {false, "the recorder does not know that command\n"});
        }
    }
    silent_ = std::move(still);
    return list;
}

void ControlServer::answer(const tqcommon::Descriptor& client, const ControlAnswer& answer) {
    const std::string text = (answer.isDone ? "1" : "0") + answer.text.substr(0, kLongestControl);
    // Who does not wait for it has gone.
    (void)send(client.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

}  // namespace tqrecorder
