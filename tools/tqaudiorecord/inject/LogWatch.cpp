#include "inject/LogWatch.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace tqrecorder {
namespace {

/// The unit or graph whose start this thread has been told to pass on. In the preloaded library
/// itself, so that no thread allocates for it.
struct Starting {
    std::uint64_t handle = 0;
    bool isGraph = false;
};
[[gnu::tls_model("initial-exec")]] thread_local Starting starting;

/// What follows `begin` in the line; null when the line begins otherwise.
const char* behind(const char* line, const char* begin) {
    const std::size_t length = std::strlen(begin);
    return std::strncmp(line, begin, length) == 0 ? line + length : nullptr;
}

void add(std::atomic<std::uint64_t>& count) {
    count.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

bool LogWatch::isNewUnit(const char* line) {
    return behind(line, "[mix] newAudioUnitObj,") != nullptr;
}

bool LogWatch::take(const char* line, SharedPage& page) {
    SharedFacts& facts = page.facts;
    if (isNewUnit(line)) {
        add(facts.unitsCreated);
        return true;
    }
    if (const char* rest = behind(line, "[AudioUnitHook] AudioOutputUnitStart: ")) {
        starting = {std::strtoull(rest, nullptr, 16), false};
    } else if (rest = behind(line, "[AUGraphHook] AUGraphStart: "); rest != nullptr) {
        starting = {std::strtoull(rest, nullptr, 16), true};
    } else if (rest = behind(line, "audio unit start: "); rest != nullptr) {
        add(facts.unitsStarted);
        isStarting_ = true;
        const unsigned long track = std::strtoul(rest, nullptr, 10);
        if (track > 0 && track < kTracks && starting.handle != 0) {
            page.tracks[track].unit.store(numberOf(starting.handle, starting.isGraph),
                                          std::memory_order_relaxed);
        }
    } else if (behind(line, "[korva]this audiounit is rtc seamd.") != nullptr) {
        // Said again and again; counted once per start.
        if (std::exchange(isStarting_, false)) {
            add(facts.unitsWithMicrophone);
        }
    } else if (behind(line, "[AudioUnitHook] audio unit is agora audio unit") != nullptr ||
               behind(line, "[AudioUnitHook] audio unit is rtc audio unit") != nullptr) {
        // Belongs to a voice chat; the library does not look at it again.
        add(facts.unitsCreated);
        add(facts.unitsStarted);
        add(facts.unitsWithMicrophone);
    } else if (rest = behind(line, "[mix] disposeAudioUnitObj: "); rest != nullptr) {
        forget(std::strtoull(rest, nullptr, 16));
    } else if (rest = behind(line, "[AUGraphHook] DisposeAUGraph: "); rest != nullptr) {
        forget(std::strtoull(rest, nullptr, 16));
    }
    return false;
}

std::uint32_t LogWatch::numberOf(std::uint64_t handle, bool isGraph) {
    Unit* free = nullptr;
    for (Unit& unit : units_) {
        if (unit.handle == handle) {
            return unit.number;
        }
        if (unit.handle == 0 && free == nullptr) {
            free = &unit;
        }
    }
    const std::uint32_t number = UnitNumber::of(++ordinal_, isGraph);
    if (free != nullptr) {
        *free = {handle, number};
    }
    return number;
}

void LogWatch::forget(std::uint64_t handle) {
    for (Unit& unit : units_) {
        if (unit.handle == handle) {
            unit = {};
        }
    }
}

}  // namespace tqrecorder
