// The page of a recording, in the browser that people open it with.

#include <algorithm>

#include "RecorderFixture.h"

namespace tqrecorder::test {
namespace {

class RecorderReportTest : public RecorderTest {
  protected:
    const std::string page_ = folder_.file("game.html");
};

TEST_F(RecorderReportTest, ShowsAndPlaysInABrowser) {
    const ProgramEnd outcome = run(
        {"-o", folder_.file("game.flac"), "--tracks", folder_.file("tracks"), "--report", page_},
        game("6"));
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(outcome.errors, HasSubstr("game.html\n"));
    // The tracks' lanes are called as their files.
    std::vector<std::string> tracks;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.file("tracks"))) {
        tracks.push_back(entry.path().stem());
    }
    std::sort(tracks.begin(), tracks.end());
    ASSERT_GE(tracks.size(), 3U);
    std::string lanes = "mix";
    for (const std::string& track : tracks) {
        lanes += "," + track;
    }
    const ProgramEnd seen = tqtest::runProgram(
        {.arguments = {"python3", TQ_REPORT_IN_BROWSER, page_, lanes}}, std::chrono::seconds{250});
    EXPECT_EQ(seen.code, 0) << seen.text();
}

TEST_F(RecorderReportTest, OneThatIsThereIsRefusedAndOneThatCannotBeWrittenFails) {
    std::ofstream(page_) << "precious";
    const ProgramEnd refused = run({"--report", page_}, game("60"));
    EXPECT_EQ(refused.code, 2);
    EXPECT_THAT(refused.errors, HasSubstr("--overwrite replaces"));
    EXPECT_EQ(contentOf(page_), "precious");
    const ProgramEnd full =
        run({"-q", "-o", folder_.file("out.wav"), "--report", "/dev/full"}, game("1"));
    EXPECT_EQ(full.code, 2);
    EXPECT_THAT(full.errors, HasSubstr("/dev/full: No space left on device"));
    expectMusic(folder_.file("out.wav"), 44100, 0.7);
}

TEST_F(RecorderReportTest, ThatItCanPlayNothingIsSaidAtTheStart) {
    const auto says = [&](const std::vector<std::string>& more, const char* name) {
        std::vector<std::string> options{"-o", folder_.file(name), "--report", page_,
                                         "--overwrite"};
        options.insert(options.end(), more.begin(), more.end());
        return run(options, {"true"}).errors.find("will play nothing") != std::string::npos;
    };
    EXPECT_TRUE(says({}, "out.mka"));
    EXPECT_FALSE(says({"--tracks", folder_.file("tracks")}, "out.mka"));
    EXPECT_FALSE(says({}, "out.flac"));
}

TEST_F(RecorderReportTest, NeedsNoOtherOutputButTellsWhatWasLeftOut) {
    const ProgramEnd outcome = run({"-q", "--format", "wav", "--report", page_}, game("2"));
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    const std::string text = contentOf(page_);
    EXPECT_THAT(text, HasSubstr("a voice engine made it"));
    EXPECT_THAT(text, HasSubstr("frames of track 1: "));
    EXPECT_THAT(text, HasSubstr("data-src=\"music/game_host-20"));
}

}  // namespace
}  // namespace tqrecorder::test
