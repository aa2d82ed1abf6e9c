#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string_view>

#include "core/Records.h"
#include "ipc/SharedFrames.h"
#include "ipc/SharedRing.h"
#include "ipc/SharedText.h"

// What a recorded process and the recorder share: one piece of memory that the process makes and
// the recorder keeps mapped, so that it can be read to its end whatever becomes of the process.

namespace tqrecorder {

inline constexpr std::size_t kTracks = kFrameTracks;
inline constexpr std::size_t kRings = 4;

enum class RingId : std::size_t { kSound, kEvents, kLog, kStreams };

/// A host unit as a number, by which it is known again: 0 unknown, else its ordinal in the process,
/// shifted by 1, and in the lowest bit whether it is a graph's.
struct UnitNumber {
    [[nodiscard]] static constexpr std::uint32_t of(std::uint32_t ordinal, bool isGraph) {
        return ordinal == 0 ? 0 : ordinal << 1U | (isGraph ? 1U : 0U);
    }
};

/// How the crash guard of a program stands. The numbers travel in shared memory.
enum class GuardState : std::uint32_t {
    kUnknown,
    kNeverEnabled,
    kArmed,
    kNotWanted,  ///< was enabled once, nothing is wanted now
    kForbidden,
    kUsedUp,      ///< armed, but its retries are used up
    kUnreadable,  ///< no flag files, or broken ones
};

/// Written by the process's own thread and by those that make and start units, read by the
/// recorder.
struct SharedFacts {
    std::atomic<std::uint32_t> hooksInstalled{0};
    std::atomic<GuardState> guard{GuardState::kUnknown};
    std::atomic<std::int32_t> retriesLeft{0};
    std::atomic<std::uint64_t> unitsCreated{0};
    std::atomic<std::uint64_t> unitsStarted{0};
    std::atomic<BridgeState> bridges{BridgeState::kNotAsked};
};

/// One track as the library's statistics tell it.
struct SharedTrack {
    std::atomic<std::uint32_t> isThere{0};
    std::atomic<std::uint32_t> sampleRate{0};
    std::atomic<std::uint32_t> channels{0};
    std::atomic<std::uint32_t> isFloat{0};
    std::atomic<std::uint32_t> bufferedBytes{0};
    SharedText unit;
};

/// A unit that played without being captured.
struct SharedUnit {
    std::atomic<std::uint32_t> number{0};   ///< UnitNumber
    std::atomic<std::uint32_t> reasons{0};  ///< bit n for the library's reason n
    SharedText name;
};

/// The units that were left out, in the order in which that was first noticed. Written by the
/// threads that start units, one at a time; an entry is complete before `count` covers it.
struct SharedLeftOut {
    static constexpr std::size_t kMost = 32;

    std::atomic<std::uint32_t> count{0};
    std::atomic<std::uint32_t> reasonsOfMore{0};  ///< of those that found no room here
    SharedUnit units[kMost];

    void note(std::uint32_t number, std::string_view name, std::uint32_t reason);
};

struct SharedPage {
    static constexpr std::uint64_t kMagic = 0x32504154'52515431ULL;

    std::uint64_t magic = kMagic;
    std::uint64_t totalBytes = 0;
    std::uint64_t ringOffset[kRings] = {};
    std::uint64_t ringBytes[kRings] = {};
    RingState rings[kRings];
    SharedFacts facts;
    SharedTrack tracks[kTracks];
    SharedFrames frames[kTracks];
    SharedLeftOut leftOut;
    /// The recorder's: outside level for ducking, dBFS.
    std::atomic<float> duckLevel{-1000};
    /// The recorder's: ducking that the user asked for meanwhile, in dB up to 0, above 0 for none.
    /// No number while it is as the options ask.
    std::atomic<float> duckOrder{std::numeric_limits<float>::quiet_NaN()};
};

/// Owns a mapping of shared memory.
class SharedMapping {
  public:
    SharedMapping() = default;
    SharedMapping(SharedMapping&& other) noexcept;
    SharedMapping& operator=(SharedMapping&& other) noexcept;
    SharedMapping(const SharedMapping&) = delete;
    SharedMapping& operator=(const SharedMapping&) = delete;
    ~SharedMapping();

    /// Makes the memory, with the rings laid out. `descriptor` becomes the memfd, to be closed by
    /// the caller. Nothing when the system refuses.
    [[nodiscard]] static std::optional<SharedMapping> make(std::uint64_t soundBytes,
                                                           int& descriptor);
    /// Maps what another process made. Nothing unless its size is sealed, at most `mostBytes`, and
    /// its layout sound.
    [[nodiscard]] static std::optional<SharedMapping> map(int descriptor,
                                                          std::uint64_t mostBytes = kMostBytes);
    /// Takes and maps some more of the memory, all of which the ring of sound can use only then;
    /// false when that is done, or the system has no more.
    bool populateMore();
    /// The size of what make() makes.
    [[nodiscard]] static std::uint64_t sizeFor(std::uint64_t soundBytes);
    /// More than that is mapped only for a user who asked for it.
    static constexpr std::uint64_t kMostBytes = std::uint64_t{256} << 20U;

    [[nodiscard]] SharedPage& page() const { return *reinterpret_cast<SharedPage*>(base_); }
    [[nodiscard]] RingWriter writer(RingId ring) const;
    [[nodiscard]] RingReader reader(RingId ring) const;

  private:
    [[nodiscard]] std::span<std::byte> memoryOf(RingId ring) const;
    [[nodiscard]] bool takeLayout();

    std::byte* base_ = nullptr;
    std::size_t bytes_ = 0;
    std::size_t populated_ = 0;
    // Copied: the other side may change its own.
    std::uint64_t ringOffset_[kRings] = {};
    std::uint64_t ringBytes_[kRings] = {};
};

}  // namespace tqrecorder
