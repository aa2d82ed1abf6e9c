#include "output/files/FileNames.h"

#include <gtest/gtest.h>

namespace tqrecorder::test {
namespace {

TEST(FileNamesTest, TakeAdditionsBeforeTheExtension) {
    EXPECT_EQ(withAddition("a/b.c/out.wav", "-x"), "a/b.c/out-x.wav");
    EXPECT_EQ(withAddition("out", "-x"), "out-x");
    EXPECT_EQ(numberAddition(7), "-007");
    EXPECT_EQ(numberAddition(1234), "-1234");
}

TEST(FileNamesTest, AreMadeOfHarmlessLetters) {
    EXPECT_EQ(fileNamePart("../etc/passwd"), "etc_passwd");
    EXPECT_EQ(fileNamePart("Unit 0x55 <a>"), "Unit_0x55_a");
    EXPECT_EQ(fileNamePart("\xc3\xa4\n"), "unnamed");
    EXPECT_EQ(fileNamePart(std::string(300, 'x')).size(), 60U);
}

}  // namespace
}  // namespace tqrecorder::test
