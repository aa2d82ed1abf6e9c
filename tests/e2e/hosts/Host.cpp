#include "Host.h"

#include <TQPlatform/ManualDevice.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr double kDeviceRate = 48000;

/// Calls a function of the test's own library where that is in the process; else `absent`.
int callRecorder(const char* name, int absent = 0) {
    void* const function = dlsym(RTLD_DEFAULT, name);
    return function == nullptr ? absent : reinterpret_cast<int (*)()>(function)();
}

/// The device's first channel; the others bear the same.
void keepPlayed(void* refCon, const AudioTimeStamp* /*time*/, UInt32 /*channels*/, UInt32 frames,
                const float* const* planes) {
    std::fwrite(planes[0], sizeof(float), frames, static_cast<std::FILE*>(refCon));
}

}  // namespace

void check(OSStatus status, OSStatus expected) {
    if (status != expected) {
        std::fprintf(stderr, "host: a call answered %d, not %d\n", static_cast<int>(status),
                     static_cast<int>(expected));
        std::exit(3);
    }
}

void HostDevice::pump(int slices, UInt32 frames) {
    for (int i = 0; i < slices; ++i) {
        check(TQManualDevicePump(frames, hostTime_));
        hostTime_ += static_cast<std::uint64_t>(frames * 1e9 / kDeviceRate);
    }
}

bool HostDevice::openLibrary() {
    const char* const library = std::getenv("TQ_TEST_OPEN_LATE");
    if (library == nullptr) {
        return false;
    }
    if (dlopen(library, RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        std::fprintf(stderr, "host: %s\n", dlerror());
        std::exit(3);
    }
    callRecorder("tqTestStartRecording");
    return true;
}

void HostDevice::toggleRecording() {
    callRecorder("tqTestToggleRecording");
}

OSStatus Tone::render(void* refCon, AudioUnitRenderActionFlags* /*flags*/,
                      const AudioTimeStamp* /*time*/, UInt32 /*bus*/, UInt32 frames,
                      AudioBufferList* data) {
    Tone& tone = *static_cast<Tone*>(refCon);
    ++tone.calls_;
    for (UInt32 i = 0; i < frames; ++i) {
        tone.state_ = tone.state_ * 1664525U + 1013904223U;
        // At most an eighth of full scale, so that eight tones do not leave it; never 0.
        const auto level = static_cast<std::int32_t>(tone.state_ >> 20U) + 1;
        for (UInt32 k = 0; k < data->mNumberBuffers; ++k) {
            static_cast<float*>(data->mBuffers[k].mData)[i] = static_cast<float>(level) / 32768.0F;
        }
    }
    return noErr;
}

AudioComponentDescription outputComponent() {
    return {kAudioUnitType_Output, kAudioUnitSubType_RemoteIO, kAudioUnitManufacturer_Apple, 0, 0};
}

OutputGraph openOutputGraph(const AURenderCallbackStruct& callback) {
    OutputGraph made;
    check(NewAUGraph(&made.graph));
    made.node = addOutputNode(made.graph);
    setNodeCallback(made.graph, made.node, callback);
    check(AUGraphOpen(made.graph));
    setToneFormat(made.graph, made.node);
    return made;
}

void playGraph(HostDevice& device, AUGraph graph) {
    check(AUGraphInitialize(graph));
    check(AUGraphStart(graph));
    device.pump(20);
}

void endGraph(AUGraph graph) {
    check(AUGraphStop(graph));
    check(DisposeAUGraph(graph));
}

AudioStreamBasicDescription toneFormat() {
    return {kDeviceRate,
            kAudioFormatLinearPCM,
            kAudioFormatFlagsNativeFloatPacked | kAudioFormatFlagIsNonInterleaved,
            4,
            1,
            4,
            2,
            32,
            0};
}

void setToneFormat(AudioUnit unit) {
    const AudioStreamBasicDescription format = toneFormat();
    check(AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                               &format, sizeof(format)));
}

void setToneFormat(AUGraph graph, AUNode node) {
    AudioUnit unit = nullptr;
    check(AUGraphNodeInfo(graph, node, nullptr, &unit));
    setToneFormat(unit);
}

AUNode addOutputNode(AUGraph graph) {
    const AudioComponentDescription wanted = outputComponent();
    AUNode node = 0;
    check(AUGraphAddNode(graph, &wanted, &node));
    return node;
}

void setNodeCallback(AUGraph graph, AUNode node, const AURenderCallbackStruct& callback,
                     OSStatus expected) {
    check(AUGraphSetNodeInputCallback(graph, node, 0, &callback), expected);
}

AudioUnit newOutputUnit() {
    const AudioComponentDescription wanted = outputComponent();
    AudioUnit unit = nullptr;
    check(AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit));
    setToneFormat(unit);
    return unit;
}

void setCallback(AudioUnit unit, const AURenderCallbackStruct& callback, OSStatus expected) {
    check(AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                               &callback, sizeof(callback)),
          expected);
}

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "arm") == 0) {
        return callRecorder("tqTestArm", 3);
    }
    const char* const played = std::getenv("TQ_TEST_PLAYED");
    std::FILE* const file = played == nullptr ? nullptr : std::fopen(played, "wb");
    if (file == nullptr) {
        std::fprintf(stderr, "host: TQ_TEST_PLAYED names no file to write\n");
        return 3;
    }
    check(TQManualDeviceSetOutput(keepPlayed, file));
    callRecorder("tqTestStartRecording");
    HostDevice device;
    runHost(device);
    check(TQManualDeviceSetOutput(nullptr, nullptr));
    std::fclose(file);
    callRecorder("tqTestStopRecording");
    return 0;
}
