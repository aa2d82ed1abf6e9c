#include "event_filter.h"

#include <chrono>
#include <cstdint>
#include <mutex>

namespace korva_audio_utils {

int EventFilter::GetKey(int category, int code) noexcept {
    const auto high = static_cast<std::uint32_t>(category) << 16U;
    return static_cast<int>(static_cast<std::uint32_t>(code) | high);
}

long EventFilter::GetNow() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count() / 1000;
}

bool EventFilter::FilterEvent(int category, int code) {
    const std::lock_guard guard(lock_);
    const int key = GetKey(category, code);
    const long now = clock_();
    const auto [entry, isNew] = lastPassTimes_.try_emplace(key, now);
    if (isNew) {
        return true;
    }
    if (now - entry->second <= Interval()) {
        return false;
    }
    entry->second = now;
    return true;
}

}  // namespace korva_audio_utils
