#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "RememberingSink.h"
#include "session/RecordingSession.h"
#include "support/TemporaryFolder.h"

inline const std::string kHost = TQ_RECORDED_HOST;
inline const std::string kOther = TQ_OTHER_HOST;
inline const std::string kGate = TQ_RECORDER_GATE;

/// Records real hosts, each test with crash guards of its own.
struct Session : testing::Test {
    TemporaryFolder temporary;
    const std::filesystem::path& caches = temporary.path();
    tqrecorder::Options options;
    RememberingSink sink;

    // Inherited by the hosts: each test has crash guards of its own.
    void SetUp() override { setenv("XDG_CACHE_HOME", caches.c_str(), 1); }
    tqrecorder::RecordingResult record(std::vector<std::string> command) {
        options.command = std::move(command);
        tqrecorder::RecordingSession session(options, sink, kGate);
        return session.run();
    }
};
