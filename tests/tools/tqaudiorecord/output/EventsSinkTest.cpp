// Events as JSON lines.

#include "output/EventsSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "SinkFixture.h"

namespace tqrecorder::test {
namespace {

class EventsSinkTest : public SinkFixture {};

TEST_F(EventsSinkTest, EventsAreJsonLinesThatAreThereAtOnce) {
    EventsSink sink(folder_.file("events.jsonl"));
    ASSERT_TRUE(sink.open());
    sink.event(game_, {123456789, 6, 0, "audio unit \"start\"\n: 1"});
    sink.event(game_, {123456790, UINT64_MAX, 7, "bro\xffken"});
    std::ifstream lines(folder_.file("events.jsonl"));
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    const auto first = nlohmann::json::parse(line);
    EXPECT_EQ(first["host_time_us"], 123456789U);
    EXPECT_EQ(first["category"], 6U);
    EXPECT_EQ(first["code"], 0U);
    EXPECT_EQ(first["message"], "audio unit \"start\"\n: 1");
    EXPECT_EQ(first["process"], "game");
    EXPECT_EQ(first["pid"], 1001);
    EXPECT_EQ(first["kind"], "success");
    EXPECT_EQ(first["text"], "the program has started a unit");
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(nlohmann::json::parse(line)["category"], UINT64_MAX);
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(EventsSinkTest, WhatAHostSaysSteersNoTerminalThatShowsTheFile) {
    EventsSink sink(folder_.file("events.jsonl"));
    ASSERT_TRUE(sink.open());
    const std::string words = "x\x1b[2J\x7f\xc2\x9b\xe2\x80\xae";
    sink.event(process(7, words), {1, 6, 0, words});
    const auto bytes = mixTone(441, 441);
    sink.block(process(7, words), {1, words, kMixFormat, kStart, bytes});
    std::ifstream lines(folder_.file("events.jsonl"));
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_TRUE(std::all_of(line.begin(), line.end(), [](char c) {
            return c >= ' ' && c < 127;
        })) << line;
        EXPECT_EQ(nlohmann::json::parse(line)["process"], words);
    }
    EXPECT_EQ(count, 2);
}

TEST_F(EventsSinkTest, EventsOfANormalStartAreNoFailures) {
    EventsSink sink(folder_.file("events.jsonl"));
    ASSERT_TRUE(sink.open());
    sink.event(game_, {1, 1, 105, ""});
    sink.event(game_, {2, 3, 110, ""});
    sink.event(game_, {3, 2, 109, ""});
    std::ifstream lines(folder_.file("events.jsonl"));
    std::vector<std::string> kinds;
    for (std::string line; std::getline(lines, line);) {
        kinds.push_back(nlohmann::json::parse(line)["kind"]);
    }
    EXPECT_THAT(kinds, testing::ElementsAre("routine", "routine", "failure"));
}

TEST_F(EventsSinkTest, TheBeginningOfATrackIsALineWithItsOffset) {
    EventsSink sink(folder_.file("events.jsonl"));
    ASSERT_TRUE(sink.open());
    const auto bytes = mixTone(441, 441);
    sink.block(game_, mixBlock(bytes, kStart));
    for (const std::uint64_t later : {2'500'000U, 2'510'000U}) {
        sink.block(game_, {2, "music", kMixFormat, kStart + later, bytes});
    }
    sink.block(game_, {2, "voice", kMixFormat, kStart + 4'000'000, bytes});
    std::ifstream lines(folder_.file("events.jsonl"));
    std::vector<std::pair<std::string, double>> beginnings;
    for (std::string line; std::getline(lines, line);) {
        const auto event = nlohmann::json::parse(line);
        EXPECT_EQ(event["track"], 2);
        EXPECT_EQ(event["kind"], "routine");
        beginnings.emplace_back(event["unit"], event["offset_seconds"]);
    }
    EXPECT_THAT(beginnings,
                testing::ElementsAre(testing::Pair("music", 2.5), testing::Pair("voice", 4.0)));
}

TEST_F(EventsSinkTest, AFileThatCannotTakeItsNameIsOneProblemAndKeptWithAllEvents) {
    const std::string path = folder_.file("events.jsonl");
    EventsSink sink(path, true);
    ASSERT_TRUE(sink.open());
    std::filesystem::create_directory(path);
    const auto bytes = mixTone(441, 441);
    for (std::uint64_t turn = 0; turn < 5; ++turn) {
        sink.event(game_, {turn, 1, 105, ""});
        sink.block(game_, mixBlock(bytes, kStart + turn * 10'000));
    }
    sink.finish();
    const std::string kept = folder_.file(".events.jsonl.tqaudiorecord");
    EXPECT_THAT(sink.problems(),
                testing::ElementsAre(testing::AllOf(testing::HasSubstr("Is a directory"),
                                                    testing::HasSubstr("kept as " + kept))));
    const std::string content = contentOf(kept);
    EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), 5);
    EXPECT_EQ(sink.path(), "");
}

TEST_F(EventsSinkTest, OfTheMicrophoneAloneTheyAreKeptBesideThoseOfAnotherRecording) {
    const std::string path = folder_.file("events.jsonl");
    for (const bool isProgramHeard : {false, true}) {
        std::ofstream(path) << "precious";
        EventsSink sink(path, true, names_);
        ASSERT_TRUE(sink.open());
        sink.event(game_, {1, 1, 105, ""});
        const auto bytes = mixTone(441, 441);
        sink.block(game_, {kMicrophoneTrack, kMicrophoneName, kMixFormat, kStart, bytes});
        EXPECT_EQ(contentOf(path), "precious");
        if (isProgramHeard) {
            names_->hear(game_);
            sink.block(game_, mixBlock(bytes, at(441)));
        }
        sink.finish();
        EXPECT_EQ(contentOf(path) == "precious", !isProgramHeard);
        EXPECT_EQ(sink.path(), isProgramHeard ? path : folder_.file("events-2.jsonl"));
        EXPECT_EQ(sink.problems().size(), isProgramHeard ? 0U : 1U);
    }
}

TEST_F(EventsSinkTest, EventsOnAFullDiskAreOneProblem) {
    EventsSink sink("/dev/full");
    ASSERT_TRUE(sink.open());
    sink.event(game_, {1, 2, 3, "a"});
    sink.event(game_, {1, 2, 3, "b"});
    ASSERT_EQ(sink.problems().size(), 1U);
    EXPECT_THAT(sink.problems()[0], testing::StartsWith("/dev/full: "));
}

}  // namespace
}  // namespace tqrecorder::test
