#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "BufferLists.h"
#include "graph/GraphFixture.h"

// Control calls from several threads while the null device renders on its own. What counts here
// is what the sanitizers say, and that everything ends.

namespace platform {
namespace {

using namespace stream_formats;

struct CountingCallback {
    std::atomic<int> calls{0};
    static OSStatus proc(void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                         UInt32, AudioBufferList* list) {
        static_cast<CountingCallback*>(refCon)->calls.fetch_add(1);
        if (list != nullptr && list->mBuffers[0].mDataByteSize >= 4) {
            *static_cast<float*>(list->mBuffers[0].mData) = 0.5F;
        }
        return noErr;
    }
    AURenderCallbackStruct structure() { return {proc, this}; }
    /// Waits until it was called `more` times again; false after a few seconds without.
    bool waitFor(int more) const {
        const int wanted = calls.load() + more;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (calls.load() < wanted) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }
};

AUGraph runningGraph(AUNode& mixNode, AudioUnit& mixUnit, CountingCallback& track) {
    AUGraph graph = nullptr;
    EXPECT_EQ(NewAUGraph(&graph), noErr);
    mixNode = addNode(graph, mixer());
    const AUNode outNode = addNode(graph, remoteIO());
    EXPECT_EQ(AUGraphConnectNodeInput(graph, mixNode, 0, outNode, 0), noErr);
    EXPECT_EQ(AUGraphOpen(graph), noErr);
    mixUnit = unitOf(graph, mixNode);
    EXPECT_EQ(set(mixUnit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, UInt32{4096}), noErr);
    const AURenderCallbackStruct callback = track.structure();
    EXPECT_EQ(AUGraphSetNodeInputCallback(graph, mixNode, 0, &callback), noErr);
    EXPECT_EQ(AUGraphInitialize(graph), noErr);
    EXPECT_EQ(AUGraphStart(graph), noErr);
    return graph;
}

TEST(Threads, PropertiesNotifiesAndParametersChangeWhileTheDeviceRenders) {
    CountingCallback track;
    AUNode mixNode = 0;
    AudioUnit mixUnit = nullptr;
    const AUGraph graph = runningGraph(mixNode, mixUnit, track);
    ASSERT_TRUE(track.waitFor(1));
    std::thread formats([&] {
        for (int i = 0; i < 60; ++i) {
            EXPECT_EQ(setFormat(mixUnit, kAudioUnitScope_Input, 0,
                                i % 2 == 0 ? int16Interleaved(22050, 2) : floatPlanar(48000, 1)),
                      noErr);
            EXPECT_EQ(setFormat(mixUnit, kAudioUnitScope_Output, 0,
                                i % 3 == 0 ? int16Interleaved(44100, 2) : floatPlanar(48000, 2)),
                      noErr);
        }
    });
    std::thread notifies([&] {
        CountingCallback notify;
        for (int i = 0; i < 300; ++i) {
            EXPECT_EQ(AudioUnitAddRenderNotify(mixUnit, CountingCallback::proc, &notify), noErr);
            EXPECT_EQ(AudioUnitRemoveRenderNotify(mixUnit, CountingCallback::proc, &notify), noErr);
        }
        // A removed notify may still be in a render of the moment; behind a stop it is not.
        EXPECT_EQ(AUGraphStop(graph), noErr);
        EXPECT_EQ(AUGraphStart(graph), noErr);
    });
    std::thread parameters([&] {
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(
                AudioUnitSetParameter(mixUnit, kMultiChannelMixerParam_Volume,
                                      kAudioUnitScope_Input, 0, static_cast<float>(i % 10) / 10, 0),
                noErr);
        }
    });
    formats.join();
    notifies.join();
    parameters.join();
    EXPECT_TRUE(track.waitFor(2));
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
}

TEST(Threads, InputsComeAndGoWhileTheDeviceRenders) {
    CountingCallback track;
    AUNode mixNode = 0;
    AudioUnit mixUnit = nullptr;
    const AUGraph graph = runningGraph(mixNode, mixUnit, track);
    ASSERT_TRUE(track.waitFor(1));
    const auto churn = [&](UInt32 bus) {
        for (int i = 0; i < 100; ++i) {
            const auto other = std::make_unique<CountingCallback>();
            const AURenderCallbackStruct callback = other->structure();
            EXPECT_EQ(AUGraphSetNodeInputCallback(graph, mixNode, bus, &callback), noErr);
            EXPECT_EQ(AUGraphUpdate(graph, nullptr), noErr);
            EXPECT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, bus), noErr);
            OSStatus status = noErr;
            do {
                status = AUGraphUpdate(graph, nullptr);
            } while (status == kAUGraphErr_CannotDoInCurrentContext);
            EXPECT_EQ(status, noErr);
            // From here on nobody may call it: the sanitizers watch its memory.
        }
    };
    std::thread one(churn, 1);
    churn(2);
    one.join();
    EXPECT_TRUE(track.waitFor(2));
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
}

TEST(Threads, UnitsStartStopAndGoWhileOthersPlay) {
    const auto churn = [] {
        for (int i = 0; i < 30; ++i) {
            const auto callback = std::make_unique<CountingCallback>();
            const AudioUnit unit = makeUnit(remoteIO());
            EXPECT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, floatPlanar(44100, 2)), noErr);
            EXPECT_EQ(set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                          callback->structure()),
                      noErr);
            EXPECT_EQ(AudioUnitInitialize(unit), noErr);
            EXPECT_EQ(AudioOutputUnitStart(unit), noErr);
            if (i % 3 == 0) {
                EXPECT_TRUE(callback->waitFor(1));
            }
            if (i % 2 == 0) {
                EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
            }
            EXPECT_EQ(AudioComponentInstanceDispose(unit), noErr);
        }
    };
    std::thread one(churn);
    std::thread two(churn);
    churn();
    one.join();
    two.join();
}

TEST(Threads, OneUnitIsStartedAndStoppedFromAllSides) {
    CountingCallback callback;
    const OwnedUnit unit(remoteIO());
    ASSERT_EQ(set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                  callback.structure()),
              noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    const auto churn = [&] {
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ(AudioOutputUnitStart(unit), noErr);
            EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
        }
    };
    std::thread one(churn);
    std::thread two(churn);
    one.join();
    two.join();
    EXPECT_EQ(get<UInt32>(unit, kAudioOutputUnitProperty_IsRunning, 0, 0), 0U);
    const int calls = callback.calls.load();
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    EXPECT_TRUE(callback.waitFor(1)) << "after " << calls;
}

TEST(Threads, InitialiseAndUninitialiseWhileTheDeviceRenders) {
    CountingCallback callback;
    const OwnedUnit unit(remoteIO());
    ASSERT_EQ(set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                  callback.structure()),
              noErr);
    const auto churn = [&] {
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(AudioUnitInitialize(unit), noErr);
            const OSStatus started = AudioOutputUnitStart(unit);
            EXPECT_TRUE(started == noErr || started == kAudioUnitErr_Uninitialized);
            EXPECT_EQ(AudioUnitUninitialize(unit), noErr);
        }
    };
    std::thread one(churn);
    churn();
    one.join();
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    EXPECT_TRUE(callback.waitFor(1));
}

TEST(Threads, StaleHandlesAreRefusedWhileTheirUnitGoes) {
    for (int i = 0; i < 50; ++i) {
        const AudioUnit unit = makeUnit(mixer());
        std::thread user([unit] {
            OSStatus status = noErr;
            do {
                status = AudioUnitInitialize(unit);
                if (status == noErr) {
                    OwnedBufferList list = OwnedBufferList::planar(2, 256);
                    const AudioTimeStamp time{};
                    status = AudioUnitRender(unit, nullptr, &time, 0, 64, list.get());
                }
            } while (status == noErr);
            EXPECT_EQ(status, kAudioComponentErr_InstanceInvalidated);
        });
        EXPECT_EQ(AudioComponentInstanceDispose(unit), noErr);
        user.join();
    }
}

}  // namespace
}  // namespace platform
