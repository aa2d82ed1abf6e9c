#pragma once

#include <initializer_list>
#include <string>
#include <vector>

// The stretches that the long traces share, in the words of a Trace.

namespace trace {

using Lines = std::vector<std::string>;

inline Lines join(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

/// A property of the mixer is set; the library's own calls pass its hooks like everybody's.
inline Lines setMixerProperty(const std::string& key, const std::string& size) {
    return {
        "log 2 Record_unit_AudioUnitSetProperty [AudioUnitHook] AudioUnitSetProperty: mixUnit, " +
            key,
        "call AudioUnitSetProperty(mixUnit, " + key + ", " + size + ")"};
}

inline Lines buildGraph() {
    return join(
        {{"call NewAUGraph(*)", "call AUGraphAddNode(mGraph)",
          "log 2 Record_graph_AUGraphAddNode [AUGraphHook] AUGraphAddNode: mGraph, 1, err: 0",
          "call AUGraphAddNode(mGraph)",
          "log 2 Record_graph_AUGraphAddNode [AUGraphHook] AUGraphAddNode: mGraph, 2, err: 0",
          "log 3 Record_graph_AUGraphAddNode [AUGraphHook] AUGraph exists in Resolver, "
          "ignore AUGraph: mGraph, 2",
          "call AUGraphConnectNodeInput(mGraph, 1, 0, 2, 0)", "call AUGraphOpen(mGraph)",
          "log 2 Record_graph_AUGraphOpen [AUGraphHook] AUGraphOpen: mGraph, err: 0",
          "call AUGraphNodeInfo(mGraph, 1)", "call AUGraphNodeInfo(mGraph, 2)"},
         setMixerProperty("8, 2, 0", "40"),
         setMixerProperty("14, 0, 0", "4"),
         {"call AudioUnitAddRenderNotify(mixUnit)"}});
}

/// The mixer's input of a track gets its callback.
inline Lines setInputCallback(const std::string& track) {
    return {"call AUGraphSetNodeInputCallback(mGraph, 1, " + track + ")",
            "log 2 Record_graph_AUGraphSetNodeInputCallback [AUGraphHook] "
            "AUGraphSetNodeInputCallback: mGraph, 1, " +
                track + ", *, err:0"};
}

inline Lines connectTrack(const std::string& track, const std::string& unit) {
    return join(
        {{"log 2 -[RZStreamMixManager startResampleUnit] [mix] Audio resampler connect "
          "unitObj, trackid: " +
          track},
         setInputCallback(track),
         setMixerProperty("8, 1, " + track, "40"),
         {"log 4 -[RZStreamMixManager startResampleUnit] audio unit start capture: " + unit}});
}

inline Lines startGraph() {
    return {"call AUGraphOpen(mGraph)",
            "log 2 Record_graph_AUGraphOpen [AUGraphHook] AUGraphOpen: mGraph, err: 0",
            "call AUGraphInitialize(mGraph)",
            "call AUGraphStart(mGraph)",
            "log 2 Record_graph_AUGraphStart [AUGraphHook] AUGraphStart: mGraph, err:0",
            "log 3 Record_graph_AUGraphStart [AUGraphHook] Ignore AUGraph start because in "
            "resolver: mGraph"};
}

inline Lines report(const std::string& level, const std::string& function, const std::string& event,
                    const std::string& message) {
    return {"log " + level + " -[RZStreamMixManager " + function + "] " + message,
            "event " + event + " " + message};
}

/// startCapture with one unit to record, from its first line to its summary.
inline Lines startOfCapture() {
    return join(
        {{"log 2 -[RZStreamMixManager startCapture] [mix] start capture, "
          "isCurrentInterrupting: 0, isCapturing: 0"},
         buildGraph(),
         connectTrack("1", "unit"),
         startGraph(),
         report("2", "startCapture", "0/0", "[{key: unit, unit: unit, capture: 1, starte: 1},]")});
}

inline Lines updateGraph() {
    return join({{"call AUGraphUpdate(mGraph)",
                  "log 2 Record_graph_AUGraphUpdate [AUGraphHook] AUGraphUpdate: mGraph",
                  "log 4 Record_graph_AUGraphUpdate [AUGraphHook] Ignore audio unit update with "
                  "AUGraphUpdate: mGraph, unitObj: 0x0, err: 0"},
                 report("2", "updateAUGraph", "1/0", "[mix] AUGraph update success.")});
}

inline Lines stopGraph(const std::string& status = "0") {
    return {"call AUGraphStop(mGraph)",
            "log 2 Record_graph_AUGraphStop [AUGraphHook] AUGraphStop: mGraph, err: " + status,
            "log 3 Record_graph_AUGraphStop [AUGraphHook] Ignore audio unit stop with AUGraphStop: "
            "mGraph, unitObj: 0x0, err: " +
                status};
}

inline Lines disconnectTrack() {
    return {
        "log 2 -[RZStreamMixManager stopResampleMix] [mix] Audio resampler update disconnect "
        "unitObj, trackid: 1",
        "call AUGraphDisconnectNodeInput(mGraph, 1, 1)"};
}

inline Lines tearGraphDown() {
    return {"call AUGraphUninitialize(mGraph)",
            "call AUGraphClose(mGraph)",
            "log 2 Record_graph_AUGraphClose [AUGraphHook] AUGraphClose: mGraph, err: 0",
            "log 3 Record_graph_AUGraphClose [AUGraphHook] Ignore audio unit stop with "
            "AUGraphClose: mGraph, unitObj: 0x0, err: 0",
            "call DisposeAUGraph(mGraph)",
            "log 2 Record_graph_DisposeAUGraph [AUGraphHook] DisposeAUGraph: mGraph, err: 0",
            "log 3 Record_graph_DisposeAUGraph [AUGraphHook] Ignore audio unit stop with "
            "DisposeAUGraph: mGraph, unitObj: 0x0, err: 0"};
}

inline const std::string kStopLine = "log 2 -[RZStreamMixManager stopCapture] [mix]stop capture";

/// What a start looks at, for a unit whose callback was taken over or not.
inline Lines inspect(const std::string& unit, bool isTakenOver) {
    return {"call AudioComponentInstanceGetComponent(" + unit + ")",
            "call AudioComponentGetDescription(component)",
            "call AudioUnitGetProperty(" + unit + ", 2003, 1, 1)",
            "call AudioUnitGetProperty(" + unit + (isTakenOver ? ", 8, 1, 0)" : ", 8, 2, 0)"),
            (isTakenOver ? "call AudioUnitRemoveRenderNotify(" : "call AudioUnitAddRenderNotify(") +
                unit + ")"};
}

inline Lines stopOfUnit(const std::string& unit, const std::string& track) {
    return join(
        {{"call AUGraphDisconnectNodeInput(mGraph, 1, " + track + ")"},
         updateGraph(),
         report("4", "audioUnitStop:", "1/0",
                "[mix] resample update(au stop) success, key: " + unit + " trackId: " + track)});
}

}  // namespace trace
