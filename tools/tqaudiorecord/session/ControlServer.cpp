#include "session/ControlServer.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "ipc/ControlText.h"

namespace tqrecorder {
namespace {

constexpr std::size_t kMostSilent = 64;
/// Who connects asks at once. One that does not makes room for others after that time only.
constexpr std::chrono::seconds kPatience{2};

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
    const std::string number = folder + "/" + std::to_string(getpid());
    path_ = number + ".sock";
    // Clients remove sockets at which nobody listens. This one gets its name when somebody does,
    // and replaces one of a process with this number that was killed.
    const std::string unheard = number + ".new";
    unlink(unheard.c_str());
    socket_ = controlSocket(unheard, SocketEnd::kServer);
    if (!socket_ || rename(unheard.c_str(), path_.c_str()) != 0) {
        error = path_ + ": " + std::strerror(errno);
        unlink(unheard.c_str());
        socket_.reset();
    }
    return static_cast<bool>(socket_);
}

std::vector<ControlRequest> ControlServer::requests() {
    const Clock::time_point now = Clock::now();
    if (silent_.size() == kMostSilent) {
        std::erase_if(silent_, [now](const Silent& one) { return now - one.since > kPatience; });
    }
    isShort_ = false;
    while (silent_.size() < kMostSilent) {
        tqcommon::Descriptor client(
            accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!client) {
            isShort_ = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
            break;
        }
        if (isPeerOurs(client.get())) {
            silent_.push_back({std::move(client), now});
        }
    }
    std::vector<ControlRequest> list;
    std::vector<Silent> still;
    for (Silent& one : silent_) {
        tqcommon::Descriptor& client = one.client;
        std::array<char, 256> text{};
        const ssize_t size = recv(client.get(), text.data(), text.size(), 0);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
            still.push_back(std::move(one));
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

bool ControlServer::isAnybodyComing() const {
    pollfd waiting{socket_.get(), POLLIN, 0};
    return !silent_.empty() || poll(&waiting, 1, 0) > 0;
}

void ControlServer::answer(const tqcommon::Descriptor& client, const ControlAnswer& answer) {
    const std::string text = (answer.isDone ? "1" : "0") + cutToWholeLines(answer.text);
    // Who does not wait for it has gone.
    (void)send(client.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

}  // namespace tqrecorder
