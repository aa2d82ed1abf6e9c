#include <AudioToolbox/AudioToolbox.h>

#include "RZBoundary.h"
#include "RZGraphTakeOver.h"
#include "RZGraphUpdate.h"
#include "RZHookSet.h"
#include "RZInteractionList.h"
#include "RZLogSite.h"
#include "hook/Hook.h"

// A graph that was uninitialised goes on with the callback that its unit has, if the program starts
// that unit by itself, and takes a new one when it is initialised. Edits that waited for an update
// are carried out with the next edit of an initialised graph that stands still.

namespace {

constexpr const char* kFile = "Classes/AUGraphCapturer/RZGraphEdits";

template <auto* kFunction>
constexpr RZLogSite kSiteOf(kFile, tqhook::kNameOf<kFunction, "Record_graph_">.data());

/// An edit that changes nothing takes nothing along.
template <auto* kFunction>
constexpr auto hookEdit() {
    return tqhook::hook<kFunction>([](auto* original, AUGraph graph, auto... arguments) {
        constexpr const RZLogSite& site = kSiteOf<kFunction>;
        if (!RZEditHooks.isRecording()) {
            return original(graph, arguments...);
        }
        RZInteractionList before;
        RZRoadGuarded(site, [&] { before = RZInteractionList::of(graph); });
        const OSStatus status = original(graph, arguments...);
        RZRoadGuarded(site, [&] {
            if (before.isEdited(graph, status)) {
                RZSettleEdit(graph);
            }
        });
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
        RZRoadGuarded(site, [&] { update.begin(graph, RZGraphUpdate::Call::Initialization); });
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
