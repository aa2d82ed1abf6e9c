#include <algorithm>

#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

class Control : public testing::Test {
  protected:
    Control() {
        callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32,
                           UInt32 frames, AudioBufferList* list) {
            std::fill_n(samples<float>(list), frames, 0.5F);
            return OSStatus{noErr};
        };
        EXPECT_EQ(setCallback(unit, 0, callback), noErr);
    }
    bool running() {
        return get<UInt32>(unit, kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, 0) !=
               0;
    }

    Player player;
    const OwnedUnit unit{remoteIO()};
    Callback callback;
};

TEST_F(Control, StartNeedsAnInitialisedUnit) {
    EXPECT_EQ(AudioOutputUnitStart(unit), kAudioUnitErr_Uninitialized);
    EXPECT_FALSE(running());
}

TEST_F(Control, StartAndStopMayBeRepeated) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
    EXPECT_EQ(AudioOutputUnitStart(unit), noErr);
    EXPECT_EQ(AudioOutputUnitStart(unit), noErr);
    EXPECT_TRUE(running());
    player.pump(64);
    EXPECT_EQ(callback.calls, 1);
    EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
    EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
    EXPECT_FALSE(running());
    player.pump(64);
    EXPECT_EQ(callback.calls, 1);
}

TEST_F(Control, ListenersOfIsRunningHearEachChangeOnce) {
    std::vector<UInt32> heard;
    const auto listener = [](void* refCon, AudioUnit it, AudioUnitPropertyID id,
                             AudioUnitScope scope, AudioUnitElement element) {
        static_cast<std::vector<UInt32>*>(refCon)->push_back(get<UInt32>(it, id, scope, element));
    };
    ASSERT_EQ(
        AudioUnitAddPropertyListener(unit, kAudioOutputUnitProperty_IsRunning, listener, &heard),
        noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStop(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStop(unit), noErr);
    EXPECT_EQ(heard, (std::vector<UInt32>{1, 0}));
}

TEST_F(Control, UninitialiseStopsARunningUnit) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    EXPECT_EQ(AudioUnitUninitialize(unit), noErr);
    EXPECT_FALSE(running());
    player.pump(64);
    EXPECT_EQ(callback.calls, 0);
}

TEST_F(Control, PropertiesAndCallbacksSurviveUninitialise) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioUnitUninitialize(unit), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    EXPECT_EQ(callback.calls, 1);
}

TEST_F(Control, StopFromTheCallbackIsTheLastOne) {
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) { return AudioOutputUnitStop(unit); };
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64, 3);
    EXPECT_EQ(callback.calls, 1);
    EXPECT_FALSE(running());
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    EXPECT_EQ(callback.calls, 2);
}

TEST_F(Control, StopFromTheInputCallbackSparesTheOutputCallback) {
    Callback input;
    input.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                     AudioBufferList*) { return AudioOutputUnitStop(unit); };
    ASSERT_EQ(set(unit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, UInt32{1}),
              noErr);
    ASSERT_EQ(set(unit, kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 0,
                  input.structure()),
              noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64, 2);
    EXPECT_EQ(input.calls, 1);
    EXPECT_EQ(callback.calls, 0);
}

TEST_F(Control, StopOfAnotherUnitFromACallbackSparesItsTurn) {
    const OwnedUnit later(remoteIO());
    Callback second;
    ASSERT_EQ(setCallback(later, 0, second), noErr);
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) { return AudioOutputUnitStop(later); };
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioUnitInitialize(later), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(later), noErr);
    player.pump(64, 2);
    EXPECT_EQ(second.calls, 0);
}

TEST_F(Control, ANullCallbackInMidRunBringsSilence) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    const AURenderCallbackStruct none{};
    ASSERT_EQ(set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0, none),
              noErr);
    player.pump(64);
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    player.pump(64);
    EXPECT_EQ(callback.calls, 2);
    EXPECT_EQ(player.left[63], 0.5F);
    EXPECT_EQ(player.left[64], 0.0F);
    EXPECT_EQ(player.left[128], 0.5F);
}

TEST_F(Control, ACallbackMayReplaceItselfAndTheFormat) {
    Callback next;
    UInt32 buffers = 0;
    next.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                    AudioBufferList* list) {
        buffers = list->mNumberBuffers;
        return OSStatus{noErr};
    };
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) {
        EXPECT_EQ(
            setFormat(unit, kAudioUnitScope_Input, 0, stream_formats::int16Interleaved(44100, 2)),
            noErr);
        return setCallback(unit, 0, next);
    };
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64, 2);
    EXPECT_EQ(callback.calls, 1);
    EXPECT_EQ(next.calls, 1);
    EXPECT_EQ(buffers, 1U);
}

TEST_F(Control, ACallbackMayDisposeOfAnotherUnit) {
    const AudioUnit later = makeUnit(remoteIO());
    Callback second;
    ASSERT_EQ(setCallback(later, 0, second), noErr);
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) {
        AudioComponentInstanceDispose(later);
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioUnitInitialize(later), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(later), noErr);
    player.pump(64, 2);
    EXPECT_EQ(second.calls, 0);
    EXPECT_EQ(AudioOutputUnitStop(later), kAudioComponentErr_InstanceInvalidated);
}

TEST_F(Control, DisposeOfARunningUnitEndsItsCallbacks) {
    const AudioUnit other = makeUnit(remoteIO());
    Callback second;
    ASSERT_EQ(setCallback(other, 0, second), noErr);
    ASSERT_EQ(AudioUnitInitialize(other), noErr);
    ASSERT_EQ(AudioOutputUnitStart(other), noErr);
    player.pump(64);
    ASSERT_EQ(AudioComponentInstanceDispose(other), noErr);
    player.pump(64);
    EXPECT_EQ(second.calls, 1);
}

TEST_F(Control, ResetDoesNotDisturbTheSound) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    EXPECT_EQ(AudioUnitReset(unit, kAudioUnitScope_Global, 0), noErr);
    player.pump(64);
    EXPECT_EQ(player.left[127], 0.5F);
}

}  // namespace
}  // namespace platform
