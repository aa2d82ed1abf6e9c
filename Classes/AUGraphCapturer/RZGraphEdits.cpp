#include <AudioToolbox/AudioToolbox.h>

#include "RZBoundary.h"
#include "RZGraphTakeOver.h"
#include "RZHookSet.h"
#include "RZLogSite.h"
#include "hook/Hook.h"

// A graph that was uninitialised goes on with the callback that its unit has, if the program starts
// that unit by itself, and takes a new one when it is initialised. Edits that waited for an update
// are carried out with the next edit of an initialised graph that stands still.

namespace {

constexpr const char* kFile = "Classes/AUGraphCapturer/RZGraphEdits";

template <auto* kFunction>
constexpr RZLogSite kSiteOf(kFile, tqhook::kNameOf<kFunction, "Record_graph_">.data());

UInt32 interactionsOf(AUGraph graph) {
    UInt32 count = 0;
    static_cast<void>(AUGraphGetNumberOfInteractions(graph, &count));
    return count;
}

/// An edit that changes nothing takes nothing along.
template <auto* kFunction>
constexpr auto hookEdit() {
    return tqhook::hook<kFunction>([](auto* original, AUGraph graph, auto... arguments) {
        const UInt32 before = interactionsOf(graph);
        const OSStatus status = original(graph, arguments...);
        if (RZEditHooks.isRecording() && interactionsOf(graph) != before) {
            RZRoadGuarded(kSiteOf<kFunction>, [&] { RZSettleEdit(graph); });
        }
        return status;
    });
}

bool isToBeInitialized(AUGraph graph) {
    Boolean isOpen = 0;
    Boolean isInitialized = 0;
    return AUGraphIsOpen(graph, &isOpen) == 0 && isOpen != 0 &&
           AUGraphIsInitialized(graph, &isInitialized) == 0 && isInitialized == 0;
}

constexpr tqhook::HookTable kHooks{
    tqhook::hook<&AUGraphInitialize>([](auto* original, AUGraph graph) {
        constexpr const RZLogSite& site = kSiteOf<&AUGraphInitialize>;
        if (!RZEditHooks.isRecording() || !isToBeInitialized(graph)) {
            return original(graph);
        }
        RZGraphUpdate update;
        RZRoadGuarded(site, [&] { update.begin(graph, true); });
        const OSStatus status = original(graph);
        RZRoadGuarded(site, [&] { update.end(status, NO); });
        return status;
    }),
    hookEdit<&AUGraphConnectNodeInput>(),
    hookEdit<&AUGraphDisconnectNodeInput>(),
    hookEdit<&AUGraphClearConnections>(),
};

std::span<const TQRebinding> rows() {
    static const auto all = kHooks.rows<TQRebinding>();
    return all;
}

}  // namespace

// The system log does not hear of it: nothing is recorded by it.
constinit RZHookSet RZEditHooks({nullptr, rows, nullptr});
