// Calls that fail, come at the wrong moment or from the wrong thread: what they must leave alone.

#include <algorithm>
#include <atomic>
#include <limits>
#include <thread>

#include "graph/GraphFixture.h"

namespace platform {
namespace {

constexpr OSStatus kNotSupported = kAudioUnitErr_FormatNotSupported;

/// A rate that can be described, but that nobody can convert to the device's.
AudioStreamBasicDescription hopeless() {
    return stream_formats::floatPlanar(1, 2);
}

/// Only an initialised unit refuses another size of its slices.
bool isUnitInitialized(AudioUnit unit) {
    return set(unit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0,
               UInt32{4096}) == kAudioUnitErr_Initialized;
}

TEST(Setbacks, InitialisingThatFailsLeavesTheUnitUninitialised) {
    const OwnedUnit unit(remoteIO());
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, hopeless()), noErr);
    EXPECT_EQ(AudioUnitInitialize(unit), kNotSupported);
    EXPECT_EQ(AudioUnitInitialize(unit), kNotSupported);
    EXPECT_EQ(AudioOutputUnitStart(unit), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(
        set(unit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0, UInt32{512}),
        noErr);
}

TEST(Setbacks, ACallbackThatABusCannotHaveIsNotRemembered) {
    const OwnedUnit unit(mixer());
    Callback first;
    Callback second;
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 1, hopeless()), noErr);
    ASSERT_EQ(set(unit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0,
                  UInt32{1} << 20U),
              noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    EXPECT_EQ(setCallback(unit, 1, first), kNotSupported);
    EXPECT_EQ(setCallback(unit, 2, second), noErr);
}

TEST(Setbacks, AConnectionThatIsRefusedLeavesTheCallback) {
    Player player;
    const OwnedUnit unit(remoteIO());
    const OwnedUnit source(mixer());
    Callback callback;
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    ASSERT_EQ(setFormat(source, kAudioUnitScope_Output, 0, hopeless()), noErr);
    const AudioUnitConnection connection{source, 0, 0};
    EXPECT_EQ(set(unit, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0, connection),
              kNotSupported);
    // Makes the unit look at all that it remembers.
    EXPECT_EQ(set(unit, kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 0,
                  AURenderCallbackStruct{}),
              noErr);
    player.pump(64);
    EXPECT_EQ(callback.calls, 1);
}

TEST(Setbacks, ACallbackThatAPreRenderNotifyTakesAwayIsNotCalledAnyMore) {
    Player player;
    const OwnedUnit unit(remoteIO());
    Callback callback{constant(0.5F)};
    Callback notify;
    notify.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp&, UInt32, UInt32,
                      AudioBufferList*) {
        return (flags & kAudioUnitRenderAction_PreRender) != 0
                   ? set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                         AURenderCallbackStruct{})
                   : OSStatus{noErr};
    };
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitAddRenderNotify(unit, Callback::proc, &notify), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    EXPECT_EQ(callback.calls, 0);
    EXPECT_EQ(player.left.back(), 0.0F);
    EXPECT_EQ(notify.calls, 2);
}

TEST(Setbacks, SilenceIsNotReportedWhileAConvertersFilterStillSounds) {
    Player player;
    const OwnedUnit unit(remoteIO());
    int slices = 0;
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp&, UInt32,
                        UInt32 frames, AudioBufferList* list) {
        const bool sounds = slices == 0;
        for (UInt32 channel = 0; channel < 2; ++channel) {
            std::fill_n(samples<float>(list, channel), frames, sounds ? 1.0F : 0.0F);
        }
        flags |= sounds ? 0U : AudioUnitRenderActionFlags{kAudioUnitRenderAction_OutputIsSilence};
        return OSStatus{noErr};
    };
    bool wasSaidSilent = false;
    Callback notify;
    notify.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp&, UInt32, UInt32,
                      AudioBufferList*) {
        wasSaidSilent = (flags & kAudioUnitRenderAction_OutputIsSilence) != 0;
        return OSStatus{noErr};
    };
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, stream_formats::floatPlanar(24000, 2)),
              noErr);
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitAddRenderNotify(unit, Callback::proc, &notify), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    for (; slices < 2; ++slices) {
        player.left.clear();
        player.pump(512);
    }
    EXPECT_GT(*std::max_element(player.left.begin(), player.left.end()), 0.5F);
    EXPECT_FALSE(wasSaidSilent);
}

TEST(Setbacks, AThreadThatPullsARunningOutputUnitTakesNothingFromTheDevice) {
    Player player;
    const OwnedUnit unit(remoteIO());
    Callback callback;
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    std::atomic<bool> isOver{false};
    std::thread stranger([&] {
        float left[64];
        float right[64];
        struct {
            AudioBufferList list;
            AudioBuffer second;
        } two{{2, {{1, sizeof left, left}}}, {1, sizeof right, right}};
        while (!isOver) {
            AudioUnitRenderActionFlags flags = 0;
            const AudioTimeStamp time{};
            EXPECT_EQ(AudioUnitRender(unit, &flags, &time, 0, 64, &two.list),
                      kAudioUnitErr_CannotDoInCurrentContext);
        }
    });
    player.pump(64, 2000);
    isOver = true;
    stranger.join();
    EXPECT_EQ(callback.calls, 2000);
}

TEST(Setbacks, AUnitWhoseOutputIsOffIsNotNotifiedOfOutput) {
    Player player;
    const OwnedUnit unit(remoteIO());
    Callback notify;
    ASSERT_EQ(set(unit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, 0, UInt32{0}),
              noErr);
    ASSERT_EQ(AudioUnitAddRenderNotify(unit, Callback::proc, &notify), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64, 3);
    EXPECT_EQ(notify.calls, 0);
    EXPECT_EQ(player.left.back(), 0.0F);
}

TEST(Setbacks, WhatIsNoNumberSpoilsNobodyElsesSound) {
    Player player;
    const OwnedUnit good(remoteIO());
    const OwnedUnit bad(remoteIO());
    Callback sound{constant(0.5F)};
    Callback nonsense{constant(std::numeric_limits<float>::quiet_NaN())};
    ASSERT_EQ(setCallback(good, 0, sound), noErr);
    ASSERT_EQ(setCallback(bad, 0, nonsense), noErr);
    for (const AudioUnit unit : {AudioUnit{bad}, AudioUnit{good}}) {
        ASSERT_EQ(AudioUnitInitialize(unit), noErr);
        ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    }
    player.pump(64);
    EXPECT_EQ(player.left.back(), 0.5F);
}

TEST(Setbacks, AUnitThatIsStartedAndUninitialisedAtOnceDoesNotRun) {
    constexpr int kRounds = 20000;
    const OwnedUnit unit(remoteIO());
    std::atomic<int> begun{0};
    std::atomic<int> ended{0};
    std::thread starter([&] {
        for (int round = 1; round <= kRounds; ++round) {
            while (begun < round) {
                std::this_thread::yield();
            }
            AudioOutputUnitStart(unit);
            ended = round;
        }
    });
    int running = 0;
    for (int round = 1; round <= kRounds; ++round) {
        EXPECT_EQ(AudioUnitInitialize(unit), noErr);
        begun = round;
        EXPECT_EQ(AudioUnitUninitialize(unit), noErr);
        while (ended < round) {
            std::this_thread::yield();
        }
        running += get<UInt32>(unit, kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, 0);
    }
    starter.join();
    EXPECT_EQ(running, 0);
}

TEST(Setbacks, ResetKnowsItsScopes) {
    const OwnedUnit unit(mixer());
    EXPECT_EQ(AudioUnitReset(unit, kAudioUnitScope_Global, 0), noErr);
    EXPECT_EQ(AudioUnitReset(unit, 99, 0), kAudioUnitErr_InvalidScope);
}

class GraphSetbacks : public MixGraph {};

TEST_F(GraphSetbacks, TheErrorOfAMixersCallbackIsKept) {
    Callback failing;
    failing.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                      AudioBufferList*) { return OSStatus{1234}; };
    ASSERT_EQ(setNodeCallback(graph, mixNode, 1, failing), noErr);
    run();
    player.pump(64);
    EXPECT_EQ(get<OSStatus>(mixUnit, kAudioUnitProperty_LastRenderError, kAudioUnitScope_Global, 0),
              1234);
}

TEST_F(GraphSetbacks, TimesOfAConvertedBusBeginAnewWithTheGraph) {
    std::vector<Float64> times;
    Callback half;
    half.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp& time, UInt32, UInt32,
                    AudioBufferList*) {
        times.push_back(time.mSampleTime);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setNodeCallback(graph, mixNode, 1, half), noErr);
    open();
    ASSERT_EQ(setFormat(mixUnit, kAudioUnitScope_Input, 1,
                        stream_formats::floatPlanar(deviceRate / 2, 2)),
              noErr);
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    player.pump(64, 3);
    ASSERT_EQ(AUGraphStop(graph), noErr);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    player.pump(64, 2);
    EXPECT_EQ(times, (std::vector<Float64>{0, 32, 64, 0, 32}));
}

TEST_F(GraphSetbacks, AnEditIsDoneThoughAnOlderOneCannotBe) {
    Callback impossible;
    Callback possible{constant(0.25F)};
    run();
    ASSERT_EQ(setNodeCallback(graph, mixNode, 200, impossible), noErr);
    ASSERT_EQ(AUGraphStop(graph), noErr);
    EXPECT_EQ(setNodeCallback(graph, mixNode, 1, possible), noErr);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    EXPECT_EQ(heard(), 0.25F);
}

TEST_F(GraphSetbacks, InitialisingThatFailsLeavesWhatTheProgramInitialised) {
    open();
    ASSERT_EQ(AudioUnitInitialize(mixUnit), noErr);
    ASSERT_EQ(AUGraphDisconnectNodeInput(graph, outNode, 0), noErr);
    ASSERT_EQ(setFormat(outUnit, kAudioUnitScope_Input, 0, stream_formats::floatPlanar(0, 2)),
              noErr);
    Callback callback;
    ASSERT_EQ(setNodeCallback(graph, mixNode, 1, callback), noErr);
    EXPECT_EQ(AUGraphInitialize(graph), kNotSupported);
    EXPECT_FALSE(isInitialized(graph));
    EXPECT_TRUE(isUnitInitialized(mixUnit));
}

TEST_F(GraphSetbacks, InitialisingThatFailsTakesBackWhatItDid) {
    open();
    ASSERT_EQ(AUGraphDisconnectNodeInput(graph, outNode, 0), noErr);
    Callback callback;
    ASSERT_EQ(setNodeCallback(graph, mixNode, 1, callback), noErr);
    for (const Float64 rate : {0.0, 1.0}) {
        ASSERT_EQ(
            setFormat(outUnit, kAudioUnitScope_Input, 0, stream_formats::floatPlanar(rate, 2)),
            noErr);
        EXPECT_EQ(AUGraphInitialize(graph), kNotSupported);
        EXPECT_FALSE(isInitialized(graph));
        EXPECT_FALSE(isUnitInitialized(mixUnit));
    }
}

TEST_F(GraphSetbacks, PropertyListenersAreToldWithoutTheGraphsLock) {
    open();
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    struct Listening {
        AUGraph graph;
        UInt32 nodes = 0;
    } listening{graph};
    const AudioUnitPropertyListenerProc listener = [](void* refCon, AudioUnit, AudioUnitPropertyID,
                                                      AudioUnitScope, AudioUnitElement) {
        auto& self = *static_cast<Listening*>(refCon);
        // Stands for a listener that waits for a lock whose holder calls the graph.
        std::thread([&self] { AUGraphGetNodeCount(self.graph, &self.nodes); }).join();
    };
    ASSERT_EQ(AudioUnitAddPropertyListener(mixUnit, kAudioUnitProperty_SetRenderCallback, listener,
                                           &listening),
              noErr);
    Callback callback;
    EXPECT_EQ(setNodeCallback(graph, mixNode, 1, callback), noErr);
    EXPECT_EQ(listening.nodes, 2U);
}

TEST_F(GraphSetbacks, AGraphCanBeDisposedOfInACallbackWhileAnotherThreadStopsIt) {
    std::thread stopper;
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) {
        stopper = std::thread([this] { AUGraphStop(graph); });
        // Once it does not run any more, the stop waits for the end of this slice.
        while (isRunning(graph)) {
            std::this_thread::yield();
        }
        EXPECT_EQ(DisposeAUGraph(graph), noErr);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setNodeCallback(graph, mixNode, 1, callback), noErr);
    run();
    player.pump(64);
    stopper.join();
    EXPECT_EQ(callback.calls, 1);
    Boolean running = 0;
    EXPECT_NE(AUGraphIsRunning(graph, &running), noErr);
    graph = nullptr;
}

}  // namespace
}  // namespace platform
