#include "log.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <system_error>

#include "LogRecorder.h"

namespace korva_audio_utils {
namespace {

TEST(LogTest, HandlerGetsPriorityTagAndFormattedText) {
    LogRecorder recorder;
    log(LogPriority::Warn, "some tag", "%s has %d of %zu", "track", -3, std::size_t{7});
    ASSERT_EQ(recorder.All().size(), 1U);
    EXPECT_EQ(recorder.All()[0].priority, LogPriority::Warn);
    EXPECT_EQ(recorder.All()[0].tag, "some tag");
    EXPECT_EQ(recorder.All()[0].text, "track has -3 of 7");
}

TEST(LogTest, PrioritiesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(LogPriority::Debug), 0);
    EXPECT_EQ(static_cast<int>(LogPriority::Info), 1);
    EXPECT_EQ(static_cast<int>(LogPriority::Warn), 2);
    EXPECT_EQ(static_cast<int>(LogPriority::Error), 3);
}

TEST(LogTest, UnknownPriorityIsPassedThrough) {
    LogRecorder recorder;
    log(static_cast<LogPriority>(5), "t", "x");
    ASSERT_EQ(recorder.All().size(), 1U);
    EXPECT_EQ(static_cast<int>(recorder.All()[0].priority), 5);
}

TEST(LogTest, TextHasNoLengthLimit) {
    LogRecorder recorder;
    const std::string longText(100000, 'y');
    log(LogPriority::Info, "t", "[%s]", longText.c_str());
    ASSERT_EQ(recorder.All().size(), 1U);
    EXPECT_EQ(recorder.All()[0].text, "[" + longText + "]");
}

TEST(LogTest, EmptyTextIsDelivered) {
    LogRecorder recorder;
    log(LogPriority::Info, "t", "%s", "");
    ASSERT_EQ(recorder.All().size(), 1U);
    EXPECT_EQ(recorder.All()[0].text, "");
}

TEST(LogTest, WithoutAHandlerNothingIsFormatted) {
    setLogHandler(nullptr);
    int stored = -1;
    // %n stores how much was formatted, so it tells whether formatting took place.
    log(LogPriority::Error, "t", "abc%n", &stored);
    EXPECT_EQ(stored, -1);
    LogRecorder recorder;
    log(LogPriority::Error, "t", "abc%n", &stored);
    EXPECT_EQ(stored, 3);
}

TEST(LogTest, SettingAHandlerReplacesTheEarlierOne) {
    static int first = 0;
    static int second = 0;
    setLogHandler([](LogPriority, const char*, const char*) { ++first; });
    log(LogPriority::Info, "t", "x");
    setLogHandler([](LogPriority, const char*, const char*) { ++second; });
    log(LogPriority::Info, "t", "x");
    setLogHandler(nullptr);
    log(LogPriority::Info, "t", "x");
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
}

TEST(LogTest, WhatTheHandlerThrowsReachesTheCallerAndTheTextIsFreed) {
    // The leak check of the address sanitizer watches over the text.
    setLogHandler([](LogPriority, const char*, const char*) { throw std::runtime_error("no"); });
    EXPECT_THROW(log(LogPriority::Info, "t", "%s", std::string(5000, 'z').c_str()),
                 std::runtime_error);
    setLogHandler(nullptr);
}

TEST(LogTest, AFormatThatCannotBeWrittenOutIsReportedToTheCaller) {
    LogRecorder recorder;
    const wchar_t invalid[] = {static_cast<wchar_t>(0x7fffffff), 0};
    EXPECT_THROW(log(LogPriority::Info, "t", "%ls", invalid), std::system_error);
    EXPECT_TRUE(recorder.All().empty());
}

TEST(LogTest, AHandlerMayLogItself) {
    static int depth = 0;
    setLogHandler([](LogPriority, const char*, const char*) {
        if (++depth < 3) {
            log(LogPriority::Info, "t", "inner %d", depth);
        }
    });
    log(LogPriority::Info, "t", "outer");
    setLogHandler(nullptr);
    EXPECT_EQ(depth, 3);
}

}  // namespace
}  // namespace korva_audio_utils
