#include "wav_listener/WavFile.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

namespace demo {
namespace {

class WavFileTest : public testing::Test {
  protected:
    WavFileTest()
        : path_(std::filesystem::temp_directory_path() /
                ("tq_wav_" + std::to_string(getpid()) + ".wav")) {}
    ~WavFileTest() override { std::filesystem::remove(path_); }

    [[nodiscard]] SF_INFO readBack(std::vector<short>& samples) const {
        SF_INFO info{};
        SNDFILE* file = sf_open(path_.c_str(), SFM_READ, &info);
        if (file != nullptr) {
            samples.resize(static_cast<std::size_t>(info.frames * info.channels));
            sf_readf_short(file, samples.data(), info.frames);
            sf_close(file);
        }
        return info;
    }

    const std::filesystem::path path_;
    std::string error_;
};

constexpr std::uint32_t kShort = kFlagSignedInteger | 0x8U;

TEST_F(WavFileTest, HoldsWhatWasWritten) {
    const std::vector<short> samples{1, -2, 300, -400, 32767, -32768};
    auto file = WavFile::create(path_, {44100, 2, 16, kShort}, error_);
    ASSERT_NE(file, nullptr) << error_;
    EXPECT_TRUE(file->write(std::as_bytes(std::span(samples))));
    EXPECT_DOUBLE_EQ(file->seconds(), 3 / 44100.0);
    file.reset();
    std::vector<short> back;
    const SF_INFO info = readBack(back);
    EXPECT_EQ(info.samplerate, 44100);
    EXPECT_EQ(info.channels, 2);
    EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    EXPECT_EQ(back, samples);
}

TEST_F(WavFileTest, IsPlayableAfterARefreshWhileItGrows) {
    const std::vector<short> samples(1000, 5);
    const auto file = WavFile::create(path_, {22050, 1, 16, kShort}, error_);
    ASSERT_NE(file, nullptr) << error_;
    ASSERT_TRUE(file->write(std::as_bytes(std::span(samples))));
    file->refresh();
    std::vector<short> back;
    EXPECT_EQ(readBack(back).frames, 1000);
}

TEST_F(WavFileTest, KeepsFloatSamples) {
    const std::vector<float> samples{0.5F, -0.25F};
    auto file = WavFile::create(path_, {48000, 1, 32, kFlagFloat | 0x8U}, error_);
    ASSERT_NE(file, nullptr) << error_;
    EXPECT_TRUE(file->write(std::as_bytes(std::span(samples))));
    file.reset();
    std::vector<short> back;
    EXPECT_EQ(readBack(back).format, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    EXPECT_EQ(back.size(), 2U);
}

TEST_F(WavFileTest, RefusesFormatsThatAWavFileCannotHold) {
    for (const WavFormat& format :
         {WavFormat{44100, 2, 8, kShort}, WavFormat{44100, 2, 16, kShort | kFlagBigEndian},
          WavFormat{44100, 0, 16, kShort}, WavFormat{0, 2, 16, kShort}, WavFormat{}}) {
        error_.clear();
        EXPECT_EQ(WavFile::create(path_, format, error_), nullptr);
        EXPECT_NE(error_, "");
        EXPECT_FALSE(std::filesystem::exists(path_));
    }
}

TEST_F(WavFileTest, NamesAFolderThatIsNotThere) {
    EXPECT_EQ(WavFile::create(path_ / "x.wav", {44100, 2, 16, kShort}, error_), nullptr);
    EXPECT_NE(error_.find("x.wav"), std::string::npos);
}

TEST(Interleave, WeavesOneBufferPerChannel) {
    const std::vector<short> planar{1, 2, 3, -1, -2, -3};
    std::vector<std::byte> scratch;
    const auto woven = interleave(std::as_bytes(std::span(planar)), 2, sizeof(short), scratch);
    std::vector<short> samples(6);
    ASSERT_EQ(woven.size(), 12U);
    std::memcpy(samples.data(), woven.data(), woven.size());
    EXPECT_EQ(samples, (std::vector<short>{1, -1, 2, -2, 3, -3}));
}

TEST(Interleave, LeavesOneBufferAsItIs) {
    const std::vector<short> mixed{1, 2, 3, 4};
    std::vector<std::byte> scratch;
    const auto bytes = std::as_bytes(std::span(mixed));
    EXPECT_EQ(interleave(bytes, 1, sizeof(short), scratch).data(), bytes.data());
}

TEST(WavFormatText, NamesRateWidthAndChannels) {
    EXPECT_EQ((WavFormat{44100, 2, 16, kShort}.text()), "44100 Hz, 16-bit integer, stereo");
    EXPECT_EQ((WavFormat{48000, 1, 32, kFlagFloat}.text()), "48000 Hz, 32-bit float, mono");
}

}  // namespace
}  // namespace demo
