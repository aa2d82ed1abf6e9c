#include "bridges/core/StreamLife.h"

#include <algorithm>
#include <charconv>
#include <new>

// Which streams there are, and which units they have.

namespace tq::bridges {

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
    const NativeStream* const former = formerOf(key, format, api, own);
    const std::string name = former != nullptr ? former->name_ : nameFor(api, own);
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
    stream.key_ = key;
    stream.isExcluded_ = former == nullptr && !isWanted(name);
    if (former != nullptr) {
        stream.unit_.store(former->unit_.load(), std::memory_order_release);
        stream.isWaiting_ = true;
    }
    seat(stream);
    startThread();
}

void StreamLife::close(const void* key, NativeStream::Handle handle) {
    const std::scoped_lock guard(lock_);
    closeLocked(key);
    if (handle == NativeStream::Handle::kGoes) {
        for (NativeStream* const stream : streams_) {
            stream->key_ = stream->key_ == key ? nullptr : stream->key_;
        }
    }
    wake();
}

/// The same stream as it was before, when that plays out still: this one waits for its unit and
/// goes on in its track. Null where that cannot be.
const NativeStream* StreamLife::formerOf(const void* key, const NativeFormat& format,
                                         std::string_view api, std::string_view own) const {
    const std::string kind = std::string(api) + "-1" + (own.empty() ? "" : " " + std::string(own));
    const NativeStream* former = nullptr;
    for (const NativeStream* const stream : streams_) {
        const bool isSame =
            stream->key_ == key && stream->format_ == format && areOfOneKind(stream->name_, kind);
        const bool isEnding = stream->state_ == NativeStream::State::kClosed &&
                              stream->unit_.load() != nullptr && stream->users_.load() == 0;
        if (isSame && isEnding && (former == nullptr || former->number_ < stream->number_)) {
            former = stream;
        }
    }
    return former;
}

void StreamLife::closeLocked(const void* key) {
    NativeStream* const stream = table_.find(key);
    if (stream == nullptr) {
        return;
    }
    table_.remove(key);
    stream->state_ = NativeStream::State::kClosed;
    if (stream->isInherited_.exchange(false)) {
        // The parent's; there is nothing of it here.
        stream->end();
    }
}

std::string StreamLife::nameFor(std::string_view api, std::string_view own) const {
    const std::string head = std::string(api) + "-";
    std::vector<bool> isTaken(streams_.size() + 2);
    for (const NativeStream* const stream : streams_) {
        if (stream->state_ != NativeStream::State::kUnused && stream->name_.starts_with(head)) {
            const char* const end = stream->name_.data() + stream->name_.size();
            std::size_t number = 0;
            (void)std::from_chars(stream->name_.data() + head.size(), end, number);
            if (number < isTaken.size()) {
                isTaken[number] = true;
            }
        }
    }
    const auto free = std::find(isTaken.begin() + 1, isTaken.end(), false);
    const std::string name = head + std::to_string(free - isTaken.begin());
    return own.empty() ? name : name + " " + std::string(own);
}

/// Whether two names are the same but for their numbers: then one stream follows the other on the
/// same track.
bool StreamLife::areOfOneKind(std::string_view one, std::string_view other) {
    constexpr std::string_view kDigits = "0123456789";
    const auto withoutNumber = [&](std::string_view name) {
        const std::size_t from = std::min(name.find('-') + 1, name.size());
        const std::size_t to = std::min(name.find_first_not_of(kDigits, from), name.size());
        return std::pair(name.substr(0, from), name.substr(to));
    };
    return withoutNumber(one) == withoutNumber(other);
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

/// A unit on which only closed streams play: of the same format the one that plays the shortest,
/// so that what is written is ducked there before it plays. Else null; then the stream waits for
/// whichever is free first, or for nothing where open streams have them all.
void StreamLife::waitFor(NativeStream& stream) {
    BridgeUnit* best = nullptr;
    double shortest = 0;
    for (const auto& unit : units_) {
        double seconds = 0;
        const bool isEnding =
            std::all_of(streams_.begin(), streams_.end(), [&](const NativeStream* other) {
                const bool isOn = other->unit_.load() == unit.get();
                seconds += isOn ? other->secondsLeft() : 0;
                // A writer that is still inside would be ducked at the same time.
                return !isOn ||
                       (other->state_ == NativeStream::State::kClosed && other->users_.load() == 0);
            });
        if (isEnding && unit->format() == stream.format_ &&
            (best == nullptr || seconds < shortest)) {
            best = unit.get();
            shortest = seconds;
        }
    }
    if (best != nullptr && !stream.fate_ && areOfOneKind(best->name(), stream.name_)) {
        stream.name_ = best->name();
    }
    stream.unit_.store(best, std::memory_order_release);
    stream.isWaiting_.store(mayGetUnit(stream), std::memory_order_release);
    if (!stream.isWaiting_.load()) {
        // It came too late: played when a unit is free one day, it would be at a wrong time.
        stream.forsake();
    }
}

/// Whether there is a unit on which only closed streams play, or open ones that have no sound yet.
bool StreamLife::mayGetUnit(const NativeStream& stream) const {
    return std::any_of(units_.begin(), units_.end(), [&](const auto& unit) {
        return std::all_of(streams_.begin(), streams_.end(), [&](const NativeStream* other) {
            const bool isEnding =
                other->state_ == NativeStream::State::kClosed && other->users_.load() == 0;
            return other == &stream || other->unit_.load() != unit.get() || isEnding ||
                   !other->hasSound_.load();
        });
    });
}

/// A stream without a unit that has not played yet keeps its first sound as long as there is a unit
/// that it may get.
void StreamLife::hope(NativeStream& stream) const {
    if (stream.state_ == NativeStream::State::kOpen && stream.unit_.load() == nullptr &&
        !stream.hasSound_.load() && !stream.isInherited_.load() && !stream.isExcluded_) {
        stream.isWaiting_.store(mayGetUnit(stream), std::memory_order_release);
    }
}

/// Whether its unit plays nothing any more and it is the first of those that wait for it.
bool StreamLife::isNext(const NativeStream& stream) const {
    return std::none_of(streams_.begin(), streams_.end(), [&](const NativeStream* other) {
        return other != &stream && other->unit_.load() == stream.unit_.load() &&
               (!other->isWaiting_.load() || other->number_ < stream.number_);
    });
}

/// Gives a stream that wants one a unit of its own, or lets it wait for one. One that is not wanted
/// is ducked all the same.
void StreamLife::seat(NativeStream& stream) {
    if (stream.isExcluded_) {
        stream.takeOwnGain();
        return;
    }
    BridgeUnit* const promised = stream.unit_.load();
    if (promised != nullptr) {
        if (!isNext(stream)) {
            return;
        }
        if (!promised->take(stream.format_, stream.name_, stream)) {
            stream.takeOwnGain();
            stream.unit_.store(nullptr);
        }
    } else if (BridgeUnit* const unit = unitFor(stream)) {
        stream.unit_.store(unit, std::memory_order_release);
    } else {
        stream.takeOwnGain();
        waitFor(stream);
        return;
    }
    stream.isWaiting_.store(false, std::memory_order_release);
}

/// Null when seven others play.
BridgeUnit* StreamLife::unitFor(NativeStream& stream) {
    BridgeUnit* unit = idleUnit(stream.format_, stream.name_);
    if (unit == nullptr) {
        // A stream that was opened to look what there is gives way to one that may play.
        const auto idle = std::find_if(streams_.begin(), streams_.end(), [&](NativeStream* other) {
            return other != &stream && other->unit_.load() != nullptr && !other->hasSound_.load() &&
                   !other->isWaiting_.load();
        });
        if (idle != streams_.end()) {
            // Its first sound, which may come any moment, is kept and ducked until it has another.
            (*idle)->takeOwnGain();
            (*idle)->isWaiting_.store(true);
            BridgeUnit* const lent = (*idle)->unit_.exchange(nullptr);
            // A writer that saw the unit is told apart from one that comes later: both look behind
            // their own change.
            if ((*idle)->users_.load() == 0) {
                unit = lent;
            } else {
                (*idle)->unit_.store(lent);
                (*idle)->isWaiting_.store(false);
            }
        }
    }
    return unit != nullptr && unit->take(stream.format_, stream.name_, stream) ? unit : nullptr;
}

void StreamLife::report(NativeStream& stream, tq_stream_fate fate, bool isClosed) {
    stream.fate_ = fate;
    const tq_stream facts = stream.facts(fate, isClosed);
    stream.isFilling_ = facts.written != stream.reportedWritten_;
    stream.reportedWritten_ = facts.written;
    (void)tq_stream_report(&facts);
}

/// Once each, and the first of them: a program may try again for as long as it lives.
void StreamLife::refused(std::string_view api, std::string_view own, std::string_view reason) {
    constexpr std::size_t kMostRefusals = 16;
    std::string name(api);
    name.append(own.empty() ? "" : " ").append(own);
    name.append(" (").append(reason).append(")");
    const std::scoped_lock guard(lock_);
    if (isFinished_ || refusals_.size() == kMostRefusals || !refusals_.insert(name).second) {
        return;
    }
    tq_stream facts{};
    facts.size = sizeof facts;
    facts.stream = ++lastNumber_;
    facts.name = name.c_str();
    facts.fate = TQ_STREAM_NOT_OPENED;
    facts.is_closed = 1;
    (void)tq_stream_report(&facts);
}

}  // namespace tq::bridges
