#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <log.h>

#include <string>

#include "LogCapture.h"
#include "TQAudioCaptureBase.h"

using korva_audio_utils::LogPriority;
using testing::IsEmpty;

namespace {

constexpr const char* kFile = "Classes/Base/TQAudioCaptureBase";
constexpr const char* kFunction = "korvaAudioLogHandler";

struct Mapping {
    LogPriority priority;
    int level;
    int line;

    friend std::ostream& operator<<(std::ostream& out, const Mapping& mapping) {
        return out << "level " << mapping.level << " line " << mapping.line;
    }
};

class KorvaAudioLogHandlerTest : public testing::Test {
  protected:
    void SetUp() override { RZReplayAudioUnitCapture_initHookConfig(); }
};

class KorvaAudioLogHandlerTableTest : public KorvaAudioLogHandlerTest,
                                      public testing::WithParamInterface<Mapping> {};

}  // namespace

TEST_P(KorvaAudioLogHandlerTableTest, MapsThePriorityToItsLevelAndLine) {
    const LogCapture log;
    korva_audio_utils::log(GetParam().priority, "KorvaAudioUtils", "opened %s at %d", "file", 7);
    ASSERT_EQ(1U, log.lines().size());
    const LogLine line = log.lines()[0];
    EXPECT_THAT(
        line, IsLogLine(kFile, kFunction, GetParam().level, "[KorvaAudioUtils] opened file at 7"));
    EXPECT_EQ(GetParam().line, line.line);
}

INSTANTIATE_TEST_SUITE_P(
    EveryPriority, KorvaAudioLogHandlerTableTest,
    testing::Values(Mapping{LogPriority::Debug, 1, 76}, Mapping{LogPriority::Info, 2, 80},
                    Mapping{LogPriority::Warn, 3, 88}, Mapping{LogPriority::Error, 4, 84}),
    [](const auto& test) {
        return "Priority" + std::to_string(static_cast<int>(test.param.priority));
    });

TEST_F(KorvaAudioLogHandlerTest, AnyOtherPriorityLogsNothing) {
    const LogCapture log;
    for (const int priority : {4, 5, -1}) {
        korva_audio_utils::log(static_cast<LogPriority>(priority), "tag", "text");
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KorvaAudioLogHandlerTest, TextIsNotReadAsAFormatAgain) {
    const LogCapture log;
    korva_audio_utils::log(LogPriority::Info, "t%s", "%s", "100%d %@");
    EXPECT_EQ(1U, log.count("[t%s] 100%d %@"));
}

TEST_F(KorvaAudioLogHandlerTest, LongTextsArriveWhole) {
    const LogCapture log;
    const std::string text(10000, 'x');
    korva_audio_utils::log(LogPriority::Error, "T", "%s", text.c_str());
    EXPECT_EQ(1U, log.count("[T] " + text));
}
