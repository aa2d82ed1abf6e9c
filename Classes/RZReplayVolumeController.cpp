#include "RZReplayVolumeController.h"

#include <atomic>

#include "AtomicProperty.h"
#include "RZStreamMixManager.h"
#include "TQAudioRecordLock.h"
#include "common/ForkLocks.h"

RZReplayVolumeControllerDelegate::~RZReplayVolumeControllerDelegate() = default;
void RZReplayVolumeControllerDelegate::onDuckingGlobalStateChanged(BOOL /*enabled*/) {
}
void RZReplayVolumeControllerDelegate::onCompressorGlobalStateChanged(BOOL /*enabled*/) {
}

struct RZReplayVolumeController::State {
    AtomicProperty<std::weak_ptr<RZReplayVolumeControllerDelegate>> delegate;
    std::atomic<bool> duckingEnable{false};
    std::atomic<bool> compressorEnable{false};
    AtomicProperty<std::shared_ptr<NSRecursiveLock>> opLock{std::make_shared<NSRecursiveLock>()};
};

/// What differs between ducking and compression; everything else is written once for both.
struct RZReplayVolumeController::Feature {
    std::shared_ptr<NSRecursiveLock> globalLock;
    std::atomic<bool>& globalEnable;
    std::atomic<bool> State::*ownEnable;
    void (RZReplayVolumeController::*notify)(BOOL);
};

namespace {

/// Shared by all controllers; made by the first, never destroyed.
struct Globals {
    std::shared_ptr<NSRecursiveLock> gDelegateLock = std::make_shared<NSRecursiveLock>();
    std::shared_ptr<NSRecursiveLock> gDuckingLock = std::make_shared<NSRecursiveLock>();
    std::shared_ptr<NSRecursiveLock> gCompressorLock = std::make_shared<NSRecursiveLock>();
    RZReplayVolumeController::DelegateList gDelegateList;
    std::atomic<bool> gDuckingEnable{false};
    std::atomic<bool> gCompressorEnable{false};
    tqcommon::ForkLock delegatesAtFork{tqcommon::ForkOrder::Volume, *gDelegateLock};
    tqcommon::ForkLock duckingAtFork{tqcommon::ForkOrder::Volume, *gDuckingLock};
    tqcommon::ForkLock compressorAtFork{tqcommon::ForkOrder::Volume, *gCompressorLock};
};

Globals& globals() {
    static auto* const instance = new Globals;
    return *instance;
}

/// Works on a copy of the list with no lock held, so that delegates may come and go meanwhile.
void notifyDelegates(RZReplayVolumeControllerDelegate::Method method,
                     void (RZReplayVolumeControllerDelegate::*onStateChanged)(BOOL), BOOL enabled) {
    RZReplayVolumeController::DelegateList copy;
    {
        const TQAudioRecordLock guard(globals().gDelegateLock);
        copy = globals().gDelegateList;
    }
    for (std::size_t i = 0; i < copy.count(); ++i) {
        const auto delegate = copy.pointerAtIndex(i);
        if (delegate && delegate->respondsTo(method)) {
            // The state has changed whatever a delegate throws; the others still hear of it.
            NSCallGuarded([&] { (delegate.get()->*onStateChanged)(enabled); });
        }
    }
}

}  // namespace

const RZReplayVolumeController::Feature& RZReplayVolumeController::ducking() {
    static const auto* const feature =
        new Feature{globals().gDuckingLock, globals().gDuckingEnable, &State::duckingEnable,
                    &RZReplayVolumeController::notifyDuckingStateChanged};
    return *feature;
}

const RZReplayVolumeController::Feature& RZReplayVolumeController::compressor() {
    static const auto* const feature = new Feature{
        globals().gCompressorLock, globals().gCompressorEnable, &State::compressorEnable,
        &RZReplayVolumeController::notifyCompressorStateChanged};
    return *feature;
}

RZReplayVolumeController::RZReplayVolumeController() : state_(std::make_unique<State>()) {
    globals();
}

RZReplayVolumeController::~RZReplayVolumeController() {
    setDelegate(nullptr);
}

std::shared_ptr<RZReplayVolumeControllerDelegate> RZReplayVolumeController::delegate() const {
    return state_->delegate.load().lock();
}

void RZReplayVolumeController::setDelegate(
    const std::shared_ptr<RZReplayVolumeControllerDelegate>& newDelegate) {
    const TQAudioRecordLock guard(opLock());
    if (const auto old = delegate()) {
        removeDelegate(old);
    }
    state_->delegate.store(newDelegate);
    if (newDelegate) {
        addDelegate(newDelegate);
    }
}

BOOL RZReplayVolumeController::duckingEnable() const {
    return state_->duckingEnable;
}

void RZReplayVolumeController::setDuckingEnable(BOOL enable) {
    state_->duckingEnable = enable;
}

BOOL RZReplayVolumeController::compressorEnable() const {
    return state_->compressorEnable;
}

void RZReplayVolumeController::setCompressorEnable(BOOL enable) {
    state_->compressorEnable = enable;
}

std::shared_ptr<NSRecursiveLock> RZReplayVolumeController::opLock() const {
    return state_->opLock.load();
}

void RZReplayVolumeController::setOpLock(std::shared_ptr<NSRecursiveLock> lock) {
    state_->opLock.store(std::move(lock));
}

RZReplayVolumeController::DelegateList& RZReplayVolumeController::getGlobalDelegateList() {
    return globals().gDelegateList;
}

void RZReplayVolumeController::addDelegate(
    const std::shared_ptr<RZReplayVolumeControllerDelegate>& delegate) {
    if (!delegate) {
        return;
    }
    const TQAudioRecordLock guard(globals().gDelegateLock);
    DelegateList& list = globals().gDelegateList;
    for (std::size_t i = 0; i < list.count(); ++i) {
        if (list.pointerAtIndex(i) == delegate) {
            return;
        }
    }
    list.addPointer(delegate);
}

void RZReplayVolumeController::removeDelegate(
    const std::shared_ptr<RZReplayVolumeControllerDelegate>& delegate) {
    if (!delegate) {
        return;
    }
    const TQAudioRecordLock guard(globals().gDelegateLock);
    DelegateList& list = globals().gDelegateList;
    for (std::int32_t i = 0; i < static_cast<std::int32_t>(list.count()); ++i) {
        const auto index = static_cast<std::size_t>(i);
        const auto entry = list.pointerAtIndex(index);
        if (!entry || entry == delegate) {
            list.removePointerAtIndex(index);
            --i;
        }
    }
}

template <class Param>
std::int32_t RZReplayVolumeController::enable(const Feature& feature, const Param* param,
                                              std::int32_t (*apply)(const Param*)) {
    std::atomic<bool>& own = (*state_).*feature.ownEnable;
    TQAudioRecordLock opGuard(opLock());
    TQAudioRecordLock globalGuard(feature.globalLock);
    const BOOL wanted = param != nullptr && param->enable();
    if (wanted == own) {
        return own ? apply(param) : 0;
    }
    if (feature.globalEnable != own) {
        return 13;
    }
    const std::int32_t result = apply(param);
    if (result != 0) {
        return result;
    }
    own = wanted;
    feature.globalEnable = wanted;
    globalGuard.unlock();
    opGuard.unlock();
    (this->*feature.notify)(wanted);
    return 0;
}

std::int32_t RZReplayVolumeController::enableDucking(const RZReplayVolumeDuckingParam* param) {
    return enable<RZReplayVolumeDuckingParam>(ducking(), param, [](const auto* record) {
        return RZStreamMixManager::sharedManager()->enableDucking(record);
    });
}

std::int32_t RZReplayVolumeController::enableCompressor(
    const RZReplayVolumeCompressorParam* param) {
    return enable<RZReplayVolumeCompressorParam>(compressor(), param, [](const auto* record) {
        return RZStreamMixManager::sharedManager()->enableCompressor(record);
    });
}

std::int32_t RZReplayVolumeController::updateDuckingVolume(float volume, BOOL isDB) {
    if (!duckingEnable()) {
        return 11;
    }
    return RZStreamMixManager::sharedManager()->updateDuckingVolume(volume, isDB);
}

std::int32_t RZReplayVolumeController::updateCompressorVolume(float volume, BOOL isDB) {
    if (!compressorEnable()) {
        return 11;
    }
    return RZStreamMixManager::sharedManager()->updateCompressorVolume(volume, isDB);
}

void RZReplayVolumeController::notifyDuckingStateChanged(BOOL enabled) {
    notifyDelegates(RZReplayVolumeControllerDelegate::Method::onDuckingGlobalStateChanged,
                    &RZReplayVolumeControllerDelegate::onDuckingGlobalStateChanged, enabled);
}

void RZReplayVolumeController::notifyCompressorStateChanged(BOOL enabled) {
    notifyDelegates(RZReplayVolumeControllerDelegate::Method::onCompressorGlobalStateChanged,
                    &RZReplayVolumeControllerDelegate::onCompressorGlobalStateChanged, enabled);
}
