// The picture of a recording.

#include "output/PictureSink.h"

#include <cairo.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <vector>

#include "SinkFixture.h"
#include "output/SinkSet.h"

namespace tqrecorder::test {
namespace {

class PictureSinkTest : public SinkFixture {
  protected:
    /// A picture with what it is drawn from, as a recording has them.
    struct Drawing : SinkSet {
        Drawing(const std::string& path, const std::shared_ptr<ProcessNames>& names,
                bool mayReplace = false)
            : lanes(add(std::make_unique<Lanes>(names))),
              picture(add(std::make_unique<PictureSink>(path, mayReplace, lanes))) {}

        Lanes& lanes;
        PictureSink& picture;
    };

    /// Pixels in the colour of failures in the picture of a recording of one second with that
    /// event at those frames, behind so many others that are none.
    std::size_t redWith(std::uint64_t category, std::uint64_t code,
                        const std::vector<std::size_t>& frames = {22'050}, int quietBefore = 0) {
        const std::string path = folder_.file("out.png");
        std::filesystem::remove(path);
        Drawing sink(path, names_);
        EXPECT_TRUE(sink.picture.open());
        sink.processBegan(game_);
        const std::vector<std::byte> silence(44'100 * 4);
        sink.block(game_, mixBlock(silence, at(0)));
        for (int i = 0; i < quietBefore; ++i) {
            // Apart from each other, though all stand at the beginning.
            sink.event(game_, {at(0) - static_cast<std::uint64_t>(i) * 30'000, 6, 0, ""});
        }
        for (const std::size_t frame : frames) {
            sink.event(game_, {at(frame), category, code, ""});
        }
        sink.finish();
        const std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> image(
            cairo_image_surface_create_from_png(path.c_str()), &cairo_surface_destroy);
        const int width = cairo_image_surface_get_width(image.get());
        std::size_t red = 0;
        for (int y = 0; y < cairo_image_surface_get_height(image.get()); ++y) {
            const auto* row = reinterpret_cast<const std::uint32_t*>(
                cairo_image_surface_get_data(image.get()) +
                std::ptrdiff_t{y} * cairo_image_surface_get_stride(image.get()));
            red += static_cast<std::size_t>(std::count_if(row, row + width, [](std::uint32_t p) {
                return (p >> 16U & 255U) > (p >> 8U & 255U) + 100 && (p & 255U) < 128;
            }));
        }
        return red;
    }
};

TEST_F(PictureSinkTest, APictureNeedsNoOtherOutputAndLeavesNothingElse) {
    Drawing sink(folder_.file("out.png"), names_);
    ASSERT_TRUE(sink.picture.open());
    sink.processBegan(game_);
    play(sink, game_, 0, 44'100);
    const auto bytes = mixTone(441, 4410);
    sink.block(game_, {1, "unit", kMixFormat, at(4410), bytes});
    sink.event(game_, {at(100), 6, 0, "audio unit start: 1"});
    EXPECT_THAT(folder_.names(), testing::IsEmpty());
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
    EXPECT_EQ(sink.picture.path(), folder_.file("out.png"));
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out.png"}));
    EXPECT_GT(std::filesystem::file_size(folder_.file("out.png")), 5000U);
}

TEST_F(PictureSinkTest, EventsOfANormalStartAreNotDrawnAsFailures) {
    const std::size_t without = redWith(0, 0);
    EXPECT_EQ(redWith(1, 105), without);
    EXPECT_EQ(redWith(3, 110), without);
    EXPECT_GT(redWith(2, 109), without + 100);
}

TEST_F(PictureSinkTest, AFailureIsMarkedHoweverMuchHappenedBefore) {
    EXPECT_GT(redWith(2, 109, {22'050}, 300), redWith(0, 0) + 100);
}

TEST_F(PictureSinkTest, AnEventThatRepeatsAtOnceIsMarkedOnce) {
    const std::size_t once = redWith(2, 109, {10'000});
    EXPECT_EQ(redWith(2, 109, {10'000, 10'400, 10'800}), once);
    EXPECT_GT(redWith(2, 109, {10'000, 30'000}), once + 100);
    EXPECT_GT(redWith(2, 109, {30'000, 10'000}), once + 100);
}

TEST_F(PictureSinkTest, APictureOfNothingIsNotDrawn) {
    Drawing sink(folder_.file("out.png"), names_);
    ASSERT_TRUE(sink.picture.open());
    sink.finish();
    EXPECT_EQ(sink.picture.path(), "");
    EXPECT_THAT(folder_.names(), testing::IsEmpty());
}

TEST_F(PictureSinkTest, APictureThatCannotBeWrittenIsFoundAtOnce) {
    Drawing sink(folder_.file("no/out.png"), names_);
    EXPECT_FALSE(sink.picture.open());
    EXPECT_EQ(sink.problems().size(), 1U);
}

TEST_F(PictureSinkTest, APictureThatTheDiskDoesNotTakeIsAProblem) {
    Drawing sink("/dev/full", names_);
    ASSERT_TRUE(sink.picture.open());
    play(sink, game_, 0, 4700);
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::ElementsAre("/dev/full: No space left on device"));
    EXPECT_EQ(sink.picture.path(), "");
}

TEST_F(PictureSinkTest, AGoodPictureIsReplacedBySoundAlone) {
    const std::string path = folder_.file("out.png");
    const auto draw = [&](bool isSilent) {
        Drawing sink(path, names_, true);
        EXPECT_TRUE(sink.picture.open());
        if (isSilent) {
            const std::vector<std::byte> silence(4700 * 4);
            sink.block(game_, mixBlock(silence, at(0)));
        } else {
            names_->hear(game_);
            play(sink, game_, 0, 4700);
        }
        sink.finish();
        return sink.problems();
    };
    std::ofstream(path) << "precious";
    EXPECT_THAT(draw(true), testing::ElementsAre(testing::HasSubstr("stays as it was")));
    EXPECT_EQ(contentOf(path), "precious");
    EXPECT_THAT(draw(false), testing::IsEmpty());
    EXPECT_NE(contentOf(path), "precious");
}

TEST_F(PictureSinkTest, OfTheMicrophoneAloneItIsKeptBesideAnother) {
    const std::string path = folder_.file("out.png");
    std::ofstream(path) << "precious";
    Drawing sink(path, names_, true);
    ASSERT_TRUE(sink.picture.open());
    play(sink, game_, 0, 4700);
    sink.finish();
    EXPECT_EQ(contentOf(path), "precious");
    EXPECT_EQ(sink.picture.path(), folder_.file("out-2.png"));
    EXPECT_THAT(sink.problems(),
                testing::ElementsAre(testing::HasSubstr("since only the microphone was heard")));
}

TEST_F(PictureSinkTest, AFileThatCameMeanwhileIsNotReplaced) {
    Drawing sink(folder_.file("out.png"), names_);
    ASSERT_TRUE(sink.picture.open());
    names_->hear(game_);
    play(sink, game_, 0, 4700);
    std::ofstream(folder_.file("out.png")) << "precious";
    sink.finish();
    EXPECT_EQ(contentOf(folder_.file("out.png")), "precious");
    EXPECT_EQ(sink.picture.path(), folder_.file("out-2.png"));
    EXPECT_EQ(sink.problems().size(), 1U);
}

}  // namespace
}  // namespace tqrecorder::test
