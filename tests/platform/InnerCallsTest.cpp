#include <algorithm>
#include <atomic>

#include "graph/GraphFixture.h"

// This program defines the very functions that libtqplatform offers. The library's own calls must
// not come here: whoever redirects a program's calls sees what the program does, and only that.

namespace {

std::atomic<int> caught{0};

OSStatus caughtCall() {
    ++caught;
    return kAudio_UnimplementedError;
}

}  // namespace

extern "C" {

OSStatus AudioUnitRender(AudioUnit, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                         UInt32, AudioBufferList*) {
    return caughtCall();
}
OSStatus AudioUnitInitialize(AudioUnit) {
    return caughtCall();
}
OSStatus AudioUnitUninitialize(AudioUnit) {
    return caughtCall();
}
OSStatus AudioOutputUnitStart(AudioUnit) {
    return caughtCall();
}
OSStatus AudioOutputUnitStop(AudioUnit) {
    return caughtCall();
}
OSStatus AudioComponentInstanceNew(AudioComponent, AudioComponentInstance*) {
    return caughtCall();
}
OSStatus AudioComponentInstanceDispose(AudioComponentInstance) {
    return caughtCall();
}
AudioComponent AudioComponentFindNext(AudioComponent, const AudioComponentDescription*) {
    caughtCall();
    return nullptr;
}
OSStatus AudioUnitAddRenderNotify(AudioUnit, AURenderCallback, void*) {
    return caughtCall();
}

}  // extern "C"

namespace platform {
namespace {

using InnerCalls = MixGraph;

TEST_F(InnerCalls, OfAGraphAndItsRenderAreNotCaught) {
    Callback callback;
    callback.body = constant(0.5F);
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    ASSERT_EQ(AUGraphAddRenderNotify(graph, Callback::proc, &callback), noErr);
    ASSERT_EQ(AUGraphRemoveRenderNotify(graph, Callback::proc, &callback), noErr);
    run();
    EXPECT_EQ(heard(), 0.5F);
    ASSERT_EQ(AUGraphStop(graph), noErr);
    ASSERT_EQ(AUGraphUninitialize(graph), noErr);
    ASSERT_EQ(AUGraphClose(graph), noErr);
    EXPECT_EQ(caught.load(), 0);
    EXPECT_EQ(AudioUnitInitialize(nullptr), kAudio_UnimplementedError);
    EXPECT_EQ(caught.load(), 1) << "the program's own calls are";
}

}  // namespace
}  // namespace platform
