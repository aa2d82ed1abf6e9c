// The program draw_picture as its user meets it.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "TestWave.h"
#include "support/ProgramRunner.h"

namespace tqpicture::test {
namespace {

using tqtest::ProgramEnd;

class DrawPictureTest : public testing::Test {
  protected:
    /// Arguments stand between spaces.
    static ProgramEnd run(const std::string& arguments) {
        tqtest::ProgramSetup setup{.arguments = {TQ_DRAW_PICTURE}};
        std::istringstream words(arguments);
        for (std::string word; words >> word;) {
            setup.arguments.push_back(word);
        }
        return tqtest::runProgram(setup);
    }
    TemporaryFolder folder_;
};

TEST_F(DrawPictureTest, DrawsAMixAndItsTracks) {
    ASSERT_TRUE(writeWave(folder_.file("mix.wav"), sine(440, 44100, 44100, 0.5, 2), 44100, 2));
    ASSERT_TRUE(writeWave(folder_.file("track.wav"), sine(440, 22050, 22050, 0.5), 22050));
    const ProgramEnd outcome = run("--title Demo --event 0.5:start " + folder_.file("mix.wav") +
                                   " " + folder_.file("out.png") + " " + folder_.file("track.wav"));
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_GT(std::filesystem::file_size(folder_.file("out.png")), 1000U);
}

TEST_F(DrawPictureTest, ReadsEventsFromAFile) {
    ASSERT_TRUE(writeWave(folder_.file("mix.wav"), sine(440, 8000, 8000, 0.5), 8000));
    std::ofstream(folder_.file("events.txt")) << "0.25\t6/0 audio unit start: 1\n0.5\tend\n";
    const std::string files = folder_.file("mix.wav") + " " + folder_.file("out.png");
    EXPECT_EQ(run("--events " + folder_.file("events.txt") + " " + files).code, 0);
    std::ofstream(folder_.file("events.txt"), std::ios::app) << "no number\tlabel\n";
    const ProgramEnd broken = run("--events " + folder_.file("events.txt") + " " + files);
    EXPECT_EQ(broken.code, 2);
    EXPECT_NE(broken.errors.find("line 3"), std::string::npos) << broken.errors;
    EXPECT_EQ(run("--events " + folder_.file("none.txt") + " " + files).code, 2);
}

TEST_F(DrawPictureTest, SaysInOneLineWhatItCannotRead) {
    const ProgramEnd outcome = run(folder_.file("none.wav") + " " + folder_.file("out.png"));
    EXPECT_EQ(outcome.code, 2);
    EXPECT_NE(outcome.errors.find("none.wav"), std::string::npos);
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
}

TEST_F(DrawPictureTest, AnswersWrongArgumentsWithItsUsage) {
    for (const char* arguments : {"", "one.wav", "--event x:y a.wav b.png", "--width wide a b",
                                  "--nothing a b", "--event"}) {
        const ProgramEnd outcome = run(arguments);
        EXPECT_EQ(outcome.code, 1) << arguments;
        EXPECT_NE(outcome.errors.find("usage: draw_picture"), std::string::npos) << arguments;
    }
    EXPECT_EQ(run("--help").code, 0);
}

}  // namespace
}  // namespace tqpicture::test
