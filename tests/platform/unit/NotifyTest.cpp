#include <algorithm>

#include "BufferLists.h"
#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {
namespace {

using namespace stream_formats;

struct Call {
    char who;
    AudioUnitRenderActionFlags flags;
    bool operator==(const Call&) const = default;
    friend void PrintTo(const Call& call, std::ostream* out) {
        *out << call.who << ":0x" << std::hex << call.flags;
    }
};

constexpr AudioUnitRenderActionFlags pre = kAudioUnitRenderAction_PreRender;
constexpr AudioUnitRenderActionFlags post = kAudioUnitRenderAction_PostRender;
constexpr AudioUnitRenderActionFlags postError = 0x108;

class RenderNotifies : public testing::Test {
  protected:
    RenderNotifies() {
        callback.body = [this](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                               AudioBufferList*) {
            calls.push_back({'r', 0});
            return status;
        };
        EXPECT_EQ(setCallback(unit, 0, callback), noErr);
        EXPECT_EQ(AudioUnitInitialize(unit), noErr);
        first.body = logger('1');
        second.body = logger('2');
    }
    Callback::Body logger(char who) {
        return [this, who](AudioUnitRenderActionFlags& action, const AudioTimeStamp&, UInt32,
                           UInt32, AudioBufferList*) {
            calls.push_back({who, action});
            return OSStatus{noErr};
        };
    }
    OSStatus add(Callback& notify) {
        return AudioUnitAddRenderNotify(unit, Callback::proc, &notify);
    }
    OSStatus remove(Callback& notify) {
        return AudioUnitRemoveRenderNotify(unit, Callback::proc, &notify);
    }
    OSStatus render(UInt32 frames = 64) {
        OwnedBufferList list = OwnedBufferList::planar(2, 64 * 4);
        const AudioTimeStamp time{};
        return AudioUnitRender(unit, &flags, &time, 0, frames, list.get());
    }

    const OwnedUnit unit{converter()};
    Callback callback;
    Callback first;
    Callback second;
    OSStatus status = noErr;
    AudioUnitRenderActionFlags flags = 0;
    std::vector<Call> calls;
};

TEST_F(RenderNotifies, ComeBeforeAndAfterEachRenderInOrderOfRegistration) {
    ASSERT_EQ(add(first), noErr);
    ASSERT_EQ(add(second), noErr);
    ASSERT_EQ(render(), noErr);
    EXPECT_EQ(calls,
              (std::vector<Call>{{'1', pre}, {'2', pre}, {'r', 0}, {'1', post}, {'2', post}}));
    EXPECT_EQ(flags, 0U);
}

TEST_F(RenderNotifies, ShareOneCopyOfTheFlagsPerPhase) {
    first.body = [&](AudioUnitRenderActionFlags& action, const AudioTimeStamp&, UInt32, UInt32,
                     AudioBufferList*) {
        calls.push_back({'1', action});
        action |= 0x1000;
        return OSStatus{noErr};
    };
    ASSERT_EQ(add(first), noErr);
    ASSERT_EQ(add(second), noErr);
    ASSERT_EQ(render(), noErr);
    EXPECT_EQ(calls,
              (std::vector<Call>{
                  {'1', pre}, {'2', pre | 0x1000}, {'r', 0}, {'1', post}, {'2', post | 0x1000}}));
    EXPECT_EQ(flags, 0U) << "the caller's flags are his";
}

TEST_F(RenderNotifies, HearOfAFailedRender) {
    ASSERT_EQ(add(first), noErr);
    status = -77;
    EXPECT_EQ(render(), -77);
    EXPECT_EQ(calls, (std::vector<Call>{{'1', pre}, {'r', 0}, {'1', postError}}));
}

TEST_F(RenderNotifies, HearOnlyTheEndOfARenderThatFailedAtOnce) {
    ASSERT_EQ(add(first), noErr);
    EXPECT_EQ(render(100000), kAudioUnitErr_TooManyFramesToProcess);
    EXPECT_EQ(calls, (std::vector<Call>{{'1', postError}}));
}

TEST_F(RenderNotifies, AreKnownByProcedureAndReference) {
    ASSERT_EQ(add(first), noErr);
    ASSERT_EQ(add(first), noErr);
    ASSERT_EQ(add(second), noErr);
    ASSERT_EQ(remove(first), noErr);
    EXPECT_EQ(remove(first), noErr) << "an unknown pair is no error";
    ASSERT_EQ(render(), noErr);
    EXPECT_EQ(calls, (std::vector<Call>{{'2', pre}, {'r', 0}, {'2', post}}));
    EXPECT_EQ(AudioUnitAddRenderNotify(unit, nullptr, nullptr), kAudio_ParamError);
    EXPECT_EQ(AudioUnitRemoveRenderNotify(unit, nullptr, nullptr), kAudio_ParamError);
}

TEST_F(RenderNotifies, RemovedDuringARenderStillSeeItsEnd) {
    first.body = [&](AudioUnitRenderActionFlags& action, const AudioTimeStamp&, UInt32, UInt32,
                     AudioBufferList*) {
        calls.push_back({'1', action});
        EXPECT_EQ(remove(first), noErr);
        EXPECT_EQ(add(second), noErr);
        return OSStatus{noErr};
    };
    ASSERT_EQ(add(first), noErr);
    ASSERT_EQ(render(), noErr);
    EXPECT_EQ(calls, (std::vector<Call>{{'1', pre}, {'r', 0}, {'1', post}}));
    calls.clear();
    ASSERT_EQ(render(), noErr);
    EXPECT_EQ(calls, (std::vector<Call>{{'2', pre}, {'r', 0}, {'2', post}}));
}

TEST_F(RenderNotifies, SurviveUninitialise) {
    ASSERT_EQ(add(first), noErr);
    ASSERT_EQ(AudioUnitUninitialize(unit), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(render(), noErr);
    EXPECT_EQ(first.calls, 2);
}

TEST(OutputUnitNotifies, SeeTheDevicesFormatAndChangeWhatItPlays) {
    Player player;
    const OwnedUnit unit(remoteIO());
    ASSERT_EQ(setFormat(unit, kAudioUnitScope_Input, 0, int16Interleaved(deviceRate, 1)), noErr);
    Callback callback;
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                       AudioBufferList* list) {
        EXPECT_EQ(list->mNumberBuffers, 1U);
        std::fill_n(samples<std::int16_t>(list), frames, std::int16_t{16384});
        return OSStatus{noErr};
    };
    Callback notify;
    std::vector<AudioUnitRenderActionFlags> seen;
    notify.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time, UInt32 bus,
                      UInt32 frames, AudioBufferList* list) {
        seen.push_back(flags);
        EXPECT_EQ(bus, 0U);
        EXPECT_EQ(frames, 64U);
        EXPECT_EQ(time.mHostTime, player.hostTime());
        EXPECT_EQ(list->mNumberBuffers, 2U);
        EXPECT_EQ(list->mBuffers[1].mNumberChannels, 1U);
        EXPECT_EQ(list->mBuffers[1].mDataByteSize, 64 * sizeof(float));
        if ((flags & kAudioUnitRenderAction_PostRender) != 0) {
            EXPECT_EQ(samples<float>(list)[63], 0.5F);
            samples<float>(list, 1)[63] = -0.125F;
        }
        return OSStatus{noErr};
    };
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitAddRenderNotify(unit, Callback::proc, &notify), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    EXPECT_EQ(seen, (std::vector<AudioUnitRenderActionFlags>{pre, post}));
    EXPECT_EQ(player.left[63], 0.5F);
    EXPECT_EQ(player.right[63], -0.125F);
    EXPECT_EQ(player.right[62], 0.5F);
}

TEST(OutputUnitNotifies, MayPutSamplesElsewhere) {
    Player player;
    const OwnedUnit unit(remoteIO());
    std::vector<float> own(64, 0.75F);
    Callback notify;
    notify.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp&, UInt32, UInt32,
                      AudioBufferList* list) {
        if ((flags & kAudioUnitRenderAction_PostRender) != 0) {
            list->mBuffers[0].mData = own.data();
        }
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitAddRenderNotify(unit, Callback::proc, &notify), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    EXPECT_EQ(player.left[0], 0.75F);
    EXPECT_EQ(player.right[0], 0.0F);
}

TEST(OutputUnitNotifies, HearOfACallbacksErrorWhileSilenceIsPlayed) {
    Player player;
    const OwnedUnit unit(remoteIO());
    Callback callback;
    callback.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                       AudioBufferList* list) {
        std::fill_n(samples<float>(list), frames, 1.0F);
        return OSStatus{-5};
    };
    Callback notify;
    std::vector<AudioUnitRenderActionFlags> seen;
    notify.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp&, UInt32, UInt32,
                      AudioBufferList*) {
        seen.push_back(flags);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitAddRenderNotify(unit, Callback::proc, &notify), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64);
    EXPECT_EQ(seen, (std::vector<AudioUnitRenderActionFlags>{pre, postError}));
    EXPECT_EQ(player.left[10], 0.0F);
    EXPECT_EQ(get<OSStatus>(unit, kAudioUnitProperty_LastRenderError, 0, 0), -5);
}

}  // namespace
}  // namespace platform
