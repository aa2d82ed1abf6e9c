#include "RZUnitFacts.h"

#include <Foundation/NSException.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "RZUnitNames.h"

namespace {
/// Of units that are on record no more, only the latest are kept: a program may make and unmake one
/// for every sound.
constexpr std::size_t kMostEntries = 64;

constexpr std::size_t kMostOrdinals = 2 * kMostEntries;

constexpr bool isTrack(int track) {
    return track > 0 && track <= RZUnitFacts::kTracks;
}
}  // namespace

RZUnitFacts& RZUnitFacts::shared() {
    static auto* const instance = new RZUnitFacts;
    return *instance;
}

/// Makes a change of the list, then tells the observers what `change` answers, if anything.
template <class Change>
void RZUnitFacts::note(Change&& change) {
    NSCallGuarded([&] {
        std::optional<RZUnitFact> fact;
        {
            const std::scoped_lock guard(lock_);
            fact = change();
        }
        if (!fact) {
            return;
        }
        const std::scoped_lock guard(observersLock_);
        // A copy: an observer may stop itself or another one, which then hears of this no more.
        const auto observers = observers_;
        for (const auto& each : observers) {
            if (std::find(observers_.begin(), observers_.end(), each) != observers_.end()) {
                NSCallGuarded([&] { (*each.second)(*fact); });
            }
        }
    });
}

void RZUnitFacts::made(const void* unit) {
    const std::scoped_lock guard(lock_);
    forgetOrdinal(unit);
}

void RZUnitFacts::created(const void* unit, int track) {
    note([&] {
        ++counts_.created;
        return std::optional(
            entryFor(unit, nullptr) = {unit, nullptr, 0, track, false, RZUnitReason::NotStarted});
    });
}

void RZUnitFacts::leftAlone(const void* unit, const void* graph, RZUnitReason reason) {
    note([&] {
        if (reason == RZUnitReason::VoiceEngine) {
            ++counts_.created;
        }
        return std::optional(entryFor(unit, graph) = {unit, graph, 0, 0, false, reason});
    });
}

RZUnitFacts::TrackUnit RZUnitFacts::started(const void* unit, const void* graph, int track,
                                            RZUnitReason reason) {
    TrackUnit named;
    note([&] {
        ++counts_.started;
        counts_.startsWithMicrophone += reason == RZUnitReason::MicrophoneOn ? 1U : 0U;
        named = {ordinalOf(graph != nullptr ? graph : unit), graph != nullptr};
        if (isTrack(track)) {
            trackUnits_[static_cast<std::size_t>(track)].store(named.word(),
                                                               std::memory_order_relaxed);
        }
        const RZUnitReason known = choice_ && !choice_(named) ? RZUnitReason::Excluded : reason;
        return std::optional(
            entryFor(unit, graph) = {unit, graph, named.ordinal, track, true, known});
    });
    return named;
}

void RZUnitFacts::choose(Choice choice) {
    const std::scoped_lock guard(lock_);
    choice_ = std::move(choice);
}

bool RZUnitFacts::isExcluded(const void* unit) const {
    const std::scoped_lock guard(lock_);
    return std::any_of(list_.begin(), list_.end(), [unit](const RZUnitFact& entry) {
        return entry.unit == unit && entry.reason == RZUnitReason::Excluded;
    });
}

void RZUnitFacts::startedAlone(const void* unit, const void* graph) {
    note([&] {
        ++counts_.started;
        RZUnitFact* entry = find(unit, graph);
        if (entry == nullptr) {
            entry =
                &(entryFor(unit, graph) = {unit, graph, 0, 0, false, RZUnitReason::NotSeenMade});
        }
        if (entry->graph != nullptr) {
            entry->ordinal = ordinalOf(entry->graph);
        } else if (entry->ordinal == 0) {
            entry->ordinal = ++lastOrdinal_;
        }
        entry->isStarted = true;
        return std::optional(*entry);
    });
}

void RZUnitFacts::mixRefused(const void* unit) {
    noteReason(unit, RZUnitReason::MixRefused);
}

void RZUnitFacts::numberTaken(const void* unit) {
    noteReason(unit, RZUnitReason::NumberTaken);
}

void RZUnitFacts::noteReason(const void* unit, RZUnitReason reason) {
    note([&]() -> std::optional<RZUnitFact> {
        RZUnitFact* const entry = find(unit);
        if (entry == nullptr) {
            return std::nullopt;
        }
        entry->reason = reason;
        return *entry;
    });
}

void RZUnitFacts::mixTook(const void* unit) {
    note([&]() -> std::optional<RZUnitFact> {
        RZUnitFact* const entry = find(unit);
        if (entry != nullptr && entry->reason == RZUnitReason::MixRefused) {
            entry->reason = RZUnitReason::Captured;
        }
        return std::nullopt;
    });
}

void RZUnitFacts::stopped(const void* unit, const void* graph) {
    note([&]() -> std::optional<RZUnitFact> {
        RZUnitFact* const entry = find(unit, graph);
        if (entry == nullptr || !entry->isStarted) {
            return std::nullopt;
        }
        noteStopped(*entry);
        return *entry;
    });
}

void RZUnitFacts::named(const void* unit, std::string_view name) {
    note([&]() -> std::optional<RZUnitFact> {
        const std::string_view kept = name.substr(0, RZUnitNames::kLongest);
        const bool isKnown =
            std::any_of(ordinals_.begin(), ordinals_.end(),
                        [&](const Ordinal& one) { return one.handle == unit && one.name == kept; });
        if (!isKnown) {
            forgetOrdinal(unit);
            ordinals_.push_back({unit, ++lastOrdinal_, std::string(kept)});
            RZUnitNames::shared().give(lastOrdinal_, kept);
        }
        return std::nullopt;
    });
}

void RZUnitFacts::noteStopped(RZUnitFact& fact) noexcept {
    fact.isStarted = false;
    if (fact.track != 0) {
        fact.reason = RZUnitReason::NotStarted;
    }
}

void RZUnitFacts::allStopped() noexcept {
    const std::scoped_lock guard(lock_);
    for (RZUnitFact& fact : list_) {
        if (fact.isStarted) {
            noteStopped(fact);
        }
    }
}

void RZUnitFacts::disposed(const void* unit) {
    note([&]() -> std::optional<RZUnitFact> {
        // Of the others, one that is initialised again is the same unit as before.
        std::erase_if(ordinals_, [unit](const Ordinal& one) {
            return one.handle == unit && one.name.has_value();
        });
        RZUnitFact* const entry = find(unit);
        if (entry == nullptr) {
            return std::nullopt;
        }
        entry->isStarted = false;
        entry->track = 0;
        entry->reason = RZUnitReason::Uninitialised;
        return *entry;
    });
}

void RZUnitFacts::graphClosed(const void* graph) {
    note([&]() -> std::optional<RZUnitFact> {
        std::erase_if(list_, [&](const RZUnitFact& entry) {
            return graph != nullptr && entry.graph == graph;
        });
        return std::nullopt;
    });
}

void RZUnitFacts::graphDisposed(const void* graph) {
    graphClosed(graph);
    note([&]() -> std::optional<RZUnitFact> {
        forgetOrdinal(graph);
        return std::nullopt;
    });
}

std::vector<RZUnitFact> RZUnitFacts::list() const {
    const std::scoped_lock guard(lock_);
    return list_;
}

RZUnitCounts RZUnitFacts::counts() const {
    const std::scoped_lock guard(lock_);
    return counts_;
}

RZUnitFacts::TrackUnit RZUnitFacts::unitOfTrack(int track) const noexcept {
    return isTrack(track) ? TrackUnit::ofWord(trackUnits_[static_cast<std::size_t>(track)].load(
                                std::memory_order_relaxed))
                          : TrackUnit{};
}

RZUnitFacts::ObserverId RZUnitFacts::observe(Observer observer) {
    auto held = std::make_shared<const Observer>(std::move(observer));
    const std::scoped_lock guard(observersLock_);
    observers_.emplace_back(++lastObserver_, std::move(held));
    return lastObserver_;
}

void RZUnitFacts::stopObserving(ObserverId id) {
    const std::scoped_lock guard(observersLock_);
    std::erase_if(observers_, [id](const auto& entry) { return entry.first == id; });
}

/// The handle's entry, at the end of the list when it is new. A handle that comes back is another
/// unit's and takes the entry over.
RZUnitFact& RZUnitFacts::entryFor(const void* unit, const void* graph) {
    const auto known = std::find_if(list_.begin(), list_.end(), [&](const RZUnitFact& entry) {
        return entry.unit == unit && (unit != nullptr || entry.graph == graph);
    });
    if (known != list_.end()) {
        return *known;
    }
    if (list_.size() >= kMostEntries) {
        const auto oldest = std::find_if(list_.begin(), list_.end(),
                                         [](const RZUnitFact& entry) { return entry.track == 0; });
        list_.erase(oldest == list_.end() ? list_.begin() : oldest);
    }
    return list_.emplace_back();
}

/// By the unit, or with a null one by the graph.
RZUnitFact* RZUnitFacts::find(const void* unit, const void* graph) {
    const auto found = std::find_if(list_.begin(), list_.end(), [&](const RZUnitFact& entry) {
        return unit != nullptr ? entry.unit == unit : graph != nullptr && entry.graph == graph;
    });
    return found == list_.end() ? nullptr : &*found;
}

std::uint32_t RZUnitFacts::ordinalOf(const void* handle) {
    const auto known = std::find_if(ordinals_.begin(), ordinals_.end(),
                                    [handle](const Ordinal& one) { return one.handle == handle; });
    if (known != ordinals_.end()) {
        return known->number;
    }
    if (ordinals_.size() >= kMostOrdinals) {
        forgetOldOrdinals();
    }
    ordinals_.push_back({handle, ++lastOrdinal_});
    return lastOrdinal_;
}

void RZUnitFacts::forgetOrdinal(const void* handle) {
    std::erase_if(ordinals_, [handle](const Ordinal& one) { return one.handle == handle; });
}

/// Of units that are on record no more. Nobody tells of the end of every unit.
void RZUnitFacts::forgetOldOrdinals() {
    std::erase_if(ordinals_, [this](const Ordinal& one) {
        return std::none_of(list_.begin(), list_.end(), [&one](const RZUnitFact& entry) {
            return entry.unit == one.handle || entry.graph == one.handle;
        });
    });
}
