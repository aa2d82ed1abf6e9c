#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/ForkLocks.h"

/// Why a unit is not captured at this moment.
enum class RZUnitReason : std::uint32_t {
    Captured,       ///< it is
    NotStarted,     ///< the program has not started it, or has stopped it
    CaptureOff,     ///< nobody listens
    NoNumberFree,   ///< all track numbers were taken when it was made
    MicrophoneOn,   ///< units that record too are left alone
    VoiceEngine,    ///< made on a voice engine's thread
    Uninitialised,  ///< the program has uninitialised it; it is not on record any more
    Anothers,       ///< another library has registered it, or its graph, as not the game's
    NoFormat,       ///< its stream format could not be read
    MixRefused,     ///< the private graph did not take it in
    NumberTaken,    ///< a later unit has got its track number and its place in the mix
    NotSeenMade,    ///< it was made before the hooks came
    Excluded,       ///< whoever records does not want it
};

/// One output unit of the program, as far as the interception has seen it.
struct RZUnitFact {
    const void* unit = nullptr;   ///< a handle as a number; the unit may be gone
    const void* graph = nullptr;  ///< the program's graph that holds it, if any
    std::uint32_t ordinal = 0;    ///< from 1 in the order of first starts, 0 before that
    int track = 0;                ///< 1 to 7, 0 without a capture object
    bool isStarted = false;
    RZUnitReason reason = RZUnitReason::NotStarted;

    [[nodiscard]] bool isGraphs() const { return graph != nullptr; }
};

/// How many units and starts there have been in this process.
struct RZUnitCounts {
    std::uint64_t created = 0;               ///< with a track number, or a voice engine's
    std::uint64_t started = 0;               ///< starts of output units, also repeated ones
    std::uint64_t startsWithMicrophone = 0;  ///< of those, not captured for that reason
};

/// The record of what became of the program's units. The interception and the mix manager write to
/// it where they decide, so that nobody has to read it out of the log.
///
/// [any thread] for every method. One lock guards the list and is held for no call to the outside;
/// observers have a lock of their own, which is held while they are called and which an observer's
/// thread may take again. A graph keeps its ordinal until it is disposed of, a unit as long
/// as it is alive; one that has a name of its own until it is uninitialised.
class RZUnitFacts {
  public:
    using Observer = std::function<void(const RZUnitFact&)>;
    using ObserverId = std::uint64_t;
    static constexpr int kTracks = 7;
    /// A unit as its blocks name it; ordinal 0 is none.
    struct TrackUnit {
        std::uint32_t ordinal = 0;
        bool isGraphs = false;

        /// The same in one number: the ordinal shifted by 1, and in the lowest bit whether it is a
        /// graph's.
        [[nodiscard]] constexpr std::uint32_t word() const {
            return ordinal << 1U | (isGraphs ? 1U : 0U);
        }
        [[nodiscard]] static constexpr TrackUnit ofWord(std::uint32_t word) {
            return {word >> 1U, (word & 1U) != 0};
        }
    };

    /// Whether a unit is wanted; must be short and must not call this class.
    using Choice = std::function<bool(const TrackUnit&)>;

    /// The one instance, made on first use, never destroyed.
    static RZUnitFacts& shared();

    RZUnitFacts() = default;
    RZUnitFacts(const RZUnitFacts&) = delete;
    RZUnitFacts& operator=(const RZUnitFacts&) = delete;

    // Notices. Each calls the observers. Without memory a notice is lost, never the program's call.

    /// The program has made a unit: what bore the handle before is gone.
    void made(const void* unit);
    /// A unit has got a capture object.
    void created(const void* unit, int track);
    /// A unit (or, with a null `unit`, whatever a graph holds) has got none, and why.
    void leftAlone(const void* unit, const void* graph, RZUnitReason reason);
    /// The program has started it. `reason` says what came of that. Answers what unitOfTrack()
    /// tells of it.
    TrackUnit started(const void* unit, const void* graph, int track, RZUnitReason reason);
    /// From now on units are asked about as they are started. Null wants all.
    void choose(Choice choice);
    /// Whether the unit, when it was started last, was not wanted.
    [[nodiscard]] bool isExcluded(const void* unit) const;
    /// The program has started a unit that has no capture object, or a graph (with a null `unit`)
    /// whose unit has none: the reason stays the one that it got when it was left alone.
    void startedAlone(const void* unit, const void* graph);
    /// The private graph has not taken it in, though its object counts as capturing.
    void mixRefused(const void* unit);
    /// Another unit has got its bus of the private graph.
    void numberTaken(const void* unit);
    void stopped(const void* unit, const void* graph = nullptr);
    /// The unit stands for something that has this name. With another name than before it gets a
    /// new ordinal at its next start: to whoever listens it is another unit.
    void named(const void* unit, std::string_view name);
    /// Its capture object is gone.
    void disposed(const void* unit);

    // Notices that only tidy up.

    /// Only in the child of a fork, where no unit plays: observers are not told.
    void allStopped() noexcept;

    /// The private graph has taken it in after all.
    void mixTook(const void* unit);

    /// The graph's units are gone.
    void graphClosed(const void* graph);
    void graphDisposed(const void* graph);

    /// In the order the units came. Reasons are as of the last notice.
    [[nodiscard]] std::vector<RZUnitFact> list() const;
    [[nodiscard]] RZUnitCounts counts() const;
    /// The unit that was last started with that track number. Real-time safe.
    [[nodiscard]] TrackUnit unitOfTrack(int track) const noexcept;

    /// `observer` is called on the thread of each notice. It must be short and must not start, stop
    /// or change units.
    ObserverId observe(Observer observer);
    /// Waits for calls under way on other threads; afterwards there are none.
    void stopObserving(ObserverId id);

  private:
    struct Ordinal {
        const void* handle;
        std::uint32_t number;
        /// Kept here too: RZUnitNames may have had no place left for it.
        std::optional<std::string> name{};
    };
    [[nodiscard]] RZUnitFact& entryFor(const void* unit, const void* graph);
    [[nodiscard]] RZUnitFact* find(const void* unit, const void* graph = nullptr);
    [[nodiscard]] std::uint32_t ordinalOf(const void* handle);
    void forgetOrdinal(const void* handle);
    void forgetOldOrdinals();
    template <class Change>
    void note(Change&& change);
    void noteReason(const void* unit, RZUnitReason reason);
    static void noteStopped(RZUnitFact& fact) noexcept;

    mutable std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::UnitFacts, lock_};
    std::vector<RZUnitFact> list_;
    std::vector<Ordinal> ordinals_;
    std::uint32_t lastOrdinal_ = 0;
    RZUnitCounts counts_;
    Choice choice_;
    /// Words of TrackUnit. Written under lock_, read by any thread without it; each word stands for
    /// itself, so relaxed order does.
    std::array<std::atomic<std::uint32_t>, kTracks + 1> trackUnits_{};

    std::recursive_mutex observersLock_;
    tqcommon::ForkLock observersAtFork_{tqcommon::ForkOrder::Observers, observersLock_};
    std::vector<std::pair<ObserverId, std::shared_ptr<const Observer>>> observers_;
    ObserverId lastObserver_ = 0;
};
