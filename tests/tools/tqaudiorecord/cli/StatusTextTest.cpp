// What `ctl status` answers.

#include "cli/StatusText.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "ipc/ControlText.h"

namespace {

using namespace tqrecorder;

std::vector<WrittenFile> filesOf(std::size_t count) {
    std::vector<WrittenFile> files(count);
    for (std::size_t i = 0; i < count; ++i) {
        files[i].path = "/home/user/Music/a-rather-long-name-" + std::to_string(i) + ".wav";
        files[i].seconds = static_cast<double>(i);
    }
    return files;
}

TEST(StatusText, OfMoreFilesThanAnAnswerHoldsTheNewestAreThereAndTheRestIsCounted) {
    const std::string text = statusText(Observer(), filesOf(5000), false, true);
    EXPECT_LE(text.size(), kLongestControl);
    const auto status = nlohmann::json::parse(text);
    EXPECT_GT(status["files"].size(), 100U);
    EXPECT_EQ(status["files"].back()["seconds"], 4999);
    EXPECT_EQ(status["files"].size() + status["files_omitted"].get<std::size_t>(), 5000U);
}

TEST(StatusText, WhatFitsIsWholeAndNothingIsSaidToBeOmitted) {
    const auto status = nlohmann::json::parse(statusText(Observer(), filesOf(10), false, true));
    EXPECT_EQ(status["files"].size(), 10U);
    EXPECT_FALSE(status.contains("files_omitted"));
}

}  // namespace
