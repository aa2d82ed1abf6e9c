// Ten minutes of sound in the smallest blocks, recorded by the real program.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "support/ProgramRunner.h"
#include "tools/tqaudiorecord/output/Sound.h"

namespace tqrecorder::test {
namespace {

/// Memory of its own that a process holds, in kilobytes; shared memory is not counted.
long memoryOf(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("RssAnon:")) {
            return std::stol(line.substr(8));
        }
    }
    return -1;
}

/// How far from a tone of 441 Hz and half of full scale a stretch of a recording is at most, with
/// two seconds at each end left out: a frame that is missing or there twice moves all that follow.
double worstDifference(const RecordedFile& recorded) {
    const auto rate = static_cast<std::size_t>(recorded.info.samplerate);
    const double step = 2 * M_PI * 441 / static_cast<double>(rate);
    // The phase is that of the first tenth of a second.
    const std::size_t first = 2 * rate;
    double sine = 0;
    double cosine = 0;
    for (std::size_t i = 0; i < rate / 10; ++i) {
        const double phase = step * static_cast<double>(i);
        sine += recorded.at(first + i) * std::sin(phase);
        cosine += recorded.at(first + i) * std::cos(phase);
    }
    const double offset = std::atan2(cosine, sine);
    double worst = 0;
    for (std::size_t i = 0; first + i + 2 * rate < recorded.frames(); ++i) {
        const double expected = 0.5 * std::sin(step * static_cast<double>(i % rate) + offset);
        worst = std::max(worst, std::abs(recorded.at(first + i) - expected));
    }
    return worst;
}

TEST(LongRunTest, TenMinutesInTheSmallestBlocksLoseNothingAndTakeNoMoreMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's memory grows, and it cannot keep up";
#endif
    constexpr double kSeconds = 600;
    const TemporaryFolder folder;
    const std::string path = folder.file("out.wav");
    tqtest::Program program(
        {.arguments = {TQ_RECORDER, "-o", path, "--ring", "100", TQ_LONG_HOST, "600", path},
         .environment = {{"TQ_AUDIO_DEVICE", "manual"}, {"XDG_CACHE_HOME", folder.file("cache")}}});

    const auto hasRecorded = [&](double seconds) {
        std::error_code error;
        return static_cast<double>(std::filesystem::file_size(path, error)) > seconds * 44100 * 4 &&
               !error;
    };
    ASSERT_TRUE(tqtest::eventually([&] { return hasRecorded(kSeconds / 10); }));
    const std::vector<pid_t> hosts = program.children();
    ASSERT_EQ(hosts.size(), 1U);
    const long recorderBefore = memoryOf(program.pid());
    const long hostBefore = memoryOf(hosts[0]);
    ASSERT_TRUE(tqtest::eventually([&] { return hasRecorded(kSeconds * 0.5); }));
    ASSERT_TRUE(tqtest::eventually([&] { return hasRecorded(kSeconds * 0.95); }));
    constexpr long kFlat = 256;
    EXPECT_LE(memoryOf(program.pid()), recorderBefore + kFlat);
    EXPECT_LE(memoryOf(hosts[0]), hostBefore + kFlat);

    const tqtest::ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 0) << end.errors;
    EXPECT_THAT(end.errors, testing::HasSubstr("0 gaps filled with silence, 0 blocks lost"));
    const RecordedFile recorded(path);
    EXPECT_NEAR(static_cast<double>(recorded.frames()) / 44100, kSeconds + 1, 0.5);
    EXPECT_LT(worstDifference(recorded), 0.005);
}

}  // namespace
}  // namespace tqrecorder::test
