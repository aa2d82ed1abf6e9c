#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "RememberingSink.h"
#include "session/RecordingSession.h"

inline const std::string kHost = TQ_RECORDED_HOST;
inline const std::string kOther = TQ_OTHER_HOST;
inline const std::string kGate = TQ_RECORDER_GATE;

/// Records real hosts, each test with crash guards of its own.
struct Session : testing::Test {
    std::filesystem::path caches;
    tqrecorder::Options options;
    RememberingSink sink;

    void SetUp() override {
        std::string folder = testing::TempDir() + "tq-recording-XXXXXX";
        ASSERT_NE(mkdtemp(folder.data()), nullptr);
        caches = folder;
        // Inherited by the hosts: each test has crash guards of its own.
        setenv("XDG_CACHE_HOME", folder.c_str(), 1);
    }
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::remove_all(caches, ignored);
    }
    tqrecorder::RecordingResult record(std::vector<std::string> command) {
        options.command = std::move(command);
        tqrecorder::RecordingSession session(options, sink, kGate);
        return session.run();
    }
};
