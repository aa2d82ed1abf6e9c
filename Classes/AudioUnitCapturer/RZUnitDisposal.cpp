#include "RZUnitDisposal.h"

#include <AudioToolbox/AudioToolbox.h>

#include "RZBoundary.h"
#include "RZLogSite.h"
#include "RZStreamMixManager.h"
#include "hook/Hook.h"

namespace {

constexpr tqhook::HookTable kHooks{
    tqhook::hook<&AudioComponentInstanceDispose>([](auto* original, AudioComponentInstance unit) {
        constexpr RZLogSite site("Classes/AudioUnitCapturer/RZUnitDisposal",
                                 "Record_unit_AudioComponentInstanceDispose");
        if (RZDisposalHooks.isRecording() && RZUnitHooks.isRecording()) {
            RZRoadGuarded(site, [&] {
                if (RZStreamMixManager::sharedManager()->findAudioUnitObj(unit)) {
                    site.log(2, "[AudioUnitHook] Disposed of while initialized: %p", unit);
                    // Through the hooked call, which ends the capture. The platform does the same
                    // with a unit that it disposes of.
                    AudioUnitUninitialize(unit);
                }
            });
        }
        return original(unit);
    }),
};

std::span<const TQRebinding> rows() {
    static const auto all = kHooks.rows<TQRebinding>();
    return all;
}

}  // namespace

constinit RZHookSet RZDisposalHooks({"[RZReplay] start AudioUnitDisposal", rows, nullptr});
