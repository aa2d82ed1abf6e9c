#include "output/ReplayMemory.h"

#include <cstring>
#include <new>

namespace tqrecorder {
namespace {

/// Little beside the seconds that are kept, and a few times a second for each stream.
constexpr std::size_t kPieceBytes = 256 * 1024;

}  // namespace

ReplayMemory::ReplayMemory(std::size_t capacity, std::size_t frameBytes)
    : capacity_(capacity),
      pieceBytes_(std::max<std::size_t>(kPieceBytes / frameBytes, 1) * frameBytes) {
    // What can never be had is said at the begin.
    ::operator delete(::operator new(capacity));
}

/// Behind it as much is added as there is room for: nothing before is kept.
void ReplayMemory::skip(std::uint64_t bytes) {
    if (bytes > 0) {
        written_ += bytes;
        pieces_.clear();
    }
}

template <typename Fill>
void ReplayMemory::append(std::uint64_t bytes, const Fill& fill) {
    for (std::uint64_t done = 0; done < bytes;) {
        const std::uint64_t piece = written_ / pieceBytes_;
        const auto within = static_cast<std::size_t>(written_ % pieceBytes_);
        if (pieces_.empty()) {
            first_ = piece;
        }
        if (piece == first_ + pieces_.size()) {
            pieces_.emplace_back(new std::byte[pieceBytes_]);
        }
        const auto count =
            static_cast<std::size_t>(std::min<std::uint64_t>(bytes - done, pieceBytes_ - within));
        fill(pieces_.back().get() + within, static_cast<std::size_t>(done), count);
        written_ += count;
        done += count;
        for (; (first_ + 1) * pieceBytes_ <= oldest(); ++first_) {
            pieces_.pop_front();
        }
    }
}

void ReplayMemory::add(std::span<const std::byte> bytes) {
    // Of what is longer than the room only the end stays.
    const std::size_t skipped = bytes.size() > capacity_ ? bytes.size() - capacity_ : 0;
    skip(skipped);
    bytes = bytes.subspan(skipped);
    append(bytes.size(), [bytes](std::byte* to, std::size_t from, std::size_t count) {
        std::memcpy(to, bytes.data() + from, count);
    });
}

void ReplayMemory::addSilence(std::uint64_t bytes) {
    const std::uint64_t room = capacity_;
    skip(bytes > room ? bytes - room : 0);
    append(std::min(bytes, room), [](std::byte* to, std::size_t /*from*/, std::size_t count) {
        std::memset(to, 0, count);
    });
}

KeptBytes ReplayMemory::keep(std::uint64_t from, std::uint64_t to) const {
    const auto begin = pieces_.begin() + static_cast<std::ptrdiff_t>(from / pieceBytes_ - first_);
    const auto end = pieces_.begin() + static_cast<std::ptrdiff_t>((to - 1) / pieceBytes_ - first_);
    return {{begin, end + 1}, from / pieceBytes_ * pieceBytes_, pieceBytes_};
}

}  // namespace tqrecorder
