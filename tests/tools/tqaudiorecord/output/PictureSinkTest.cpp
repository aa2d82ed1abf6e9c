// The picture of a recording.

#include "output/PictureSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SinkFixture.h"
#include "output/SinkSet.h"

namespace tqrecorder::test {
namespace {

class PictureSinkTest : public SinkFixture {};

TEST_F(PictureSinkTest, APictureNeedsNoOtherOutputAndLeavesNothingElse) {
    PictureSink sink(folder_.file("out.png"), nullptr, nullptr, names_);
    ASSERT_TRUE(sink.open());
    sink.processBegan(game_);
    play(sink, game_, 0, 44'100);
    const auto bytes = mixTone(441, 4410);
    sink.block(game_, {1, "unit", kMixFormat, at(4410), bytes});
    sink.event(game_, {at(100), 6, 0, "audio unit start: 1"});
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
    EXPECT_TRUE(sink.isDrawn());
    EXPECT_GT(std::filesystem::file_size(folder_.file("out.png")), 5000U);
}

TEST_F(PictureSinkTest, AHiddenFolderGoesWithItsPicture) {
    {
        PictureSink sink(folder_.file("out.png"), nullptr, nullptr, names_);
        ASSERT_TRUE(sink.open());
        play(sink, game_, 0, 4700);
        sink.finish();
    }
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out.png"}));
}

TEST_F(PictureSinkTest, APictureIsDrawnFromFilesThatAreThereAnyway) {
    SinkSet all;
    MixSink& mix = all.add(mixSink());
    TracksSink& tracks =
        all.add(std::make_unique<TracksSink>(folder_.file("tracks"), std::nullopt, names_));
    ASSERT_TRUE(tracks.open());
    PictureSink& picture =
        all.add(std::make_unique<PictureSink>(folder_.file("out.png"), &mix, &tracks, names_));
    ASSERT_TRUE(picture.open());
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out.wav", "tracks"}));
    play(all, game_, 0, 44'100);
    all.finish();
    EXPECT_THAT(all.problems(), testing::IsEmpty());
    EXPECT_TRUE(picture.isDrawn());
}

TEST_F(PictureSinkTest, APictureOfNothingIsNotDrawn) {
    PictureSink sink(folder_.file("out.png"), nullptr, nullptr, names_);
    ASSERT_TRUE(sink.open());
    sink.finish();
    EXPECT_FALSE(sink.isDrawn());
    EXPECT_FALSE(std::filesystem::exists(folder_.file("out.png")));
}

TEST_F(PictureSinkTest, APictureThatCannotBeWrittenIsFoundAtOnce) {
    PictureSink sink(folder_.file("no/out.png"), nullptr, nullptr, names_);
    EXPECT_FALSE(sink.open());
    EXPECT_EQ(sink.problems().size(), 1U);
}

}  // namespace
}  // namespace tqrecorder::test
