// Files that one output makes one after the other.

#include "output/files/FileChain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>

#include "output/matroska/MatroskaSink.h"
#include "tools/tqaudiorecord/output/SinkFixture.h"

namespace tqrecorder::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class FileChainTest : public SinkFixture {
  protected:
    void playSilence(Sink& sink, std::size_t frames) const {
        const std::vector<std::byte> zeros(frames * kMixFormat.frameBytes());
        sink.block(game_, mixBlock(zeros, kStart));
    }
    const std::string path_ = folder_.file("out.wav");
};

TEST_F(FileChainTest, ASecondRecorderIsToldWhicheverFileOfASeriesIsBeingWritten) {
    const FileSeries::Plan plans[] = {{path_, formatNamed("wav"), 0.1, true},
                                      {path_, formatNamed("wav"), {}, true},
                                      {folder_.file("out.mka"), formatNamed("mka"), 0.1, true},
                                      {folder_.file("out.mka"), formatNamed("mka"), {}, true}};
    const auto sinkOf = [](const FileSeries::Plan& plan) -> std::unique_ptr<FilesSink> {
        const auto names = std::make_shared<ProcessNames>();
        if (plan.kind->isMatroska()) {
            auto sink = std::make_unique<MatroskaSink>(plan, names);
            return sink->open() ? std::move(sink) : nullptr;
        }
        auto sink = std::make_unique<MixSink>(plan, names);
        return sink->open() ? std::move(sink) : nullptr;
    };
    for (const FileSeries::Plan& plan : plans) {
        const std::unique_ptr<FilesSink> first = sinkOf(plan);
        ASSERT_NE(first, nullptr);
        play(*first, game_, 0, 9400);
        (void)split(*first);
        play(*first, game_, 9400, 9870);
        for (const auto maximum : {std::optional<double>{}, std::optional{0.1}}) {
            FileSeries::Plan other = plan;
            other.maximumSeconds = maximum;
            EXPECT_EQ(sinkOf(other), nullptr);
            EXPECT_THAT(whyNotWritten(plan.path, true), HasSubstr("another recorder"));
        }
        first->finish();
        EXPECT_EQ(whyNotWritten(plan.path, true), "");
        EXPECT_NE(sinkOf(plan), nullptr);
        for (const std::string& name : folder_.names()) {
            EXPECT_NE(name.front(), '.') << name;
            std::filesystem::remove(folder_.file(name));
        }
    }
}

TEST_F(FileChainTest, HoursOfSilenceInManyFilesNeedFewDescriptors) {
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    const rlimit few{64, usual.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    constexpr std::size_t kFiles = 100;
    MixSink mix({path_, formatNamed("wav"), 0.1, false}, names_);
    EXPECT_TRUE(mix.open());
    playSilence(mix, kFiles * 4410);
    const std::vector<std::byte> sound = counting(470, 0);
    mix.block(game_, mixBlock(sound, at(kFiles * 4410)));
    mix.finish();
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
    EXPECT_THAT(mix.problems(), testing::IsEmpty());
    EXPECT_EQ(folder_.names().size(), kFiles + 1);
    EXPECT_EQ(mix.files().size(), kFiles + 1);
    EXPECT_EQ(RecordedFile(folder_.file("out-001.wav")).frames(), 4410U);
    EXPECT_EQ(RecordedFile(folder_.file("out-101.wav")).numberAt(0), 1);
}

TEST_F(FileChainTest, ASplitNamesNoFileThatWaitsForSound) {
    MixSink mix({path_, formatNamed("wav"), {}, false}, names_);
    ASSERT_TRUE(mix.open());
    playSilence(mix, 4410);
    EXPECT_FALSE(mix.isHeard());
    EXPECT_THAT(split(mix), testing::IsEmpty());
    play(mix, game_, 4410, 4880);
    EXPECT_TRUE(mix.isHeard());
    // What was silent has its name now as well.
    EXPECT_EQ(split(mix).at(0).path, folder_.file("out-002.wav"));
    mix.finish();
    EXPECT_THAT(folder_.names(), ElementsAre("out-002.wav", "out.wav"));
}

TEST_F(FileChainTest, FilesOfASeriesThatCannotTakeTheirNamesAreNotListed) {
    MixSink mix({path_, formatNamed("wav"), 0.1, true}, names_);
    ASSERT_TRUE(mix.open());
    playSilence(mix, 5000);
    std::filesystem::create_directory(folder_.file("out-001.wav"));
    play(mix, game_, 5000, 5470);
    mix.finish();
    ASSERT_EQ(mix.files().size(), 1U);
    EXPECT_EQ(mix.files()[0].path, folder_.file("out-002.wav"));
    EXPECT_EQ(RecordedFile(folder_.file(".out-001.wav.tqaudiorecord")).frames(), 4410U);
    EXPECT_EQ(mix.problems().size(), 1U);
}

TEST_F(FileChainTest, SilenceInFrontOfTheFirstSoundOfASeriesIsKeptInItsFiles) {
    MixSink mix({path_, formatNamed("wav"), 0.1, false}, names_);
    ASSERT_TRUE(mix.open());
    playSilence(mix, 10'000);
    EXPECT_EQ(folder_.names().front().front(), '.');
    const std::vector<std::byte> sound = counting(470, 0);
    mix.block(game_, mixBlock(sound, at(10'000)));
    mix.finish();
    EXPECT_THAT(folder_.names(), ElementsAre("out-001.wav", "out-002.wav", "out-003.wav"));
    EXPECT_EQ(mix.files().at(0).path, folder_.file("out-001.wav"));
}

}  // namespace
}  // namespace tqrecorder::test
