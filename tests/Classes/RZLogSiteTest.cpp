#include "RZLogSite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LogCapture.h"

using testing::ElementsAre;

namespace {
constexpr RZLogSite site("Classes/Some", "-[Some thing:]");

}  // namespace

TEST(RZLogSiteTest, LineCarriesPlaceTagLevelAndTheCallersLine) {
    const LogCapture log;
    const int line = __LINE__ + 1;
    site.log(3, "value %d of %@", 5, std::string("text"));
    ASSERT_THAT(log.lines(),
                ElementsAre(IsLogLine("Classes/Some", "-[Some thing:]", 3, "value 5 of text")));
    EXPECT_EQ(line, log.lines()[0].line);
}

TEST(RZLogSiteTest, PointersPrintAsThePlatformPrintsThem) {
    const LogCapture log;
    site.log(2, "%p %p", static_cast<void*>(nullptr), reinterpret_cast<void*>(0x1234));
    EXPECT_THAT(log.messages(), ElementsAre("0x0 0x1234"));
}

TEST(RZLogSiteTest, FormatWithoutArgumentsTreatsOnlyDoubledPercentSignsSpecially) {
    EXPECT_EQ("100% and %d", RZFormat("100%% and %d"));
    EXPECT_EQ("", RZFormat(""));
    EXPECT_EQ("ends with %", RZFormat("ends with %"));
    EXPECT_EQ("%%", RZFormat("%%%%"));
}

TEST(RZLogSiteTest, FinishedMessageIsNotReadAsAFormat) {
    const LogCapture log;
    site.write(4, 12, "100%s %@ %n");
    EXPECT_THAT(log.messages(), ElementsAre("100%s %@ %n"));
    EXPECT_EQ(12, log.lines()[0].line);
}

TEST(RZLogSiteTest, FormatGivenALineNumberKeepsIt) {
    const LogCapture log;
    site.log(2, RZLogFormat("x", 76));
    EXPECT_EQ(76, log.lines().at(0).line);
}
