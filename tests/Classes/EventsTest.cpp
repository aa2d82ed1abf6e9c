#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tq_events.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

std::span<const tq_event_entry> table() {
    std::size_t count = 0;
    const tq_event_entry* const rows = tq_event_table(&count);
    return {rows, count};
}

std::string textOf(const char* path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string kindName(tq_event_kind kind) {
    switch (kind) {
        case TQ_EVENT_KIND_SUCCESS:
            return "success";
        case TQ_EVENT_KIND_ROUTINE:
            return "routine";
        case TQ_EVENT_KIND_FAILURE:
            return "failure";
    }
    return "";
}

/// The name that the header gives a number within one of its enumerations.
std::string nameIn(const std::string& header, const std::string& enumeration, int value) {
    std::smatch body;
    if (!std::regex_search(header, body, std::regex("enum " + enumeration + " \\{([^}]*)\\}"))) {
        return "";
    }
    const std::string list = body[1];
    std::smatch name;
    std::regex_search(list, name, std::regex("(TQ_\\w+) = " + std::to_string(value) + "\\b"));
    return name[1];
}

/// The table as the page prints it.
std::vector<std::string> rowsOf(const std::string& page) {
    std::vector<std::string> rows;
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);) {
        if (std::regex_search(line, std::regex("^\\| [0-9]"))) {
            rows.push_back(line);
        }
    }
    return rows;
}

}  // namespace

TEST(Events, NumbersAreThoseThatListenersKnow) {
    std::set<std::pair<int, int>> pairs;
    for (const tq_event_entry& row : table()) {
        pairs.emplace(row.category, row.code);
    }
    EXPECT_THAT(pairs,
                testing::ElementsAreArray(std::vector<std::pair<int, int>>{{0, 0},
                                                                           {0, 100},
                                                                           {0, 102},
                                                                           {0, 103},
                                                                           {1, 0},
                                                                           {1, 100},
                                                                           {1, 104},
                                                                           {1, 105},
                                                                           {2, 107},
                                                                           {2, 109},
                                                                           {2, 111},
                                                                           {3, 109},
                                                                           {3, 110},
                                                                           {4, 102},
                                                                           {5, 103},
                                                                           {5, 112},
                                                                           {6, 0},
                                                                           {7, 112},
                                                                           {7, 113}}));
    EXPECT_EQ(pairs.size(), table().size()) << "a pair stands twice";
}

TEST(Events, TrackTypesAreThoseOfTheStatistics) {
    EXPECT_EQ(TQ_HOOK_TRACK_UNIT, 8);
    EXPECT_EQ(TQ_HOOK_TRACK_GRAPH_CALLBACK, 16);
    EXPECT_EQ(TQ_HOOK_TRACK_GRAPH, 32);
}

TEST(Events, WhatEveryStartBringsIsNoFailure) {
    EXPECT_EQ(tq_event_kind_of(3, 110), TQ_EVENT_KIND_ROUTINE);
    EXPECT_EQ(tq_event_kind_of(1, 105), TQ_EVENT_KIND_ROUTINE);
}

TEST(Events, CodeZeroIsSuccessAndNothingElseIs) {
    for (const tq_event_entry& row : table()) {
        EXPECT_EQ(row.kind == TQ_EVENT_KIND_SUCCESS, row.code == TQ_EVENT_DONE) << row.text;
    }
}

TEST(Events, EachPairHasATextOfItsOwn) {
    std::set<std::string> texts;
    for (const tq_event_entry& row : table()) {
        EXPECT_STREQ(tq_event_text(row.category, row.code), row.text);
        EXPECT_TRUE(texts.insert(row.text).second) << row.text;
    }
}

TEST(Events, UnknownPairsAreFailuresUnlessTheirCodeIsZero) {
    EXPECT_EQ(tq_event_find(2, 110), nullptr);
    EXPECT_EQ(tq_event_kind_of(2, 110), TQ_EVENT_KIND_FAILURE);
    EXPECT_EQ(tq_event_kind_of(99, 0), TQ_EVENT_KIND_SUCCESS);
    EXPECT_STREQ(tq_event_text(99, 0), "an event that this version does not know");
    EXPECT_EQ(tq_event_find(std::uint64_t{1} << 32U, 0), nullptr);
}

TEST(Events, PageShowsTheTable) {
    const std::string header = textOf(TQ_EVENTS_HEADER);
    std::vector<std::string> expected;
    for (const tq_event_entry& row : table()) {
        std::ostringstream line;
        line << "| " << row.category << " | `" << nameIn(header, "tq_event_category", row.category)
             << "` | " << row.code << " | `" << nameIn(header, "tq_event_code", row.code) << "` | "
             << kindName(row.kind) << " | " << row.text << " |";
        expected.push_back(line.str());
    }
    EXPECT_THAT(rowsOf(textOf(TQ_EVENTS_PAGE)), testing::ElementsAreArray(expected));
}
