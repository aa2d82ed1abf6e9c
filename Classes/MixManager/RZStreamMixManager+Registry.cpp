#include <algorithm>

#include "RZLogSite.h"
#include "RZStreamMixManager+Report.h"
#include "RZStreamMixManager.h"
#include "RZUnitFacts.h"
#include "TQAudioRecordLock.h"

// The units that are known, by their key, unit or graph.

namespace {

constexpr int kTracks = 7;

}  // namespace

std::string RZStreamMixManager::getKey(const void* pointer) {
    return NSFormat("%p", pointer);
}

std::int32_t RZStreamMixManager::generateNewTrackID() {
    for (int n = 1; n <= kTracks; ++n) {
        const std::int32_t bit = 1 << (n - 1);
        // In one step: a unit may be disposed of on another thread meanwhile.
        if ((trackId_.fetch_or(bit) & bit) == 0) {
            return n;
        }
    }
    return 0;
}

RZStreamMixManager::UnitObject RZStreamMixManager::newAudioUnitObj(AudioUnit unit) {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager newAudioUnitObj:]");
    TQAudioRecordLock guard(mapLock_);
    const std::string key = getKey(unit);
    if (auto known = getAudioUnitObjWithKey(key)) {
        return known;
    }
    // Observers are told behind the lock: renders wait for it.
    const std::int32_t number = generateNewTrackID();
    if (number == 0) {
        guard.unlock();
        RZUnitFacts::shared().leftAlone(unit, nullptr, RZUnitReason::NoNumberFree);
        return nullptr;
    }
    UnitObject obj;
    if (!NSCallGuarded([&] { obj = registerUnit(site, key, unit, number); })) {
        // Out of memory: the number is free again and the unit plays without being captured.
        trackId_.fetch_and(~(1 << (number - 1)));
        return nullptr;
    }
    guard.unlock();
    RZUnitFacts::shared().created(unit, number);
    return obj;
}

RZStreamMixManager::UnitObject RZStreamMixManager::registerUnit(const RZLogSite& site,
                                                                const std::string& key,
                                                                AudioUnit unit,
                                                                std::int32_t number) {
    site.log(2, "[mix] newAudioUnitObj, key: %@, ioUnit: %p", key, unit);
    auto obj = std::make_shared<RZReplayAudioUnitObject>(unit, number);
    obj->setCallback(sharedManager());
    if (const auto ducking = duckingParam()) {
        obj->setDuckingParam(ducking.get());
    }
    if (const auto compressor = compressParam()) {
        obj->setCompressorParam(compressor.get());
    }
    unitMap_.push_back({key, unit, obj});
    return obj;
}

RZStreamMixManager::UnitObject RZStreamMixManager::findAudioUnitObj(const void* unit) const {
    // Runs in every render cycle: locks without copying the shared pointer, which would cost two
    // more atomic operations.
    const std::scoped_lock guard(*mapLock_);
    // The place where the unit was found last is tried first, so that the number of units does not
    // matter. Two units may share a hint; then the search below corrects it.
    const auto bits = reinterpret_cast<std::uintptr_t>(unit);
    std::size_t& hint = unitHints_[(bits >> 4U ^ bits >> 8U ^ bits >> 12U) % unitHints_.size()];
    if (hint < unitMap_.size() && unitMap_[hint].unit == unit) {
        return unitMap_[hint].obj;
    }
    for (std::size_t i = 0; i < unitMap_.size(); ++i) {
        if (unitMap_[i].unit == unit) {
            hint = i;
            return unitMap_[i].obj;
        }
    }
    return nullptr;
}

RZStreamMixManager::UnitObject RZStreamMixManager::findAudioUnitObjByAUGraph(
    const void* graph) const {
    if (graph == nullptr) {
        // Units outside any graph bear a null graph; a host's null must not find them.
        return nullptr;
    }
    const TQAudioRecordLock guard(mapLock_);
    for (const Entry& entry : unitMap_) {
        if (entry.obj->auGraph() == graph) {
            return entry.obj;
        }
    }
    return nullptr;
}

RZStreamMixManager::UnitObject RZStreamMixManager::getAudioUnitObjWithKey(
    const std::string& key) const {
    const TQAudioRecordLock guard(mapLock_);
    for (const Entry& entry : unitMap_) {
        if (entry.key == key) {
            return entry.obj;
        }
    }
    return nullptr;
}

void RZStreamMixManager::removeAudioUnitObjByKey(const std::string& key) {
    UnitObject removed;  // let go after the lock
    const TQAudioRecordLock guard(mapLock_);
    const auto found = std::find_if(unitMap_.begin(), unitMap_.end(),
                                    [&key](const Entry& entry) { return entry.key == key; });
    if (found != unitMap_.end()) {
        removed = std::move(found->obj);
        unitMap_.erase(found);
    }
}

std::map<std::string, RZStreamMixManager::UnitObject> RZStreamMixManager::unitMap() const {
    const TQAudioRecordLock guard(mapLock_);
    std::map<std::string, UnitObject> units;
    for (const Entry& entry : unitMap_) {
        units.emplace(entry.key, entry.obj);
    }
    return units;
}

void RZStreamMixManager::setUnitMap(const std::map<std::string, UnitObject>& units) {
    std::vector<Entry> entries;
    entries.reserve(units.size());
    for (const auto& [key, obj] : units) {
        if (obj) {
            entries.push_back({key, obj->inUnit(), obj});
        }
    }
    const TQAudioRecordLock guard(mapLock_);
    unitMap_.swap(entries);
}

std::vector<RZStreamMixManager::UnitObject> RZStreamMixManager::getUnitObjListWithCopy() const {
    const TQAudioRecordLock guard(mapLock_);
    std::vector<UnitObject> list;
    list.reserve(unitMap_.size());
    for (const Entry& entry : unitMap_) {
        list.push_back(entry.obj);
    }
    return list;
}

std::vector<RZStreamMixManager::UnitObject> RZStreamMixManager::filterCanStartUnitObjList() const {
    const TQAudioRecordLock guard(mapLock_);
    std::vector<UnitObject> list;
    for (const Entry& entry : unitMap_) {
        if (isUnitObjCanStartCapture(entry.obj)) {
            list.push_back(entry.obj);
        }
    }
    return list;
}
