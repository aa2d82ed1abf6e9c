#include <algorithm>
#include <cerrno>
#include <exception>

#include "bridges/core/GuardScope.h"
#include "bridges/core/NativeStream.h"
#include "bridges/core/StreamLife.h"

// What host threads do with one stream.

namespace tq::bridges {
namespace {

constexpr double kStreamSeconds = 10;
/// Far above the longest block of any interface that asks for sound.
constexpr std::size_t kLongestBlock = 65536;
constexpr std::size_t kMostBytes = std::size_t{64} << 20U;

}  // namespace

void NativeStream::open(const void* key, const NativeFormat& format, std::string_view api,
                        std::string_view own) {
    const GuardScope guard;
    const int before = errno;
    try {
        StreamLife::shared().announce();
        StreamLife::shared().open(key, format, api, own);
    } catch (const std::exception&) {
        // Out of memory: the stream plays unrecorded.
    }
    errno = before;
}

void NativeStream::close(const void* key, Handle handle) {
    const GuardScope guard;
    const int before = errno;
    try {
        StreamLife::shared().close(key, handle);
    } catch (const std::exception&) {
    }
    errno = before;
}

void NativeStream::refused(std::string_view api, std::string_view own, std::string_view reason) {
    const GuardScope guard;
    const int before = errno;
    try {
        StreamLife::shared().refused(api, own, reason);
    } catch (const std::exception&) {
    }
    errno = before;
}

void NativeStream::attend(const tq_bridges& attendant) {
    StreamLife::shared().attend(attendant);
}

void NativeStream::finish() {
    StreamLife::shared().finish();
}

bool NativeStream::begin(const NativeFormat& format, std::string name, std::uint64_t number) {
    format_ = format;
    name_ = std::move(name);
    number_ = number;
    unitFrameBytes_ = format.unitBytesPerFrame();
    toUnit_ = toUnit(format.sample);
    fromUnit_ = fromUnit(format.sample);
    isNarrower_ = hasFewerBitsThanItsUnit(format.sample);
    const std::size_t room = kMostBytes / std::max<std::size_t>(unitFrameBytes_, 1);
    const auto tenSeconds = static_cast<std::size_t>(format.sampleRate * kStreamSeconds);
    mostFrames_ = std::min(std::max(tenSeconds, kLongestBlock), room);
    const std::size_t bytes = mostFrames_ * unitFrameBytes_;
    pre_ = ReservedMemory(bytes);
    post_ = ReservedMemory(bytes);
    fresh_ = ReservedMemory(bytes);
    passed_ = ReservedMemory(mostFrames_ * format.bytesPerFrame());
    heard_ = ReservedMemory(bytes);
    room_ = ReservedMemory(mostFrames_ * format.bytesPerFrame());
    gain_ = nullptr;
    ownGain_.reset();
    kept_ = nullptr;
    begun_ = nullptr;
    processed_ = prepared_ = block_ = 0;
    hasSound_ = false;
    isIdle_ = false;
    isFrozen_ = false;
    start_ = Start::kMade;
    isOverdue_ = false;
    awaited_ = 0;
    playedFrom_ = 0;
    unstarted_ = 0;
    heardFrom_ = 0;
    ahead_ = 0;
    flushes_ = 0;
    isOver_ = false;
    isWaiting_ = false;
    isInherited_ = false;
    failedStarts_ = 0;
    forsaken_ = 0;
    reportedWritten_ = 0;
    isFilling_ = false;
    isUnplayable_ = false;
    blocksBehind_ = 0;
    fate_.reset();
    openedAt_ = std::chrono::steady_clock::now();
    unserved_ = 0;
    largestPiece_ = 0;
    taken_ = mostFrames_;
    pacer_.emplace(format.sampleRate);
    fifo_ = FrameFifo::tryMake(static_cast<unsigned>(unitFrameBytes_), format.sampleRate);
    return fifo_ != nullptr && pre_.data() != nullptr && post_.data() != nullptr &&
           fresh_.data() != nullptr && passed_.data() != nullptr && room_.data() != nullptr &&
           heard_.data() != nullptr;
}

void NativeStream::takeOwnGain() {
    if (gain_.load(std::memory_order_relaxed) != nullptr) {
        return;
    }
    const UnitSample sample = unitSampleOf(format_.sample);
    const tq_format format{.sample_rate = format_.sampleRate,
                           .channels = format_.channels,
                           .bits_per_channel = 8 * bytesPerSample(sample),
                           .is_float = sample == UnitSample::kF32 ? 1U : 0U,
                           .is_interleaved = 1};
    tq_source* made = nullptr;
    // Without memory for it the stream is as loud as it is written.
    (void)tq_source_open_gain(&format, &made);
    ownGain_.reset(made);
    gain_.store(made, std::memory_order_release);
}

bool NativeStream::beginInChild(std::uint64_t number) {
    const bool isFrozen = isFrozen_.load();
    const std::size_t taken = taken_.load();
    const Start start = start_.load();
    const std::int64_t ahead = ahead_.load();
    const bool hasBegun = begin(format_, name_, number);
    isFrozen_ = isFrozen;
    taken_ = taken;
    start_ = start;
    ahead_ = ahead;
    return hasBegun;
}

void NativeStream::end() {
    unit_.store(nullptr);
    gain_ = nullptr;
    ownGain_.reset();
    key_ = nullptr;
    isWaiting_ = false;
    isInherited_ = false;
    fifo_.reset();
    for (ReservedMemory* const memory : {&pre_, &post_, &fresh_, &passed_, &heard_, &room_}) {
        *memory = ReservedMemory();
    }
    state_ = State::kUnused;
}

/// What is left of a stream that has ended was not to be heard: it was closed in a pause, or before
/// its device was started.
tq_stream NativeStream::facts(tq_stream_fate fate, bool isClosed) const {
    const FrameCounts counts = fifo_ == nullptr ? FrameCounts{} : fifo_->counts();
    tq_stream stream{};
    stream.size = sizeof stream;
    stream.stream = number_;
    stream.name = name_.c_str();
    stream.fate = fate;
    stream.channels = format_.channels;
    stream.sample_rate = format_.sampleRate;
    const std::uint64_t unserved = unserved_.load(std::memory_order_relaxed);
    stream.written = counts.written + unserved;
    stream.played = counts.read + counts.cut;
    const std::uint64_t left = isClosed ? counts.waiting : 0;
    const std::uint64_t unheard = isOver_ && !isUnplayable_ ? left : 0;
    stream.dropped = counts.flushed - forsaken_ + counts.takenBack + unheard;
    stream.lost = counts.lost + unserved + forsaken_ + left - unheard;
    stream.is_paused = fate == TQ_STREAM_RECORDED && isPaused() ? 1 : 0;
    stream.is_closed = isClosed ? 1 : 0;
    return stream;
}

/// Of a unit that has not rendered yet nobody knows the blocks: more than the null device's then.
std::size_t NativeStream::blockFrames() const {
    constexpr double kLongBlock = 0.025;
    const std::size_t block = block_.load(std::memory_order_relaxed);
    return block != 0 ? block : static_cast<std::size_t>(kLongBlock * format_.sampleRate) + 1;
}

double NativeStream::secondsLeft() const {
    return static_cast<double>(fifo_->available() + (2 + kBlocksBehind) * blockFrames()) /
           format_.sampleRate;
}

double NativeStream::longestWait() const {
    const std::size_t block = blockFrames();
    const std::size_t margin = pacer_ ? pacer_->margin(block, largestPiece_.load()) : 0;
    return static_cast<double>(margin + (2 + kBlocksBehind) * block) / format_.sampleRate;
}

}  // namespace tq::bridges
