#include "output/live/LivePackets.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>

namespace tqrecorder {

LiveSent sendLive(int socket, const LiveHeader& header, std::span<const std::byte> payload) {
    std::array<iovec, 2> parts{{{const_cast<LiveHeader*>(&header), sizeof header},
                                {const_cast<std::byte*>(payload.data()), payload.size()}}};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    while (sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        if (errno != EINTR) {
            return errno == EAGAIN || errno == ENOBUFS ? LiveSent::kFull : LiveSent::kGone;
        }
    }
    return LiveSent::kDone;
}

LiveReceiver::Got LiveReceiver::next(int socket) {
    std::array<iovec, 2> parts{{{&header_, sizeof header_}, {buffer_.data(), buffer_.size()}}};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    ssize_t got = -1;
    do {
        got = recvmsg(socket, &message, MSG_DONTWAIT);
    } while (got < 0 && errno == EINTR);
    if (got < 0 && errno == EAGAIN) {
        return Got::kNothing;
    }
    if (got < static_cast<ssize_t>(sizeof header_)) {
        return Got::kEnd;
    }
    bytes_ = static_cast<std::size_t>(got) - sizeof header_;
    return Got::kPacket;
}

}  // namespace tqrecorder
