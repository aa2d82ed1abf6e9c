#include "audio_stats.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <limits>
#include <thread>
#include <type_traits>
#include <vector>

namespace korva_audio_utils {
namespace {

using Info = KorvaAudioStats::HookAudioTrackInfo;
using Stat = KorvaAudioStats::HookAudioTrackStat;

// Each case runs in a process of its own; run together they still need a clean register.
class AudioStatsTest : public testing::Test {
  protected:
    void SetUp() override {
        for (unsigned long id = 0; id < 200; ++id) {
            stats_->addHookAudioTrackInfo(id, {});
            stats_->removeHookAudioTrack(id);
        }
        ASSERT_EQ(stats_->getAudioTrackSize(), 0U);
    }
    static Info MakeInfo(std::uint64_t id) {
        return {id, 41, 8, 16, 48000, static_cast<std::int32_t>(id)};
    }
    void ExpectStat(unsigned long id, std::uint64_t storedId, unsigned pre, unsigned post) {
        const Stat stat = stats_->getHookAudioTrackStat(id);
        EXPECT_EQ(stat.audio_track_id, storedId);
        EXPECT_EQ(stat.pre_buffer_size, pre);
        EXPECT_EQ(stat.post_buffer_size, post);
    }

    KorvaAudioStats* stats_ = KorvaAudioStats::getInstance();
};

TEST_F(AudioStatsTest, RecordFieldsHaveTheirWidthsAndSigns) {
    static_assert(std::is_same_v<decltype(Info::audio_track_id), std::uint64_t>);
    static_assert(std::is_same_v<decltype(Info::audio_format), std::uint32_t>);
    static_assert(std::is_same_v<decltype(Info::buffersize), std::uint32_t>);
    static_assert(std::is_same_v<decltype(Info::track_type), std::int32_t>);
    static_assert(std::is_same_v<decltype(Info::sample_rate), std::int32_t>);
    static_assert(std::is_same_v<decltype(Info::channel), std::int32_t>);
    static_assert(std::is_same_v<decltype(Stat::pre_buffer_size), std::uint16_t>);
    static_assert(std::is_same_v<decltype(Stat::post_buffer_size), std::uint16_t>);
    static_assert(std::is_trivially_copyable_v<Info> && std::is_trivially_copyable_v<Stat>);
    EXPECT_EQ(sizeof(Info), 32U);
}

TEST_F(AudioStatsTest, InstanceIsAlwaysTheSame) {
    std::array<KorvaAudioStats*, 4> seen{};
    std::vector<std::thread> threads;
    for (auto& slot : seen) {
        threads.emplace_back([&slot] { slot = KorvaAudioStats::getInstance(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (KorvaAudioStats* instance : seen) {
        EXPECT_EQ(instance, stats_);
    }
}

TEST_F(AudioStatsTest, AddReturnsTheNumberOfTracks) {
    EXPECT_EQ(stats_->addHookAudioTrackInfo(1, MakeInfo(1)), 1);
    EXPECT_EQ(stats_->addHookAudioTrackInfo(7, MakeInfo(7)), 2);
    EXPECT_EQ(stats_->getAudioTrackSize(), 2U);
}

TEST_F(AudioStatsTest, AddOfAKnownIdIsRefusedAndKeepsTheFirstRecord) {
    EXPECT_EQ(stats_->addHookAudioTrackInfo(1, MakeInfo(1)), 1);
    stats_->updateHookAudioTrackStats(1, {1, 5, 6});
    EXPECT_EQ(stats_->addHookAudioTrackInfo(1, MakeInfo(99)), -1);
    EXPECT_EQ(stats_->getAudioTrackSize(), 1U);
    Info info;
    ASSERT_EQ(stats_->getHookAudioTrackInfos(&info, 1), 1);
    EXPECT_EQ(info.audio_track_id, 1U);
    EXPECT_EQ(info.channel, 1);
    ExpectStat(1, 1, 5, 6);
}

TEST_F(AudioStatsTest, AddStartsTheFillLevelsAtZero) {
    stats_->addHookAudioTrackInfo(3, MakeInfo(42));
    ExpectStat(3, 3, 0, 0);
}

TEST_F(AudioStatsTest, AddOverwritesFillLevelsThatAnUpdateLeft) {
    stats_->updateHookAudioTrackStats(4, {44, 5, 6});
    ExpectStat(4, 44, 5, 6);
    stats_->addHookAudioTrackInfo(4, MakeInfo(4));
    ExpectStat(4, 4, 0, 0);
}

TEST_F(AudioStatsTest, RemoveErasesRecordAndFillLevels) {
    stats_->addHookAudioTrackInfo(5, MakeInfo(5));
    stats_->updateHookAudioTrackStats(5, {5, 1, 2});
    EXPECT_TRUE(stats_->removeHookAudioTrack(5));
    EXPECT_EQ(stats_->getAudioTrackSize(), 0U);
    ExpectStat(5, 0, 0, 0);
    EXPECT_FALSE(stats_->removeHookAudioTrack(5));
}

TEST_F(AudioStatsTest, RemoveOfAnUnknownIdIsFalse) {
    EXPECT_FALSE(stats_->removeHookAudioTrack(6));
}

TEST_F(AudioStatsTest, UpdateOfAnUnregisteredIdLeavesLevelsThatRemoveNeverErases) {
    EXPECT_EQ(stats_->updateHookAudioTrackStats(8, {88, 5, 6}), 0);
    EXPECT_EQ(stats_->getAudioTrackSize(), 0U);
    ExpectStat(8, 88, 5, 6);
    EXPECT_FALSE(stats_->removeHookAudioTrack(8));
    ExpectStat(8, 88, 5, 6);
}

TEST_F(AudioStatsTest, UpdateOfKnownLevelsKeepsTheStoredId) {
    stats_->addHookAudioTrackInfo(9, MakeInfo(9));
    EXPECT_EQ(stats_->updateHookAudioTrackStats(9, {1234, 5, 6}), 0);
    ExpectStat(9, 9, 5, 6);
}

TEST_F(AudioStatsTest, SizesAreKeptInSixteenBits) {
    stats_->updateHookAudioTrackStats(10, {10, static_cast<std::uint16_t>(70000), 65535});
    ExpectStat(10, 10, 4464, 65535);
}

TEST_F(AudioStatsTest, InfosAreCopiedInAscendingIdWithEveryField) {
    for (unsigned long id : {7UL, 2UL, 5UL}) {
        stats_->addHookAudioTrackInfo(id, {id * 10, 1, 2, 32, 44100, -6});
    }
    std::array<Info, 3> infos{};
    ASSERT_EQ(stats_->getHookAudioTrackInfos(infos.data(), 3), 3);
    EXPECT_EQ(infos[0].audio_track_id, 20U);
    EXPECT_EQ(infos[1].audio_track_id, 50U);
    EXPECT_EQ(infos[2].audio_track_id, 70U);
    EXPECT_EQ(infos[2].audio_format, 1U);
    EXPECT_EQ(infos[2].buffersize, 2U);
    EXPECT_EQ(infos[2].track_type, 32);
    EXPECT_EQ(infos[2].sample_rate, 44100);
    EXPECT_EQ(infos[2].channel, -6);
}

TEST_F(AudioStatsTest, InfosWithAnotherCountAreRefusedAndNothingIsWritten) {
    stats_->addHookAudioTrackInfo(1, MakeInfo(1));
    stats_->addHookAudioTrackInfo(2, MakeInfo(2));
    std::array<Info, 3> infos{};
    EXPECT_EQ(stats_->getHookAudioTrackInfos(infos.data(), 1), -1);
    EXPECT_EQ(stats_->getHookAudioTrackInfos(infos.data(), 3), -1);
    EXPECT_EQ(stats_->getHookAudioTrackInfos(infos.data(), -2), -1);
    EXPECT_EQ(infos[0].audio_track_id, 0U);
    EXPECT_EQ(stats_->getHookAudioTrackInfos(nullptr, 2), -1);
}

TEST_F(AudioStatsTest, InfosOfAnEmptyRegisterAreZero) {
    EXPECT_EQ(stats_->getHookAudioTrackInfos(nullptr, 0), 0);
}

TEST_F(AudioStatsTest, IdsAreSixtyFourBitsWide) {
    constexpr auto kLast = std::numeric_limits<unsigned long>::max();
    EXPECT_EQ(stats_->addHookAudioTrackInfo(kLast, MakeInfo(1)), 1);
    EXPECT_EQ(stats_->addHookAudioTrackInfo(0xffffffffUL, MakeInfo(2)), 2);
    ExpectStat(kLast, kLast, 0, 0);
    EXPECT_TRUE(stats_->removeHookAudioTrack(kLast));
    EXPECT_TRUE(stats_->removeHookAudioTrack(0xffffffffUL));
}

TEST_F(AudioStatsTest, ManyThreadsAddUpdateListAndRemoveConsistently) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned long thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (unsigned long round = 0; round < 300; ++round) {
                const unsigned long id = thread * 50 + round % 50;
                wrong += stats_->addHookAudioTrackInfo(id, MakeInfo(id)) >= 1 ? 0 : 1;
                const auto level = static_cast<std::uint16_t>(round);
                stats_->updateHookAudioTrackStats(id, {0, level, level});
                const Stat stat = stats_->getHookAudioTrackStat(id);
                wrong += stat.audio_track_id == id && stat.pre_buffer_size == level &&
                                 stat.post_buffer_size == level
                             ? 0
                             : 1;
                std::array<Info, 4> infos{};
                const auto count = static_cast<int>(stats_->getAudioTrackSize());
                const int got = stats_->getHookAudioTrackInfos(infos.data(), count);
                wrong += count >= 1 && count <= 4 && (got == count || got == -1) ? 0 : 1;
                wrong += stats_->removeHookAudioTrack(id) ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(stats_->getAudioTrackSize(), 0U);
}

}  // namespace
}  // namespace korva_audio_utils
