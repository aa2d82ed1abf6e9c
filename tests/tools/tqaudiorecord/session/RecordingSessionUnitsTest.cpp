// Units that come and go.

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "SessionFixture.h"

namespace {

using namespace tqrecorder;

TEST_F(Session, UnitsThatAreDisposedOfInitialisedAreAllRecorded) {
    std::set<std::string> units;
    sink.onBlock = [&units](const Process&, const Block& block) {
        if (block.track != 0) {
            EXPECT_EQ(block.track, 1);
            units.emplace(block.unit);
        }
    };
    EXPECT_EQ(record({kHost, "disposing", "100"}).hostExitCode, 0);
    EXPECT_EQ(units.size(), 100U);
}

TEST_F(Session, UnitsThatAreMadeAnewTakeNoPlaceOfAUnitThatPlaysOn) {
    std::map<std::uint32_t, std::set<std::string>> unitsOfTracks;
    std::map<std::string, std::uint64_t> lastBlocks;
    sink.onBlock = [&](const Process&, const Block& block) {
        if (block.track != 0) {
            unitsOfTracks[static_cast<std::uint32_t>(block.track)].emplace(block.unit);
            lastBlocks[std::string(block.unit)] = block.microseconds;
        }
    };
    EXPECT_EQ(record({kHost, "remaking", "5"}).hostExitCode, 0);
    EXPECT_EQ(unitsOfTracks[1], std::set<std::string>{"unit-1"});
    EXPECT_EQ(unitsOfTracks[2], std::set<std::string>{"unit-2"});
    EXPECT_EQ(unitsOfTracks[3].size(), 5U);
    EXPECT_GE(lastBlocks["unit-1"], lastBlocks["unit-7"]) << "it is recorded to its end";
}

}  // namespace
