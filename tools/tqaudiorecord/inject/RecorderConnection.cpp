#include "inject/RecorderConnection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <ctime>

#include "common/Descriptor.h"

namespace tqrecorder {
namespace {

/// Above the numbers that programs count on.
constexpr int kFirstDescriptor = 200;
constexpr int kAttempts = 50;

void pause(int milliseconds) {
    timespec rest{milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    nanosleep(&rest, nullptr);
}

bool isOfThisUser(int socket) {
    ucred peer{};
    socklen_t length = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
           (peer.uid == geteuid() || peer.uid == 0);
}

}  // namespace

bool RecorderConnection::open(const std::string& socket) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket.empty() || socket.size() >= sizeof address.sun_path) {
        return false;
    }
    std::memcpy(address.sun_path + 1, socket.data(), socket.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + socket.size());
    socket_ = tqcommon::outOfTheWay(
        ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), kFirstDescriptor);
    if (socket_ < 0) {
        return false;
    }
    struct stat status {};
    fstat(socket_, &status);
    device_ = status.st_dev;
    node_ = status.st_ino;
    // EAGAIN: more processes than the recorder has let in yet.
    int result = -1;
    for (int attempt = 0; attempt < kAttempts && result != 0; ++attempt) {
        result = connect(socket_, reinterpret_cast<const sockaddr*>(&address), length);
        if (result != 0 && errno != EAGAIN && errno != EINTR) {
            break;
        }
        if (result != 0) {
            pause(2);
        }
    }
    if (result != 0 || !isOfThisUser(socket_)) {
        close();
        return false;
    }
    return true;
}

bool RecorderConnection::send(const Hello& hello, int descriptor) const {
    iovec part{const_cast<Hello*>(&hello), sizeof hello};
    alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (descriptor >= 0) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* const head = CMSG_FIRSTHDR(&message);
        head->cmsg_level = SOL_SOCKET;
        head->cmsg_type = SCM_RIGHTS;
        head->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(head), &descriptor, sizeof descriptor);
    }
    return sendmsg(socket_, &message, MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(sizeof hello);
}

bool RecorderConnection::waitForEnd(int milliseconds, pid_t recorder) const {
    if (!isOurs()) {
        pause(milliseconds);
        return kill(recorder, 0) != 0 && errno == ESRCH;
    }
    pollfd wait{socket_, POLLIN, 0};
    if (poll(&wait, 1, milliseconds) <= 0 || !isOurs()) {
        return false;
    }
    // The recorder never says anything: what wakes us is its end.
    return true;
}

void RecorderConnection::close() {
    if (socket_ >= 0 && isOurs()) {
        ::close(socket_);
    }
    socket_ = -1;
}

bool RecorderConnection::isOurs() const {
    struct stat status {};
    return socket_ >= 0 && fstat(socket_, &status) == 0 && S_ISSOCK(status.st_mode) &&
           status.st_dev == device_ && status.st_ino == node_;
}

}  // namespace tqrecorder
