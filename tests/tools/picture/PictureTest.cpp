#include "picture/Picture.h"

#include <cairo.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>

#include "TestWave.h"
#include "picture/Axis.h"
#include "picture/Drawing.h"
#include "picture/Layout.h"

namespace tqpicture {
namespace {

/// A PNG read back.
class Image {
  public:
    explicit Image(const std::string& path)
        : surface_(cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy) {}

    [[nodiscard]] bool readable() const {
        return cairo_surface_status(surface_.get()) == CAIRO_STATUS_SUCCESS;
    }
    [[nodiscard]] int width() const { return cairo_image_surface_get_width(surface_.get()); }
    [[nodiscard]] int height() const { return cairo_image_surface_get_height(surface_.get()); }
    [[nodiscard]] std::uint32_t pixel(int x, int y) const {
        const unsigned char* row =
            cairo_image_surface_get_data(surface_.get()) +
            static_cast<std::ptrdiff_t>(y) * cairo_image_surface_get_stride(surface_.get());
        return reinterpret_cast<const std::uint32_t*>(row)[x] & 0xFFFFFFU;
    }
    [[nodiscard]] unsigned brightness(int x, int y) const {
        const std::uint32_t value = pixel(x, y);
        return (value >> 16U) + ((value >> 8U) & 0xFFU) + (value & 0xFFU);
    }

  private:
    std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface_;
};

class PictureTest : public testing::Test {
  protected:
    [[nodiscard]] std::string file(const std::string& name) const { return folder_.file(name); }
    [[nodiscard]] std::string tone(const std::string& name, double hertz, int rate,
                                   double seconds) const {
        const auto frames = static_cast<std::size_t>(rate * seconds);
        EXPECT_TRUE(test::writeWave(file(name), test::sine(hertz, rate, frames, 0.5), rate, 1,
                                    SF_FORMAT_PCM_16));
        return file(name);
    }

    Options options_;
    std::string error_ = "untouched";

  private:
    TemporaryFolder folder_;
};

TEST_F(PictureTest, HasTheSizeOfItsLayout) {
    options_.title = "A title";
    options_.width = 900;
    options_.events = {{0.5, "an event"}};
    const std::string png = file("out.png");
    ASSERT_TRUE(drawPicture(
        {{"mix", tone("a.wav", 440, 44100, 1), 0}, {"", tone("b.wav", 440, 22050, 0.5), 0.25}}, png,
        options_, error_));
    EXPECT_EQ(error_, "untouched");
    const Image image(png);
    ASSERT_TRUE(image.readable());
    EXPECT_EQ(image.width(), 900);
    EXPECT_EQ(image.height(), layOut(2, options_).height);
}

TEST_F(PictureTest, ShowsAToneAtItsFrequency) {
    for (const FrequencyAxis axis : {FrequencyAxis::kLogarithmic, FrequencyAxis::kLinear}) {
        options_.frequencyAxis = axis;
        const std::string png = file("tone.png");
        ASSERT_TRUE(
            drawPicture({{"mix", tone("a.wav", 3000, 44100, 2), 0}}, png, options_, error_));
        const Image image(png);
        ASSERT_TRUE(image.readable());
        const Rectangle plot = layOut(1, options_).lanes[0].spectrogram;
        const FrequencyScale scale = frequencyScale(options_, 22050, plot.height);
        const int x = plot.x + plot.width / 2 + 3;
        int best = plot.y;
        for (int y = plot.y; y < plot.y + plot.height; ++y) {
            best = image.brightness(x, y) > image.brightness(x, best) ? y : best;
        }
        EXPECT_NEAR(best - plot.y, scale.positionOf(3000), 2.5);
    }
}

TEST_F(PictureTest, DrawsTheWaveformAsHighAsItsPeak) {
    const std::string png = file("wave.png");
    ASSERT_TRUE(drawPicture({{"mix", tone("a.wav", 1000, 44100, 2), 0}}, png, options_, error_));
    const Image image(png);
    ASSERT_TRUE(image.readable());
    // The peak of 0.5 spans the whole scale, which is the next round value.
    const Rectangle plot = layOut(1, options_).lanes[0].waveform;
    const int x = plot.x + plot.width / 2 + 3;
    const auto blue = [&](int y) {
        const std::uint32_t value = image.pixel(x, y);
        return (value & 0xFFU) > (value >> 16U) + 40;
    };
    EXPECT_TRUE(blue(plot.y + 3));
    EXPECT_TRUE(blue(plot.y + plot.height - 4));
    EXPECT_TRUE(blue(plot.y + plot.height / 2));
}

TEST_F(PictureTest, MarksEventsThroughAllLanes) {
    options_.events = {{1, "now"}, {99, "outside"}};
    const std::string png = file("events.png");
    ASSERT_TRUE(drawPicture(
        {{"mix", tone("a.wav", 1000, 44100, 2), 0}, {"track", tone("b.wav", 1000, 44100, 2), 0}},
        png, options_, error_));
    const Image image(png);
    ASSERT_TRUE(image.readable());
    const Layout layout = layOut(2, options_);
    for (const Lane& lane : layout.lanes) {
        int red = 0;
        const int x = lane.waveform.x + lane.waveform.width / 2;
        for (int y = lane.waveform.y; y < lane.waveform.y + lane.waveform.height; ++y) {
            const std::uint32_t value = image.pixel(x, y);
            red += (value >> 16U) > (value & 0xFFU) + 40 ? 1 : 0;
        }
        EXPECT_GT(red, lane.waveform.height / 3);
    }
}

TEST_F(PictureTest, QuietEventsAreNotDrawnLikeTheOthers) {
    options_.events = {{0.5, "", true}, {1.5, "", false}};
    const std::string png = file("events.png");
    ASSERT_TRUE(drawPicture({{"mix", tone("a.wav", 1000, 44100, 2), 0}}, png, options_, error_));
    const Image image(png);
    ASSERT_TRUE(image.readable());
    const Rectangle strip = layOut(1, options_).eventStrip;
    const auto rednessAt = [&](int quarters) {
        const std::uint32_t value =
            image.pixel(strip.x + strip.width * quarters / 4, strip.y + strip.height / 2);
        return static_cast<int>(value >> 16U) - static_cast<int>(value & 0xFFU);
    };
    EXPECT_GT(rednessAt(3), 80);
    EXPECT_LT(rednessAt(1), 0);
    EXPECT_LT(image.brightness(strip.x + strip.width / 4, strip.y + strip.height / 2), 600U);
}

TEST_F(PictureTest, LabelsOfQuietEventsTakeTheRoomThatOthersLeave) {
    const auto inkAt = [&](const std::vector<EventMark>& events) {
        options_.events = events;
        const std::string png = file("labels.png");
        EXPECT_TRUE(
            drawPicture({{"mix", tone("a.wav", 1000, 44100, 2), 0}}, png, options_, error_));
        const Image image(png);
        const Rectangle strip = layOut(1, options_).eventStrip;
        int red = 0;
        // Behind the lines, where only labels are.
        for (int x = strip.x + strip.width / 2 + 20; x < strip.x + strip.width * 3 / 4; ++x) {
            for (int y = strip.y; y < strip.y + strip.height; ++y) {
                const std::uint32_t value = image.pixel(x, y);
                red += (value >> 16U) > (value & 0xFFU) + 40 ? 1 : 0;
            }
        }
        return red;
    };
    const EventMark failure{1.01, "a failure", false};
    EXPECT_GT(inkAt({failure}), 0);
    EXPECT_EQ(inkAt({{0.98, "quiet", true}, {0.99, "quiet", true}, {1.0, "quiet", true}, failure}),
              inkAt({failure}));
}

TEST_F(PictureTest, SilenceIsDark) {
    const std::string path = file("silent.wav");
    ASSERT_TRUE(test::writeWave(path, std::vector<float>(88200, 0.0F), 44100, 2));
    const std::string png = file("silent.png");
    ASSERT_TRUE(drawPicture({{"", path, 0}}, png, options_, error_));
    const Image image(png);
    ASSERT_TRUE(image.readable());
    const Rectangle plot = layOut(1, options_).lanes[0].spectrogram;
    for (int y = plot.y + 1; y < plot.y + plot.height - 1; ++y) {
        EXPECT_LT(image.brightness(plot.x + plot.width / 2, y), 60U);
    }
}

TEST_F(PictureTest, EmptyFileGetsAnEmptyLane) {
    const std::string path = file("empty.wav");
    ASSERT_TRUE(test::writeWave(path, {}, 44100, 2));
    const std::string png = file("empty.png");
    ASSERT_TRUE(drawPicture({{"", path, 0}}, png, options_, error_)) << error_;
    const Image image(png);
    ASSERT_TRUE(image.readable());
    const Rectangle plot = layOut(1, options_).lanes[0].spectrogram;
    EXPECT_GT(image.brightness(plot.x + 20, plot.y + 20), 600U);
}

TEST_F(PictureTest, OneFrameIsEnoughForAPicture) {
    const std::string path = file("frame.wav");
    ASSERT_TRUE(test::writeWave(path, {0.5F, -0.5F}, 48000, 2));
    ASSERT_TRUE(drawPicture({{"", path, 0}}, file("frame.png"), options_, error_)) << error_;
    EXPECT_TRUE(Image(file("frame.png")).readable());
}

TEST_F(PictureTest, NamesTheFileThatCannotBeReadAndWritesNothing) {
    const std::string png = file("none.png");
    EXPECT_FALSE(drawPicture({{"", tone("a.wav", 440, 8000, 0.1), 0}, {"", file("none.wav"), 0}},
                             png, options_, error_));
    EXPECT_NE(error_.find("none.wav"), std::string::npos) << error_;
    EXPECT_FALSE(std::filesystem::exists(png));
}

TEST_F(PictureTest, NamesThePictureThatCannotBeWritten) {
    const std::string png = file("no/such/folder.png");
    EXPECT_FALSE(drawPicture({{"", tone("a.wav", 440, 8000, 0.1), 0}}, png, options_, error_));
    EXPECT_NE(error_.find(png), std::string::npos) << error_;
}

TEST_F(PictureTest, RefusesOptionsOutOfRange) {
    const std::vector<Track> tracks{{"", tone("a.wav", 440, 8000, 0.1), 0}};
    const std::string png = file("never.png");
    const auto refuses = [&](const std::vector<Track>& list, const Options& options) {
        error_.clear();
        const bool refused = !drawPicture(list, png, options, error_) && !error_.empty();
        return refused && !std::filesystem::exists(png);
    };
    EXPECT_TRUE(refuses({}, Options{}));
    EXPECT_TRUE(refuses(std::vector<Track>(kMaximumTracks + 1, tracks[0]), Options{}));
    EXPECT_TRUE(refuses({{"", tracks[0].path, -1}}, Options{}));
    Options options;
    options.width = 0;
    EXPECT_TRUE(refuses(tracks, options));
    options = {};
    options.spectrogramHeight = 100000;
    EXPECT_TRUE(refuses(tracks, options));
    options = {};
    options.floorDb = 0;
    EXPECT_TRUE(refuses(tracks, options));
}

TEST_F(PictureTest, DrawsNamesThatAreNoProperText) {
    options_.title = "bad \xff\xfe title";
    options_.events = {{0.01, "\xc3\x28\x01"}};
    ASSERT_TRUE(drawPicture({{"\x80 name", tone("a.wav", 440, 8000, 0.1), 0}}, file("bad.png"),
                            options_, error_))
        << error_;
}

TEST_F(PictureTest, ALongLabelIsCutInLittleTime) {
    const std::vector<Track> tracks{{"mix", tone("mix.wav", 1000, 8000, 0.2), 0}};
    std::string label;
    for (int i = 0; i < 50'000; ++i) {
        label += "\u00e4b";
    }
    options_.events = {{0.1, label, false}};
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(drawPicture(tracks, file("long.png"), options_, error_)) << error_;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds{10});
    EXPECT_TRUE(Image(file("long.png")).readable());
}

TEST(Printable, KeepsTextAndReplacesTheRest) {
    EXPECT_EQ(printable("plain \u00e4\u20ac\U0001F3B5"), "plain \u00e4\u20ac\U0001F3B5");
    EXPECT_EQ(printable("\xff"), "?");
    EXPECT_EQ(printable("a\xe2\x82"), "a??");     // cut short
    EXPECT_EQ(printable("\xc0\xaf"), "??");       // overlong
    EXPECT_EQ(printable("\xed\xa0\x80"), "???");  // a surrogate
    EXPECT_EQ(printable("\n\x7f"), "??");
    EXPECT_EQ(printable(""), "");
}

}  // namespace
}  // namespace tqpicture
