#include "session/Listener.h"

#include <sys/random.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace tqrecorder {
namespace {

constexpr int kBacklog = 64;
/// Processes that have connected and not spoken: only broken ones are slow at that.
constexpr std::size_t kMostWaiting = 256;
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

bool Listener::open(std::string& error) {
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

std::vector<Visitor> Listener::visitors() {
    while (true) {
        tqcommon::Descriptor socket(
            accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket) {
            break;
        }
        ucred peer{};
        socklen_t length = sizeof peer;
        if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
            peer.uid == geteuid() && waiting_.size() < kMostWaiting) {
            waiting_.push_back({std::move(socket), peer.pid});
        }
    }
    std::vector<Visitor> list;
    std::vector<Waiting> still;
    for (Waiting& waiting : waiting_) {
        Visitor visitor;
        switch (hear(waiting, visitor)) {
            case Heard::kNothing:
                still.push_back(std::move(waiting));
                break;
            case Heard::kHello:
                visitor.pid = waiting.pid;
                visitor.socket = std::move(waiting.socket);
                list.push_back(std::move(visitor));
                break;
            case Heard::kEnd:
                break;
        }
    }
    waiting_ = std::move(still);
    return list;
}

Listener::Heard Listener::hear(const Waiting& waiting, Visitor& visitor) {
    iovec part{&visitor.hello, sizeof visitor.hello};
    alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(kMostDescriptors * sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size = recvmsg(waiting.socket.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
        return Heard::kNothing;
    }
    std::vector<tqcommon::Descriptor> descriptors;
    if (size >= 0) {
        descriptors = descriptorsOf(message);
    }
    if (size != static_cast<ssize_t>(sizeof visitor.hello) ||
        visitor.hello.magic != Hello::kMagic || descriptors.size() > 1) {
        return Heard::kEnd;
    }
    visitor.hello.name.back() = '\0';
    if (!descriptors.empty()) {
        visitor.memory = std::move(descriptors.front());
    }
    return Heard::kHello;
}

}  // namespace tqrecorder
