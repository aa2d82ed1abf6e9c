#include <algorithm>

#include "graph/GraphFixture.h"
#include "support/AllocationCounter.h"

namespace platform {
namespace {

using namespace stream_formats;

/// Pumps often enough for all memory to be there, then counts.
class Warm : public MixGraph {
  protected:
    void expectNoAllocation() {
        if (!AllocationCounter::works()) {
            GTEST_SKIP() << "allocations cannot be counted here";
        }
        TQManualDeviceSetOutput(nullptr, nullptr);
        for (UInt64 i = 0; i < 20; ++i) {
            ASSERT_EQ(TQManualDevicePump(480, i), noErr);
        }
        std::size_t allocations = 0;
        {
            const AllocationCounter counter;
            for (UInt64 i = 0; i < 200; ++i) {
                static_cast<void>(TQManualDevicePump(480, i));
            }
            allocations = counter.count();
        }
        EXPECT_EQ(allocations, 0U);
    }
    static Callback::Body quiet() {
        return [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                  AudioBufferList*) { return OSStatus{noErr}; };
    }
};

TEST_F(Warm, AGraphOfManyRatesRendersWithoutAllocation) {
    Callback callbacks[8];
    const double rates[8] = {44100, 48000, 22050, 8000, 96000, 11025, 32000, 44100};
    open();
    ASSERT_EQ(setFormat(mixUnit, kAudioUnitScope_Output, 0, int16Interleaved(44100, 2)), noErr);
    Callback notify;
    notify.body = quiet();
    ASSERT_EQ(AudioUnitAddRenderNotify(mixUnit, Callback::proc, &notify), noErr);
    for (UInt32 bus = 0; bus < 8; ++bus) {
        callbacks[bus].body = quiet();
        ASSERT_EQ(setFormat(mixUnit, kAudioUnitScope_Input, bus, int16Interleaved(rates[bus], 1)),
                  noErr);
        ASSERT_EQ(setNodeCallback(graph, mixNode, bus, callbacks[bus]), noErr);
    }
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    expectNoAllocation();
}

TEST_F(Warm, AMicrophoneRendersWithoutAllocation) {
    const OwnedUnit unit(remoteIO());
    Callback input;
    input.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time, UInt32,
                     UInt32 frames, AudioBufferList*) {
        AudioBufferList list{1, {{1, 0, nullptr}}};
        return AudioUnitRender(unit, &flags, &time, 1, frames, &list);
    };
    ASSERT_EQ(set(unit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, UInt32{1}),
              noErr);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 1, int16Interleaved(16000, 1)), noErr);
    ASSERT_EQ(set(unit, kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 1,
                  input.structure()),
              noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    expectNoAllocation();
    if (!IsSkipped()) {
        EXPECT_GT(input.calls, 200);
    }
}

}  // namespace
}  // namespace platform
