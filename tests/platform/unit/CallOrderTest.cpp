#include <dlfcn.h>

#include <algorithm>
#include <cstdint>

#include "PlatformFixture.h"
#include "StreamFormats.h"

// The orders in which programs of all kinds make their calls. Each must end with the sound that
// the program's callback makes.

namespace platform {
namespace {

using namespace stream_formats;

class CallOrders : public testing::Test {
  protected:
    CallOrders() {
        callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32,
                           UInt32 frames, AudioBufferList* list) {
            EXPECT_EQ(list->mNumberBuffers, 1U);
            std::fill_n(samples<std::int16_t>(list), 2 * frames, std::int16_t{8192});
            return OSStatus{noErr};
        };
    }
    OSStatus setProgramFormat() {
        return setFormat(unit, kAudioUnitScope_Input, 0, int16Interleaved(deviceRate, 2));
    }
    void expectSound() {
        player.left.clear();
        player.pump(256);
        EXPECT_EQ(player.left, std::vector<float>(256, 0.25F));
    }
    void expectSilence() {
        player.left.clear();
        player.pump(256);
        EXPECT_EQ(player.left, std::vector<float>(256, 0.0F));
    }

    Player player;
    Callback callback;
    AudioUnit unit = makeUnit(remoteIO());
};

TEST_F(CallOrders, StopNullCallbackAndDisposeWithoutUninitialise) {
    ASSERT_EQ(setProgramFormat(), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    expectSound();
    EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
    const AURenderCallbackStruct none{};
    EXPECT_EQ(set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0, none),
              noErr);
    EXPECT_EQ(AudioComponentInstanceDispose(unit), noErr);
    expectSilence();
}

TEST_F(CallOrders, MaximumFramesOnTheInputScopeAndDisposeWhileRunning) {
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(setProgramFormat(), noErr);
    ASSERT_EQ(
        set(unit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Input, 0, UInt32{4096}),
        noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    expectSound();
    EXPECT_EQ(AudioComponentInstanceDispose(unit), noErr);
    expectSilence();
}

TEST_F(CallOrders, EnableIOThenFormatAndCallbackAfterInitialise) {
    const auto enable = kAudioOutputUnitProperty_EnableIO;
    ASSERT_EQ(set(unit, enable, kAudioUnitScope_Input, 1, UInt32{1}), noErr);
    ASSERT_EQ(set(unit, enable, kAudioUnitScope_Output, 0, UInt32{1}), noErr);
    ASSERT_EQ(set(unit, enable, kAudioUnitScope_Input, 1, UInt32{0}), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(setProgramFormat(), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    expectSound();
    EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
    EXPECT_EQ(AudioUnitUninitialize(unit), noErr);
    EXPECT_EQ(AudioComponentInstanceDispose(unit), noErr);
}

TEST_F(CallOrders, InitialiseUninitialiseAndInitialiseAgain) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioUnitUninitialize(unit), noErr);
    ASSERT_EQ(setProgramFormat(), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    expectSound();
    EXPECT_EQ(AudioComponentInstanceDispose(unit), noErr);
}

TEST_F(CallOrders, CallbackOnTheOutputScopeAfterInitialise) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(setProgramFormat(), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback, kAudioUnitScope_Output), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    expectSound();
    EXPECT_EQ(AudioComponentInstanceDispose(unit), noErr);
}

TEST_F(CallOrders, ANotifyThatRemovesItselfAndTheCallbackOnPause) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(setProgramFormat(), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback, kAudioUnitScope_Global), noErr);
    bool pause = false;
    Callback notify;
    notify.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp&, UInt32, UInt32,
                      AudioBufferList*) {
        if (pause && (flags & kAudioUnitRenderAction_PostRender) != 0) {
            const AURenderCallbackStruct none{};
            EXPECT_EQ(
                set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Global, 0, none),
                noErr);
            EXPECT_EQ(AudioUnitRemoveRenderNotify(unit, Callback::proc, &notify), noErr);
        }
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitAddRenderNotify(unit, Callback::proc, &notify), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    expectSound();
    pause = true;
    expectSound();
    expectSilence();
    EXPECT_EQ(notify.calls, 4);
    EXPECT_EQ(callback.calls, 2);
    EXPECT_EQ(AudioComponentInstanceDispose(unit), noErr);
}

TEST_F(CallOrders, AnEmptyGraphThatIsOpenedFirst) {
    ASSERT_EQ(AudioComponentInstanceDispose(unit), noErr);
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    ASSERT_EQ(AUGraphOpen(graph), noErr);
    AUNode node = 0;
    const auto wanted = remoteIO();
    ASSERT_EQ(AUGraphAddNode(graph, &wanted, &node), noErr);
    ASSERT_EQ(AUGraphNodeInfo(graph, node, nullptr, &unit), noErr);
    ASSERT_NE(unit, nullptr);
    ASSERT_EQ(setProgramFormat(), noErr);
    const AURenderCallbackStruct structure = callback.structure();
    ASSERT_EQ(AUGraphSetNodeInputCallback(graph, node, 0, &structure), noErr);
    ASSERT_EQ(AUGraphUpdate(graph, nullptr), noErr);
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    expectSound();
    EXPECT_EQ(AUGraphStop(graph), noErr);
    expectSilence();
    EXPECT_EQ(AUGraphUninitialize(graph), noErr);
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
}

TEST_F(CallOrders, AGraphWhoseUnitIsFedDirectlyAndThatIsOnlyDisposedOf) {
    ASSERT_EQ(AudioComponentInstanceDispose(unit), noErr);
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    AUNode node = 0;
    const auto wanted = remoteIO();
    ASSERT_EQ(AUGraphAddNode(graph, &wanted, &node), noErr);
    ASSERT_EQ(AUGraphOpen(graph), noErr);
    ASSERT_EQ(AUGraphNodeInfo(graph, node, nullptr, &unit), noErr);
    ASSERT_EQ(setProgramFormat(), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback, kAudioUnitScope_Global), noErr);
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    expectSound();
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
    expectSilence();
}

TEST_F(CallOrders, ComponentCallsThatAreLookedUpByName) {
    ASSERT_EQ(AudioComponentInstanceDispose(unit), noErr);
    const auto find = reinterpret_cast<decltype(&AudioComponentFindNext)>(
        dlsym(RTLD_DEFAULT, "AudioComponentFindNext"));
    const auto make = reinterpret_cast<decltype(&AudioComponentInstanceNew)>(
        dlsym(RTLD_DEFAULT, "AudioComponentInstanceNew"));
    const auto dispose = reinterpret_cast<decltype(&AudioComponentInstanceDispose)>(
        dlsym(RTLD_DEFAULT, "AudioComponentInstanceDispose"));
    ASSERT_NE(find, nullptr);
    ASSERT_NE(make, nullptr);
    ASSERT_NE(dispose, nullptr);
    const auto wanted = remoteIO();
    ASSERT_EQ(make(find(nullptr, &wanted), &unit), noErr);
    ASSERT_EQ(setProgramFormat(), noErr);
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    expectSound();
    EXPECT_EQ(dispose(unit), noErr);
}

}  // namespace
}  // namespace platform
