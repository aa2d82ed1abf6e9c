#include "PlatformHeaders.h"

#include <gtest/gtest.h>

TEST(PlatformHeaders, ServeAProgramWrittenInC) {
    EXPECT_EQ(useTheHeadersFromC(), 0);
}
