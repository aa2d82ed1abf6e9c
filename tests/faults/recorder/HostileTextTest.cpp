// What a host calls itself and says steers no terminal and looks like no line of the recorder.

#include "HostileFixture.h"

namespace tqrecorder::test {
namespace {

/// A line end and a line like the recorder's own, what clears a screen and sets a window's title,
/// one byte that old terminals take for the same, and marks that turn the direction of writing.
const std::string kForged =
    "x\nProblem: forged\x1b[2J\x1b]0;t\x07\x9b\x32J\xc2\x9b\xe2\x80\xae\xe2\x81\xa6";

void expectHarmless(const std::string& text) {
    for (const char* bad : {"\x1b", "\x07", "\x9b", "\xe2\x80\xae", "\xe2\x81\xa6"}) {
        EXPECT_THAT(text, Not(HasSubstr(bad)));
    }
    EXPECT_THAT(text, HasSubstr("forged"));
    EXPECT_THAT("\n" + text, Not(HasSubstr("\nProblem: forged")));
}

TEST_F(HostileHostTest, NamesAndMessagesForgeNoLine) {
    const ProgramEnd end = run({"-v", "-o", output()}, "forge", kForged);
    expectHarmless(end.errors);
    EXPECT_THAT(end.errors, HasSubstr("Recorded: x Problem: forged"));
}

TEST_F(HostileHostTest, TheNameOfAProgramsFileForgesNoLine) {
    const std::string program = folder_.file(kForged);
    std::filesystem::copy_file(TQ_HOSTILE_HOST, program);
    const ProgramEnd end =
        tqtest::runProgram({.arguments = {TQ_RECORDER, "--no-arm", "--", program, "complain", "1"},
                            .environment = {{"XDG_CACHE_HOME", folder_.file("cache")},
                                            {"XDG_MUSIC_DIR", folder_.file("music")}}});
    expectHarmless(end.errors);
}

TEST_F(HostileHostTest, TheStateOfAGuardIsOneLine) {
    const std::string program = folder_.file(kForged);
    std::filesystem::copy_file(TQ_HOSTILE_HOST, program);
    const ProgramEnd end =
        tqtest::runProgram({.arguments = {TQ_RECORDER, "guard", "status", program},
                            .environment = {{"XDG_CACHE_HOME", folder_.file("cache")}}});
    expectHarmless(end.output);
    EXPECT_EQ(std::count(end.output.begin(), end.output.end(), '\n'), 1);
}

}  // namespace
}  // namespace tqrecorder::test
