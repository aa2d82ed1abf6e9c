#include "output/report/ReportText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "output/files/FileFormats.h"

namespace tqrecorder::test {
namespace {

TEST(ReportText, NothingThatIsSaidBecomesMarkup) {
    EXPECT_EQ(escaped("<b a=\"1\" c='2'>&amp;</b>"),
              "&lt;b a=&quot;1&quot; c=&#39;2&#39;&gt;&amp;amp;&lt;/b&gt;");
    EXPECT_EQ(escaped("B\u00fchne \u4e2d"), "B\u00fchne \u4e2d");
    EXPECT_EQ(escaped("a\x1b[2J\xff\n"), "a?[2J??");
}

TEST(ReportText, FilesAreNamedAsSeenFromThePage) {
    EXPECT_EQ(relativeUrl("out/game.html", "out/game.flac"), "game.flac");
    EXPECT_EQ(relativeUrl("game.html", "./tracks/a.wav"), "tracks/a.wav");
    EXPECT_EQ(relativeUrl("/a/b/game.html", "/a/c/game.flac"), "../c/game.flac");
    EXPECT_EQ(relativeUrl("/a/x/../game.html", "/a/game.flac"), "game.flac");
}

TEST(ReportText, WhatMeansSomethingInAnAddressIsWrittenAsItsNumber) {
    EXPECT_EQ(relativeUrl("/a/p.html", "/a/50% #1?.wav"), "50%25%20%231%3F.wav");
    EXPECT_EQ(relativeUrl("/a/p.html", "/a/\"><script>.wav"), "%22%3E%3Cscript%3E.wav");
    EXPECT_EQ(relativeUrl("/a/p.html", "/a/javascript:x.wav"), "javascript%3Ax.wav");
    EXPECT_EQ(relativeUrl("/a/p.html", "/a/\u00fc.wav"), "%C3%BC.wav");
}

TEST(ReportText, BytesBecomeLetters) {
    const auto letters = [](std::vector<unsigned char> bytes) { return base64(bytes); };
    EXPECT_EQ(letters({}), "");
    EXPECT_EQ(letters({'f'}), "Zg==");
    EXPECT_EQ(letters({'f', 'o'}), "Zm8=");
    EXPECT_EQ(letters({'f', 'o', 'o'}), "Zm9v");
    EXPECT_EQ(letters({0xFB, 0xEF, 0xFF}), "++//");
}

TEST(ReportText, TimesAreReadAsOnAClock) {
    EXPECT_EQ(clockText(-1), "0:00.0");
    EXPECT_EQ(clockText(5.06), "0:05.0");
    EXPECT_EQ(clockText(61.3), "1:01.3");
    EXPECT_EQ(clockText(3723.4), "1:02:03.4");
}

TEST(ReportText, LevelsAreDecibels) {
    EXPECT_EQ(levelText(0.5, "dBFS"), "-6.0 dBFS");
    EXPECT_EQ(levelText(0, "dBFS"), "silent");
}

TEST(ReportText, WhatBrowsersDoNotPlayIsSaid) {
    for (const char* kind : {"wav", "flac", "ogg", "opus", "rf64"}) {
        EXPECT_EQ(whyNotPlayed(formatNamed(kind), "48000 Hz, 32-bit float, stereo"), "") << kind;
    }
    EXPECT_THAT(whyNotPlayed(formatNamed("w64"), "44100 Hz, 16-bit integer, stereo"),
                testing::HasSubstr("Wave64"));
    EXPECT_THAT(whyNotPlayed(formatNamed("mka-pcm"), "44100 Hz, 16-bit integer, stereo"),
                testing::HasSubstr("Matroska"));
    EXPECT_THAT(whyNotPlayed(formatNamed("raw"), "44100 Hz, 16-bit integer, stereo"),
                testing::HasSubstr("bare samples"));
    EXPECT_THAT(whyNotPlayed(formatNamed("wav"), "48000 Hz, 64-bit float, stereo"),
                testing::HasSubstr("64-bit float"));
    EXPECT_NE(whyNotPlayed(nullptr, ""), "");
}

}  // namespace
}  // namespace tqrecorder::test
