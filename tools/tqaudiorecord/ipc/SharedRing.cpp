#include "ipc/SharedRing.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace tqrecorder {
namespace {

/// What a skipped stretch at the end of the memory begins with.
constexpr std::uint64_t kShortest = 2 * sizeof(std::uint32_t);

constexpr std::uint64_t roundedUp(std::uint64_t bytes) {
    return (bytes + 7) & ~std::uint64_t{7};
}

std::uint64_t bytesOf(std::span<const RingWriter::Bytes> parts) {
    std::uint64_t bytes = 0;
    for (const RingWriter::Bytes& part : parts) {
        bytes += part.size();
    }
    return bytes;
}

}  // namespace

bool RingWriter::push(RecordHeader header, std::span<const Bytes> parts) const noexcept {
    const bool pushed = tryPush(header, parts);
    if (!pushed) {
        state_->lostBytes.fetch_add(bytesOf(parts), std::memory_order_relaxed);
        state_->lostRecords.fetch_add(1, std::memory_order_release);
    }
    return pushed;
}

bool RingWriter::tryPush(RecordHeader header, std::span<const Bytes> parts) const noexcept {
    const std::uint64_t payload = bytesOf(parts);
    header.payloadBytes = static_cast<std::uint32_t>(payload);
    if (payload >= std::numeric_limits<std::uint32_t>::max() - 2 * sizeof header ||
        state_->busy.exchange(1, std::memory_order_acquire) != 0) {
        return false;
    }
    const bool pushed = pushAlone(header, parts);
    state_->busy.store(0, std::memory_order_release);
    return pushed;
}

bool RingWriter::pushAlone(RecordHeader& header, std::span<const Bytes> parts) const noexcept {
    const std::uint64_t needed = roundedUp(sizeof header + header.payloadBytes);
    const std::uint64_t written = state_->written.load(std::memory_order_relaxed);
    const std::uint64_t read = state_->read.load(std::memory_order_acquire);
    const std::uint64_t offset = written % memory_.size();
    const std::uint64_t toEnd = memory_.size() - offset;
    const std::uint64_t usable = state_->usable.load(std::memory_order_acquire);
    // Short of the end there has to be room for what leads back to the beginning.
    const std::uint64_t most =
        usable < memory_.size() ? usable - std::min(usable, kShortest) : memory_.size();
    // A record is never split, so that each of its buffers is one copy.
    const bool fits = offset + needed <= most;
    const std::uint64_t skipped = fits ? 0 : toEnd;
    const std::uint64_t used = written - read;
    // The numbers are shared with others: believed only as far as they can be.
    if (used > memory_.size() || needed + skipped > memory_.size() - used || written % 8 != 0) {
        return false;
    }
    // Where no more memory is to be had, what there is is used again and again.
    if (!fits && (needed > most || offset > most)) {
        return false;
    }
    if (skipped > 0) {
        RecordHeader skip;
        skip.bytes = static_cast<std::uint32_t>(skipped);
        std::memcpy(memory_.data() + offset, &skip, kShortest);
    }
    header.bytes = static_cast<std::uint32_t>(needed);
    std::byte* place = memory_.data() + (skipped > 0 ? 0 : offset);
    std::memcpy(place, &header, sizeof header);
    place += sizeof header;
    for (const Bytes& part : parts) {
        if (!part.empty()) {
            std::memcpy(place, part.data(), part.size());
            place += part.size();
        }
    }
    state_->written.store(written + skipped + needed, std::memory_order_release);
    return true;
}

RingReader::Found RingReader::next(RecordHeader& header, std::span<const std::byte>& payload) {
    if (corrupt_ || state_ == nullptr) {
        return corrupt_ ? Found::kCorrupt : Found::kNothing;
    }
    const auto refuse = [this] {
        corrupt_ = true;
        return Found::kCorrupt;
    };
    for (int skips = 0;; ++skips) {
        const std::uint64_t available = state_->written.load(std::memory_order_acquire) - read_;
        if (available == 0) {
            return Found::kNothing;
        }
        const std::uint64_t offset = read_ % memory_.size();
        const std::uint64_t reach = std::min<std::uint64_t>(available, memory_.size() - offset);
        if (available > memory_.size() || available % 8 != 0 || reach < kShortest) {
            return refuse();
        }
        RecordHeader copy;
        std::memcpy(&copy, memory_.data() + offset,
                    std::min<std::uint64_t>(reach, sizeof(RecordHeader)));
        if (copy.bytes < kShortest || copy.bytes % 8 != 0 || copy.bytes > reach) {
            return refuse();
        }
        if (copy.kind == RecordKind::kSkip) {
            // Only the very end is ever skipped.
            if (skips > 0 || offset + copy.bytes != memory_.size()) {
                return refuse();
            }
            read_ += copy.bytes;
            state_->read.store(read_, std::memory_order_release);
            continue;
        }
        if (copy.bytes < sizeof copy || copy.payloadBytes > copy.bytes - sizeof copy ||
            copy.kind > RecordKind::kStream) {
            return refuse();
        }
        scratch_.resize(std::min<std::size_t>(copy.payloadBytes, mostPayload_));
        if (!scratch_.empty()) {
            std::memcpy(scratch_.data(), memory_.data() + offset + sizeof copy, scratch_.size());
        }
        read_ += copy.bytes;
        state_->read.store(read_, std::memory_order_release);
        header = copy;
        payload = scratch_;
        return Found::kRecord;
    }
}

std::uint64_t RingReader::written() const {
    return state_ == nullptr ? 0 : state_->written.load(std::memory_order_acquire);
}

double RingReader::fill() const {
    if (state_ == nullptr || corrupt_) {
        return 0;
    }
    const std::uint64_t used = state_->written.load(std::memory_order_relaxed) - read_;
    return std::min(1.0, static_cast<double>(used) / static_cast<double>(memory_.size()));
}

std::uint64_t RingReader::takeLostRecords() {
    const std::uint64_t now = state_ == nullptr ? 0 : state_->lostRecords.load();
    const std::uint64_t more = now - lostRecords_;
    lostRecords_ = now;
    return more;
}

std::uint64_t RingReader::takeLostBytes() {
    const std::uint64_t now = state_ == nullptr ? 0 : state_->lostBytes.load();
    const std::uint64_t more = now - lostBytes_;
    lostBytes_ = now;
    return more;
}

}  // namespace tqrecorder
