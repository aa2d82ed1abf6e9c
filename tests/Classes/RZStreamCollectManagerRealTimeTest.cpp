#include <gtest/gtest.h>

#include <memory>

#include "RZReplayAudioRecorder.h"
#include "RZStreamCollectManager.h"
#include "support/AllocationCounter.h"

// Delivery from the recorder to the listeners allocates nothing.

namespace {

class Counting : public RZReplayAudioRecorderListener<Counting> {
  public:
    void onAudioReceivePCM(AudioBufferList* /*pcm*/, const RZReplayASBDInfo& /*info*/) override {
        ++blocks;
    }
    std::uint64_t getPCMDataType() override { return 3; }
    int blocks = 0;
};

}  // namespace

TEST(RZStreamCollectManagerRealTimeTest, DeliveryOfBlocksAllocatesNothing) {
    if (!AllocationCounter::works()) {
        GTEST_SKIP() << "allocations cannot be counted in this build";
    }
    RZStreamCollectManager& manager = RZStreamCollectManager::sharedManager();
    const auto first = std::make_shared<Counting>();
    const auto second = std::make_shared<Counting>();
    manager.startAudioStreamCollect(first);
    manager.startAudioStreamCollect(second);
    RZReplayAudioRecorder& recorder = *manager.audioRecorder();
    dispatch_sync(recorder.queue(), [] {});
    AudioBufferList pcm{};
    const RZReplayASBDInfo info;
    std::int32_t mask = 0;
    {
        const AllocationCounter counter;
        for (int i = 0; i < 100; ++i) {
            mask |= recorder.getPCMDataType();
            recorder.onAudioReceivePrePCM(&pcm, info);
            recorder.onAudioReceivePostPCM(&pcm, info);
        }
        EXPECT_EQ(0U, counter.count());
    }
    EXPECT_EQ(3, mask);
    EXPECT_EQ(200, first->blocks);
    EXPECT_EQ(200, second->blocks);
    manager.stopAudioStreamCollect(first);
    manager.stopAudioStreamCollect(second);
    dispatch_sync(recorder.queue(), [] {});
}
