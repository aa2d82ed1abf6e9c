// Sound files while they are written: formats, headers, disks that are full.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <csignal>

#include "output/files/FileSeries.h"
#include "output/files/SoundFile.h"
#include "tools/tqaudiorecord/output/Sound.h"

namespace tqrecorder::test {
namespace {

struct FormatCase {
    const char* name;
    int sndfile;
    int rate;
    double tolerance;  // frames
};

class EveryFormatTest : public testing::TestWithParam<FormatCase> {
  protected:
    TemporaryFolder folder_;
};

TEST_P(EveryFormatTest, KeepsLengthRateAndTone) {
    const FormatCase& expected = GetParam();
    const std::string path = folder_.file(std::string("out.") + expected.name);
    FileSeries series({path, formatNamed(expected.name), {}}, kMixFormat);
    ASSERT_TRUE(series.open());
    for (std::size_t block = 0; block < 200; ++block) {
        series.write(mixTone(441, 441, block * 441));
    }
    series.finish();
    EXPECT_TRUE(series.problems().empty());

    const RecordedFile recorded(path);
    ASSERT_TRUE(recorded.opened);
    EXPECT_EQ(recorded.info.samplerate, expected.rate);
    EXPECT_EQ(recorded.info.channels, 2);
    EXPECT_EQ(recorded.info.format & SF_FORMAT_TYPEMASK, expected.sndfile & SF_FORMAT_TYPEMASK);
    EXPECT_NEAR(static_cast<double>(recorded.frames()), 2.0 * expected.rate, expected.tolerance);
    EXPECT_NEAR(recorded.amplitude(441, 0.5, 1.5), 0.5, 0.02);
    EXPECT_LT(recorded.amplitude(882, 0.5, 1.5), 0.01);
}

TEST_P(EveryFormatTest, IsPlayableWhileItIsWritten) {
    const FormatCase& expected = GetParam();
    const std::string path = folder_.file(std::string("out.") + expected.name);
    FileSeries series({path, formatNamed(expected.name), {}}, kMixFormat);
    ASSERT_TRUE(series.open());
    for (std::size_t block = 0; block < 1000; ++block) {
        series.write(mixTone(441, 441, block * 441));
    }
    series.refresh();
    // As a killed recorder leaves it. Vorbis fills its pages, which hold seconds of a bare tone.
    const RecordedFile recorded(path);
    ASSERT_TRUE(recorded.opened);
    const bool isVorbis = (expected.sndfile & SF_FORMAT_SUBMASK) == SF_FORMAT_VORBIS;
    EXPECT_GT(static_cast<double>(recorded.frames()), (isVorbis ? 5.0 : 9.0) * expected.rate);
    EXPECT_NEAR(static_cast<double>(recorded.info.frames), static_cast<double>(recorded.frames()),
                1);
    EXPECT_NEAR(recorded.amplitude(441, 0.5, 1.5), 0.5, 0.02);
}

TEST_P(EveryFormatTest, LeavesNoFileWhenNothingWasWritten) {
    FileSeries series(
        {folder_.file(std::string("out.") + GetParam().name), formatNamed(GetParam().name)},
        kMixFormat);
    ASSERT_TRUE(series.open());
    series.finish();
    EXPECT_TRUE(series.problems().empty());
    EXPECT_TRUE(series.files().empty());
    EXPECT_TRUE(folder_.names().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Formats, EveryFormatTest,
    testing::Values(FormatCase{"wav", SF_FORMAT_WAVEX, 44100, 0},
                    FormatCase{"w64", SF_FORMAT_W64, 44100, 0},
                    FormatCase{"rf64", SF_FORMAT_RF64, 44100, 0},
                    FormatCase{"flac", SF_FORMAT_FLAC, 44100, 0},
                    FormatCase{"ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100, 0},
                    FormatCase{"opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, 48000, 32}),
    [](const auto& format) { return std::string(format.param.name); });

// Of a WAV file that can become RF64.
constexpr std::uintmax_t kHeader = 112;

class SoundFileTest : public testing::Test {
  protected:
    std::unique_ptr<SoundFile> create(const std::string& name, const BlockFormat& format) {
        return createAt(folder_.file(name), *formatNamed("wav"), format);
    }
    std::unique_ptr<SoundFile> createAt(const std::string& path, const FileFormat& kind,
                                        const BlockFormat& format) {
        tqcommon::Descriptor file(
            ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
        return SoundFile::create(path, std::move(file), kind, format, error_);
    }
    TemporaryFolder folder_;
    std::string error_;
};

TEST_F(SoundFileTest, HoldsTheSamplesOfATrackAsTheyAre) {
    const BlockFormat format{22050, 1, 32, true};
    auto file = create("float.wav", format);
    ASSERT_NE(file, nullptr) << error_;
    ASSERT_TRUE(file->write(tone<float>(441, format, 2205)));
    ASSERT_TRUE(file->close());
    const RecordedFile recorded(folder_.file("float.wav"));
    EXPECT_EQ(recorded.info.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
    EXPECT_EQ(recorded.info.samplerate, 22050);
    ASSERT_EQ(recorded.frames(), 2205U);
    EXPECT_EQ(recorded.at(10), static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 0.2)));
}

TEST_F(SoundFileTest, SaysInOneLineWhatAFileCannotHold) {
    EXPECT_EQ(create("odd.wav", {44100, 2, 12, false}), nullptr);
    EXPECT_NE(error_.find("cannot hold 44100 Hz, 12-bit integer, stereo"), std::string::npos);
    EXPECT_EQ(create("none.wav", {44100, 0, 16, false}), nullptr);
    EXPECT_EQ(create("still.wav", {0, 2, 16, false}), nullptr);
    EXPECT_EQ(error_.find('\n'), std::string::npos);
    FileSeries nowhere({folder_.file("no/such/folder.wav"), formatNamed("wav")}, kMixFormat);
    EXPECT_FALSE(nowhere.open());
    EXPECT_NE(nowhere.problems().at(0).find("No such file or directory"), std::string::npos);
}

TEST_F(SoundFileTest, BecomesRf64PastFourGiBAndStaysReadable) {
    auto file = create("long.wav", kMixFormat);
    ASSERT_NE(file, nullptr) << error_;
    ASSERT_TRUE(file->write(mixTone(441, 44100)));
    file->refresh();
    EXPECT_EQ(contentOf(folder_.file("long.wav")).substr(0, 4), "RIFF");
    // A hole in the file stands for hours of sound: the header follows the file's length.
    constexpr std::uintmax_t kLong = (std::uintmax_t{9} << 29U) + kHeader;
    std::filesystem::resize_file(folder_.file("long.wav"), kLong);
    ASSERT_TRUE(file->write(mixTone(441, 44100)));
    file->refresh();

    const auto check = [&] {
        std::array<char, 16> head{};
        std::ifstream(folder_.file("long.wav")).read(head.data(), head.size());
        EXPECT_EQ(std::string(head.data(), 4), "RF64");
        EXPECT_EQ(std::string(head.data() + 12, 4), "ds64");
        SF_INFO info{};
        SNDFILE* opened = sf_open(folder_.file("long.wav").c_str(), SFM_READ, &info);
        ASSERT_NE(opened, nullptr);
        EXPECT_EQ(info.format & SF_FORMAT_TYPEMASK, SF_FORMAT_RF64);
        EXPECT_EQ(info.frames, sf_count_t{9} << 27U);
        std::vector<short> frame(2);
        EXPECT_EQ(sf_seek(opened, 44100 + 25, SEEK_SET), 44125);
        EXPECT_EQ(sf_readf_short(opened, frame.data(), 1), 1);
        EXPECT_NEAR(frame[0], 16383, 2);
        sf_close(opened);
    };
    check();
    ASSERT_TRUE(file->close());
    check();
}

TEST_F(SoundFileTest, EndsWithTheLastWholeFrameOnAFullDisk) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{100'003, 100'003};
    auto file = create("full.wav", kMixFormat);
    ASSERT_NE(file, nullptr) << error_;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    bool taken = true;
    std::size_t frame = 0;
    for (; taken && frame < 100'000; frame += 512) {
        taken = file->write(counting(512, frame));
    }
    EXPECT_FALSE(taken);
    EXPECT_NE(file->problem().find("full.wav: File too large"), std::string::npos);
    EXPECT_FALSE(file->write(counting(512, frame)));
    EXPECT_FALSE(file->close());
    const RecordedFile recorded(folder_.file("full.wav"));
    ASSERT_TRUE(recorded.opened);
    EXPECT_EQ(recorded.info.frames, static_cast<sf_count_t>((100'003 - kHeader) / 4));
    EXPECT_EQ(recorded.frames(), file->frames());
    EXPECT_EQ(recorded.numberAt(recorded.frames() - 1),
              static_cast<int>((recorded.frames() - 1) % 30000 + 1));
}

TEST_F(SoundFileTest, SaysThatCompressedFilesHitAFullDisk) {
    std::signal(SIGXFSZ, SIG_IGN);
    for (const char* name : {"flac", "ogg", "opus"}) {
        const std::string path = folder_.file(std::string("full.") + name);
        FileSeries series({path, formatNamed(name), {}}, kMixFormat);
        ASSERT_TRUE(series.open());
        const rlimit limit{20'000, RLIM_INFINITY};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        for (std::size_t frame = 0; !series.failed() && frame < 20'000'000; frame += 4410) {
            series.write(counting(4410, frame));
        }
        series.finish();
        const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
        ASSERT_EQ(series.problems().size(), 1U) << name;
        EXPECT_NE(series.problems()[0].find("File too large"), std::string::npos) << name;
        EXPECT_GT(RecordedFile(path).frames(), 1000U) << name;
    }
}

TEST_F(SoundFileTest, RefusesADeviceForAFormatThatNeedsAFile) {
    EXPECT_EQ(createAt("/dev/full", *formatNamed("wav"), kMixFormat), nullptr);
    EXPECT_NE(error_.find("/dev/full: not a file"), std::string::npos) << error_;
    auto raw = createAt("/dev/full", *formatNamed("raw"), kMixFormat);
    ASSERT_NE(raw, nullptr) << error_;
    EXPECT_FALSE(raw->write(mixTone(441, 512)));
    EXPECT_NE(raw->problem().find("No space left on device"), std::string::npos);
}

TEST_F(SoundFileTest, SplitsIntoNumberedFilesWithoutAFrameLostOrTwice) {
    for (const char* name : {"wav", "flac"}) {
        FileSeries series({folder_.file(std::string("part.") + name), formatNamed(name), 0.5},
                          kMixFormat);
        ASSERT_TRUE(series.open());
        // Blocks that do not divide the length of a file.
        std::size_t frame = 0;
        for (; frame < 60'000; frame += 700) {
            series.write(counting(700, frame));
        }
        series.finish();
        const std::vector<WrittenFile> files = series.files();
        ASSERT_EQ(files.size(), 3U);
        EXPECT_EQ(files[0].path, folder_.file(std::string("part-001.") + name));
        EXPECT_EQ(files[2].path, folder_.file(std::string("part-003.") + name));
        std::size_t expected = 0;
        for (const WrittenFile& file : files) {
            const RecordedFile recorded(file.path);
            EXPECT_TRUE(recorded.frames() == 22050 || file.path == files[2].path);
            for (std::size_t index = 0; index < recorded.frames(); ++index, ++expected) {
                ASSERT_EQ(recorded.numberAt(index), static_cast<int>(expected % 30000 + 1));
            }
        }
        EXPECT_EQ(expected, frame);
    }
}

TEST_F(SoundFileTest, MakesNoEmptyFileBehindTheLastFullOne) {
    FileSeries series({folder_.file("part.wav"), formatNamed("wav"), 0.5}, kMixFormat);
    ASSERT_TRUE(series.open());
    series.write(counting(44100, 0));
    series.finish();
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"part-001.wav", "part-002.wav"}));
}

TEST(FileFormatsTest, FollowTheExtensionInAnyCase) {
    EXPECT_EQ(formatOfPath("a/b.WAV"), formatNamed("wav"));
    EXPECT_EQ(formatOfPath("x.oga"), formatNamed("ogg"));
    EXPECT_EQ(formatOfPath("x.tar.flac"), formatNamed("flac"));
    EXPECT_EQ(formatOfPath("wav"), nullptr);
    EXPECT_EQ(formatOfPath("a.wav/b"), nullptr);
    EXPECT_EQ(formatNamed("Opus"), formatNamed("opus"));
    for (const FileFormat& format : fileFormats()) {
        EXPECT_NE(listOfFormats().find(std::string(format.name) + " "), std::string::npos);
    }
}

TEST_F(SoundFileTest, EightBitsAreWrittenAsWavHoldsThem) {
    const std::string path = folder_.file("out.wav");
    const std::array<std::byte, 4> samples{std::byte{0x00}, std::byte{0x40}, std::byte{0xC0},
                                           std::byte{0x80}};
    FileSeries series({path, &trackFormat(), {}}, {8000, 1, 8, false});
    ASSERT_TRUE(series.open());
    series.write(samples);
    series.finish();
    EXPECT_TRUE(series.problems().empty());
    SF_INFO info{};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr);
    std::array<float, 4> read{};
    EXPECT_EQ(sf_readf_float(file, read.data(), 4), 4);
    sf_close(file);
    EXPECT_EQ(read, (std::array<float, 4>{0, 0.5F, -0.5F, -1}));
}

}  // namespace
}  // namespace tqrecorder::test
