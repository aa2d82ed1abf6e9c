#include "PlatformCalls.h"

#include <algorithm>
#include <iterator>
#include <type_traits>

#include "TQAudioRecordResolver.h"

namespace {

template <class T>
void note(PlatformCalls::Call& call, T argument) {
    if constexpr (std::is_pointer_v<T>) {
        if (call.object == nullptr) {
            call.object = reinterpret_cast<const void*>(argument);
        }
    } else {
        call.numbers.push_back(static_cast<long>(argument));
    }
}

/// One stand-in; `Name` makes the type, and with it the saved function, its own.
template <const auto& Name, class Function>
struct StandIn;

template <const auto& Name, class Result, class... Arguments>
struct StandIn<Name, Result (*)(Arguments...)> {
    static inline Result (*saved)(Arguments...) = nullptr;

    static Result call(Arguments... arguments) {
        PlatformCalls& calls = PlatformCalls::shared();
        PlatformCalls::Call seen;
        seen.name = Name;
        (note(seen, arguments), ...);
        Result result{};
        if (calls.enter(seen)) {
            if constexpr (std::is_same_v<Result, OSStatus>) {
                result = seen.status;
            }
        } else {
            result = saved(arguments...);
            if constexpr (std::is_same_v<Result, OSStatus>) {
                seen.status = result;
            }
        }
        calls.leave(seen);
        return result;
    }
    static TQRebinding rebinding() {
        return {Name, reinterpret_cast<void*>(&call), reinterpret_cast<void**>(&saved)};
    }
};

template <const auto& Name, class Function>
TQRebinding standInFor(Function) {
    return StandIn<Name, Function>::rebinding();
}

constexpr char newGraph[] = "NewAUGraph";
constexpr char disposeGraph[] = "DisposeAUGraph";
constexpr char addNode[] = "AUGraphAddNode";
constexpr char removeNode[] = "AUGraphRemoveNode";
constexpr char connectInput[] = "AUGraphConnectNodeInput";
constexpr char disconnectInput[] = "AUGraphDisconnectNodeInput";
constexpr char setInputCallback[] = "AUGraphSetNodeInputCallback";
constexpr char nodeInfo[] = "AUGraphNodeInfo";
constexpr char openGraph[] = "AUGraphOpen";
constexpr char closeGraph[] = "AUGraphClose";
constexpr char initializeGraph[] = "AUGraphInitialize";
constexpr char uninitializeGraph[] = "AUGraphUninitialize";
constexpr char startGraph[] = "AUGraphStart";
constexpr char stopGraph[] = "AUGraphStop";
constexpr char updateGraph[] = "AUGraphUpdate";
constexpr char getComponent[] = "AudioComponentInstanceGetComponent";
constexpr char getDescription[] = "AudioComponentGetDescription";
constexpr char newInstance[] = "AudioComponentInstanceNew";
constexpr char setProperty[] = "AudioUnitSetProperty";
constexpr char getProperty[] = "AudioUnitGetProperty";
constexpr char addNotify[] = "AudioUnitAddRenderNotify";
constexpr char removeNotify[] = "AudioUnitRemoveRenderNotify";
constexpr char uninitializeUnit[] = "AudioUnitUninitialize";
constexpr char startUnit[] = "AudioOutputUnitStart";
constexpr char stopUnit[] = "AudioOutputUnitStop";

}  // namespace

PlatformCalls& PlatformCalls::shared() {
    static PlatformCalls* const instance = new PlatformCalls;
    return *instance;
}

void PlatformCalls::install() {
    TQRebinding records[] = {
        standInFor<newGraph>(&NewAUGraph),
        standInFor<disposeGraph>(&DisposeAUGraph),
        standInFor<addNode>(&AUGraphAddNode),
        standInFor<removeNode>(&AUGraphRemoveNode),
        standInFor<connectInput>(&AUGraphConnectNodeInput),
        standInFor<disconnectInput>(&AUGraphDisconnectNodeInput),
        standInFor<setInputCallback>(&AUGraphSetNodeInputCallback),
        standInFor<nodeInfo>(&AUGraphNodeInfo),
        standInFor<openGraph>(&AUGraphOpen),
        standInFor<closeGraph>(&AUGraphClose),
        standInFor<initializeGraph>(&AUGraphInitialize),
        standInFor<uninitializeGraph>(&AUGraphUninitialize),
        standInFor<startGraph>(&AUGraphStart),
        standInFor<stopGraph>(&AUGraphStop),
        standInFor<updateGraph>(&AUGraphUpdate),
        standInFor<getComponent>(&AudioComponentInstanceGetComponent),
        standInFor<getDescription>(&AudioComponentGetDescription),
        standInFor<newInstance>(&AudioComponentInstanceNew),
        standInFor<setProperty>(&AudioUnitSetProperty),
        standInFor<getProperty>(&AudioUnitGetProperty),
        standInFor<addNotify>(&AudioUnitAddRenderNotify),
        standInFor<removeNotify>(&AudioUnitRemoveRenderNotify),
        standInFor<uninitializeUnit>(&AudioUnitUninitialize),
        standInFor<startUnit>(&AudioOutputUnitStart),
        standInFor<stopUnit>(&AudioOutputUnitStop),
    };
    static std::once_flag once;
    std::call_once(once, [&] { tqreplay_rebind_symbols(records, std::size(records)); });
}

void PlatformCalls::fail(const std::string& name, OSStatus status, When when) {
    failFrom(name, 1, status, std::move(when));
}

void PlatformCalls::failFrom(const std::string& name, int nth, OSStatus status, When when) {
    const std::scoped_lock guard(mutex_);
    faults_[name] = {status, nth - 1, std::move(when)};
}

void PlatformCalls::heal() {
    const std::scoped_lock guard(mutex_);
    faults_.clear();
}

void PlatformCalls::watch(const std::string& name, Watch watch) {
    const std::scoped_lock guard(mutex_);
    watches_[name] = std::move(watch);
}

std::vector<PlatformCalls::Call> PlatformCalls::calls(const std::string& name) const {
    const std::scoped_lock guard(mutex_);
    std::vector<Call> found = calls_;
    std::erase_if(found, [&](const Call& call) { return call.name != name; });
    return found;
}

std::size_t PlatformCalls::count(const std::string& name, const When& when) const {
    const auto all = calls(name);
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(), [&](const Call& call) { return !when || when(call); }));
}

void PlatformCalls::clear() {
    const std::scoped_lock guard(mutex_);
    calls_.clear();
}

PlatformCalls::When PlatformCalls::property(AudioUnitPropertyID id, AudioUnitScope scope,
                                            AudioUnitElement element) {
    return [=](const Call& call) {
        return call.numbers.size() >= 3 && call.numbers[0] == static_cast<long>(id) &&
               call.numbers[1] == static_cast<long>(scope) &&
               call.numbers[2] == static_cast<long>(element);
    };
}

bool PlatformCalls::enter(Call& call) {
    Watch watch;
    {
        const std::scoped_lock guard(mutex_);
        const auto own = watches_.find(call.name);
        const auto found = own != watches_.end() ? own : watches_.find("");
        if (found != watches_.end()) {
            watch = found->second;
        }
    }
    if (watch) {
        watch(call);
    }
    const std::scoped_lock guard(mutex_);
    const auto fault = faults_.find(call.name);
    if (fault == faults_.end() || (fault->second.when && !fault->second.when(call))) {
        return false;
    }
    if (fault->second.skipped > 0) {
        --fault->second.skipped;
        return false;
    }
    call.status = fault->second.status;
    return true;
}

void PlatformCalls::leave(const Call& call) {
    const std::scoped_lock guard(mutex_);
    calls_.push_back(call);
}
