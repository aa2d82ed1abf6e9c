#include <algorithm>
#include <cstdint>

#include "BufferLists.h"
#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;

/// A converter whose both sides are 16-bit stereo at one rate, fed by a callback: the plainest
/// unit to render by hand.
class RenderCalls : public testing::Test {
  protected:
    RenderCalls() {
        EXPECT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, int16Interleaved(44100, 2)), noErr);
        EXPECT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, int16Interleaved(44100, 2)), noErr);
        EXPECT_EQ(setCallback(unit, 0, callback), noErr);
        callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32,
                           UInt32 frames, AudioBufferList* list) {
            for (UInt32 i = 0; i < 2 * frames; ++i) {
                samples<std::int16_t>(list)[i] = static_cast<std::int16_t>(i);
            }
            return OSStatus{noErr};
        };
        time.mFlags = kAudioTimeStampSampleTimeValid;
    }
    OSStatus render(UInt32 frames, AudioBufferList* list, UInt32 bus = 0) {
        return AudioUnitRender(unit, &flags, &time, bus, frames, list);
    }

    const OwnedUnit unit{converter()};
    Callback callback;
    AudioTimeStamp time{};
    AudioUnitRenderActionFlags flags = 0;
};

TEST_F(RenderCalls, NeedAnInitialisedUnit) {
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    EXPECT_EQ(render(100, list.get()), kAudioUnitErr_Uninitialized);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    EXPECT_EQ(render(100, list.get()), noErr);
    ASSERT_EQ(AudioUnitUninitialize(unit), noErr);
    EXPECT_EQ(render(100, list.get()), kAudioUnitErr_Uninitialized);
}

TEST_F(RenderCalls, DeliverTheSamplesOfTheCallback) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    ASSERT_EQ(render(100, list.get()), noErr);
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(list.samples<std::int16_t>()[static_cast<std::size_t>(i)], i);
    }
}

TEST_F(RenderCalls, CheckTheirArguments) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList good = OwnedBufferList::interleaved(2, 400);
    EXPECT_EQ(AudioUnitRender(unit, &flags, nullptr, 0, 100, good.get()), kAudio_ParamError);
    EXPECT_EQ(AudioUnitRender(unit, &flags, &time, 0, 100, nullptr), kAudio_ParamError);
    EXPECT_EQ(AudioUnitRender(unit, nullptr, &time, 0, 100, good.get()), noErr);
    EXPECT_EQ(render(100, good.get(), 1), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(render(1025, good.get()), kAudioUnitErr_TooManyFramesToProcess);
    OwnedBufferList two = OwnedBufferList::planar(2, 400);
    EXPECT_EQ(render(100, two.get()), kAudio_ParamError);
    OwnedBufferList small = OwnedBufferList::interleaved(2, 399);
    EXPECT_EQ(render(100, small.get()), kAudio_ParamError);
    EXPECT_EQ(callback.calls, 1);
}

TEST_F(RenderCalls, CutTheSizeDownToTheFrames) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 4000);
    ASSERT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(list.buffer().mDataByteSize, 400U);
}

TEST_F(RenderCalls, LendMemoryWhereThereIsNone) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    AudioBufferList list{1, {{0, 0, nullptr}}};
    ASSERT_EQ(render(100, &list), noErr);
    ASSERT_NE(list.mBuffers[0].mData, nullptr);
    EXPECT_EQ(list.mBuffers[0].mDataByteSize, 400U);
    EXPECT_EQ(list.mBuffers[0].mNumberChannels, 2U);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(list.mBuffers[0].mData) % 16, 0U);
    EXPECT_EQ(samples<std::int16_t>(&list)[199], 199);
}

TEST_F(RenderCalls, LentMemoryOutlivesAChangeOfFormat) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    AudioBufferList list{1, {{0, 0, nullptr}}};
    ASSERT_EQ(render(100, &list), noErr);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, floatPlanar(48000, 2)), noErr);
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Output, 0, floatPlanar(48000, 1)), noErr);
    EXPECT_EQ(samples<std::int16_t>(&list)[199], 199);
}

TEST_F(RenderCalls, WithoutInputHaveNoConnection) {
    const AURenderCallbackStruct none{};
    ASSERT_EQ(set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0, none),
              noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    EXPECT_EQ(render(100, list.get()), kAudioUnitErr_NoConnection);
}

TEST_F(RenderCalls, TheCallbacksBuffersAreAlignedSizedAndSilent) {
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, floatPlanar(44100, 2)), noErr);
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32 bus,
                       UInt32 frames, AudioBufferList* list) {
        EXPECT_EQ(bus, 0U);
        EXPECT_EQ(frames, 100U);
        EXPECT_EQ(list->mNumberBuffers, 2U);
        for (UInt32 i = 0; i < 2; ++i) {
            EXPECT_EQ(list->mBuffers[i].mDataByteSize, 400U);
            EXPECT_EQ(list->mBuffers[i].mNumberChannels, 1U);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(list->mBuffers[i].mData) % 16, 0U);
            EXPECT_TRUE(std::all_of(samples<float>(list, i), samples<float>(list, i) + 100,
                                    [](float sample) { return sample == 0; }));
            std::fill_n(samples<float>(list, i), 100, 0.5F);
        }
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    EXPECT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(list.samples<std::int16_t>()[0], 16384);
}

TEST_F(RenderCalls, ACallbackMayPutSamplesElsewhere) {
    std::vector<std::int16_t> own(200, 1234);
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList* list) {
        list->mBuffers[0].mData = own.data();
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    ASSERT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(list.samples<std::int16_t>()[199], 1234);
}

TEST_F(RenderCalls, WithoutAllocationTheCallbackBringsItsBuffers) {
    ASSERT_EQ(
        set(unit, kAudioUnitProperty_ShouldAllocateBuffer, kAudioUnitScope_Input, 0, UInt32{0}),
        noErr);
    std::vector<std::int16_t> own(200, 77);
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList* list) {
        EXPECT_EQ(list->mBuffers[0].mData, nullptr);
        EXPECT_EQ(list->mBuffers[0].mDataByteSize, 400U);
        list->mBuffers[0].mData = own.data();
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    ASSERT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(list.samples<std::int16_t>()[0], 77);
    callback.body = nullptr;  // leaves the pointers null
    ASSERT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(list.samples<std::int16_t>()[0], 0);
}

TEST_F(RenderCalls, AnOutputWithoutAllocationNeedsTheCallersBuffers) {
    ASSERT_EQ(
        set(unit, kAudioUnitProperty_ShouldAllocateBuffer, kAudioUnitScope_Output, 0, UInt32{0}),
        noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    AudioBufferList list{1, {{2, 0, nullptr}}};
    EXPECT_EQ(render(100, &list), kAudio_ParamError);
}

TEST_F(RenderCalls, FramesThatTheCallbackLeavesOutAreSilence) {
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                       AudioBufferList* list) {
        std::fill_n(samples<std::int16_t>(list), 2 * frames, std::int16_t{999});
        list->mBuffers[0].mDataByteSize = 40 * 4;
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    ASSERT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(list.samples<std::int16_t>()[79], 999);
    EXPECT_EQ(list.samples<std::int16_t>()[80], 0);
}

TEST_F(RenderCalls, ASizeBeyondTheBufferIsNotBelieved) {
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                       AudioBufferList* list) {
        list->mBuffers[0].mDataByteSize = 0xFFFFFFFF;
        list->mNumberBuffers = 1;
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    EXPECT_EQ(render(100, list.get()), noErr);
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                       AudioBufferList* inner) {
        inner->mNumberBuffers = 0;
        return OSStatus{noErr};
    };
    EXPECT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(list.samples<std::int16_t>()[0], 0);
}

TEST_F(RenderCalls, TheCallbacksErrorIsTheRendersStatusAndIsKeptUntilRead) {
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                       AudioBufferList*) { return OSStatus{-1234}; };
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    EXPECT_EQ(render(100, list.get()), -1234);
    EXPECT_EQ(list.samples<std::int16_t>()[0], 0);
    EXPECT_EQ(get<OSStatus>(unit, kAudioUnitProperty_LastRenderError, 0, 0), -1234);
    EXPECT_EQ(get<OSStatus>(unit, kAudioUnitProperty_LastRenderError, 0, 0), noErr);
}

TEST_F(RenderCalls, ARenderInsideItselfIsTurnedAway) {
    OSStatus inner = noErr;
    OwnedBufferList other = OwnedBufferList::interleaved(2, 400);
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) {
        inner = render(100, other.get());
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    EXPECT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(inner, kAudioUnitErr_CannotDoInCurrentContext);
}

TEST_F(RenderCalls, TellTheSampleTimeOfTheLastOne) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    time.mSampleTime = 4711;
    ASSERT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(get<Float64>(unit, kAudioUnitProperty_LastRenderSampleTime, 0, 0), 4711);
}

TEST_F(RenderCalls, ZeroFramesAreFine) {
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    EXPECT_EQ(render(0, list.get()), noErr);
    EXPECT_EQ(list.buffer().mDataByteSize, 0U);
}

TEST_F(RenderCalls, AConnectionPullsItsSource) {
    const OwnedUnit source(mixer());
    Callback notify;
    notify.body = [&](AudioUnitRenderActionFlags& action, const AudioTimeStamp& when, UInt32 bus,
                      UInt32 frames, AudioBufferList* list) {
        if ((action & kAudioUnitRenderAction_PostRender) != 0) {
            EXPECT_EQ(when.mSampleTime, 500);
            EXPECT_EQ(bus, 0U);
            EXPECT_EQ(frames, 100U);
            EXPECT_EQ(list->mBuffers[0].mDataByteSize, 400U);
            samples<std::int16_t>(list)[3] = 321;
        }
        return OSStatus{noErr};
    };
    ASSERT_EQ(setFormat(source, kAudioUnitScope_Output, 0, int16Interleaved(44100, 2)), noErr);
    ASSERT_EQ(AudioUnitAddRenderNotify(source, Callback::proc, &notify), noErr);
    ASSERT_EQ(AudioUnitInitialize(source), noErr);
    const AudioUnitConnection connection{source, 0, 0};
    ASSERT_EQ(set(unit, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0, connection),
              noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    time.mSampleTime = 500;
    ASSERT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(callback.calls, 0) << "the connection replaced the callback";
    EXPECT_EQ(list.samples<std::int16_t>()[3], 321);

    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(render(100, list.get()), noErr);
    EXPECT_EQ(callback.calls, 1) << "the callback replaced the connection";
}

TEST_F(RenderCalls, ASourceThatIsGoneIsNoConnection) {
    const AudioUnit source = makeUnit(mixer());
    const AudioUnitConnection connection{source, 0, 0};
    ASSERT_EQ(set(unit, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0, connection),
              noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioComponentInstanceDispose(source), noErr);
    OwnedBufferList list = OwnedBufferList::interleaved(2, 400);
    EXPECT_EQ(render(100, list.get()), kAudioUnitErr_NoConnection);
}

TEST_F(RenderCalls, ALoopOfConnectionsEnds) {
    const OwnedUnit other(converter());
    const AudioUnitConnection there{unit, 0, 0};
    const AudioUnitConnection back{other, 0, 0};
    ASSERT_EQ(set(other, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0, there),
              noErr);
    ASSERT_EQ(set(unit, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0, back), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioUnitInitialize(other), noErr);
    OwnedBufferList list = OwnedBufferList::planar(2, 400);
    EXPECT_NE(render(100, list.get()), noErr);
}

TEST(GenericOutput, IsPulledByTheProgramWhetherStartedOrNot) {
    const OwnedUnit unit(genericOutput());
    Callback callback;
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                       AudioBufferList* list) {
        std::fill_n(samples<float>(list), frames, 0.25F);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    EXPECT_EQ(AudioOutputUnitStart(unit), kAudioUnitErr_Uninitialized);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    EXPECT_EQ(AudioOutputUnitStart(unit), noErr);
    EXPECT_EQ(AudioOutputUnitStart(unit), noErr);
    EXPECT_EQ(get<UInt32>(unit, kAudioOutputUnitProperty_IsRunning, 0, 0), 1U);
    Player player;
    player.pump(64, 4);
    EXPECT_EQ(callback.calls, 0) << "it makes no sound by itself";
    OwnedBufferList list = OwnedBufferList::planar(2, 400);
    const AudioTimeStamp time{};
    EXPECT_EQ(AudioUnitRender(unit, nullptr, &time, 0, 100, list.get()), noErr);
    EXPECT_EQ(list.samples<float>()[99], 0.25F);
    EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
    EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
    EXPECT_EQ(get<UInt32>(unit, kAudioOutputUnitProperty_IsRunning, 0, 0), 0U);
    EXPECT_EQ(AudioUnitRender(unit, nullptr, &time, 0, 100, list.get()), noErr);
}

TEST(StartAndStop, AreForOutputUnitsOnly) {
    const OwnedUnit unit(mixer());
    EXPECT_EQ(AudioOutputUnitStart(unit), kAudio_UnimplementedError);
    EXPECT_EQ(AudioOutputUnitStop(unit), kAudio_UnimplementedError);
}

}  // namespace
}  // namespace platform
