#include "RZAudioRecordStat.h"

#include <audio_stats.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using korva_audio_utils::KorvaAudioStats;

namespace {

KorvaAudioStats& store() {
    return *KorvaAudioStats::getInstance();
}

/// Leaves the process-wide store as it found it.
class RZAudioRecordStatTest : public testing::Test {
  protected:
    void TearDown() override {
        for (unsigned long id = 0; id < 100; ++id) {
            store().removeHookAudioTrack(id);
        }
    }
    RZAudioRecordStat stat;
};

}  // namespace

TEST_F(RZAudioRecordStatTest, RecordsStartZeroed) {
    const RZHookAudioTrackInfo info;
    EXPECT_EQ(0U, info.audio_track_id());
    EXPECT_EQ(0U, info.audio_format());
    EXPECT_EQ(0U, info.buffersize());
    EXPECT_EQ(0, info.track_type());
    EXPECT_EQ(0, info.sample_rate());
    EXPECT_EQ(0, info.channel());
    const RZHookAudioTrackStat levels;
    EXPECT_EQ(0U, levels.audio_track_id());
    EXPECT_EQ(0U, levels.pre_buffer_size());
    EXPECT_EQ(0U, levels.post_buffer_size());
}

TEST_F(RZAudioRecordStatTest, RecordsAreConvertedFieldByField) {
    RZHookAudioTrackInfo info;
    RZAudioRecordStat::ConvertAudioTrackInfo({0x1FFFFFFFFU, 9, 8, -16, 48000, 6}, info);
    EXPECT_EQ(0x1FFFFFFFFU, info.audio_track_id());
    EXPECT_EQ(9U, info.audio_format());
    EXPECT_EQ(8U, info.buffersize());
    EXPECT_EQ(-16, info.track_type()) << "widened with its sign";
    EXPECT_EQ(48000, info.sample_rate());
    EXPECT_EQ(6, info.channel());
    RZHookAudioTrackStat levels;
    RZAudioRecordStat::ConvertAudioTrackStat({3, 65535, 4}, levels);
    EXPECT_EQ(3U, levels.audio_track_id());
    EXPECT_EQ(65535U, levels.pre_buffer_size());
    EXPECT_EQ(4U, levels.post_buffer_size());
}

TEST_F(RZAudioRecordStatTest, RecordsKeepWhatIsSet) {
    RZHookAudioTrackInfo info;
    info.setAudio_track_id(0x1FFFFFFFFU);
    info.setAudio_format(9);
    info.setBuffersize(8);
    info.setTrack_type(-0x1FFFFFFFF);
    info.setSample_rate(48000);
    info.setChannel(6);
    EXPECT_EQ(0x1FFFFFFFFU, info.audio_track_id());
    EXPECT_EQ(9U, info.audio_format());
    EXPECT_EQ(8U, info.buffersize());
    EXPECT_EQ(-0x1FFFFFFFF, info.track_type());
    EXPECT_EQ(48000, info.sample_rate());
    EXPECT_EQ(6, info.channel());
    RZHookAudioTrackStat levels;
    levels.setAudio_track_id(3);
    levels.setPre_buffer_size(65535);
    levels.setPost_buffer_size(1);
    EXPECT_EQ(3U, levels.audio_track_id());
    EXPECT_EQ(65535U, levels.pre_buffer_size());
    EXPECT_EQ(1U, levels.post_buffer_size());
}

TEST_F(RZAudioRecordStatTest, HostsDictionariesAreNullUntilSet) {
    EXPECT_EQ(nullptr, stat.info());
    EXPECT_EQ(nullptr, stat.stat());
    store().addHookAudioTrackInfo(1, {});
    EXPECT_EQ(1U, stat.getHookAudioTrackInfoList().size());
    EXPECT_EQ(nullptr, stat.info()) << "reading fills nothing";
    const auto info = std::make_shared<RZAudioRecordStat::InfoMap>();
    const auto levels = std::make_shared<RZAudioRecordStat::StatMap>();
    stat.setInfo(info);
    stat.setStat(levels);
    EXPECT_EQ(info, stat.info());
    EXPECT_EQ(levels, stat.stat());
}

TEST_F(RZAudioRecordStatTest, SizeIsTheNumberOfTracks) {
    EXPECT_EQ(0U, stat.getAudioTrackSize());
    store().addHookAudioTrackInfo(1, {});
    store().addHookAudioTrackInfo(2, {});
    EXPECT_EQ(2U, stat.getAudioTrackSize());
    store().removeHookAudioTrack(1);
    EXPECT_EQ(1U, stat.getAudioTrackSize());
}

TEST_F(RZAudioRecordStatTest, WithoutTracksTheListIsEmpty) {
    EXPECT_TRUE(stat.getHookAudioTrackInfoList().empty());
}

TEST_F(RZAudioRecordStatTest, ListHasEveryFieldInAscendingTrackOrder) {
    store().addHookAudioTrackInfo(7, {.audio_track_id = 7,
                                      .audio_format = 0x80000009U,
                                      .buffersize = 8,
                                      .track_type = 32,
                                      .sample_rate = 44100,
                                      .channel = 2});
    store().addHookAudioTrackInfo(3, {.audio_track_id = 3,
                                      .audio_format = 12,
                                      .buffersize = 4,
                                      .track_type = -8,
                                      .sample_rate = -1,
                                      .channel = -2});
    const auto list = stat.getHookAudioTrackInfoList();
    ASSERT_EQ(2U, list.size());
    EXPECT_EQ(3U, list[0]->audio_track_id());
    EXPECT_EQ(12U, list[0]->audio_format());
    EXPECT_EQ(4U, list[0]->buffersize());
    EXPECT_EQ(-8, list[0]->track_type()) << "widened with its sign";
    EXPECT_EQ(-1, list[0]->sample_rate());
    EXPECT_EQ(-2, list[0]->channel());
    EXPECT_EQ(7U, list[1]->audio_track_id());
    EXPECT_EQ(0x80000009U, list[1]->audio_format());
    EXPECT_EQ(8U, list[1]->buffersize());
    EXPECT_EQ(32, list[1]->track_type());
    EXPECT_EQ(44100, list[1]->sample_rate());
    EXPECT_EQ(2, list[1]->channel());
}

TEST_F(RZAudioRecordStatTest, EveryCallMakesNewRecords) {
    store().addHookAudioTrackInfo(1, {});
    EXPECT_NE(stat.getHookAudioTrackInfoList()[0], stat.getHookAudioTrackInfoList()[0]);
    EXPECT_NE(stat.getHookAudioTrackStat(1), stat.getHookAudioTrackStat(1));
}

TEST_F(RZAudioRecordStatTest, LevelsOfAnUnknownTrackAreZero) {
    const auto levels = stat.getHookAudioTrackStat(99);
    ASSERT_NE(nullptr, levels);
    EXPECT_EQ(0U, levels->audio_track_id());
    EXPECT_EQ(0U, levels->pre_buffer_size());
    EXPECT_EQ(0U, levels->post_buffer_size());
}

TEST_F(RZAudioRecordStatTest, LevelsAreZeroUntilTheFirstUpdateThenFollowIt) {
    store().addHookAudioTrackInfo(4, {});
    auto levels = stat.getHookAudioTrackStat(4);
    EXPECT_EQ(4U, levels->audio_track_id());
    EXPECT_EQ(0U, levels->pre_buffer_size());
    EXPECT_EQ(0U, levels->post_buffer_size());
    store().updateHookAudioTrackStats(4, {.audio_track_id = 4,
                                          .pre_buffer_size = static_cast<std::uint16_t>(70000),
                                          .post_buffer_size = 12});
    levels = stat.getHookAudioTrackStat(4);
    EXPECT_EQ(4464U, levels->pre_buffer_size()) << "70000 modulo 65536";
    EXPECT_EQ(12U, levels->post_buffer_size());
}

TEST_F(RZAudioRecordStatTest, LevelsOfATrackThatWasNeverAddedCanBeRead) {
    store().updateHookAudioTrackStats(
        55, {.audio_track_id = 56, .pre_buffer_size = 1, .post_buffer_size = 2});
    const auto levels = stat.getHookAudioTrackStat(55);
    EXPECT_EQ(56U, levels->audio_track_id());
    EXPECT_EQ(1U, levels->pre_buffer_size());
    EXPECT_EQ(0U, stat.getAudioTrackSize());
}

TEST_F(RZAudioRecordStatTest, ListTakenWhileTracksComeAndGoIsWholeOrZero) {
    std::atomic<bool> isDone{false};
    std::thread churn([&] {
        for (int i = 0; i < 2000; ++i) {
            store().addHookAudioTrackInfo(1, {.audio_track_id = 1, .channel = 2});
            store().addHookAudioTrackInfo(2, {.audio_track_id = 2, .channel = 2});
            store().removeHookAudioTrack(2);
            store().removeHookAudioTrack(1);
        }
        isDone = true;
    });
    while (!isDone) {
        for (const auto& record : stat.getHookAudioTrackInfoList()) {
            const bool isZero = record->audio_track_id() == 0 && record->channel() == 0;
            const bool isWhole = record->audio_track_id() <= 2 && record->channel() == 2;
            EXPECT_TRUE(isZero || isWhole);
        }
    }
    churn.join();
    EXPECT_EQ(0U, stat.getAudioTrackSize());
}
