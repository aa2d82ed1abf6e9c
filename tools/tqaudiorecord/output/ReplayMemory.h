#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

namespace tqrecorder {

/// Bytes of a stream that stay as they are while the stream goes on. [any thread]
class KeptBytes {
  public:
    using Piece = std::shared_ptr<std::byte[]>;
    KeptBytes(std::vector<Piece> pieces, std::uint64_t begin, std::size_t pieceBytes)
        : pieces_(std::move(pieces)), begin_(begin), pieceBytes_(pieceBytes) {}

    /// Gives [from, to), counted since the stream began, to `sink`, piece by piece. All of them are
    /// within what was asked for.
    template <typename Sink>
    void play(std::uint64_t from, std::uint64_t to, const Sink& sink) const {
        while (from < to) {
            const std::uint64_t within = (from - begin_) % pieceBytes_;
            const auto index = static_cast<std::size_t>((from - begin_) / pieceBytes_);
            const std::uint64_t count = std::min(to - from, pieceBytes_ - within);
            sink(std::span<const std::byte>(pieces_[index].get() + within,
                                            static_cast<std::size_t>(count)));
            from += count;
        }
    }

  private:
    std::vector<Piece> pieces_;
    std::uint64_t begin_;  ///< of the first piece
    std::size_t pieceBytes_;
};

/// The last bytes of a stream, in pieces that are never written again once they are full: who holds
/// some of them has them as they were, and costs the stream nothing. [one host thread at a time]
class ReplayMemory {
  public:
    /// Throws std::bad_alloc where so much cannot be had. The pieces are made as they are filled.
    ReplayMemory(std::size_t capacity, std::size_t frameBytes);

    /// Throws std::bad_alloc.
    void add(std::span<const std::byte> bytes);
    void addSilence(std::uint64_t bytes);

    /// Bytes ever.
    [[nodiscard]] std::uint64_t written() const { return written_; }
    [[nodiscard]] std::uint64_t oldest() const {
        return written_ > capacity_ ? written_ - capacity_ : 0;
    }
    /// [from, to), no older than oldest(), no newer than written(), and not empty. What is added
    /// later goes behind it.
    [[nodiscard]] KeptBytes keep(std::uint64_t from, std::uint64_t to) const;

  private:
    template <typename Fill>
    void append(std::uint64_t bytes, const Fill& fill);
    void skip(std::uint64_t bytes);

    std::size_t capacity_;
    std::size_t pieceBytes_;  ///< whole frames
    std::deque<KeptBytes::Piece> pieces_;
    std::uint64_t first_ = 0;  ///< number of the first piece that is there
    std::uint64_t written_ = 0;
};

}  // namespace tqrecorder
