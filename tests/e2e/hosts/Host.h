#pragma once

// What a host of tests/e2e/hosts needs. Each is one .cpp file that knows nothing of capture:
//
//     #include "Host.h"
//     void runHost(HostDevice& device) {
//         Tone tone;
//         AudioUnit unit = newOutputUnit();
//         setCallback(unit, tone.callback());
//         check(AudioUnitInitialize(unit));
//         check(AudioOutputUnitStart(unit));
//         device.pump(20);
//     }
//
// A line in ../CMakeLists.txt makes it a program, HostRuns.h runs it with and without the library.

#include <AudioToolbox/AudioToolbox.h>

#include <cstdint>

/// The manual device. What it plays is written to the file that the test reads.
class HostDevice {
  public:
    /// Plays that many slices.
    void pump(int slices, UInt32 frames = 480);
    /// For hosts into which the library comes late: loads it here, in the runs that are to have it.
    /// True when it was loaded.
    bool openLibrary();
    /// For runs that are recorded: stops that, or starts it again.
    static void toggleRecording();

  private:
    std::uint64_t hostTime_ = 1'000'000'000;
};

/// Defined by each host.
void runHost(HostDevice& device);

/// Ends the program with a message when `status` is not what was expected.
void check(OSStatus status, OSStatus expected = noErr);

/// Noise that never repeats, for the 32-bit float format that units have at first: a lost, doubled
/// or silent block shows wherever it is. Values are exact in 16 bits.
class Tone {
  public:
    explicit Tone(std::uint32_t seed = 1) : state_(seed) {}
    [[nodiscard]] AURenderCallbackStruct callback() { return {render, this}; }
    [[nodiscard]] int calls() const { return calls_; }

  private:
    static OSStatus render(void* refCon, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                           AudioBufferList* data);
    std::uint32_t state_;
    int calls_ = 0;
};

[[nodiscard]] AudioComponentDescription outputComponent();
/// With the format that Tone plays.
[[nodiscard]] AudioUnit newOutputUnit();
[[nodiscard]] AUNode addOutputNode(AUGraph graph);
/// On the node's input 0.
void setNodeCallback(AUGraph graph, AUNode node, const AURenderCallbackStruct& callback,
                     OSStatus expected = noErr);
/// A graph of one output node.
struct OutputGraph {
    AUGraph graph = nullptr;
    AUNode node = 0;
};
/// Open, with the format that Tone plays; the node gets its callback before that.
[[nodiscard]] OutputGraph openOutputGraph(const AURenderCallbackStruct& callback);
/// Initialises and starts it, and plays 20 slices.
void playGraph(HostDevice& device, AUGraph graph);
/// Stops and disposes of it.
void endGraph(AUGraph graph);
/// The format that Tone plays.
[[nodiscard]] AudioStreamBasicDescription toneFormat();
void setToneFormat(AudioUnit unit);
/// The same for the node's unit; the graph must be open.
void setToneFormat(AUGraph graph, AUNode node);
/// On the unit's input bus 0.
void setCallback(AudioUnit unit, const AURenderCallbackStruct& callback, OSStatus expected = noErr);
