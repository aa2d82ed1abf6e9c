#include "bridges/core/FrameFifo.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

namespace tq::bridges {

namespace {

constexpr double kSeconds = 10;
constexpr std::size_t kMostBytes = std::size_t{64} << 20;
/// Positions in use lie within a quarter of what wraps.
constexpr std::size_t kLongestPast = std::size_t{1} << 30;
/// Silence is looked for in stretches of that many frames, and makes a span of its own from the
/// shorter length on, as long as there are spans to spare for losses.
constexpr std::size_t kStretch = 1024;
constexpr std::size_t kShortestSilence = 64;
constexpr std::uint32_t kSpansForLosses = 64;
/// The part of the room that is free before frames are taken again after a loss.
constexpr std::size_t kRestPart = 16;

bool isSilent(const std::byte* bytes, std::size_t count) noexcept {
    return count == 0 ||
           (bytes[0] == std::byte{0} && std::memcmp(bytes, bytes + 1, count - 1) == 0);
}

std::size_t capacityFor(unsigned bytesPerFrame, double sampleRate) noexcept {
    const std::size_t most = std::bit_floor(kMostBytes / bytesPerFrame);
    const double frames = std::clamp(sampleRate * kSeconds, 1.0, static_cast<double>(most));
    return std::min(std::bit_ceil(static_cast<std::size_t>(frames)), most);
}

}  // namespace

std::unique_ptr<FrameFifo> FrameFifo::tryMake(unsigned bytesPerFrame, double sampleRate) {
    if (bytesPerFrame == 0 || bytesPerFrame > kMostBytes || !(sampleRate > 0)) {
        return nullptr;
    }
    const std::size_t capacity = capacityFor(bytesPerFrame, sampleRate);
    void* memory = mmap(nullptr, 2 * capacity * bytesPerFrame, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    auto* fifo =
        new (std::nothrow) FrameFifo(bytesPerFrame, capacity, static_cast<std::byte*>(memory));
    if (fifo == nullptr) {
        munmap(memory, 2 * capacity * bytesPerFrame);
    }
    return std::unique_ptr<FrameFifo>(fifo);
}

FrameFifo::FrameFifo(unsigned bytesPerFrame, std::size_t capacity, std::byte* memory) noexcept
    : bytesPerFrame_(bytesPerFrame),
      capacity_(capacity),
      pre_(memory),
      post_(memory + capacity * bytesPerFrame) {
}

FrameFifo::~FrameFifo() {
    munmap(pre_, 2 * capacity_ * bytesPerFrame_);
}

FrameFifo::Range FrameFifo::spanAt(std::uint32_t number) const noexcept {
    return unpack(spans_[number % kSpans].range.load(std::memory_order_relaxed));
}

FrameFifo::Kind FrameFifo::kindAt(std::uint32_t number) const noexcept {
    return spans_[number % kSpans].kind.load(std::memory_order_relaxed);
}

bool FrameFifo::write(const void* pre, const void* post, std::size_t frames) noexcept {
    const auto* preBytes = static_cast<const std::byte*>(pre);
    const auto* postBytes = static_cast<const std::byte*>(post == pre ? nullptr : post);
    std::size_t done = 0;
    while (done < frames) {
        const std::size_t stretch = std::min(frames - done, kStretch);
        const std::size_t offset = done * bytesPerFrame_;
        const std::size_t taken = writeStretch(
            preBytes + offset, postBytes == nullptr ? nullptr : postBytes + offset, stretch);
        done += taken;
        if (taken < stretch) {
            lose(frames - done);
            return false;
        }
    }
    return true;
}

/// Returns how many frames found room, from the first on.
std::size_t FrameFifo::writeStretch(const std::byte* pre, const std::byte* post,
                                    std::size_t frames) noexcept {
    if (hasLongPast(frames)) {
        return 0;
    }
    const std::size_t bytes = frames * bytesPerFrame_;
    const bool isSpanWorthIt =
        canExtend(Kind::kSilence) || (frames >= kShortestSilence && freeSpans() > kSpansForLosses);
    if (isSpanWorthIt && isSilent(pre, bytes) && (post == nullptr || isSilent(post, bytes))) {
        append(Kind::kSilence, frames);
        return frames;
    }
    // One span always stays free, or open at the end, for a loss.
    const std::uint32_t needed = post != nullptr && !canExtend(Kind::kProcessed) ? 2 : 1;
    if (freeSpans() < needed) {
        return 0;
    }
    const std::size_t room = roomInMemory();
    if (isFull_ && room < std::max(capacity_ / kRestPart, std::size_t{1})) {
        return 0;
    }
    isFull_ = false;
    const std::size_t taken = std::min(frames, room);
    if (taken == 0) {
        return 0;
    }
    copyIn(pre_, pre, taken);
    if (post == nullptr) {
        publish(taken);
    } else {
        copyIn(post_, post, taken);
        append(Kind::kProcessed, taken);
    }
    return taken;
}

/// Frames of memory that neither wait nor are being copied.
std::size_t FrameFifo::roomInMemory() const noexcept {
    Position oldest = unpack(ends_.load(std::memory_order_acquire)).begin;
    // Behind the first load: whoever sees the ends moved past a claim sees the claim, too.
    const std::uint64_t copying = copying_.load(std::memory_order_acquire);
    if (copying != kNotCopying) {
        oldest = static_cast<Position>(copying);
    }
    // And once more: when the claim is gone, a part of it may have been given back.
    const Position again = unpack(ends_.load(std::memory_order_acquire)).begin;
    oldest = isBefore(again, oldest) ? again : oldest;
    std::size_t held = end_ - oldest;
    const std::uint32_t first = firstSpan_.load(std::memory_order_acquire);
    for (std::uint32_t i = endSpan_.load(std::memory_order_relaxed); i != first; --i) {
        const Range span = spanAt(i - 1);
        if (!isBefore(oldest, span.end)) {
            break;
        }
        if (kindAt(i - 1) == Kind::kSilence) {
            held -= span.end - (isBefore(oldest, span.begin) ? span.begin : oldest);
        }
    }
    return capacity_ - std::min(held, capacity_);
}

/// Whether positions would wrap within those that somebody still compares.
bool FrameFifo::hasLongPast(std::size_t frames) const noexcept {
    std::size_t past = end_ - unpack(ends_.load(std::memory_order_relaxed)).begin;
    const std::uint32_t first = firstSpan_.load(std::memory_order_acquire);
    if (first != endSpan_.load(std::memory_order_relaxed)) {
        past = std::max(past, static_cast<std::size_t>(end_ - spanAt(first).begin));
    }
    return frames > kLongestPast || past > kLongestPast - frames;
}

std::uint32_t FrameFifo::freeSpans() const noexcept {
    return kSpans -
           (endSpan_.load(std::memory_order_relaxed) - firstSpan_.load(std::memory_order_acquire));
}

/// Whether the last span is of that kind and ends where the frames do.
bool FrameFifo::canExtend(Kind kind) const noexcept {
    const std::uint32_t end = endSpan_.load(std::memory_order_relaxed);
    return end != firstSpan_.load(std::memory_order_acquire) && kindAt(end - 1) == kind &&
           spanAt(end - 1).end == end_;
}

void FrameFifo::append(Kind kind, std::size_t frames) noexcept {
    const std::uint32_t endSpan = endSpan_.load(std::memory_order_relaxed);
    const Position end = end_ + static_cast<Position>(frames);
    if (canExtend(kind)) {
        spans_[(endSpan - 1) % kSpans].range.store(pack(spanAt(endSpan - 1).begin, end),
                                                   std::memory_order_relaxed);
    } else {
        Span& span = spans_[endSpan % kSpans];
        span.range.store(pack(end_, end), std::memory_order_relaxed);
        span.kind.store(kind, std::memory_order_relaxed);
        endSpan_.store(endSpan + 1, std::memory_order_relaxed);
    }
    if (kind == Kind::kSilence) {
        silentBeforeEnd_ += static_cast<Position>(frames);
    }
    publish(frames);
}

void FrameFifo::lose(std::size_t frames) noexcept {
    isFull_ = true;
    lost_.fetch_add(frames, std::memory_order_relaxed);
    if (hasLongPast(frames)) {
        // Hours behind: what comes now is counted and has no place any more.
        written_.fetch_add(frames, std::memory_order_relaxed);
        takenBack_.fetch_add(frames, std::memory_order_relaxed);
        return;
    }
    append(Kind::kSilence, frames);
}

void FrameFifo::publish(std::size_t frames) noexcept {
    end_ += static_cast<Position>(frames);
    written_.fetch_add(frames, std::memory_order_relaxed);
    // The high half wraps off at the top.
    ends_.fetch_add(pack(0, static_cast<Position>(frames)), std::memory_order_release);
}

void FrameFifo::copyIn(std::byte* plane, const std::byte* from, std::size_t frames) noexcept {
    const std::size_t at = (end_ - silentBeforeEnd_) & (capacity_ - 1);
    const std::size_t first = std::min(frames, capacity_ - at);
    std::memcpy(plane + at * bytesPerFrame_, from, first * bytesPerFrame_);
    std::memcpy(plane, from + first * bytesPerFrame_, (frames - first) * bytesPerFrame_);
}

std::size_t FrameFifo::takeBack(std::size_t frames) noexcept {
    std::uint64_t word = ends_.load(std::memory_order_acquire);
    std::size_t taken;
    do {
        const Range ends = unpack(word);
        taken = std::min<std::size_t>(frames, ends.end - ends.begin);
        end_ = ends.end - static_cast<Position>(taken);
    } while (!ends_.compare_exchange_weak(word, pack(unpack(word).begin, end_),
                                          std::memory_order_acq_rel, std::memory_order_acquire));
    takenBack_.fetch_add(taken, std::memory_order_relaxed);
    // Spans behind the end belong to nobody now; a claim that is made meanwhile ends before them.
    const std::uint32_t first = firstSpan_.load(std::memory_order_acquire);
    std::uint32_t endSpan = endSpan_.load(std::memory_order_relaxed);
    for (; endSpan != first; --endSpan) {
        const Range span = spanAt(endSpan - 1);
        if (!isBefore(end_, span.end)) {
            break;
        }
        const bool isWhole = !isBefore(span.begin, end_);
        if (kindAt(endSpan - 1) == Kind::kSilence) {
            silentBeforeEnd_ -= span.end - (isWhole ? span.begin : end_);
        }
        if (!isWhole) {
            spans_[(endSpan - 1) % kSpans].range.store(pack(span.begin, end_),
                                                       std::memory_order_relaxed);
            break;
        }
    }
    endSpan_.store(endSpan, std::memory_order_relaxed);
    return taken;
}

std::size_t FrameFifo::flush() noexcept {
    std::uint64_t word = ends_.load(std::memory_order_acquire);
    Range ends = unpack(word);
    while (!ends_.compare_exchange_weak(word, pack(ends.end, ends.end), std::memory_order_acq_rel,
                                        std::memory_order_acquire)) {
        ends = unpack(word);
    }
    flushed_.fetch_add(ends.end - ends.begin, std::memory_order_relaxed);
    return ends.end - ends.begin;
}

std::size_t FrameFifo::read(void* pre, void* post, std::size_t frames) noexcept {
    const Range claimed = claim(frames);
    deliver(claimed, static_cast<std::byte*>(pre), static_cast<std::byte*>(post));
    const std::size_t count = claimed.end - claimed.begin;
    read_.fetch_add(count, std::memory_order_relaxed);
    return count;
}

FrameFifo::Range FrameFifo::claim(std::size_t frames) noexcept {
    std::uint64_t word = ends_.load(std::memory_order_acquire);
    for (;;) {
        const Range ends = unpack(word);
        const auto count = static_cast<Position>(
            std::min<std::size_t>(frames, static_cast<Position>(ends.end - ends.begin)));
        copying_.store(ends.begin, std::memory_order_release);
        const Position end = ends.begin + count;
        if (ends_.compare_exchange_weak(word, pack(end, ends.end), std::memory_order_acq_rel,
                                        std::memory_order_acquire)) {
            return {ends.begin, end};
        }
    }
}

void FrameFifo::deliver(Range claimed, std::byte* pre, std::byte* post) noexcept {
    std::uint32_t number = firstSpan_.load(std::memory_order_relaxed);
    for (Position at = claimed.begin; at != claimed.end;) {
        const bool hasSpan = number != endSpan_.load(std::memory_order_relaxed) &&
                             isBefore(spanAt(number).begin, claimed.end);
        const Range span = hasSpan ? spanAt(number) : Range{claimed.end, claimed.end};
        const Kind kind = hasSpan ? kindAt(number) : Kind::kProcessed;
        if (hasSpan && !isBefore(at, span.end)) {
            // Frames behind it are claimed, so nobody changes it any more.
            silentBeforeSpan_ += kind == Kind::kSilence ? span.end - span.begin : 0;
            firstSpan_.store(++number, std::memory_order_release);
            continue;
        }
        const bool isInside = !isBefore(at, span.begin);
        Position end = isInside ? span.end : span.begin;
        end = isBefore(claimed.end, end) ? claimed.end : end;
        const std::size_t bytes = std::size_t{end - at} * bytesPerFrame_;
        if (isInside && kind == Kind::kSilence) {
            if (pre != nullptr) {
                std::memset(pre, 0, bytes);
            }
            if (post != nullptr) {
                std::memset(post, 0, bytes);
            }
        } else {
            copyOut(at, pre, post, end - at, isInside);
        }
        pre = pre == nullptr ? nullptr : pre + bytes;
        post = post == nullptr ? nullptr : post + bytes;
        at = end;
    }
    copying_.store(kNotCopying, std::memory_order_release);
}

void FrameFifo::copyOut(Position at, std::byte* pre, std::byte* post, std::size_t frames,
                        bool isProcessed) const noexcept {
    const std::size_t from = (at - silentBeforeSpan_) & (capacity_ - 1);
    const std::size_t first = std::min(frames, capacity_ - from);
    const auto copy = [&](const std::byte* plane, std::byte* to) {
        if (to != nullptr) {
            std::memcpy(to, plane + from * bytesPerFrame_, first * bytesPerFrame_);
            std::memcpy(to + first * bytesPerFrame_, plane, (frames - first) * bytesPerFrame_);
        }
    };
    copy(pre_, pre);
    copy(isProcessed ? post_ : pre_, post);
}

std::size_t FrameFifo::silentFrames() const noexcept {
    return silentIn(unpack(ends_.load(std::memory_order_acquire)));
}

/// How many of the first of these are in a silent span.
FrameFifo::Position FrameFifo::silentIn(Range range) const noexcept {
    const std::uint32_t endSpan = endSpan_.load(std::memory_order_relaxed);
    for (std::uint32_t i = firstSpan_.load(std::memory_order_relaxed); i != endSpan; ++i) {
        const Range span = spanAt(i);
        if (isBefore(range.begin, span.begin)) {
            break;
        }
        if (isBefore(range.begin, span.end)) {
            return kindAt(i) == Kind::kSilence
                       ? std::min(span.end - range.begin, range.end - range.begin)
                       : 0;
        }
    }
    return 0;
}

std::size_t FrameFifo::cutSilence(std::size_t frames) noexcept {
    Range claimed = claim(std::min(frames, silentFrames()));
    // Only what is claimed stays as it is: the writer may have put sound in the place of silence.
    const Position silentEnd = claimed.begin + silentIn(claimed);
    if (silentEnd != claimed.end) {
        giveBack({silentEnd, claimed.end});
        claimed.end = silentEnd;
    }
    deliver(claimed, nullptr, nullptr);
    const std::size_t count = claimed.end - claimed.begin;
    cut_.fetch_add(count, std::memory_order_relaxed);
    return count;
}

/// The end of a claim waits again, unless a flush has gone past it.
void FrameFifo::giveBack(Range range) noexcept {
    std::uint64_t word = ends_.load(std::memory_order_acquire);
    while (unpack(word).begin == range.end) {
        if (ends_.compare_exchange_weak(word, pack(range.begin, unpack(word).end),
                                        std::memory_order_acq_rel, std::memory_order_acquire)) {
            return;
        }
    }
    flushed_.fetch_add(range.end - range.begin, std::memory_order_relaxed);
}

std::size_t FrameFifo::available() const noexcept {
    const Range ends = unpack(ends_.load(std::memory_order_acquire));
    return static_cast<Position>(ends.end - ends.begin);
}

FrameCounts FrameFifo::counts() const noexcept {
    FrameCounts counts;
    counts.written = written_.load(std::memory_order_relaxed);
    counts.lost = lost_.load(std::memory_order_relaxed);
    counts.read = read_.load(std::memory_order_relaxed);
    counts.cut = cut_.load(std::memory_order_relaxed);
    counts.flushed = flushed_.load(std::memory_order_relaxed);
    counts.takenBack = takenBack_.load(std::memory_order_relaxed);
    counts.waiting = available();
    return counts;
}

}  // namespace tq::bridges
