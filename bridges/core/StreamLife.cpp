#include "bridges/core/StreamLife.h"

#include <TQPlatform/NullDevice.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <new>
#include <thread>

#include "bridges/core/GuardScope.h"
#include "common/SignalsBlocked.h"

namespace tq::bridges {
namespace {

/// How long a hurried device's thread may be kept from its work by a busy machine.
constexpr std::chrono::duration<double> kStarved{1};
/// In which a stopped unit's last blocks have been delivered: three passes of the device and more.
constexpr double kTailSeconds = 0.05;
constexpr std::chrono::milliseconds kReportInterval{250};
constexpr long kLookMilliseconds = 50;
constexpr double kStreamSeconds = 10;
constexpr std::size_t kMostBytes = std::size_t{64} << 20U;

timespec inMilliseconds(long milliseconds) {
    timespec then{};
    clock_gettime(CLOCK_REALTIME, &then);
    then.tv_nsec += milliseconds * 1'000'000L;
    then.tv_sec += then.tv_nsec / 1'000'000'000L;
    then.tv_nsec %= 1'000'000'000L;
    return then;
}

}  // namespace

// ---- one stream ---------------------------------------------------------------------------------

void NativeStream::open(const void* key, const NativeFormat& format, std::string_view api,
                        std::string_view own) {
    const GuardScope guard;
    const int before = errno;
    try {
        StreamLife::shared().open(key, format, api, own);
    } catch (const std::exception&) {
        // Out of memory: the stream plays unrecorded.
    }
    errno = before;
}

void NativeStream::close(const void* key) {
    const GuardScope guard;
    const int before = errno;
    try {
        StreamLife::shared().close(key);
    } catch (const std::exception&) {
    }
    errno = before;
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
    mostFrames_ = std::min(static_cast<std::size_t>(format.sampleRate * kStreamSeconds), room);
    const std::size_t bytes = mostFrames_ * unitFrameBytes_;
    pre_ = ReservedMemory(bytes);
    post_ = ReservedMemory(bytes);
    fresh_ = ReservedMemory(bytes);
    passed_ = ReservedMemory(mostFrames_ * format.bytesPerFrame());
    heard_ = ReservedMemory(bytes);
    room_ = ReservedMemory(mostFrames_ * format.bytesPerFrame());
    kept_ = nullptr;
    processed_ = prepared_ = block_ = 0;
    hasSound_ = false;
    isFrozen_ = false;
    drains_ = 0;
    flushes_ = 0;
    isOver_ = false;
    blocksBehind_ = 0;
    fate_.reset();
    unserved_ = 0;
    largestPiece_ = 0;
    pacer_.emplace(format.sampleRate);
    fifo_ = FrameFifo::tryMake(static_cast<unsigned>(unitFrameBytes_), format.sampleRate);
    return fifo_ != nullptr && pre_.data() != nullptr && post_.data() != nullptr &&
           fresh_.data() != nullptr && passed_.data() != nullptr && room_.data() != nullptr &&
           heard_.data() != nullptr;
}

void NativeStream::end() {
    unit_.store(nullptr);
    fifo_.reset();
    for (ReservedMemory* const memory : {&pre_, &post_, &fresh_, &passed_, &heard_, &room_}) {
        *memory = ReservedMemory();
    }
    state_ = State::kUnused;
}

tq_stream NativeStream::facts(tq_stream_fate fate) const {
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
    stream.dropped = counts.flushed + counts.takenBack;
    stream.lost = counts.lost + unserved;
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

// ---- all streams --------------------------------------------------------------------------------

StreamLife& StreamLife::shared() {
    static auto* const instance = new StreamLife;
    return *instance;
}

StreamLife::StreamLife() {
    sem_init(&work_, 0, 0);
}

void StreamLife::open(const void* key, const NativeFormat& format, std::string_view api,
                      std::string_view own) {
    const std::scoped_lock guard(lock_);
    NativeStream* const old = table_.find(key);
    closeLocked(key);
    if (old != nullptr && !old->hasSound_) {
        // It has played nothing, so this one goes on with its name and its unit.
        endStream(*old);
    }
    if (isFinished_) {
        return;
    }
    const std::string name = nameFor(api, own);
    NativeStream& stream = unusedStream();
    if (!format.servable()) {
        stream.name_ = name;
        stream.number_ = ++lastNumber_;
        stream.format_ = format;
        report(stream,
               format.sample == NativeSample::kNotPcm ? TQ_STREAM_NOT_PCM : TQ_STREAM_FORMAT,
               false);
        return;
    }
    if (!stream.begin(format, name, ++lastNumber_) || !table_.add(key, stream)) {
        report(stream, TQ_STREAM_NO_MEMORY, false);
        stream.end();
        return;
    }
    stream.state_ = NativeStream::State::kOpen;
    stream.unit_.store(unitFor(stream), std::memory_order_release);
    startThread();
}

void StreamLife::close(const void* key) {
    const std::scoped_lock guard(lock_);
    closeLocked(key);
    wake();
}

void StreamLife::closeLocked(const void* key) {
    NativeStream* const stream = table_.find(key);
    if (stream == nullptr) {
        return;
    }
    table_.remove(key);
    stream->state_ = NativeStream::State::kClosed;
}

std::string StreamLife::nameFor(std::string_view api, std::string_view own) const {
    for (int number = 1;; ++number) {
        std::string name(api);
        name += "-" + std::to_string(number);
        const bool isTaken =
            std::any_of(streams_.begin(), streams_.end(), [&](const NativeStream* stream) {
                return stream->state_ != NativeStream::State::kUnused &&
                       (stream->name_ == name || stream->name_.starts_with(name + " "));
            });
        if (!isTaken) {
            return own.empty() ? name : name + " " + std::string(own);
        }
    }
}

NativeStream& StreamLife::unusedStream() {
    const auto found = std::find_if(
        streams_.begin(), streams_.end(),
        [](const NativeStream* stream) { return stream->state_ == NativeStream::State::kUnused; });
    if (found != streams_.end()) {
        return **found;
    }
    streams_.reserve(streams_.size() + 1);
    streams_.push_back(new NativeStream);
    return *streams_.back();
}

bool StreamLife::isLeased(const BridgeUnit& unit) const {
    return std::any_of(streams_.begin(), streams_.end(),
                       [&](const NativeStream* stream) { return stream->unit_.load() == &unit; });
}

/// The one that was this stream's before, so that its track goes on; else a new one; else one of
/// the same format, whose conversions are ready; else any.
BridgeUnit* StreamLife::idleUnit(const NativeFormat& format, const std::string& name) {
    BridgeUnit* best = nullptr;
    int bestWorth = -1;
    for (const auto& unit : units_) {
        const bool isSame = unit->format() == format;
        const int worth = isSame && unit->name() == name ? 2 : isSame ? 1 : 0;
        if (worth > bestWorth && !isLeased(*unit)) {
            best = unit.get();
            bestWorth = worth;
        }
    }
    if (bestWorth < 2 && units_.size() < kMostUnits) {
        if (auto made = BridgeUnit::make()) {
            units_.push_back(std::move(made));
            return units_.back().get();
        }
    }
    return best;
}

/// Null when seven others play.
BridgeUnit* StreamLife::unitFor(NativeStream& stream) {
    BridgeUnit* unit = idleUnit(stream.format_, stream.name_);
    if (unit == nullptr) {
        // A stream that was opened to look what there is gives way to one that may play.
        const auto idle = std::find_if(streams_.begin(), streams_.end(), [&](NativeStream* other) {
            return other != &stream && other->unit_.load() != nullptr && !other->hasSound_.load();
        });
        if (idle != streams_.end()) {
            BridgeUnit* const lent = (*idle)->unit_.exchange(nullptr);
            // A writer that saw the unit is told apart from one that comes later: both look behind
            // their own change.
            if ((*idle)->users_.load() == 0) {
                unit = lent;
            } else {
                (*idle)->unit_.store(lent);
            }
        }
    }
    return unit != nullptr && unit->take(stream.format_, stream.name_, stream) ? unit : nullptr;
}

void StreamLife::report(NativeStream& stream, tq_stream_fate fate, bool isClosed) {
    stream.fate_ = fate;
    tq_stream facts = stream.facts(fate);
    facts.is_closed = isClosed ? 1 : 0;
    (void)tq_stream_report(&facts);
}

// ---- the thread ---------------------------------------------------------------------------------

void StreamLife::startThread() {
    if (hasThread_) {
        return;
    }
    const tqcommon::SignalsBlocked blocked;
    std::thread([this] {
        pthread_setname_np(pthread_self(), "TQAudioBridge");
        run();
    }).detach();
    hasThread_ = true;
}

void StreamLife::run() {
    while (true) {
        const timespec then = inMilliseconds(kLookMilliseconds);
        while (sem_timedwait(&work_, &then) != 0 && errno == EINTR) {
        }
        const std::scoped_lock lock(lock_);
        // Listeners are told in there. One that dies is to die twice at most, whoever calls it.
        const GuardScope inside;
        look();
    }
}

void StreamLife::look() {
    for (NativeStream* const stream : streams_) {
        if (stream->state_ != NativeStream::State::kUnused) {
            lookAt(*stream);
        }
    }
}

void StreamLife::lookAt(NativeStream& stream) {
    const bool hasSound = stream.hasSound_.load(std::memory_order_acquire);
    const bool isClosed = stream.state_ == NativeStream::State::kClosed;
    if (isClosed && (stream.isOver_ || !hasSound || stream.unit_.load() == nullptr)) {
        endStream(stream);
        return;
    }
    if (!hasSound && stream.unserved_ == 0) {
        return;
    }
    if (stream.unit_.load() == nullptr) {
        stream.unit_.store(unitFor(stream), std::memory_order_release);
    }
    BridgeUnit* const unit = stream.unit_.load();
    if (unit != nullptr && !unit->isRunning()) {
        unit->start();
    }
    const tq_stream_fate fate = unit != nullptr ? TQ_STREAM_RECORDED : TQ_STREAM_NO_UNIT_FREE;
    // Again from time to time while it plays: who looks on may go before it ends.
    const auto now = std::chrono::steady_clock::now();
    const bool isDue = fate == TQ_STREAM_RECORDED && now - stream.reportedAt_ > kReportInterval;
    if (stream.fate_ != fate || isDue) {
        stream.reportedAt_ = now;
        report(stream, fate, false);
    }
}

void StreamLife::endStream(NativeStream& stream) {
    if (BridgeUnit* const unit = stream.unit_.load()) {
        unit->stop();
    }
    reportEnd(stream);
    // Whoever found it before its key went is in a call of the native library, which may wait for
    // as long as it likes. Unit and memory stay his; the next look comes back to it.
    if (stream.users_.load() == 0) {
        stream.end();
    }
}

void StreamLife::reportEnd(NativeStream& stream) {
    if (stream.fate_) {
        const bool isServed = stream.fifo_->counts().written != 0;
        report(stream, isServed ? TQ_STREAM_RECORDED : TQ_STREAM_NO_UNIT_FREE, true);
        stream.fate_.reset();
    }
}

/// Writers that are still at work add to what is waited for, but not to how long.
void StreamLife::finish() {
    using Clock = std::chrono::steady_clock;
    std::chrono::duration<double> longest{0};
    double left = 0;
    bool isHurried = false;
    {
        const std::scoped_lock guard(lock_);
        for (NativeStream* const stream : streams_) {
            if (stream->state_ == NativeStream::State::kUnused) {
                continue;
            }
            stream->state_ = NativeStream::State::kClosed;
            longest = std::max(longest, std::chrono::duration<double>(stream->longestWait()));
            left = std::max(left, stream->secondsLeft());
        }
        table_.clear();
        look();
        // Nobody hears it: what is there need not take the time that it lasts. But the device's
        // thread may get no processor for a while.
        isHurried = !hasOthers() && TQNullDeviceHurry(left) == 0;
        if (isHurried) {
            longest = std::max(longest, kStarved);
        }
    }
    const auto end = Clock::now() + longest;
    while (isBusy() && Clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const std::scoped_lock guard(lock_);
    look();
    for (NativeStream* const stream : streams_) {
        if (stream->state_ != NativeStream::State::kUnused) {
            reportEnd(*stream);
        }
    }
    if (isHurried) {
        // The device is ahead of its time and would stand still while the last blocks wait for it.
        (void)TQNullDeviceHurry(kTailSeconds);
    }
    isFinished_ = true;
}

bool StreamLife::isBusy() {
    const std::scoped_lock guard(lock_);
    return std::any_of(streams_.begin(), streams_.end(), [](const NativeStream* stream) {
        return stream->state_ != NativeStream::State::kUnused && stream->unit_.load() != nullptr &&
               stream->hasSound_ && !stream->isOver_;
    });
}

/// Whether units of the program's own run on the same clock.
bool StreamLife::hasOthers() const {
    struct Count {
        const StreamLife& life;
        bool hasOthers = false;
    } count{*this};
    (void)tq_capture_units(
        [](void* context, const tq_unit* unit) {
            auto& seen = *static_cast<Count*>(context);
            const auto& own = seen.life.units_;
            seen.hasOthers =
                seen.hasOthers || (unit->is_started != 0 &&
                                   std::none_of(own.begin(), own.end(), [&](const auto& one) {
                                       return one->name() == unit->name;
                                   }));
        },
        &count);
    return count.hasOthers;
}

// ---- fork ---------------------------------------------------------------------------------------

/// The parent plays on; what the child plays it opens itself.
void StreamLife::forgetAfterFork() {
    table_.clear();
    hasThread_ = false;
    sem_init(&work_, 0, 0);
    for (const auto& unit : units_) {
        unit->forgetAfterFork();
    }
    for (NativeStream* const stream : streams_) {
        stream->users_ = 0;
        stream->unit_ = nullptr;
        stream->state_ = NativeStream::State::kClosed;
        stream->isOver_ = true;
        stream->fate_.reset();
    }
}

}  // namespace tq::bridges
