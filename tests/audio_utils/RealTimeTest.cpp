#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "audio_hook_config.h"
#include "audio_stats.h"
#include "event_filter.h"
#include "ring_buffer.h"
#include "support/AllocationCounter.h"
#include "support/TemporaryFolder.h"
#include "volume_controller.h"

// What render threads call allocates nothing once it is warm.

namespace korva_audio_utils {
namespace {

template <typename Work>
std::size_t AllocationsIn(Work work) {
    const AllocationCounter counter;
    work();
    return counter.count();
}

TEST(RealTimeTest, TheCounterSeesTheAllocationsOfARing) {
    if (!AllocationCounter::seesAligned()) {
        GTEST_SKIP() << "the thread sanitizer does not tell of aligned allocations";
    }
    RingBuffer ring;
    EXPECT_EQ(AllocationsIn([&] { ring.Init(16, 1, 64); }), 1U);
    EXPECT_EQ(AllocationsIn([&] { ring.ExpandBuffer(20); }), 1U);
}

TEST(RealTimeTest, RingThatFitsIsWrittenReadCleanedAndAskedWithoutAllocation) {
    RingBuffer ring;
    ASSERT_EQ(ring.Init(4096, 1, 65536), 0);
    std::array<char, 1000> block{};
    EXPECT_EQ(AllocationsIn([&] {
                  for (int k = 0; k < 1000; ++k) {
                      ring.WriteBuffer(block.data(), block.size());
                      ring.AvailableRead();
                      ring.ReadBuffer(nullptr, block.data(), block.size());
                  }
                  ring.CleanBufferOnWrite();
              }),
              0U);
    EXPECT_EQ(ring.Capacity(), 4096U);
}

TEST(RealTimeTest, VolumeControllerNeverAllocates) {
    EXPECT_EQ(AllocationsIn([] {
                  VolumeController controller(16000);
                  controller.SetDuckingParams({.enable = true});
                  controller.SetCompressorParams({.enable = true});
                  controller.init_params();
                  std::array<float, 512> block{};
                  block.fill(0.9F);
                  for (int k = 0; k < 200; ++k) {
                      controller.UpdateFS(k % 2 == 0 ? 48000 : 44100);
                      controller.SetDuckingVolume(0.5F, false);
                      auto* bytes = reinterpret_cast<char*>(block.data());
                      controller.Process(bytes, bytes, 2, sizeof block,
                                         VolumeControllerFormat::kFloat32);
                  }
                  controller.ResetDuckingState();
                  controller.ResetCompressorState();
              }),
              0U);
}

TEST(RealTimeTest, EventFilterAllocatesOnlyForAKeyThatItSeesForTheFirstTime) {
    EventFilter filter;
    EXPECT_EQ(AllocationsIn([&] { filter.FilterEvent(2, 111); }), 1U);
    EXPECT_EQ(AllocationsIn([&] {
                  for (int k = 0; k < 1000; ++k) {
                      filter.FilterEvent(2, 111);
                  }
              }),
              0U);
    EXPECT_EQ(AllocationsIn([&] { filter.FilterEvent(3, 111); }), 1U);
}

TEST(RealTimeTest, FillLevelUpdateAllocatesOnlyForATrackThatItSeesForTheFirstTime) {
    KorvaAudioStats* const stats = KorvaAudioStats::getInstance();
    EXPECT_EQ(AllocationsIn([&] { stats->updateHookAudioTrackStats(3, {3, 1, 1}); }), 1U);
    EXPECT_EQ(AllocationsIn([&] {
                  for (std::uint16_t k = 0; k < 1000; ++k) {
                      stats->updateHookAudioTrackStats(3, {3, k, k});
                      stats->getHookAudioTrackStat(3);
                  }
              }),
              0U);
}

TEST(RealTimeTest, HookGuardsAllocateNothingOnceTheInstanceExists) {
    TemporaryFolder folder;
    ASSERT_EQ(AudioHookConfig::getInstance()->init(folder.path().c_str()), 0);
    const auto guard = [] {
        for (int k = 0; k < 1000; ++k) {
            const AudioHookFunctionGuards guards;
        }
    };
    EXPECT_EQ(AllocationsIn(guard), 0U);
    ASSERT_EQ(AudioHookConfig::getInstance()->enableHook(1, true), 0);
    EXPECT_EQ(AllocationsIn(guard), 0U);
}

}  // namespace
}  // namespace korva_audio_utils
