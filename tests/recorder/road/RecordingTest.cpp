#include "road/Recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "RememberingSink.h"

// Real hosts in real processes on the device that plays into nothing.

namespace {

using namespace tqrecorder;
namespace fs = std::filesystem;
using End = RecordingResult::End;

const std::string kHost = TQ_ROAD_HOST;
const std::string kTap = TQ_ROAD_TAP;

struct Road : testing::Test {
    fs::path caches;
    Options options;
    RememberingSink sink;

    void SetUp() override {
        std::string folder = testing::TempDir() + "tq-recording-XXXXXX";
        ASSERT_NE(mkdtemp(folder.data()), nullptr);
        caches = folder;
        // Inherited by the hosts: each test has crash guards of its own.
        setenv("XDG_CACHE_HOME", folder.c_str(), 1);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(caches, ignored);
    }
    RecordingResult record(std::vector<std::string> command) {
        options.command = std::move(command);
        Recording recording(options, sink, kTap);
        return recording.run();
    }
};

TEST_F(Road, aHostIsRecordedToItsEnd) {
    const RecordingResult result = record({kHost, "tone", "1"});
    EXPECT_EQ(result.end, End::kHostEnded) << result.message;
    EXPECT_EQ(result.hostExitCode, 0);
    EXPECT_EQ(sink.finishes, 1);
    ASSERT_EQ(sink.processes.size(), 1U);
    const auto& seen = sink.only();
    EXPECT_EQ(seen.process.name, "road_host");
    EXPECT_TRUE(seen.process.isCommand);
    ASSERT_TRUE(seen.streams.contains(0));
    const auto& mix = seen.streams.at(0);
    EXPECT_EQ(mix.format, (BlockFormat{44100, 2, 16, false}));
    EXPECT_GT(mix.seconds(), 0.9);
    EXPECT_TRUE(seen.facts.hooksInstalled);
    EXPECT_EQ(seen.facts.unitsCreated, 1U);
    EXPECT_EQ(seen.facts.unitsStarted, 1U);
    EXPECT_GT(seen.facts.blocksWithSound, 0U);
    EXPECT_TRUE(seen.ended);
}

}  // namespace
