#include <AudioToolbox/AudioToolbox.h>

#include "RZBoundary.h"
#include "RZHookSet.h"
#include "RZHostCallbacks.h"
#include "RZLogSite.h"
#include "TQAudioCaptureBase.h"
#include "hook/Hook.h"

// A program that asks a graph what feeds a node is told of its own callback where ours stands. With
// ours in its hands it could set a callback that calls ours, which calls that one, for ever.

namespace {

constexpr const char* kFile = "Classes/AUGraphCapturer/RZGraphInteractions";

template <auto* kFunction>
constexpr RZLogSite kSiteOf(kFile, tqhook::kNameOf<kFunction, "Record_graph_">.data());

void nameTheHosts(AUNodeInteraction& interaction) {
    if (interaction.nodeInteractionType != kAUNodeInteraction_InputCallback) {
        return;
    }
    AURenderCallbackStruct& callback = interaction.nodeInteraction.inputCallback.cback;
    if (callback.inputProc != RZReplayAudioUnitCapture_InputProcessCallback) {
        return;
    }
    // The graph tells at once what waits for its next update.
    const AURenderCallbackStruct host =
        RZHostCallbacks::shared().of(callback.inputProcRefCon).updated().callback;
    if (host.inputProc != nullptr) {
        callback = host;
    }
}

constexpr tqhook::HookTable kHooks{
    tqhook::hook<&AUGraphGetInteractionInfo>([](auto* original, AUGraph graph, UInt32 index,
                                                AUNodeInteraction* interaction) {
        const OSStatus status = original(graph, index, interaction);
        if (status == 0 && RZInteractionHooks.isRecording()) {
            RZRoadGuarded(kSiteOf<&AUGraphGetInteractionInfo>, [&] { nameTheHosts(*interaction); });
        }
        return status;
    }),
    tqhook::hook<&AUGraphGetNodeInteractions>(
        [](auto* original, AUGraph graph, AUNode node, UInt32* count, AUNodeInteraction* all) {
            const OSStatus status = original(graph, node, count, all);
            if (status == 0 && RZInteractionHooks.isRecording()) {
                RZRoadGuarded(kSiteOf<&AUGraphGetNodeInteractions>, [&] {
                    for (UInt32 i = 0; i < *count; ++i) {
                        nameTheHosts(all[i]);
                    }
                });
            }
            return status;
        }),
};

std::span<const TQRebinding> rows() {
    static const auto all = kHooks.rows<TQRebinding>();
    return all;
}

}  // namespace

// The system log does not hear of it: nothing is recorded by it.
constinit RZHookSet RZInteractionHooks({nullptr, rows, nullptr});
