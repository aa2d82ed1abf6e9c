#include "bridges/sdl/ByteQueue.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace tq::bridges {

ByteQueue::~ByteQueue() {
    clear();
}

/// Has all the packets ready that so many bytes take, so that a write is whole or is not.
bool ByteQueue::reserve(std::size_t count) {
    const std::size_t room = last_ == nullptr ? 0 : kPacket - last_->to;
    const std::size_t wanted = count <= room ? 0 : (count - room + kPacket - 1) / kPacket;
    while (spares_ < wanted) {
        std::unique_ptr<Packet> packet(new (std::nothrow) Packet);
        if (packet == nullptr) {
            return false;
        }
        packet->next = std::move(spare_);
        spare_ = std::move(packet);
        ++spares_;
    }
    return true;
}

void ByteQueue::append() noexcept {
    std::unique_ptr<Packet> packet = std::move(spare_);
    spare_ = std::move(packet->next);
    --spares_;
    packet->from = packet->to = 0;
    Packet* const last = packet.get();
    (last_ == nullptr ? first_ : last_->next) = std::move(packet);
    last_ = last;
}

bool ByteQueue::write(const void* bytes, std::size_t count) {
    if (!reserve(count)) {
        return false;
    }
    const auto* from = static_cast<const unsigned char*>(bytes);
    size_ += count;
    while (count > 0) {
        if (last_ == nullptr || last_->to == kPacket) {
            append();
        }
        const std::size_t part = std::min(count, kPacket - last_->to);
        std::memcpy(last_->bytes.data() + last_->to, from, part);
        last_->to += part;
        from += part;
        count -= part;
    }
    return true;
}

std::size_t ByteQueue::read(void* bytes, std::size_t count) noexcept {
    auto* to = static_cast<unsigned char*>(bytes);
    const std::size_t taken = std::min(count, size_);
    for (std::size_t left = taken; left > 0;) {
        Packet& packet = *first_;
        const std::size_t part = std::min(left, packet.to - packet.from);
        std::memcpy(to, packet.bytes.data() + packet.from, part);
        packet.from += part;
        to += part;
        left -= part;
        if (packet.from == packet.to) {
            std::unique_ptr<Packet> empty = std::move(first_);
            first_ = std::move(empty->next);
            last_ = first_ == nullptr ? nullptr : last_;
            empty->next = std::move(spare_);
            spare_ = std::move(empty);
            ++spares_;
        }
    }
    size_ -= taken;
    return taken;
}

/// One packet after the other: a chain that frees itself would go as deep as it is long.
void ByteQueue::clear() noexcept {
    for (std::unique_ptr<Packet>* const chain : {&first_, &spare_}) {
        while (*chain != nullptr) {
            *chain = std::move((*chain)->next);
        }
    }
    last_ = nullptr;
    spares_ = size_ = 0;
}

}  // namespace tq::bridges
