#include "view/Screen.h"

#include <gtest/gtest.h>

#include "ipc/Printable.h"
#include "view/Columns.h"

namespace tqrecorder::test {
namespace {

TEST(ScreenTest, HostsCannotSteerTheTerminal) {
    EXPECT_EQ(printable("a\x1b[2Jb\r\n\x7f"), "a [2Jb   ");
    EXPECT_EQ(printable("\xc2\x9b"), "  ");
    EXPECT_EQ(printable("M\xc3\xa4r"), "M\xc3\xa4r");
    EXPECT_EQ(printable("\x9b[2J"), "?[2J")
        << "no UTF-8, but a control character to some terminals";
    EXPECT_EQ(printable("\xe2\x80\xae\xe2\x81\xa6x"), "      x") << "marks of direction";
    EXPECT_EQ(printable("\xf0\x9f\x8e\xb5 \xe6\x97\xa5"), "\xf0\x9f\x8e\xb5 \xe6\x97\xa5");
    EXPECT_EQ(cutToWidth("M\xc3\xa4rz", 2), "M\xc3\xa4");
    EXPECT_EQ(cutToWidth("abc", 9), "abc");
    EXPECT_EQ(cutToWidth("音楽と効果", 5), "音楽") << "of two columns each";
    EXPECT_EQ(columnsOf("音楽"), 4U);
    EXPECT_EQ(columnsOf("e\xcc\x81 ok"), 4U) << "a mark on a letter takes none";
    EXPECT_EQ(columnsOf("\xff?"), 2U) << "what is no letter is shown as one";
}

}  // namespace
}  // namespace tqrecorder::test
