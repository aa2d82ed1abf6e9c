#pragma once

#include <array>
#include <cstddef>
#include <memory>

namespace tq::bridges {

/// Bytes in order, as many as memory holds. Not locked: its owner's lock is held around each call.
class ByteQueue {
  public:
    ByteQueue() = default;
    ~ByteQueue();
    ByteQueue(const ByteQueue&) = delete;
    ByteQueue& operator=(const ByteQueue&) = delete;

    /// [host thread] False without memory: then nothing of it is kept.
    [[nodiscard]] bool write(const void* bytes, std::size_t count);
    /// [any thread] [real-time safe] The oldest ones; returns how many there were.
    std::size_t read(void* bytes, std::size_t count) noexcept;
    /// [any thread] [real-time safe]
    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    /// [host thread] Forgets what it holds.
    void clear() noexcept;

  private:
    static constexpr std::size_t kPacket = std::size_t{16} << 10U;
    struct Packet {
        std::unique_ptr<Packet> next;
        std::size_t from = 0;
        std::size_t to = 0;
        std::array<unsigned char, kPacket> bytes;
    };

    [[nodiscard]] bool reserve(std::size_t count);
    void append() noexcept;

    // Whole packets wait in spare_, where the reader puts those that it has emptied: it frees none.
    std::unique_ptr<Packet> first_;
    Packet* last_ = nullptr;
    std::unique_ptr<Packet> spare_;
    std::size_t spares_ = 0;
    std::size_t size_ = 0;
};

}  // namespace tq::bridges
