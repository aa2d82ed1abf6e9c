#include "RZReplayVolumeController.h"
#include "RenderFixture.h"

// Ducking and compression of what the device plays.

namespace {

using testing::IsEmpty;

struct Processing : RenderCallbacks, testing::WithParamInterface<AudioUnitScope> {
    RZReplayVolumeController controller;
    void TearDown() override {
        const RZReplayVolumeDuckingParam noDucking(NO);
        const RZReplayVolumeCompressorParam noCompressor(NO);
        controller.enableDucking(&noDucking);
        controller.enableCompressor(&noCompressor);
        RenderCallbacks::TearDown();
    }
};

TEST_P(Processing, DuckingPullsTheOutputDownWithCaptureOff) {
    const Speaker speaker;
    host().play(GetParam());
    const RZReplayVolumeDuckingParam ducking(YES);
    ASSERT_EQ(controller.enableDucking(&ducking), 0);
    slices(2);
    EXPECT_NEAR(speaker.level(), 0.25, 0.001) << "the outside is quiet";
    ASSERT_EQ(controller.updateDuckingVolume(0, YES), 0);
    slices(300);
    EXPECT_NEAR(speaker.level(), 0.025, 0.002);
}

TEST_P(Processing, CompressionPullsTheOutputDownWithCaptureOff) {
    const Speaker speaker;
    sound().value = 0.9;
    host().play(GetParam());
    slices(2);
    ASSERT_NEAR(speaker.level(), 0.9, 0.001);
    const RZReplayVolumeCompressorParam compressor(YES);
    ASSERT_EQ(controller.enableCompressor(&compressor), 0);
    slices(200);
    EXPECT_LT(speaker.level(), 0.5);
    EXPECT_GT(speaker.level(), 0.01);
}

TEST_P(Processing, PreBlocksAreAsRenderedAndPostBlocksAsPlayed) {
    capture(3, GetParam());
    const RZReplayVolumeDuckingParam ducking(YES);
    ASSERT_EQ(controller.enableDucking(&ducking), 0);
    slices(1);
    ASSERT_EQ(controller.updateDuckingVolume(0, YES), 0);
    slices(300);
    EXPECT_NEAR(listener->mixes().back().samples()[200], 8192, 4);
    EXPECT_NEAR(listener->posts().back().samples()[200], 819, 70);
}

TEST_F(RenderCallbacks, AFormatThatCannotBeProcessedIsReportedOnce) {
    RZReplayVolumeController controller;
    sound().format.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    capture(3);
    const RZReplayVolumeDuckingParam ducking(YES);
    ASSERT_EQ(controller.enableDucking(&ducking), 0);
    listener->clear();
    slices(20);
    const std::string text =
        "[buffer] unsupport pcm format: " + std::to_string(sound().format.mFormatFlags) +
        ", bisPerChn: 16, chnPerFrame: 2";
    EXPECT_THAT(listener->events(), testing::ElementsAre(event(5, 112, text)));
    constexpr const char* kProcess = "-[RZReplayAudioUnitObject processBuffer:numberFrames:]";
    EXPECT_THAT(
        logs->linesOf(kProcess),
        testing::ElementsAre(IsLogLine("Classes/RZReplayAudioUnitObject", kProcess, 4, text)));
    const RZReplayVolumeDuckingParam off(NO);
    EXPECT_EQ(controller.enableDucking(&off), 0);
}

TEST_F(RenderCallbacks, AFormatThatNobodyWantsProcessedIsNotReported) {
    sound().format.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    capture(3);
    listener->clear();
    slices(20);
    EXPECT_THAT(listener->events(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Scopes, Processing,
                         testing::Values(AudioUnitScope{kAudioUnitScope_Input},
                                         AudioUnitScope{kAudioUnitScope_Output}),
                         [](const auto& one) {
                             return one.param == kAudioUnitScope_Input ? "takenOver" : "notify";
                         });

}  // namespace
