#include "view/Screen.h"

#include <gtest/gtest.h>

namespace tqrecorder::test {
namespace {

TEST(ScreenTest, HostsCannotSteerTheTerminal) {
    EXPECT_EQ(printable("a\x1b[2Jb\r\n\x7f"), "a [2Jb   ");
    EXPECT_EQ(printable("\xc2\x9b"), "  ");
    EXPECT_EQ(printable("M\xc3\xa4r"), "M\xc3\xa4r");
    EXPECT_EQ(cutToWidth("M\xc3\xa4rz", 2), "M\xc3\xa4");
    EXPECT_EQ(cutToWidth("abc", 9), "abc");
}

}  // namespace
}  // namespace tqrecorder::test
