#include "audio_stats.h"

#include <cstddef>

#include "common/ForkLocks.h"

namespace korva_audio_utils {

std::atomic<KorvaAudioStats*> KorvaAudioStats::instance{nullptr};
std::mutex KorvaAudioStats::mutex_;

KorvaAudioStats* KorvaAudioStats::getInstance() {
    KorvaAudioStats* current = instance.load(std::memory_order_acquire);
    if (current == nullptr) {
        const std::lock_guard lock(mutex_);
        current = instance.load(std::memory_order_relaxed);
        if (current == nullptr) {
            // Never freed: render threads may still use it while the process exits.
            current = new KorvaAudioStats;
            static const tqcommon::ForkLock atFork(tqcommon::ForkOrder::Statistics, mutex_);
            instance.store(current, std::memory_order_release);
        }
    }
    return current;
}

std::int32_t KorvaAudioStats::addHookAudioTrackInfo(unsigned long id, HookAudioTrackInfo info) {
    const std::lock_guard lock(mutex_);
    if (trackInfos_.contains(id)) {
        return -1;
    }
    trackStats_[id] = HookAudioTrackStat{id, 0, 0};
    trackInfos_.emplace(id, info);
    return static_cast<std::int32_t>(trackInfos_.size());
}

bool KorvaAudioStats::removeHookAudioTrack(unsigned long id) {
    const std::lock_guard lock(mutex_);
    if (trackInfos_.erase(id) == 0) {
        return false;
    }
    // Kept for the next new track: a render thread that still serves this one must not allocate.
    if (auto node = trackStats_.extract(id)) {
        spareStat_ = std::move(node);
    }
    return true;
}

std::int32_t KorvaAudioStats::updateHookAudioTrackStats(unsigned long id, HookAudioTrackStat stat) {
    const std::lock_guard lock(mutex_);
    const auto entry = trackStats_.find(id);
    if (entry != trackStats_.end()) {
        entry->second.pre_buffer_size = stat.pre_buffer_size;
        entry->second.post_buffer_size = stat.post_buffer_size;
    } else if (spareStat_) {
        spareStat_.key() = id;
        spareStat_.mapped() = stat;
        trackStats_.insert(std::move(spareStat_));
    } else {
        trackStats_.emplace(id, stat);
    }
    return 0;
}

std::uint64_t KorvaAudioStats::getAudioTrackSize() {
    const std::lock_guard lock(mutex_);
    return trackInfos_.size();
}

std::int32_t KorvaAudioStats::getHookAudioTrackInfos(HookAudioTrackInfo* out, int count) {
    const std::lock_guard lock(mutex_);
    if (count < 0 || static_cast<std::size_t>(count) != trackInfos_.size() ||
        (out == nullptr && count != 0)) {
        return -1;
    }
    for (const auto& [id, info] : trackInfos_) {
        *out++ = info;
    }
    return count;
}

KorvaAudioStats::HookAudioTrackStat KorvaAudioStats::getHookAudioTrackStat(unsigned long id) {
    const std::lock_guard lock(mutex_);
    const auto entry = trackStats_.find(id);
    return entry == trackStats_.end() ? HookAudioTrackStat{} : entry->second;
}

}  // namespace korva_audio_utils
