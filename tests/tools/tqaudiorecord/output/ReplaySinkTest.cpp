// The last seconds, saved on demand.

#include "output/ReplaySink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "DecodedFile.h"
#include "SinkFixture.h"

namespace tqrecorder::test {
namespace {

class ReplaySinkTest : public SinkFixture {
  protected:
    std::unique_ptr<ReplaySink> replaySink(double seconds, bool overlaps = false,
                                           const std::string& tracks = {}) {
        auto sink = std::make_unique<ReplaySink>(
            ReplaySink::Plan{
                {folder_.file("replay.wav"), formatNamed("wav")}, tracks, seconds, overlaps},
            names_);
        EXPECT_TRUE(sink->open());
        return sink;
    }
    static std::vector<ReplaySaved> nextSaved(ReplaySink& sink) {
        std::vector<ReplaySaved> saved;
        while ((saved = sink.takeSaved()).empty()) {
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
        }
        return saved;
    }
    /// The files, when they are written.
    static std::vector<WrittenFile> save(ReplaySink& sink, std::optional<double> seconds = {}) {
        return sink.beginSave(seconds) == 0 ? std::vector<WrittenFile>{}
                                            : nextSaved(sink).front().files;
    }
    /// Writes when it is let.
    struct HeldWriter {
        std::promise<void> begin;
        std::shared_future<void> begun = begin.get_future().share();

        [[nodiscard]] ReplaySaver::Write of(const ReplayPlan& plan) const {
            return [plan, begun = begun](const ReplaySave& save, const IsGivenUp& isGivenUp) {
                begun.wait();
                return writeReplay(plan, save, isGivenUp);
            };
        }
    };
    const ReplayPlan plan_{{folder_.file("replay.wav"), formatNamed("wav")}, {}, 0.5, true};
};

TEST_F(ReplaySinkTest, AReplayHoldsTheLastSeconds) {
    auto sink = replaySink(0.5);
    play(*sink, game_, 0, 100'000);
    EXPECT_TRUE(folder_.names().empty());
    (void)save(*sink);
    const RecordedFile recorded(folder_.file("replay-001.wav"));
    ASSERT_EQ(recorded.frames(), 22050U);
    for (std::size_t index = 0; index < 22050; ++index) {
        ASSERT_EQ(recorded.numberAt(index), static_cast<int>((77'950 + index) % 30000 + 1));
    }
}

TEST_F(ReplaySinkTest, SavesFollowEachOtherWithoutOverlapAndGap) {
    auto sink = replaySink(2);
    std::size_t expected = 0;
    for (const std::size_t end : {10'000U, 30'000U, 30'001U, 95'000U}) {
        play(*sink, game_, expected, end);
        (void)save(*sink);
        const RecordedFile recorded(sink->files().back().path);
        ASSERT_EQ(recorded.frames(), end - expected);
        for (std::size_t index = 0; index < recorded.frames(); ++index, ++expected) {
            ASSERT_EQ(recorded.numberAt(index), static_cast<int>(expected % 30000 + 1));
        }
    }
    // Nothing new, nothing saved; nor does the end save.
    (void)save(*sink);
    sink->finish();
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"replay-001.wav", "replay-002.wav",
                                                         "replay-003.wav", "replay-004.wav"}));
}

TEST_F(ReplaySinkTest, AReplayKeepsThoseOfEarlierRecordings) {
    std::ofstream(folder_.file("replay-001.wav")) << "precious";
    auto sink = replaySink(1);
    play(*sink, game_, 0, 470);
    (void)save(*sink);
    EXPECT_EQ(contentOf(folder_.file("replay-001.wav")), "precious");
    EXPECT_EQ(RecordedFile(folder_.file("replay-002.wav")).frames(), 470U);
}

TEST_F(ReplaySinkTest, AReplayKeepsItsTimeOverAPauseLongerThanItself) {
    auto sink = replaySink(0.5);
    play(*sink, game_, 0, 44'100);
    play(*sink, game_, 44'100 * 5, 44'100 * 5 + 4700);
    (void)save(*sink);
    const RecordedFile recorded(folder_.file("replay-001.wav"));
    ASSERT_EQ(recorded.frames(), 22050U);
    EXPECT_EQ(recorded.numberAt(22050 - 4702), 0);
    EXPECT_NE(recorded.numberAt(22050 - 4699), 0);
}

TEST_F(ReplaySinkTest, PressingTwiceGivesTwoFullClipsOfAnyLength) {
    auto sink = replaySink(0.5, true);
    play(*sink, game_, 0, 100'000);
    ASSERT_EQ(save(*sink).size(), 1U);
    play(*sink, game_, 100'000, 100'470);
    ASSERT_EQ(save(*sink).size(), 1U);
    ASSERT_EQ(save(*sink, 0.1).size(), 1U);
    ASSERT_EQ(save(*sink, 60).size(), 1U);
    const std::vector<std::size_t> lengths{22'050, 22'050, 4'410, 22'050};
    for (std::size_t clip = 0; clip < lengths.size(); ++clip) {
        const RecordedFile recorded(sink->files().at(clip).path);
        ASSERT_EQ(recorded.frames(), lengths[clip]);
        const std::size_t last = clip == 0 ? 99'999 : 100'469;
        EXPECT_EQ(recorded.numberAt(lengths[clip] - 1), static_cast<int>(last % 30000 + 1));
    }
}

TEST_F(ReplaySinkTest, AClipIsWrittenAsItWasAskedForWhileMoreIsPlayed) {
    HeldWriter writer;
    ReplaySink sink(plan_, names_, writer.of(plan_));
    play(sink, game_, 0, 100'000);
    EXPECT_EQ(sink.beginSave({}), 1U);
    // Several times what is kept.
    play(sink, game_, 100'000, 900'000);
    EXPECT_EQ(sink.beginSave({}), 2U);
    EXPECT_TRUE(sink.takeSaved().empty());
    writer.begin.set_value();
    sink.finish();
    const std::vector<ReplaySaved> saved = sink.takeSaved();
    ASSERT_EQ(saved.size(), 2U);
    for (const std::size_t clip : {0U, 1U}) {
        EXPECT_EQ(saved[clip].ticket, clip + 1);
        const RecordedFile recorded(saved[clip].files.at(0).path);
        ASSERT_EQ(recorded.frames(), 22'050U);
        const std::size_t first = (clip == 0 ? 100'000U : 900'000U) - 22'050U;
        for (std::size_t index = 0; index < recorded.frames(); ++index) {
            ASSERT_EQ(recorded.numberAt(index), static_cast<int>((first + index) % 30000 + 1));
        }
    }
}

TEST_F(ReplaySinkTest, NoMoreSavesAreUnderWayThanTheMemoryIsBoundedFor) {
    HeldWriter writer;
    ReplaySink sink(plan_, names_, writer.of(plan_));
    play(sink, game_, 0, 100'000);
    for (std::size_t count = 0; count < ReplaySaver::kMost; ++count) {
        EXPECT_FALSE(sink.isSavingAllItCan());
        EXPECT_NE(sink.beginSave({}), 0U);
    }
    EXPECT_TRUE(sink.isSavingAllItCan());
    writer.begin.set_value();
    (void)nextSaved(sink);
    EXPECT_FALSE(sink.isSavingAllItCan());
    sink.finish();
    EXPECT_EQ(sink.files().size(), ReplaySaver::kMost);
}

TEST_F(ReplaySinkTest, ASaveThatFindsNoMemoryFailsAndTheNextHasWhatItWasToHold) {
    bool isShort = true;
    ReplaySink sink(plan_, names_, [&](const ReplaySave& save, const IsGivenUp& isGivenUp) {
        return std::exchange(isShort, false) ? throw std::bad_alloc()
                                             : writeReplay(plan_, save, isGivenUp);
    });
    play(sink, game_, 0, 100'000);
    ASSERT_NE(sink.beginSave({}), 0U);
    EXPECT_THAT(
        nextSaved(sink).front().problems,
        testing::ElementsAre("a save of the replay failed: there is no memory left for it"));
    EXPECT_EQ(save(sink).size(), 1U);
    EXPECT_EQ(RecordedFile(folder_.file("replay-001.wav")).frames(), 22'050U);
}

TEST_F(ReplaySinkTest, AStreamThatBeginsALittleEarlierThanItsClipIsInItToItsEnd) {
    // As where a stream goes on right behind the clip before.
    constexpr std::size_t kFrames = 23'373;
    constexpr double kClipSeconds = 0.49;
    const ReplayPlan plan{{folder_.file("replay.mka"), formatNamed("mka-pcm")}, {}, 10, false};
    ReplaySink sink(plan, names_, [&](const ReplaySave& save, const IsGivenUp& isGivenUp) {
        ReplaySave earlier = save;
        earlier.processes.front().seconds = kClipSeconds;
        return writeReplay(plan, earlier, isGivenUp);
    });
    play(sink, game_, 0, kFrames);
    ASSERT_EQ(save(sink).size(), 1U);
    const DecodedFile file(folder_.file("replay-001.mka"));
    ASSERT_FALSE(file.streams.empty());
    EXPECT_EQ(file.streams[0].frames(), kFrames);
}

/// Two saves, of which the first is given up when a part of it is written.
struct ReplayGivenUpTest : ReplaySinkTest {
    std::vector<ReplaySaved> saved;
    std::vector<std::string> problems;

    void saveAndGiveUp(const ReplayPlan& plan) {
        std::promise<void> inside;
        std::atomic<int> asked = 0;
        ReplaySink sink(plan, names_, [&](const ReplaySave& save, const IsGivenUp& isGivenUp) {
            return writeReplay(plan, save, [&] {
                if (++asked == 5) {
                    inside.set_value();
                    while (!isGivenUp()) {
                        std::this_thread::sleep_for(std::chrono::milliseconds{1});
                    }
                }
                return isGivenUp();
            });
        });
        ASSERT_TRUE(sink.open());
        const BlockFormat music{48000, 2, 32, true};
        play(sink, game_, 0, 441'000);
        for (std::size_t frame = 0; frame < 480'000; frame += 4800) {
            const auto bytes = tone<float>(4800, music, 480, frame);
            sink.block(game_, {1, "music", music, at(frame, 48000), bytes});
        }
        EXPECT_FALSE(sink.isSaving());
        EXPECT_NE(sink.beginSave({}), 0U);
        EXPECT_NE(sink.beginSave({}), 0U);
        inside.get_future().wait();
        EXPECT_TRUE(sink.isSaving());
        sink.giveUpSaves();
        sink.finish();
        EXPECT_FALSE(sink.isSaving());
        saved = sink.takeSaved();
        problems = sink.problems();
        ASSERT_EQ(saved.size(), 2U) << "who waits for them is answered";
        EXPECT_THAT(saved[1].files, testing::IsEmpty());
    }
    [[nodiscard]] std::string notBegun(const std::string& name) const {
        return folder_.file(name) +
               ": save 2, of 10.0 s, was not begun, as a second signal said not to wait for it";
    }
};

TEST_F(ReplayGivenUpTest, TheFileUnderWayIsCutAndWhatIsMissingIsNamed) {
    ASSERT_NO_FATAL_FAILURE(saveAndGiveUp(
        {{folder_.file("replay.wav"), formatNamed("wav")}, folder_.file("tracks"), 10, true}));
    const RecordedFile recorded(folder_.file("replay-001.wav"));
    ASSERT_TRUE(recorded.opened);
    ASSERT_GT(recorded.frames(), 0U);
    ASSERT_LT(recorded.frames(), 441'000U);
    for (std::size_t index = 0; index < recorded.frames(); ++index) {
        ASSERT_EQ(recorded.numberAt(index), static_cast<int>(index % 30000 + 1));
    }
    EXPECT_EQ(saved[0].files.size(), 1U);
    EXPECT_THAT(
        problems,
        testing::ElementsAre(
            testing::AllOf(
                testing::StartsWith(folder_.file("replay-001.wav") + ": ends after "),
                testing::EndsWith(" of 10.0 s, as a second signal said not to wait for it")),
            folder_.file("tracks/track-1-music-001.wav") +
                ": not written, as a second signal said not to wait for it",
            notBegun("replay.wav")));
    EXPECT_TRUE(std::filesystem::is_empty(folder_.file("tracks")));
}

TEST_F(ReplayGivenUpTest, SoIsOneFileWithAllTracks) {
    ASSERT_NO_FATAL_FAILURE(
        saveAndGiveUp({{folder_.file("replay.mka"), formatNamed("mka")}, {}, 10, true}));
    const DecodedFile file(folder_.file("replay-001.mka"));
    ASSERT_EQ(file.streams.size(), 2U);
    EXPECT_NEAR(file.streams[0].seconds(), 0.75, 0.01);
    EXPECT_NEAR(file.streams[1].seconds(), 0.75, 0.01);
    EXPECT_THAT(problems, testing::ElementsAre(
                              folder_.file("replay-001.mka") +
                                  ": ends after 0.8 of 10.0 s, as a second signal said not to wait "
                                  "for it",
                              notBegun("replay.mka")));
}

TEST_F(ReplaySinkTest, WhatIsAskedForBehindTheEndIsSavedToo) {
    ReplaySink sink(plan_, names_);
    play(sink, game_, 0, 100'000);
    sink.finish();
    EXPECT_NE(sink.beginSave({}), 0U);
    EXPECT_EQ(sink.takeSaved().size(), 1U);
    EXPECT_EQ(RecordedFile(folder_.file("replay-001.wav")).frames(), 22'050U);
}

TEST_F(ReplaySinkTest, TracksAreSavedBesideTheMixAndLieOnItsTime) {
    auto sink = replaySink(1, true, folder_.file("tracks"));
    const BlockFormat music{48000, 2, 32, true};
    play(*sink, game_, 0, 44'100);
    // From half a second to three quarters.
    for (std::size_t frame = 24'000; frame < 36'000; frame += 480) {
        const auto bytes = tone<float>(480, music, 480, frame);
        sink->block(game_, {1, "music", music, at(frame, 48000), bytes});
    }
    ASSERT_EQ(save(*sink).size(), 2U);
    EXPECT_EQ(RecordedFile(folder_.file("replay-001.wav")).frames(), 44'100U);
    const RecordedFile track(folder_.file("tracks/track-1-music-001.wav"));
    ASSERT_NEAR(static_cast<double>(track.frames()), 48'000, 1);
    EXPECT_LT(track.amplitude(480, 0, 0.49), 1e-4);
    EXPECT_NEAR(track.amplitude(480, 0.51, 0.74), 0.5, 0.01);
    EXPECT_LT(track.amplitude(480, 0.76, 1), 1e-4);
}

TEST_F(ReplaySinkTest, WhatEndedBeforeTheLastSecondsIsInNoClip) {
    const Process intro = process(2, "intro");
    auto sink = replaySink(0.5, true);
    play(*sink, game_, 0, 4410);
    play(*sink, intro, 0, 4410);
    sink->processEnded(intro, {});
    play(*sink, game_, 4410, 44'100);
    const std::vector<WrittenFile> saved = save(*sink);
    ASSERT_EQ(saved.size(), 1U);
    EXPECT_EQ(saved[0].processId, game_.id);
}

TEST_F(ReplaySinkTest, ClipsOfSeveralProgramsAreOfOneTime) {
    const Process intro = process(2, "intro");
    auto sink = replaySink(0.5, true);
    play(*sink, game_, 0, 44'100);
    play(*sink, intro, 0, 33'075);
    sink->processEnded(intro, {});
    ASSERT_EQ(save(*sink).size(), 2U);
    const RecordedFile recorded(folder_.file("replay-intro-001.wav"));
    ASSERT_EQ(recorded.frames(), 22'050U);
    EXPECT_EQ(recorded.numberAt(0), 22'050 % 30000 + 1);
    EXPECT_EQ(recorded.numberAt(11'024), 33'074 % 30000 + 1);
    EXPECT_EQ(recorded.numberAt(11'026), 0);
    // An end that is out of it now.
    play(*sink, game_, 44'100, 88'200);
    EXPECT_EQ(save(*sink).size(), 1U);
}

TEST_F(ReplaySinkTest, ALauncherThatIsSilentGivesTheNameToTheFirstThatSounds) {
    auto sink = replaySink(0.5, true);
    playSilence(*sink, launcher_);
    names_->hear(game_);
    play(*sink, game_, 0, 4410);
    ASSERT_EQ(save(*sink).size(), 2U);
    EXPECT_EQ(RecordedFile(folder_.file("replay-001.wav")).numberAt(4409), 4410);
    EXPECT_EQ(RecordedFile(folder_.file("replay-launcher-001.wav")).numberAt(4409), 0);
}

TEST_F(ReplaySinkTest, AProgramWithABrokenClockTakesNoClipFromOthers) {
    const Process odd = process(2, "odd");
    auto sink = replaySink(0.5, true);
    play(*sink, game_, 0, 44'100);
    play(*sink, odd, 0, 22'050);
    const std::size_t twoDays = std::size_t{48} * 3600 * 44'100;
    play(*sink, odd, twoDays, twoDays + 22'050);
    ASSERT_EQ(save(*sink).size(), 2U);
    EXPECT_EQ(RecordedFile(folder_.file("replay-001.wav")).frames(), 22'050U);
    EXPECT_EQ(RecordedFile(folder_.file("replay-odd-001.wav")).frames(), 22'050U);
}

TEST_F(ReplaySinkTest, AMicrophoneThatGoesOnWithoutTheProgramIsSaved) {
    auto sink = replaySink(2, true, folder_.file("tracks"));
    const BlockFormat voice{48000, 1, 32, true};
    play(*sink, game_, 0, 44'100);
    for (std::size_t frame = 0; frame < 240'000; frame += 480) {
        std::vector<std::byte> bytes(480 * sizeof(float));
        if (frame >= 144'000) {
            bytes = tone<float>(480, voice, 480, frame);
        }
        sink->block(game_, {1, "microphone", voice, at(frame, 48000), bytes});
    }
    const std::vector<WrittenFile> saved = save(*sink, 0.5);
    ASSERT_EQ(saved.size(), 1U);
    EXPECT_NEAR(RecordedFile(saved[0].path).amplitude(480, 0, 0.49), 0.5, 0.01);
}

TEST_F(ReplaySinkTest, OfMoreStreamsThanAreKeptThoseThatEndedFirstGoAndThatIsSaid) {
    auto sink = replaySink(10, true, folder_.file("tracks"));
    const BlockFormat effect{48000, 1, 16, false};
    // The first to be opened is the last that plays.
    const auto block = [&](const std::string& unit, int track, double seconds) {
        const auto bytes = tone<std::int16_t>(480, effect, 480);
        sink->block(game_, {track, unit, effect, kStart + static_cast<std::uint64_t>(seconds * 1e6),
                            bytes});
    };
    play(*sink, game_, 0, 176'400);
    for (int number = 0; number < 40; ++number) {
        block("effect-" + std::to_string(number), number % 7 + 1, 0.1 * number);
        // Never there for long, and the newest all the same.
        block("music", 7, 0.1 * number + 0.01);
    }
    EXPECT_THAT(sink->problems(),
                testing::ElementsAre(testing::HasSubstr("more than 32 streams within what is")));
    std::vector<std::string> units;
    for (const WrittenFile& file : save(*sink)) {
        units.push_back(std::filesystem::path(file.path).filename().string());
    }
    EXPECT_THAT(units, testing::Contains("track-5-effect-39-001.wav"));
    EXPECT_THAT(units, testing::Contains("track-1-effect-35-001.wav"));
    EXPECT_THAT(units, testing::Not(testing::Contains("track-1-effect-0-001.wav")));
    EXPECT_THAT(units, testing::Contains("track-7-music-001.wav"));
}

TEST_F(ReplaySinkTest, EveryProgramWithinWhatIsKeptIsSavedAndOfMoreThanThereIsRoomForItIsSaid) {
    auto sink = replaySink(0.5, true);
    int number = 1;
    // As a sound board starts them: each ends before the next begins.
    const auto playEffects = [&](int count, std::size_t from, std::size_t frames) {
        for (int effect = 0; effect < count; ++effect, from += frames) {
            const Process one = process(++number, "effect");
            play(*sink, one, from, from + frames);
            sink->processEnded(one, {});
        }
    };
    playEffects(20, 0, 100);
    // None of those is within it any more.
    playEffects(30, 44'100, 470);
    EXPECT_EQ(save(*sink).size(), 30U);
    EXPECT_THAT(sink->problems(), testing::IsEmpty());
    playEffects(100, 88'200, 100);
    EXPECT_EQ(save(*sink).size(), 64U);
    EXPECT_THAT(sink->problems(),
                testing::ElementsAre(testing::HasSubstr("more than 64 programs within what is")));
}

TEST_F(ReplaySinkTest, TheLongestNamesHaveRoomForWhatIsAdded) {
    const std::string longest(251, 'n');
    ReplaySink sink({{folder_.file(longest + ".wav"), formatNamed("wav")}, {}, 1, true}, names_);
    ASSERT_TRUE(sink.open());
    play(sink, game_, 0, 4700);
    play(sink, process(2, "another-program"), 0, 4700);
    ASSERT_EQ(save(sink).size(), 2U);
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
    EXPECT_EQ(RecordedFile(folder_.file(longest.substr(4) + "-001.wav")).frames(), 4700U);
    EXPECT_EQ(RecordedFile(folder_.file(longest.substr(20) + "-another-program-001.wav")).frames(),
              4700U);
}

TEST_F(ReplaySinkTest, AStreamThatFindsNoMemoryIsSaidOnceAndTheOthersGoOn) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer ends the program where memory is short";
#endif
    // More than there is room for at such a rate, little at the mix's.
    constexpr BlockFormat kVast{4e10, 8, 32, true};
    auto sink = replaySink(1e3, true, folder_.file("tracks"));
    const std::vector<std::byte> bytes(kVast.frameBytes() * 100, std::byte{1});
    play(*sink, game_, 0, 4700);
    sink->block(game_, {1, "vast", kVast, kStart, bytes});
    sink->block(game_, {1, "vast", kVast, kStart + 1000, bytes});
    ASSERT_EQ(save(*sink).size(), 1U);
    EXPECT_THAT(sink->problems(), testing::ElementsAre(testing::HasSubstr("vast: there is no")));
    EXPECT_EQ(RecordedFile(folder_.file("replay-001.wav")).frames(), 4700U);
}

TEST_F(ReplaySinkTest, AReplayThatCannotBeSavedIsKept) {
    std::filesystem::create_directory(folder_.file("in"));
    ReplaySink sink({{folder_.file("in/replay.wav"), formatNamed("wav")}, {}, 1, false}, names_);
    ASSERT_TRUE(sink.open());
    play(sink, game_, 0, 4700);
    std::filesystem::rename(folder_.file("in"), folder_.file("away"));
    (void)save(sink);
    ASSERT_EQ(sink.problems().size(), 1U);
    std::filesystem::rename(folder_.file("away"), folder_.file("in"));
    (void)save(sink);
    ASSERT_EQ(sink.files().size(), 1U);
    EXPECT_EQ(RecordedFile(sink.files()[0].path).frames(), 4700U);
}

TEST_F(ReplaySinkTest, WhatAFailedSaveHeldIsInTheOneBehindThoseThatWereUnderWay) {
    ReplayPlan plan = plan_;
    plan.seconds = 10;
    plan.overlaps = false;
    HeldWriter writer;
    ReplaySink sink(plan, names_,
                    [write = writer.of(plan), isFirst = true](const ReplaySave& save,
                                                              const IsGivenUp& isGivenUp) mutable {
                        ReplaySaved saved = write(save, isGivenUp);
                        if (std::exchange(isFirst, false)) {
                            std::filesystem::remove(saved.files.at(0).path);
                            saved = {save.ticket, {}, {"the disk is full"}, {1}};
                        }
                        return saved;
                    });
    play(sink, game_, 0, 4700);
    EXPECT_NE(sink.beginSave({}), 0U);
    play(sink, game_, 4700, 9400);
    EXPECT_NE(sink.beginSave({}), 0U);
    writer.begin.set_value();
    while (sink.files().empty()) {
        (void)nextSaved(sink);
    }
    play(sink, game_, 9400, 14'100);
    const std::vector<WrittenFile> last = save(sink);
    ASSERT_EQ(last.size(), 1U);
    EXPECT_EQ(RecordedFile(last[0].path).frames(), 14'100U);
    EXPECT_THAT(sink.problems(), testing::ElementsAre("the disk is full"));
}

}  // namespace
}  // namespace tqrecorder::test
