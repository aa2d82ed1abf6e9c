#include "OSStatusText.h"

#include <gtest/gtest.h>

TEST(OSStatusTextTest, SuccessHasNoText) {
    EXPECT_EQ("", CheckError(0));
}

TEST(OSStatusTextTest, FourPrintableCharactersStandBetweenQuotes) {
    EXPECT_EQ("'fmt?'", CheckError(0x666D743F));
    EXPECT_EQ("'    '", CheckError(0x20202020));
    EXPECT_EQ("'~~~~'", CheckError(0x7E7E7E7E));
}

TEST(OSStatusTextTest, AnythingElseIsDecimal) {
    EXPECT_EQ("-10863", CheckError(-10863));
    EXPECT_EQ("1", CheckError(1));
    EXPECT_EQ("1718452223", CheckError(0x666D7FFF));
    EXPECT_EQ("522133279", CheckError(0x1F1F1F1F));
    EXPECT_EQ("2139062143", CheckError(0x7F7F7F7F));
}
