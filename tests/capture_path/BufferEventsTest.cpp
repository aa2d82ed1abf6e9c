#include "CapturePathFixture.h"
#include "TQAudioCaptureBase.h"

// Hosts whose buffers are not what their format says: events, never a crash.

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kFile = "Classes/RZReplayAudioUnitObject";
constexpr const char* kWrite =
    "-[RZReplayAudioUnitObject tryWriteBuffersFrom:numberFrames:isProcessed:]";
constexpr const char* kRead =
    "-[RZReplayAudioUnitObject tryReadBuffersTo:numberFrames:isProcessed:]";

/// A callback that spoils the list after rendering.
struct SpoiltHost : CapturePath {
    HostUnit* host = nullptr;
    void (*spoil)(AudioBufferList&) = [](AudioBufferList&) {};

    static OSStatus render(void* refCon, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* ts, UInt32 bus, UInt32 frames,
                           AudioBufferList* ioData) {
        auto& self = *static_cast<SpoiltHost*>(refCon);
        HostSound::render(&self.host->sound, flags, ts, bus, frames, ioData);
        self.spoil(*ioData);
        return 0;
    }
    void play(HostUnit& unit, const AudioStreamBasicDescription& format) {
        host = &unit;
        ASSERT_EQ(unit.setFormat(format), 0);
        const AURenderCallbackStruct callback{render, this};
        ASSERT_EQ(AudioUnitSetProperty(unit.unit(), kAudioUnitProperty_SetRenderCallback,
                                       kAudioUnitScope_Input, 0, &callback, sizeof(callback)),
                  0);
        ASSERT_EQ(unit.initialize(), 0);
        ASSERT_EQ(unit.start(), 0);
        ASSERT_TRUE(startCapture());
        listener->clear();
    }
    static std::string who(const HostUnit& unit) { return pointerText(unit.object().get()); }
};

TEST_F(SpoiltHost, WhoseBufferIsTooSmallIsReportedOnceAndNotWritten) {
    HostUnit unit;
    play(unit, stream_formats::int16Interleaved(48000, 2));
    spoil = [](AudioBufferList& list) { list.mBuffers[0].mDataByteSize = 100; };
    pump(5);
    const std::string text =
        "[buffer] [" + who(unit) + "] [0] write size mis match. record: 1920, input: 100";
    EXPECT_THAT(listener->events(), ElementsAre(event(2, 109, text)));
    EXPECT_THAT(logs->linesOf(kWrite), ElementsAre(IsLogLine(kFile, kWrite, 4, text)));
    EXPECT_THAT(listener->posts(), IsEmpty());
}

TEST_F(SpoiltHost, WhoClaimsMoreChannelsThanHisBufferHoldsIsReported) {
    HostUnit unit;
    play(unit, stream_formats::int16Interleaved(48000, 2));
    spoil = [](AudioBufferList& list) { list.mBuffers[0].mNumberChannels = 0x7FFFFFFF; };
    pump(5);
    ASSERT_THAT(listener->events(), SizeIs(1));
    EXPECT_EQ(listener->events()[0].category, 2U);
    EXPECT_EQ(listener->events()[0].code, 109U);
}

TEST_F(SpoiltHost, WhoTakesTheDataAwayIsReported) {
    HostUnit unit;
    play(unit, stream_formats::int16Interleaved(48000, 2));
    spoil = [](AudioBufferList& list) { list.mBuffers[0].mData = nullptr; };
    pump(5);
    EXPECT_THAT(listener->events(),
                ElementsAre(event(2, 111,
                                  "[buffer] [" + who(unit) +
                                      "] [0] write size is zero. dataSize: 1920 and "
                                      "available: 0")));
}

TEST_F(SpoiltHost, WhoHandsBackNoBufferIsPassedOver) {
    HostUnit unit;
    play(unit, stream_formats::int16Interleaved(48000, 2));
    spoil = [](AudioBufferList& list) { list.mNumberBuffers = 0; };
    pump(5);
    // The reader finds nothing to read.
    for (const RecordedEvent& one : listener->events()) {
        EXPECT_EQ(one.category, 3U) << one;
        EXPECT_EQ(one.code, 110U) << one;
    }
    EXPECT_THAT(listener->posts(), IsEmpty());
}

TEST_F(SpoiltHost, WhoHandsBackFewerBuffersLeavesTheOthersSilent) {
    HostUnit unit;
    play(unit, stream_formats::floatPlanar(48000, 2));
    spoil = [](AudioBufferList& list) { list.mNumberBuffers = 1; };
    pump(5);
    const std::string text =
        "[buffer] [" + who(unit) + "] read with diff buffer number. read: 2, write: 1";
    EXPECT_THAT(listener->events(), ElementsAre(event(3, 110, text)));
    EXPECT_THAT(logs->linesOf(kRead), ElementsAre(IsLogLine(kFile, kRead, 4, text)));
    const auto posts = listener->posts();
    ASSERT_FALSE(posts.empty());
    EXPECT_THAT(posts[0].samples(0), testing::Each(8191));
    EXPECT_THAT(posts[0].samples(1), testing::Each(0));
}

TEST_F(SpoiltHost, ARingThatIsFullIsReportedOnce) {
    HostUnit unit;
    play(unit, stream_formats::int16Interleaved(48000, 2));
    pump(2);
    ASSERT_EQ(AUGraphStop(manager().mGraph()), 0);
    pump(300);
    const auto held = unit.object()->getRingBufferSize(NO);
    ASSERT_GT(held, 200000U);
    const std::string text =
        "[buffer] [" + who(unit) +
        "] [0] write size is zero. dataSize: 1920 and available: " + std::to_string(held);
    EXPECT_THAT(listener->events(), ElementsAre(event(2, 111, text)));
    EXPECT_THAT(logs->linesOf(kWrite), ElementsAre(IsLogLine(kFile, kWrite, 4, text)));
    // And the capture path works again as soon as somebody reads.
    listener->clear();
    ASSERT_EQ(AUGraphStart(manager().mGraph()), 0);
    pump(3);
    EXPECT_FALSE(listener->mixes().back().isSilent());
}

TEST_F(SpoiltHost, WhoseBusKeepsAnotherFormatIsReportedAsAReadMismatch) {
    HostGraph graph;
    graph.sound.format = stream_formats::int16Interleaved(48000, 1);
    graph.play();
    ASSERT_TRUE(startCapture());
    pump(3);
    // The host goes stereo and the bus refuses to follow.
    graph.sound.format = stream_formats::int16Interleaved(48000, 2);
    platform.fail(
        "AudioUnitSetProperty", -10868,
        PlatformCalls::property(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 1));
    graph.setOutputFormat();
    ASSERT_EQ(AUGraphUpdate(graph.graph(), nullptr), 0);
    platform.heal();
    listener->clear();
    pump(1);
    const auto events = listener->events();
    ASSERT_THAT(events, SizeIs(1));
    EXPECT_EQ(events[0].category, 3U);
    EXPECT_EQ(events[0].code, 109U);
    EXPECT_THAT(events[0].message,
                testing::MatchesRegex("\\[buffer\\] \\[" + pointerText(graph.object().get()) +
                                      "\\] \\[0\\] read size mis match. record: [0-9]+, , target: "
                                      "[0-9]+, input: [0-9]+"));
    EXPECT_THAT(logs->linesOf(kRead), ElementsAre(IsLogLine(kFile, kRead, 4, events[0].message)));
}

TEST_F(SpoiltHost, ANullListAndANullReferenceAreSurvived) {
    HostUnit unit;
    play(unit, stream_formats::int16Interleaved(48000, 2));
    spoil = [](AudioBufferList&) {};
    AudioUnitRenderActionFlags flags = 0;
    EXPECT_EQ(
        RZReplayAudioUnitCapture_InputProcessCallback(nullptr, nullptr, nullptr, 0, 0, nullptr), 0);
    EXPECT_EQ(RZReplayAudioUnitCapture_InputProcessCallback(this, &flags, nullptr, 0xFFFFFFFF,
                                                            0xFFFFFFFF, nullptr),
              0);
    AudioBufferList empty{};
    EXPECT_EQ(
        RZReplayAudioUnitCapture_InputProcessCallback(unit.unit(), &flags, nullptr, 0, 480, &empty),
        0);
    pump(3);
    EXPECT_FALSE(listener->mixes().back().isSilent());
}

}  // namespace
