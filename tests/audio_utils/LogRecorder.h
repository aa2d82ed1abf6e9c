#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "log.h"

/// Receives the utility log while it lives. One at a time; for tests that log from one thread.
class LogRecorder {
  public:
    struct Line {
        korva_audio_utils::LogPriority priority;
        std::string tag;
        std::string text;
    };

    LogRecorder() {
        Lines().clear();
        korva_audio_utils::setLogHandler(
            [](korva_audio_utils::LogPriority priority, const char* tag, const char* text) {
                Lines().push_back({priority, tag, text});
            });
    }
    ~LogRecorder() { korva_audio_utils::setLogHandler(nullptr); }
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    void Clear() { Lines().clear(); }
    const std::vector<Line>& All() const { return Lines(); }
    std::vector<std::string> Texts(korva_audio_utils::LogPriority priority) const {
        std::vector<std::string> texts;
        for (const Line& line : Lines()) {
            EXPECT_EQ(line.tag, "KorvaAudioUtils");
            if (line.priority == priority) {
                texts.push_back(line.text);
            }
        }
        return texts;
    }
    std::vector<std::string> Errors() const { return Texts(korva_audio_utils::LogPriority::Error); }
    std::vector<std::string> Infos() const { return Texts(korva_audio_utils::LogPriority::Info); }

  private:
    static std::vector<Line>& Lines() {
        static std::vector<Line> lines;
        return lines;
    }
};
