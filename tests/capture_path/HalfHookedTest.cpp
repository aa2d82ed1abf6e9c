#include "CapturePathFixture.h"
#include "RZReplayAudioUnitCapturer.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "RZReplayVolumeController.h"

// A process in which the graph functions were never redirected: capture must refuse to start.

namespace {

using testing::Contains;
using testing::ElementsAre;

struct HalfHooked : CapturePath {
    void SetUp() override {
        platform.install();
        RZReplayAudioUnitCapturer::startHook();
        logs = std::make_unique<LogCapture>();
    }
};

TEST_F(HalfHooked, NeitherCountsAsStartedNorAsSuccessful) {
    EXPECT_TRUE(RZReplayAudioUnitCapturer::isHookStarted());
    EXPECT_FALSE(RZReplayAudioUnitGraphCapturer::isHookStarted());
    EXPECT_FALSE(collect().isHookStarted());
    EXPECT_FALSE(collect().isHookSuccess());
}

TEST_F(HalfHooked, RefusesToStartWithTheGraphLeftBuilt) {
    constexpr const char* kStart = "-[RZStreamMixManager startCapture]";
    HostUnit host;
    host.play();
    EXPECT_FALSE(startCapture());
    constexpr const char* kText = "[mix] start capture with hook failed";
    EXPECT_THAT(listener->events(), ElementsAre(event(0, 103, kText)));
    EXPECT_THAT(logs->linesOf(kStart), Contains(IsLogLine(kManagerFile, kStart, 4, kText)));
    EXPECT_TRUE(manager().isResamplerInit());
    EXPECT_FALSE(host.object()->isCapturing());
    EXPECT_EQ(platform.count("AUGraphStart"), 0U);
    stopCapture();
    listener->clear();
    EXPECT_FALSE(startCapture()) << "and again, on the graph that is there";
    EXPECT_THAT(listener->events(), ElementsAre(event(0, 103, kText)));
    EXPECT_EQ(platform.count("NewAUGraph"), 1U);
}

TEST_F(HalfHooked, RefusesDuckingAndCompressionAndStoresNothing) {
    RZReplayVolumeController controller;
    const RZReplayVolumeDuckingParam ducking(YES);
    const RZReplayVolumeCompressorParam compressor(YES);
    EXPECT_EQ(manager().enableDucking(&ducking), 103);
    EXPECT_EQ(manager().enableCompressor(&compressor), 103);
    EXPECT_EQ(controller.enableDucking(&ducking), 103);
    EXPECT_EQ(controller.enableCompressor(&compressor), 103);
    EXPECT_FALSE(manager().isDuckingEnable());
    EXPECT_FALSE(manager().isCompressorEnable());
    EXPECT_EQ(manager().duckingParam(), nullptr);
    EXPECT_GE(logs->count("[mix] enable ducking: 1"), 1U);
    EXPECT_GE(logs->count("[mix] enable compressor: 1"), 1U);
}

TEST_F(HalfHooked, StartingTheGraphHooksMakesItWork) {
    RZReplayAudioUnitGraphCapturer::startHook();
    EXPECT_TRUE(collect().isHookStarted());
    EXPECT_TRUE(collect().isHookSuccess());
    EXPECT_TRUE(startCapture());
}

}  // namespace
