// A reader of the recorder's messages that does not read holds nothing up.

#include <fcntl.h>
#include <unistd.h>

#include "HostileFixture.h"

namespace tqrecorder::test {
namespace {

/// Reads what is in a descriptor until nobody can write any more.
std::string readAll(int descriptor) {
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t got = 0; (got = read(descriptor, piece.data(), piece.size())) > 0;) {
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
    return text;
}

constexpr double kSeconds = 3;

TEST_F(HostileHostTest, APipeThatIsNotReadStopsNoRecording) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    ProgramSetup with = setup({"-v", "-o", output()}, "talk", "3000");
    with.errors = ends[1];
    Program program(with);
    close(ends[1]);
    EXPECT_TRUE(eventually([&] {
        return static_cast<double>(RecordedFile(output()).frames()) > (kSeconds - 0.7) * 44100;
    }));
    const std::string shown = readAll(ends[0]);
    close(ends[0]);
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_THAT(shown, testing::ContainsRegex("[0-9]+ lines were not shown"));
    EXPECT_THAT(shown, HasSubstr("Recorded: hostile"));
}

TEST_F(HostileHostTest, ATerminalThatIsStoppedStopsNoRecording) {
    const tqtest::Terminal terminal(24, 80);
    ProgramSetup with = setup({"-v", "-o", output()}, "talk", "3000");
    with.errors = terminal.programEnd();
    Program program(with);
    EXPECT_TRUE(eventually([&] {
        return static_cast<double>(RecordedFile(output()).frames()) > (kSeconds - 0.7) * 44100;
    }));
    // It gives up waiting for a reader once the files are whole.
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_GT(static_cast<double>(RecordedFile(output()).frames()), (kSeconds - 0.5) * 44100);
}

}  // namespace
}  // namespace tqrecorder::test
