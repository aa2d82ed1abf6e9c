// The file under its streams.

#include "output/matroska/MatroskaWriter.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "output/matroska/StreamEncoder.h"
#include "support/TemporaryFolder.h"
#include "tools/tqaudiorecord/output/DecodedFile.h"

namespace tqrecorder::test {
namespace {

TEST(MatroskaWriter, WhereOnlyWhatPlayersSeekByFindsNoRoomTheSoundIsWhole) {
    std::signal(SIGXFSZ, SIG_IGN);
    const TemporaryFolder folder;
    const std::string path = folder.file("game.mka");
    const BlockFormat format{44100, 2, 16, false};
    std::string error;
    const auto encoder = StreamEncoder::create(MatroskaCoding::kPcm, format, error);
    tqcommon::Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    MatroskaWriter writer(std::move(file), 4096);
    const unsigned stream = writer.addStream("mix", encoder->codec()).value_or(0);
    ASSERT_EQ(stream, 1U);
    writer.add({stream, 0, 0.1, 0, std::vector<std::byte>(4410 * 4, std::byte{1})});
    ASSERT_TRUE(writer.flush());
    const rlimit limit{std::filesystem::file_size(path), RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const bool isWhole = writer.finish();
    const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
    EXPECT_TRUE(isWhole);
    EXPECT_EQ(writer.error(), 0);
    const DecodedFile decoded(path);
    EXPECT_THAT(decoded.complaints, testing::IsEmpty());
    EXPECT_EQ(decoded.stream("mix").frames(), 4410U);
}

}  // namespace
}  // namespace tqrecorder::test
