// The page that tells of a recording, as text.

#include "output/report/ReportSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "output/SinkSet.h"
#include "output/TracksSink.h"
#include "tools/tqaudiorecord/output/SinkFixture.h"

namespace tqrecorder::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class ReportSinkTest : public SinkFixture {
  protected:
    /// A recording with a mix, tracks and its report.
    struct Recording : SinkSet {
        Recording(ReportSinkTest& test, const std::string& page, bool mayReplace = false,
                  std::optional<double> maximumSeconds = {})
            : mix(add(
                  std::make_unique<MixSink>(FileSeries::Plan{test.folder_.file("out.wav"),
                                                             formatNamed("wav"), maximumSeconds},
                                            test.names_))),
              tracks(add(std::make_unique<TracksSink>(
                  TracksSink::Plan{test.folder_.file("tracks"), maximumSeconds}, test.names_))),
              lanes(add(std::make_unique<Lanes>(test.names_, true))),
              report(add(std::make_unique<ReportSink>(
                  page, mayReplace, lanes,
                  [this] {
                      ReportFacts all = facts;
                      for (const FilesSink* sink : {static_cast<const FilesSink*>(&mix),
                                                    static_cast<const FilesSink*>(&tracks)}) {
                          const auto files = sink->files();
                          all.files.insert(all.files.end(), files.begin(), files.end());
                      }
                      return all;
                  },
                  0))) {
            EXPECT_TRUE(tracks.open());
        }
        ReportFacts facts;
        MixSink& mix;
        TracksSink& tracks;
        Lanes& lanes;
        ReportSink& report;
    };
    [[nodiscard]] std::string page() const { return contentOf(folder_.file("game.html")); }
    static void playTrack(Sink& sink, const std::string& unit, std::size_t frame) {
        const auto bytes = mixTone(441, 22'050);
        sink.block(process(1, "game"), {1, unit, kMixFormat, at(frame), bytes});
    }
    static std::size_t count(const std::string& text, const std::string& what) {
        std::size_t found = 0;
        for (std::size_t place = 0; (place = text.find(what, place)) != std::string::npos;
             ++place) {
            ++found;
        }
        return found;
    }
};

TEST_F(ReportSinkTest, ThePageHasALaneWithPicturesAndSoundForMixAndTracks) {
    Recording all(*this, folder_.file("game.html"));
    ASSERT_TRUE(all.report.open());
    play(all, game_, 0, 44'100);
    playTrack(all, "music", 11'025);
    all.finish();
    EXPECT_THAT(all.problems(), testing::IsEmpty());
    EXPECT_EQ(all.report.path(), folder_.file("game.html"));
    const std::string text = page();
    EXPECT_EQ(count(text, "<section class=\"lane"), 2U);
    EXPECT_EQ(count(text, "src=\"data:image/png;base64,iVBOR"), 2U);
    EXPECT_EQ(count(text, "class=\"peak\" d=\"M"), 2U);
    EXPECT_THAT(text, HasSubstr("data-src=\"out.wav\" data-name=\"out.wav\" data-at=\"0.000000\" "
                                "data-seconds=\"1.000000\""));
    EXPECT_THAT(text,
                HasSubstr("data-src=\"tracks/track-1-music.wav\" data-name=\"track-1-music.wav\" "
                          "data-at=\"0.250000\" data-seconds=\"0.500000\""));
    EXPECT_THAT(text, HasSubstr("<h1>game</h1>"));
    EXPECT_THAT(text, HasSubstr("-6.0 dBFS"));
    EXPECT_THAT(text, HasSubstr(" LUFS"));
    EXPECT_THAT(text, Not(HasSubstr("src=\"http")));
}

TEST_F(ReportSinkTest, FilesOfOneStreamAreHeardOneAfterTheOther) {
    Recording all(*this, folder_.file("game.html"), false, 0.4);
    play(all, game_, 0, 44'100);
    all.finish();
    const std::string text = page();
    EXPECT_THAT(text, HasSubstr("data-src=\"out-001.wav\" data-name=\"out-001.wav\" "
                                "data-at=\"0.000000\" data-seconds=\"0.400000\""));
    EXPECT_THAT(text, HasSubstr("data-at=\"0.400000\" data-seconds=\"0.400000\""));
    EXPECT_THAT(text, HasSubstr("data-at=\"0.800000\" data-seconds=\"0.200000\""));
}

TEST_F(ReportSinkTest, ATrackThatComesAgainHasTheFileOfItsTime) {
    Recording all(*this, folder_.file("game.html"));
    play(all, game_, 0, 470);
    playTrack(all, "music", 0);
    playTrack(all, "voice", 44'100);
    playTrack(all, "music", 88'200);
    all.finish();
    const std::string text = page();
    const std::size_t first = text.find("data-src=\"tracks/track-1-music.wav\"");
    const std::size_t second = text.find("data-src=\"tracks/track-1-music-part2.wav\"");
    ASSERT_NE(first, std::string::npos);
    ASSERT_NE(second, std::string::npos);
    EXPECT_THAT(text.substr(first, 150), HasSubstr("data-at=\"0.000000\""));
    EXPECT_THAT(text.substr(second, 150), HasSubstr("data-at=\"2.000000\""));
}

TEST_F(ReportSinkTest, EventsAreNamedAndCountedFailuresFirst) {
    Recording all(*this, folder_.file("game.html"));
    play(all, game_, 0, 44'100);
    for (const std::size_t frame : {0U, 4410U, 8820U}) {
        all.event(game_, {at(frame), 6, 0, ""});
    }
    all.event(game_, {at(22'050), 2, 109, ""});
    all.finish();
    const std::string text = page();
    const std::size_t failure = text.find("failure: ");
    const std::size_t start = text.find("</td><td class=\"number\">3</td>");
    ASSERT_NE(failure, std::string::npos);
    ASSERT_NE(start, std::string::npos);
    EXPECT_LT(failure, start);
    EXPECT_THAT(text.substr(failure, 400), HasSubstr("data-go=\"0.500\""));
    EXPECT_THAT(text.substr(start, 400), HasSubstr("data-go=\"0.100\""));
    EXPECT_EQ(count(text, "<i class=\"bad\" style=\"left:50.000%\""), 1U);
}

TEST_F(ReportSinkTest, LossesGapsAndWhatWasLeftOutAreTold) {
    Recording all(*this, folder_.file("game.html"));
    all.facts.leftOut = {"not recorded: unit-9: a voice engine made it"};
    all.facts.accounts = {"frames of track 1: 5 rendered"};
    all.facts.problems = {"out.wav: No space left on device"};
    play(all, game_, 0, 4700);
    all.lost(game_, 2, 3760);
    const auto bytes = mixTone(441, 4700);
    Block behind = mixBlock(bytes, at(48'800));
    behind.lostFrames = 44'100;
    all.block(game_, behind);
    all.finish();
    const std::string text = page();
    EXPECT_THAT(text, HasSubstr("2 blocks (3760 bytes) found no room"));
    EXPECT_THAT(text, HasSubstr("mix: 1 gap filled with silence, 1.00 s"));
    EXPECT_THAT(text, HasSubstr("<li>not recorded: unit-9: a voice engine made it</li>"));
    EXPECT_THAT(text, HasSubstr("<li>frames of track 1: 5 rendered</li>"));
    EXPECT_THAT(text, HasSubstr("<li>out.wav: No space left on device</li>"));
}

TEST_F(ReportSinkTest, NamesOfProgramsAndStreamsBecomeNoMarkup) {
    const std::string evil = "</script><img src=x onerror=alert(1)>\"'";
    Recording all(*this, folder_.file("game.html"));
    const Process host = process(1, evil);
    const auto bytes = mixTone(441, 4410);
    all.block(host, mixBlock(bytes, at(0)));
    all.block(host, {1, evil, kMixFormat, at(0), bytes});
    all.facts.leftOut = {evil};
    all.facts.problems = {evil};
    all.facts.accounts = {evil};
    all.facts.otherFiles = {evil};
    all.finish();
    const std::string text = page();
    EXPECT_THAT(text, Not(HasSubstr("<img src=x")));
    EXPECT_EQ(count(text, "</script>"), 1U);
    EXPECT_GE(count(text, "&lt;img src=x onerror=alert(1)&gt;&quot;&#39;"), 6U);
}

TEST_F(ReportSinkTest, WithoutAFileThatBrowsersPlayThePageSaysSo) {
    Lanes lanes(names_, true);
    ReportSink sink(
        folder_.file("game.html"), false, lanes, [] { return ReportFacts{}; }, 0);
    play(lanes, game_, 0, 44'100);
    lanes.finish();
    sink.finish();
    EXPECT_THAT(page(), HasSubstr("No file beside this page can be played by browsers."));
    EXPECT_THAT(page(), HasSubstr("not kept as a file"));
    EXPECT_THAT(page(), Not(HasSubstr("<audio")));
}

TEST_F(ReportSinkTest, TracksOf64BitFloatAreNotOffered) {
    Recording all(*this, folder_.file("game.html"));
    play(all, game_, 0, 4700);
    const BlockFormat format{48000, 2, 64, true};
    const auto bytes = tone<double>(441, format, 4800);
    all.block(game_, {1, "music", format, at(0), bytes});
    all.finish();
    EXPECT_THAT(page(), HasSubstr("browsers do not know samples of 64-bit float"));
    EXPECT_EQ(count(page(), "<audio"), 1U);
}

TEST_F(ReportSinkTest, AMicrophoneWithAFileOfItsOwnIsHeardFromThere) {
    Lanes lanes(names_);
    ReportSink sink(
        folder_.file("game.html"), false, lanes,
        [this] {
            ReportFacts facts;
            facts.files.push_back({folder_.file("out-microphone.wav"), "44100 Hz", 0.5, 0, game_.id,
                                   "microphone", at(0), 0, formatNamed("wav")});
            return facts;
        },
        0);
    const auto bytes = mixTone(441, 22'050);
    lanes.block(game_, {kMicrophoneTrack, kMicrophoneName, kMixFormat, at(0), bytes});
    lanes.finish();
    sink.finish();
    EXPECT_THAT(page(), HasSubstr("data-src=\"out-microphone.wav\""));
}

TEST_F(ReportSinkTest, AFileWithAllStreamsIsNamedAtEachAndNotOffered) {
    Lanes lanes(names_);
    ReportSink sink(
        folder_.file("game.html"), false, lanes,
        [this] {
            ReportFacts facts;
            // Its kind says it, not its name.
            facts.files.push_back({folder_.file("game.dat"), "44100 Hz", 1, 0, game_.id, "mix",
                                   at(0), 0, formatNamed("mka")});
            return facts;
        },
        0);
    play(lanes, game_, 0, 4700);
    playTrack(lanes, "music", 0);
    lanes.finish();
    sink.finish();
    EXPECT_EQ(count(page(), "<a href=\"game.dat\">"), 2U);
    EXPECT_EQ(count(page(), "apart from each other"), 2U);
    EXPECT_THAT(page(), Not(HasSubstr("<audio")));
}

TEST_F(ReportSinkTest, ALongRecordingMakesNoLargerPage) {
    const auto sizeOf = [this](std::size_t seconds) {
        const auto names = std::make_shared<ProcessNames>();
        Lanes lanes(names);
        const std::string path = folder_.file("size.html");
        ReportSink sink(
            path, true, lanes, [] { return ReportFacts{}; }, 0);
        for (std::size_t second = 0; second < seconds; ++second) {
            const auto bytes = mixTone(441, 44'100, second * 44'100);
            lanes.block(game_, mixBlock(bytes, at(second * 44'100)));
            for (std::size_t each = 0; each < 20; ++each) {
                sink.event(game_, {at(second * 44'100), 6, 0, ""});
            }
        }
        lanes.finish();
        sink.finish();
        return std::filesystem::file_size(path);
    };
    EXPECT_LT(sizeOf(120), sizeOf(20) * 3 / 2);
}

TEST_F(ReportSinkTest, ReportsFollowTheRulesOfAllFiles) {
    const std::string path = folder_.file("game.html");
    const auto write = [&](const std::string& to, bool isSilent) {
        const auto names = std::make_shared<ProcessNames>();
        Lanes lanes(names);
        ReportSink sink(
            to, true, lanes, [] { return ReportFacts{}; }, 0);
        EXPECT_TRUE(sink.open());
        const std::vector<std::byte> silence(4700 * 4);
        if (isSilent) {
            lanes.block(game_, mixBlock(silence, at(0)));
        } else {
            names->hear(game_);
            play(lanes, game_, 0, 4700);
        }
        lanes.finish();
        sink.finish();
        return sink.problems();
    };
    std::ofstream(path) << "precious";
    EXPECT_THAT(write(path, true), testing::ElementsAre(HasSubstr("stays as it was")));
    EXPECT_EQ(contentOf(path), "precious");
    EXPECT_THAT(write(path, false), testing::IsEmpty());
    EXPECT_THAT(contentOf(path), testing::StartsWith("<!doctype html>"));
    EXPECT_THAT(write("/dev/full", false),
                testing::ElementsAre("/dev/full: No space left on device"));
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"game.html"}));
}

TEST_F(ReportSinkTest, WithoutAnySoundThereIsNoPage) {
    Lanes lanes(names_);
    ReportSink sink(
        folder_.file("game.html"), false, lanes, [] { return ReportFacts{}; }, 0);
    ASSERT_TRUE(sink.open());
    sink.event(game_, {at(0), 6, 0, ""});
    lanes.finish();
    sink.finish();
    EXPECT_THAT(folder_.names(), testing::IsEmpty());
    EXPECT_EQ(sink.path(), "");
}

}  // namespace
}  // namespace tqrecorder::test
