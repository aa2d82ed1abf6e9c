#include "RZStreamCollectManager.h"

#include <audio_hook_config.h>

#include <algorithm>
#include <mutex>

#include "RZLogSite.h"
#include "RZReplayAudioRecorder.h"
#include "RZReplayAudioUnitCapturer.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "RZStreamCollectManager+State.h"
#include "TQAudioRecordLock.h"
#include "TQHookSelfTest.h"

using ListenerMethod = RZReplayAudioRecorderDelegate::Method;

namespace {
constexpr const char* kFile = "Classes/RZStreamCollectManager";

// Faults of listeners, told apart for the filter that keeps their reports rare.
constexpr long kFaultIntervalMilliseconds = 2000;
constexpr int kThrew = 1;
constexpr int kChangedTheList = 2;

std::string className(const RZStreamCollectManager::Listener& listener) {
    if (!listener) {
        return "(null)";
    }
    const RZReplayAudioRecorderDelegate& object = *listener;
    return NSStringFromClass(typeid(object));
}
}  // namespace

RZStreamCollectManager& RZStreamCollectManager::sharedManager() {
    // Never destroyed. A shared pointer, because the recorder holds its delegate weakly.
    static const auto& instance = *new std::shared_ptr<RZStreamCollectManager>([] {
        std::shared_ptr<RZStreamCollectManager> manager(
            new RZStreamCollectManager, [](RZStreamCollectManager* last) { delete last; });
        manager->audioRecorder()->setDelegate(manager);
        return manager;
    }());
    return *instance;
}

RZStreamCollectManager::RZStreamCollectManager() : state_(std::make_unique<State>()) {
    state_->faultFilter.SetInterval(kFaultIntervalMilliseconds);
}
RZStreamCollectManager::~RZStreamCollectManager() = default;

void RZStreamCollectManager::testAUGraphHook() {
    TQHookSelfTest::testAUGraphHook();
}

void RZStreamCollectManager::notifyNewAUGraph(AUGraph graph) {
    TQHookSelfTest::notifyNewAUGraph(graph);
}

BOOL RZStreamCollectManager::isHookSuccess() const {
    return TQHookSelfTest::isHookSuccess();
}

BOOL RZStreamCollectManager::isHookStarted() const {
    return RZReplayAudioUnitCapturer::isHookStarted() &&
           RZReplayAudioUnitGraphCapturer::isHookStarted();
}

std::vector<RZStreamCollectManager::Listener> RZStreamCollectManager::arrAudioListener() const {
    const TQAudioRecordLock guard(state_->lock);
    return state_->arrAudioListener;
}

RZStreamCollectManager::Listener RZStreamCollectManager::lastStopAudioListener() const {
    const TQAudioRecordLock guard(state_->lock);
    return state_->lastStopAudioListener.lock();
}

void RZStreamCollectManager::setArrAudioListener(std::vector<Listener> listeners) {
    std::erase(listeners, nullptr);
    const TQAudioRecordLock guard(state_->lock);
    state_->arrAudioListener.swap(listeners);
    ++state_->mutations;
}

void RZStreamCollectManager::setLastStopAudioListener(const Listener& listener) {
    const TQAudioRecordLock guard(state_->lock);
    state_->lastStopAudioListener = listener;
}

const std::shared_ptr<RZReplayAudioRecorder>& RZStreamCollectManager::audioRecorder() const {
    return state_->audioRecorder;
}

const std::shared_ptr<NSRecursiveLock>& RZStreamCollectManager::lock() const {
    return state_->lock;
}

BOOL RZStreamCollectManager::startAudioStreamCollect(const Listener& listener) {
    constexpr RZLogSite site(kFile, "-[RZStreamCollectManager startAudioStreamCollect:]");
    site.log(2, "start stream obj:%@", className(listener));
    TQAudioRecordLock guard(state_->lock);
    if (!listener || !listener->respondsTo(ListenerMethod::onAudioReceivePCM)) {
        guard.unlock();
        site.log(4, "obj not implement protocol");
        return NO;
    }
    auto& list = state_->arrAudioListener;
    if (std::find(list.begin(), list.end(), listener) != list.end()) {
        site.log(2, "obj has already started!");
        return YES;
    }
    list.push_back(listener);
    ++state_->mutations;
    if (list.size() == 1) {
        site.log(2, "start record audio");
        state_->audioRecorder->startRecord();
    }
    return YES;
}

BOOL RZStreamCollectManager::stopAudioStreamCollect(const Listener& listener) {
    constexpr RZLogSite site(kFile, "-[RZStreamCollectManager stopAudioStreamCollect:]");
    site.log(2, "stop stream obj:%@", className(listener));
    const TQAudioRecordLock guard(state_->lock);
    auto& list = state_->arrAudioListener;
    const auto found = std::find(list.begin(), list.end(), listener);
    if (found == list.end()) {
        site.log(4, "obj not found in array!");
        return NO;
    }
    // `listener` may be the list's own element.
    const Listener removed = *found;
    list.erase(found);
    ++state_->mutations;
    if (list.empty()) {
        site.log(2, "stop record audio");
        state_->lastStopAudioListener = removed;
        state_->audioRecorder->stopRecord();
    }
    return YES;
}

/// Calls the listeners in order, under the lock. A listener that throws is logged and the next one
/// is called; one that changes the list ends the delivery, since the positions in it have changed.
template <class Deliver>
void RZStreamCollectManager::deliver(Method method, const RZLogSite& site, Deliver&& deliverTo) {
    const std::scoped_lock guard(*state_->lock);
    const auto& list = state_->arrAudioListener;
    const auto mutations = state_->mutations;
    for (std::size_t i = 0; i < list.size(); ++i) {
        const Listener listener = list[i];
        if (!NSCallGuarded([&] { deliverTo(*listener); }) &&
            state_->faultFilter.FilterEvent(static_cast<int>(method), kThrew)) {
            site.log(4, "obj threw an exception: %@", className(listener));
        }
        if (state_->mutations != mutations) {
            if (state_->faultFilter.FilterEvent(static_cast<int>(method), kChangedTheList)) {
                site.log(4, "obj changed the listeners while they are being called: %@",
                         className(listener));
            }
            return;
        }
    }
}

void RZStreamCollectManager::onAudioReceivePrePCM(AudioBufferList* pcm,
                                                  const RZReplayASBDInfo& info) {
    constexpr RZLogSite site(kFile, "-[RZStreamCollectManager onAudioReceivePrePCM:description:]");
    deliver(Method::onAudioReceivePrePCM, site, [&](RZReplayAudioRecorderDelegate& listener) {
        if (!listener.respondsTo(ListenerMethod::onAudioReceivePCM)) {
            return;
        }
        if (listener.respondsTo(ListenerMethod::getPCMDataType) &&
            (listener.getPCMDataType() & RZPCMDataTypePre) == 0) {
            return;
        }
        listener.onAudioReceivePCM(pcm, info);
    });
}

void RZStreamCollectManager::onAudioReceivePostPCM(AudioBufferList* pcm,
                                                   const RZReplayASBDInfo& info) {
    constexpr RZLogSite site(kFile, "-[RZStreamCollectManager onAudioReceivePostPCM:description:]");
    deliver(Method::onAudioReceivePostPCM, site, [&](RZReplayAudioRecorderDelegate& listener) {
        // Unlike pre blocks, post blocks go only to listeners that ask for them.
        if (listener.respondsTo(ListenerMethod::onAudioReceivePCM) &&
            listener.respondsTo(ListenerMethod::getPCMDataType) &&
            (listener.getPCMDataType() & RZPCMDataTypePost) != 0) {
            listener.onAudioReceivePCM(pcm, info);
        }
    });
}

void RZStreamCollectManager::onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                                                const std::string& message) {
    constexpr RZLogSite site(kFile, "-[RZStreamCollectManager onAudioRecordEvent:code:message:]");
    // Also on the recorder's own thread: a listener that dies here would die at every launch.
    const korva_audio_utils::AudioHookRoadGuard road;
    deliver(Method::onAudioRecordEvent, site, [&](RZReplayAudioRecorderDelegate& listener) {
        if (listener.respondsTo(ListenerMethod::onAudioRecordEvent)) {
            listener.onAudioRecordEvent(category, code, message);
        }
    });
}

std::int32_t RZStreamCollectManager::getPCMDataType() {
    constexpr RZLogSite site(kFile, "-[RZStreamCollectManager getPCMDataType]");
    std::uint64_t mask = 0;
    deliver(Method::getPCMDataType, site, [&](RZReplayAudioRecorderDelegate& listener) {
        mask |= listener.respondsTo(ListenerMethod::getPCMDataType)
                    ? listener.getPCMDataType()
                    : std::uint64_t{RZPCMDataTypePre};
    });
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(mask));
}
