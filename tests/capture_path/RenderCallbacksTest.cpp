#include <algorithm>
#include <chrono>

#include "BufferLists.h"
#include "MixRenderCallbacks.h"
#include "RZAudioRecordStat.h"
#include "RZReplayVolumeController.h"
#include "RenderFixture.h"
#include "TQAudioCaptureBase.h"
#include "UniversalNodeProcessCallback.h"

// The render callbacks, driven by the device.

namespace {

using testing::Contains;
using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

TEST_F(RenderCallbacks, WithMaskThreeTheMixAndTheTracksBlocksArrive) {
    capture(3);
    slices(10);
    const auto mixes = listener->mixes();
    ASSERT_THAT(mixes, SizeIs(10));
    for (const auto& block : mixes) {
        ASSERT_THAT(block.samples(), SizeIs(2 * kSlice));
        EXPECT_THAT(block.samples(), Each(testing::AllOf(testing::Ge(8190), testing::Le(8194))));
        EXPECT_EQ(block.info.trackId(), 1);
        EXPECT_EQ(block.info.sampleRate(), 44100);
    }
    const auto posts = listener->posts();
    ASSERT_THAT(posts, SizeIs(9)) << "the first post block is thrown away with the stale ones";
    for (const auto& block : posts) {
        EXPECT_THAT(block.samples(), Each(8192));
        EXPECT_EQ(block.info.trackId(), 1);
    }
}

TEST_F(RenderCallbacks, WithMaskOneNothingIsWrittenToThePostRing) {
    capture(1);
    slices(5);
    EXPECT_THAT(listener->mixes(), SizeIs(5));
    EXPECT_FALSE(listener->mixes().back().isSilent());
    EXPECT_THAT(listener->posts(), IsEmpty());
    stopPrivateGraph();
    slices(2);
    EXPECT_EQ(object().getRingBufferSize(YES), 0U);
    EXPECT_EQ(object().getRingBufferSize(NO), 2 * kSliceBytes);
}

TEST_F(RenderCallbacks, WithMaskTwoTheMixerGetsSilenceAndTheListenerTheTracksBlocks) {
    capture(2);
    slices(5);
    EXPECT_THAT(listener->mixes(), IsEmpty());
    EXPECT_THAT(listener->posts(), SizeIs(4));
    stopPrivateGraph();
    slices(2);
    EXPECT_EQ(object().getRingBufferSize(NO), 0U);
    // What the mixer is given for the bus.
    auto list = OwnedBufferList::interleaved(2, kSliceBytes);
    list.fillBytes(0x55);
    AudioTimeStamp now{};
    AudioUnitRenderActionFlags flags = 0;
    EXPECT_EQ(UniversalNodeProcessCallback(host().unit(), &flags, &now, 1, kSlice, list.get()), 0);
    EXPECT_THAT(list.copyOf<std::int16_t>(), Each(0));
    EXPECT_THAT(listener->posts(), SizeIs(6));
}

TEST_F(RenderCallbacks, WithMaskZeroNothingIsWrittenAndEventsStillArrive) {
    capture(0);
    slices(5);
    EXPECT_THAT(listener->mixes(), IsEmpty());
    EXPECT_THAT(listener->posts(), IsEmpty());
    EXPECT_EQ(object().getRingBufferSize(NO), 0U);
    EXPECT_EQ(object().getRingBufferSize(YES), 0U);
    EXPECT_THAT(listener->events(), SizeIs(1));
    EXPECT_EQ(sound().calls, 5);
}

TEST_F(RenderCallbacks, AFloatHostIsDeliveredAsSixteenBit) {
    sound().format = stream_formats::floatPlanar(44100, 2);
    sound().value = -0.5;
    capture(3);
    slices(4);
    const auto posts = listener->posts();
    ASSERT_THAT(posts, SizeIs(3));
    ASSERT_EQ(posts[0].buffers.size(), 2U);
    EXPECT_THAT(posts[0].samples(1), SizeIs(kSlice));
    EXPECT_THAT(posts[0].samples(1), Each(-16383)) << "truncated toward zero";
    EXPECT_EQ(posts[0].info.bitsPerChannel(), 16);
    EXPECT_EQ(posts[0].info.channelsPerFrame(), 2);
}

TEST_F(RenderCallbacks, BlocksThatPiledUpAreDeliveredInOneCycle) {
    sound().isRising = true;
    capture(3);
    slices(2);
    stopPrivateGraph();
    slices(2);
    listener->clear();
    startPrivateGraph();
    slices(1);
    const auto posts = listener->posts();
    ASSERT_THAT(posts, SizeIs(3));
    for (std::size_t i = 1; i < posts.size(); ++i) {
        EXPECT_EQ(posts[i].samples()[0], posts[i - 1].samples()[0] + 1) << "in their order";
        EXPECT_EQ(posts[i].info.timeStamp(), posts[0].info.timeStamp()) << "of one cycle";
    }
    EXPECT_THAT(listener->mixes(), SizeIs(1)) << "pre blocks come one per cycle";
}

TEST_F(RenderCallbacks, TheStatisticsHoldTheSizesBeforeTheRead) {
    capture(3);
    slices(2);
    stopPrivateGraph();
    slices(2);
    startPrivateGraph();
    slices(1);
    RZAudioRecordStat statistics;
    ASSERT_EQ(statistics.getAudioTrackSize(), 1U);
    auto stat = statistics.getHookAudioTrackStat(1);
    EXPECT_EQ(stat->audio_track_id(), 1U);
    EXPECT_EQ(stat->post_buffer_size(), 3 * kSliceBytes);
    EXPECT_EQ(stat->pre_buffer_size(), 3 * kSliceBytes);
    slices(1);
    stat = statistics.getHookAudioTrackStat(1);
    EXPECT_EQ(stat->post_buffer_size(), kSliceBytes) << "all post blocks went at once";
    EXPECT_EQ(stat->pre_buffer_size(), 3 * kSliceBytes) << "two pre blocks still wait";
}

TEST_F(RenderCallbacks, TheStatisticsKeepTheLowSixteenBits) {
    capture(1);
    slices(1);
    stopPrivateGraph();
    slices(39);
    startPrivateGraph();
    slices(1);
    constexpr std::size_t held = 40 * kSliceBytes;
    ASSERT_GT(held, 65536U);
    EXPECT_EQ(RZAudioRecordStat().getHookAudioTrackStat(1)->pre_buffer_size(), held % 65536);
}

TEST_F(RenderCallbacks, ATrackIsRecordedWithItsKindOfSource) {
    host().play();
    HostGraph callbackGraph;
    callbackGraph.play();
    HostGraph mixerGraph;
    mixerGraph.addOutput();
    ASSERT_EQ(AUGraphOpen(mixerGraph.graph()), 0);
    AUGraphInitialize(mixerGraph.graph());
    AUGraphStart(mixerGraph.graph());
    const auto list = RZAudioRecordStat().getHookAudioTrackInfoList();
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0]->track_type(), 8);
    EXPECT_EQ(list[1]->track_type(), 16);
    EXPECT_EQ(list[2]->track_type(), 32);
    EXPECT_EQ(list[0]->audio_track_id(), 1U);
    EXPECT_EQ(list[0]->audio_format(), sound().format.mFormatFlags);
    EXPECT_EQ(list[0]->buffersize(), 4U);
    EXPECT_EQ(list[0]->sample_rate(), 44100);
    EXPECT_EQ(list[0]->channel(), 2);
}

TEST_F(RenderCallbacks, TheHostsStatusComesBackToThePlatform) {
    sound().status = -9123;
    capture(3);
    slices(1);
    OSStatus seen = 0;
    UInt32 size = sizeof(seen);
    ASSERT_EQ(AudioUnitGetProperty(host().unit(), kAudioUnitProperty_LastRenderError,
                                   kAudioUnitScope_Global, 0, &seen, &size),
              0);
    EXPECT_EQ(seen, -9123);
}

TEST_F(RenderCallbacks, AUnitWithoutAnObjectIsReportedAtMostOnceInTwoSeconds) {
    capture(3);
    slices(1);
    const auto begin = std::chrono::steady_clock::now();
    // The registry forgets the unit while the unit itself plays on and keeps the library's
    // callback.
    platform.fail("AudioUnitUninitialize", -1);
    platform.fail("AudioUnitSetProperty", -1);
    host().uninitialize();
    platform.heal();
    listener->clear();
    const int before = sound().calls;
    slices(300);
    EXPECT_EQ(sound().calls, before + 300) << "the host plays on";
    const auto seconds = std::chrono::steady_clock::now() - begin;
    const auto allowed = 1 + static_cast<std::size_t>(seconds / std::chrono::seconds(2));
    const std::string text =
        "[AudioUnitHook] UniversalInputProcessCallback, audio unit obj not "
        "found: " +
        pointerText(host().unit());
    const auto events = listener->events();
    ASSERT_FALSE(events.empty());
    EXPECT_LE(events.size(), allowed);
    EXPECT_EQ(events[0], event(2, 107, text));
    constexpr const char* kCallback = "RZReplayAudioUnitCapture_InputProcessCallback";
    EXPECT_THAT(logs->linesOf(kCallback),
                Contains(IsLogLine("Classes/Base/TQAudioCaptureBase", kCallback, 3, text)));
    EXPECT_LE(logs->linesOf(kCallback).size(), allowed);
}

TEST_F(RenderCallbacks, ATrackWhoseUnitIsGoneLeavesTheMixersBufferAlone) {
    capture(3);
    auto list = OwnedBufferList::interleaved(2, 64);
    list.fillBytes(0x55);
    AudioTimeStamp now{};
    AudioUnitRenderActionFlags flags = 0;
    EXPECT_EQ(UniversalNodeProcessCallback(this, &flags, &now, 1, 16, list.get()), 0);
    EXPECT_THAT(list.copyOf<std::uint8_t>(), Each(0x55));
}

TEST_F(RenderCallbacks, ThePrivateOutputPlaysSilence) {
    const Speaker speaker;
    host().play();
    slices(2);
    const float alone = speaker.level();
    ASSERT_NEAR(alone, 0.25, 0.001);
    ASSERT_TRUE(startCapture());
    slices(5);
    EXPECT_THAT(listener->mixes(), Not(IsEmpty()));
    EXPECT_EQ(speaker.level(), alone);
}

struct MixedBlock : RenderCallbacks {
    OwnedBufferList list = OwnedBufferList::interleaved(2, 64);
    AudioTimeStamp now{};
    std::size_t deliver(AudioUnitRenderActionFlags flags) {
        list.fillBytes(0x55);
        listener->clear();
        EXPECT_EQ(MixOutputRenderCallback(&manager(), &flags, &now, 0, 16, list.get()), 0);
        return listener->mixes().size();
    }
};

TEST_F(MixedBlock, IsZeroedAfterItsDelivery) {
    capture(3);
    EXPECT_EQ(deliver(kAudioUnitRenderAction_PostRender), 1U);
    EXPECT_THAT(list.copyOf<std::uint8_t>(), Each(0));
    EXPECT_FALSE(listener->mixes()[0].isSilent());
}

TEST_F(MixedBlock, IsZeroedAndNotDeliveredWhileNobodyCaptures) {
    capture(3);
    manager().setIsCapturing(NO);
    EXPECT_EQ(deliver(kAudioUnitRenderAction_PostRender), 0U);
    EXPECT_THAT(list.copyOf<std::uint8_t>(), Each(0));
    manager().setIsCapturing(YES);
}

TEST_F(MixedBlock, IsLeftAloneBeforeTheRenderAndAfterAFailedOne) {
    capture(3);
    for (const AudioUnitRenderActionFlags flags :
         {AudioUnitRenderActionFlags{kAudioUnitRenderAction_PreRender},
          kAudioUnitRenderAction_PostRender | kAudioUnitRenderAction_PostRenderError,
          AudioUnitRenderActionFlags{0}}) {
        EXPECT_EQ(deliver(flags), 0U);
        EXPECT_THAT(list.copyOf<std::uint8_t>(), Each(0x55));
    }
}

TEST_F(MixedBlock, WithoutATimeStampIsStampedZero) {
    capture(3);
    AudioUnitRenderActionFlags flags = kAudioUnitRenderAction_PostRender;
    listener->clear();
    EXPECT_EQ(MixOutputRenderCallback(&manager(), &flags, nullptr, 0, 16, list.get()), 0);
    ASSERT_THAT(listener->mixes(), SizeIs(1));
    EXPECT_EQ(listener->mixes()[0].info.timeStamp(), 0U);
}

TEST_F(RenderCallbacks, NothingIsKeptWhileTheManagerDoesNotCaptureThoughTheUnitDoes) {
    capture(3);
    stopPrivateGraph();
    manager().setIsCapturing(NO);
    slices(2);
    EXPECT_EQ(object().getRingBufferSize(NO), 0U);
    EXPECT_EQ(object().getRingBufferSize(YES), 0U);
    manager().setIsCapturing(YES);
}

TEST_F(RenderCallbacks, TimeStampsAreMicrosecondsOfTheHostsTimeBase) {
    capture(3);
    slices(1);
    manager().setTimeBaseInfo({125, 3});
    listener->clear();
    const std::uint64_t then = hostTime = 24'000'007;
    slices(1);
    ASSERT_THAT(listener->mixes(), SizeIs(1));
    EXPECT_EQ(listener->mixes()[0].info.timeStamp(), then * 125 / 3 / 1000);
    ASSERT_THAT(listener->posts(), SizeIs(1));
    EXPECT_EQ(listener->posts()[0].info.timeStamp(), then * 125 / 3 / 1000);
    manager().setTimeBaseInfo({1, 0});
    listener->clear();
    slices(1);
    EXPECT_EQ(listener->mixes()[0].info.timeStamp(), 0U);
}

// Units whose callback was not taken over.

TEST_F(RenderCallbacks, ACallbackOnTheOutputScopeIsCapturedThroughTheNotify) {
    capture(3, kAudioUnitScope_Output);
    ASSERT_EQ(object().origin_inputProc(), nullptr);
    slices(6);
    const auto posts = listener->posts();
    ASSERT_THAT(posts, SizeIs(5));
    ASSERT_EQ(posts[0].buffers.size(), 2U) << "the device's side: planar float, read as 16-bit";
    EXPECT_THAT(posts[0].samples(0), Each(testing::AllOf(testing::Ge(8189), testing::Le(8193))));
    ASSERT_THAT(listener->mixes(), SizeIs(6));
    EXPECT_NEAR(listener->mixes()[3].samples()[0], 8191, 3);
}

struct NotifyMasks : RenderCallbacks, testing::WithParamInterface<std::uint64_t> {};

TEST_P(NotifyMasks, SayWhichSidesTheNotifyWrites) {
    capture(GetParam(), kAudioUnitScope_Output);
    stopPrivateGraph();
    slices(2);
    EXPECT_EQ(object().getRingBufferSize(NO) > 0, (GetParam() & 1U) != 0);
    EXPECT_EQ(object().getRingBufferSize(YES) > 0, (GetParam() & 2U) != 0);
}

INSTANTIATE_TEST_SUITE_P(All, NotifyMasks, testing::Values(0, 1, 2, 3));

TEST_F(RenderCallbacks, AGraphWhoseMixerIsFedIsCapturedThroughTheNotifyOfItsOutput) {
    HostGraph graph;
    graph.sound.format = stream_formats::int16Interleaved(44100, 2);
    graph.addOutput();
    const AUNode mixer = graph.addMixer();
    ASSERT_EQ(AUGraphConnectNodeInput(graph.graph(), mixer, 0, graph.output(), 0), 0);
    ASSERT_EQ(graph.setCallback(mixer, 0), 0);
    ASSERT_EQ(AUGraphOpen(graph.graph()), 0);
    ASSERT_EQ(AudioUnitSetProperty(graph.unitOf(mixer), kAudioUnitProperty_StreamFormat,
                                   kAudioUnitScope_Input, 0, &graph.sound.format,
                                   sizeof(graph.sound.format)),
              0);
    ASSERT_EQ(AUGraphInitialize(graph.graph()), 0);
    ASSERT_EQ(AUGraphStart(graph.graph()), 0);
    ASSERT_TRUE(startCapture());
    slices(6);
    EXPECT_EQ(graph.sound.calls, 6);
    EXPECT_EQ(graph.object()->origin_inputProc(), nullptr);
    ASSERT_THAT(listener->posts(), SizeIs(5));
    EXPECT_NEAR(listener->posts()[2].samples()[100], 8191, 3);
}

TEST_F(RenderCallbacks, AGenericOutputUnitIsCapturedWhenItIsPulled) {
    HostUnit generic(kAudioUnitSubType_GenericOutput);
    generic.sound.format = stream_formats::int16Interleaved(44100, 2);
    generic.prepare();
    ASSERT_EQ(AudioUnitSetProperty(generic.unit(), kAudioUnitProperty_StreamFormat,
                                   kAudioUnitScope_Output, 0, &generic.sound.format,
                                   sizeof(generic.sound.format)),
              0);
    ASSERT_EQ(generic.start(), 0);
    ASSERT_TRUE(startCapture());
    ASSERT_TRUE(generic.object()->isCapturing());
    auto list = OwnedBufferList::interleaved(2, kSliceBytes);
    AudioTimeStamp now{};
    now.mFlags = kAudioTimeStampSampleTimeValid;
    for (int i = 0; i < 4; ++i) {
        AudioUnitRenderActionFlags flags = 0;
        ASSERT_EQ(AudioUnitRender(generic.unit(), &flags, &now, 0, kSlice, list.get()), 0);
        now.mSampleTime += kSlice;
        slices(1);
    }
    EXPECT_EQ(generic.sound.calls, 4);
    ASSERT_THAT(listener->posts(), SizeIs(3));
    EXPECT_THAT(listener->posts()[0].samples(), Each(8192));
}

// A start of capture that fails leaves its units capturing; one that is stopped then is neither
// started nor let go.
TEST_F(RenderCallbacks, AStoppedUnitThatIsPulledIsNotCapturedThroughTheNotify) {
    HostUnit generic(kAudioUnitSubType_GenericOutput);
    generic.sound.format = stream_formats::int16Interleaved(44100, 2);
    generic.prepare(kAudioUnitScope_Output);
    ASSERT_EQ(AudioUnitSetProperty(generic.unit(), kAudioUnitProperty_StreamFormat,
                                   kAudioUnitScope_Output, 0, &generic.sound.format,
                                   sizeof(generic.sound.format)),
              0);
    ASSERT_EQ(generic.start(), 0);
    platform.fail("AUGraphStart", -1);
    ASSERT_FALSE(startCapture());
    ASSERT_EQ(generic.stop(), 0);
    platform.heal();
    ASSERT_TRUE(manager().startCapture());
    ASSERT_TRUE(generic.object()->isCapturing());
    ASSERT_FALSE(generic.object()->isStarted());
    auto list = OwnedBufferList::interleaved(2, kSliceBytes);
    AudioTimeStamp now{};
    now.mFlags = kAudioTimeStampSampleTimeValid;
    AudioUnitRenderActionFlags flags = 0;
    ASSERT_EQ(AudioUnitRender(generic.unit(), &flags, &now, 0, kSlice, list.get()), 0);
    EXPECT_EQ(generic.sound.calls, 1);
    EXPECT_EQ(generic.object()->getRingBufferSize(NO), 0U);
    EXPECT_EQ(generic.object()->getRingBufferSize(YES), 0U);
}

TEST_F(RenderCallbacks, AFailedRenderIsNotCapturedThroughTheNotify) {
    sound().status = -1;
    capture(3, kAudioUnitScope_Output);
    slices(4);
    EXPECT_EQ(object().getRingBufferSize(NO), 0U);
    EXPECT_THAT(listener->posts(), IsEmpty());
}

/// Counts how often it is asked what it wants.
class AskedListener : public RZReplayAudioRecorderListener<AskedListener> {
  public:
    void onAudioReceivePCM(AudioBufferList* /*pcm*/, const RZReplayASBDInfo& /*info*/) override {}
    [[nodiscard]] std::uint64_t getPCMDataType() override {
        ++asked;
        return 3;
    }
    int asked = 0;
};

TEST_F(RenderCallbacks, WhatListenersWantIsAskedOnEveryCycleAlsoWhileNothingIsCaptured) {
    platform.fail("NewAUGraph", -1);
    host().play();
    const auto asked = std::make_shared<AskedListener>();
    collect().startAudioStreamCollect(asked);
    drainRecorder();
    ASSERT_FALSE(manager().isCapturing());
    asked->asked = 0;
    slices(3);
    EXPECT_EQ(asked->asked, 3);
    collect().stopAudioStreamCollect(asked);
    drainRecorder();
}

}  // namespace
