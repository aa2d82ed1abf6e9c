#include <Foundation/NSNotification.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

#include <Foundation/NSException.h>
#include "common/ForkLocks.h"
#include "common/NeverDestroyed.h"

namespace {

struct Observation {
    const void* observer;
    NSNotificationCenter::Handler handler;
    std::string name;
    const void* object;
    /// Set when it is forgotten, so that a delivery under way passes it over: what its handler
    /// refers to may be gone already.
    std::atomic<bool> removed = false;
};

}  // namespace

std::string NSNotification::textForKey(std::string_view key) const {
    const auto found = userInfo.find(key);
    const std::string* const text =
        found != userInfo.end() ? std::get_if<std::string>(&found->second) : nullptr;
    return text != nullptr ? *text : std::string();
}

long NSNotification::integerForKey(std::string_view key, long fallback) const {
    const auto found = userInfo.find(key);
    const long* const integer =
        found != userInfo.end() ? std::get_if<long>(&found->second) : nullptr;
    return integer != nullptr ? *integer : fallback;
}

struct NSNotificationCenter::State {
    std::mutex lock;
    tqcommon::ForkLock atFork{tqcommon::ForkOrder::Foundation, lock};
    std::vector<std::shared_ptr<Observation>> observations;
};

NSNotificationCenter& NSNotificationCenter::defaultCenter() {
    static tqcommon::NeverDestroyed<NSNotificationCenter> center;
    return *center;
}

NSNotificationCenter::NSNotificationCenter() : state_(std::make_unique<State>()) {
}

NSNotificationCenter::~NSNotificationCenter() = default;

void NSNotificationCenter::addObserver(const void* observer, Handler handler, std::string name,
                                       const void* object) {
    if (!handler) {
        return;
    }
    auto observation = std::make_shared<Observation>();
    observation->observer = observer;
    observation->handler = std::move(handler);
    observation->name = std::move(name);
    observation->object = object;
    const std::lock_guard<std::mutex> guard(state_->lock);
    state_->observations.push_back(std::move(observation));
}

void NSNotificationCenter::removeObserver(const void* observer) {
    // Destroyed after the lock is gone: handlers may own objects whose destructors come here.
    std::vector<std::shared_ptr<Observation>> forgotten;
    const std::lock_guard<std::mutex> guard(state_->lock);
    auto& all = state_->observations;
    for (const auto& observation : all) {
        if (observation->observer == observer) {
            forgotten.push_back(observation);
        }
    }
    for (const auto& observation : forgotten) {
        observation->removed.store(true, std::memory_order_release);
    }
    std::erase_if(all, [](const auto& observation) {
        return observation->removed.load(std::memory_order_relaxed);
    });
}

void NSNotificationCenter::postNotificationName(std::string name, const void* object,
                                                NSUserInfo userInfo) {
    const NSNotification notification{std::move(name), object, std::move(userInfo)};
    std::vector<std::shared_ptr<Observation>> addressees;
    {
        const std::lock_guard<std::mutex> guard(state_->lock);
        std::copy_if(state_->observations.begin(), state_->observations.end(),
                     std::back_inserter(addressees), [&notification](const auto& observation) {
                         return observation->name == notification.name &&
                                (observation->object == nullptr ||
                                 observation->object == notification.object);
                     });
    }
    for (const auto& observation : addressees) {
        if (!observation->removed.load(std::memory_order_acquire)) {
            NSCallGuarded(observation->handler, notification);
        }
    }
}
