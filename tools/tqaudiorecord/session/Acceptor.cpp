#include "session/Acceptor.h"

#include <sys/random.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <map>

namespace tqrecorder {
namespace {

constexpr int kBacklog = 64;
/// Connections without a message yet: a process sends its own right after it has connected.
constexpr std::size_t kMostPending = 256;
/// Taken in by one call: connections that never cease keep the recorder from nothing else.
constexpr int kMostTakenIn = 2 * kBacklog;
/// Descriptors that a broken sender may attach; more than one are closed and its message refused.
constexpr std::size_t kMostDescriptors = 8;

std::string randomName() {
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        return {};
    }
    std::string name = "tqaudiorecord-";
    for (const unsigned char byte : bytes) {
        constexpr const char* kDigits = "0123456789abcdef";
        name += kDigits[byte >> 4U];
        name += kDigits[byte & 15U];
    }
    return name;
}

std::vector<tqcommon::Descriptor> descriptorsOf(msghdr& message) {
    std::vector<tqcommon::Descriptor> list;
    for (cmsghdr* head = CMSG_FIRSTHDR(&message); head != nullptr;
         head = CMSG_NXTHDR(&message, head)) {
        if (head->cmsg_level != SOL_SOCKET || head->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        const std::size_t count = (head->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int number = -1;
            std::memcpy(&number, CMSG_DATA(head) + i * sizeof(int), sizeof number);
            list.emplace_back(number);
        }
    }
    return list;
}

}  // namespace

bool Acceptor::open(std::string& error) {
    name_ = randomName();
    socket_ =
        tqcommon::Descriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name_.data(), name_.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name_.size());
    if (name_.empty() || !socket_ ||
        bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        listen(socket_.get(), kBacklog) != 0) {
        error = std::string("a local socket cannot be made: ") + std::strerror(errno);
        return false;
    }
    return true;
}

void Acceptor::makeRoom() {
    if (pending_.size() < kMostPending) {
        return;
    }
    std::map<pid_t, std::size_t> counts;
    for (const Pending& pending : pending_) {
        ++counts[pending.pid];
    }
    const auto most =
        std::max_element(counts.begin(), counts.end(),
                         [](const auto& a, const auto& b) { return a.second < b.second; });
    pending_.erase(std::find_if(pending_.begin(), pending_.end(),
                                [&](const Pending& one) { return one.pid == most->first; }));
    ++silent_;
}

void Acceptor::takeIn() {
    for (int count = 0; count < kMostTakenIn; ++count) {
        tqcommon::Descriptor socket(
            accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket) {
            isShort_ = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
            break;
        }
        ucred peer{};
        socklen_t length = sizeof peer;
        if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
            peer.uid == geteuid()) {
            makeRoom();
            pending_.push_back({std::move(socket), peer.pid});
        }
    }
}

std::vector<Connection> Acceptor::connections() {
    isShort_ = false;
    takeIn();
    std::vector<Connection> list;
    std::vector<Pending> still;
    for (Pending& pending : pending_) {
        Connection connection;
        switch (receive(pending, connection)) {
            case Received::kNothing:
                still.push_back(std::move(pending));
                break;
            case Received::kHello:
                connection.pid = pending.pid;
                connection.socket = std::move(pending.socket);
                list.push_back(std::move(connection));
                break;
            case Received::kEnd:
                break;
        }
    }
    pending_ = std::move(still);
    return list;
}

Acceptor::Received Acceptor::receive(const Pending& pending, Connection& connection) {
    iovec part{&connection.hello, sizeof connection.hello};
    alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(kMostDescriptors * sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size = recvmsg(pending.socket.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
        return Received::kNothing;
    }
    std::vector<tqcommon::Descriptor> descriptors;
    if (size >= 0) {
        descriptors = descriptorsOf(message);
        isShort_ = isShort_ || (descriptors.empty() && (message.msg_flags & MSG_CTRUNC) != 0);
    }
    if (size != static_cast<ssize_t>(sizeof connection.hello) ||
        connection.hello.magic != Hello::kMagic || descriptors.size() > 1) {
        return Received::kEnd;
    }
    connection.hello.name.back() = '\0';
    connection.hello.brokenGuard.back() = '\0';
    if (!descriptors.empty()) {
        connection.memory = std::move(descriptors.front());
    }
    return Received::kHello;
}

}  // namespace tqrecorder
