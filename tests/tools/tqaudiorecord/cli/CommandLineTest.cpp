// Arguments: what they mean and what is refused.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/CommandLine.h"
#include "cli/OptionTable.h"

namespace tqrecorder {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

CommandLine parse(std::vector<std::string> arguments) {
    return parseCommandLine(arguments);
}

TEST(CommandLineTest, CommandBeginsAtTheFirstThatIsNoOption) {
    const CommandLine line = parse({"-o", "out.wav", "-q", "game", "-o", "its own", "--", "-d"});
    ASSERT_TRUE(line.proceed) << line.error;
    EXPECT_EQ(line.options.output, "out.wav");
    EXPECT_TRUE(line.options.quiet);
    EXPECT_FALSE(line.options.durationSeconds.has_value());
    EXPECT_THAT(line.options.command, ElementsAre("game", "-o", "its own", "--", "-d"));
}

TEST(CommandLineTest, CommandMayFollowTwoDashes) {
    EXPECT_THAT(parse({"-v", "--", "guard", "arm"}).options.command, ElementsAre("guard", "arm"));
    EXPECT_THAT(parse({"--", "-odd-name"}).options.command, ElementsAre("-odd-name"));
}

TEST(CommandLineTest, EveryOptionReachesItsField) {
    const CommandLine line = parse({"--output=mix",
                                    "--format",
                                    "flac",
                                    "--tracks",
                                    "t",
                                    "--from-start",
                                    "--overwrite",
                                    "--events",
                                    "e",
                                    "--picture",
                                    "p",
                                    "--max-file-time",
                                    "60",
                                    "-d",
                                    "1.5",
                                    "--host-goes-on",
                                    "--verbose",
                                    "--duck=-20",
                                    "--duck-on",
                                    "microphone",
                                    "--compress",
                                    "--compress-threshold",
                                    "-30",
                                    "--attack",
                                    "0.5",
                                    "--release",
                                    "2",
                                    "--no-arm",
                                    "--ring",
                                    "3",
                                    "game"});
    ASSERT_TRUE(line.proceed) << line.error;
    const Options& o = line.options;
    EXPECT_EQ(o.action, Options::Action::kRecord);
    EXPECT_EQ(o.output, "mix");
    EXPECT_EQ(o.format, "flac");
    EXPECT_EQ(o.tracksFolder, "t");
    EXPECT_TRUE(o.tracksFromStart);
    EXPECT_TRUE(o.overwrite);
    EXPECT_EQ(o.eventsFile, "e");
    EXPECT_EQ(o.pictureFile, "p");
    EXPECT_EQ(o.maximumFileSeconds, 60);
    EXPECT_EQ(o.durationSeconds, 1.5);
    EXPECT_FALSE(o.endsHost);
    EXPECT_TRUE(o.verbose);
    EXPECT_TRUE(o.duck);
    EXPECT_EQ(o.duckDecibels, -20);
    EXPECT_EQ(o.duckOn, "microphone");
    EXPECT_TRUE(o.compress);
    EXPECT_EQ(o.compressThresholdDecibels, -30);
    EXPECT_EQ(o.attackSeconds, 0.5);
    EXPECT_EQ(o.releaseSeconds, 2);
    EXPECT_FALSE(o.armGuard);
    EXPECT_EQ(o.ringSeconds, 3);
    EXPECT_EQ(parse({"-o", "a.wav", "--replay", "30", "g"}).options.replaySeconds, 30);
}

TEST(CommandLineTest, DuckTakesAValueOnlyBehindAnEqualsSign) {
    const CommandLine line = parse({"--duck", "game"});
    ASSERT_TRUE(line.proceed);
    EXPECT_TRUE(line.options.duck);
    EXPECT_EQ(line.options.duckDecibels, -12);
    EXPECT_THAT(line.options.command, ElementsAre("game"));
    EXPECT_FALSE(parse({"game"}).options.duck);
    EXPECT_EQ(parse({"--duck=0", "game"}).options.duckDecibels, 0);
    EXPECT_EQ(parse({"--duck=-2.5", "game"}).options.duckDecibels, -2.5);
}

TEST(CommandLineTest, TheMicrophoneIsNamedOnlyBehindAnEqualsSign) {
    const CommandLine line = parse({"--mic", "game"});
    ASSERT_TRUE(line.proceed) << line.error;
    EXPECT_TRUE(line.options.microphone);
    EXPECT_EQ(line.options.microphoneName, "");
    EXPECT_FALSE(line.options.microphoneInMix);
    EXPECT_THAT(line.options.command, ElementsAre("game"));
    EXPECT_EQ(parse({"--mic=usb.1", "--mic-in-mix", "game"}).options.microphoneName, "usb.1");
    EXPECT_FALSE(parse({"game"}).options.microphone);
    EXPECT_FALSE(parse({"--mic-in-mix", "game"}).proceed);
}

TEST(CommandLineTest, TheMicrophoneWantsAPlaceForItsSound) {
    EXPECT_FALSE(parse({"--mic", "-o", "-", "game"}).proceed);
    EXPECT_FALSE(parse({"--mic", "--replay", "9", "-o", "a.wav", "game"}).proceed);
    EXPECT_TRUE(parse({"--mic", "--replay", "9", "-o", "a.mka", "game"}).proceed);
    EXPECT_TRUE(parse({"--mic", "--mic-in-mix", "-o", "-", "game"}).proceed);
    EXPECT_TRUE(parse({"--mic", "--tracks", "t", "-o", "-", "game"}).proceed);
    EXPECT_FALSE(parse({"--mic", "--live", "game"}).proceed) << "it is no live source";
    EXPECT_TRUE(parse({"--mic", "--live", "-o", "a.wav", "game"}).proceed);
    EXPECT_TRUE(parse({"--mic", "--live", "--format", "wav", "game"}).proceed);
    EXPECT_TRUE(parse({"--mic", "--mic-in-mix", "--live", "game"}).proceed);
}

TEST(CommandLineTest, GuardCommandsNameOneProgram) {
    EXPECT_EQ(parse({"guard", "status", "./game"}).options.action, Options::Action::kGuardStatus);
    EXPECT_EQ(parse({"guard", "arm", "game"}).options.action, Options::Action::kGuardArm);
    EXPECT_EQ(parse({"guard", "disarm", "game"}).options.action, Options::Action::kGuardDisarm);
    EXPECT_THAT(parse({"guard", "arm", "game"}).options.command, ElementsAre("game"));
    EXPECT_FALSE(parse({"guard"}).proceed);
    EXPECT_FALSE(parse({"guard", "feed", "game"}).proceed);
    EXPECT_FALSE(parse({"guard", "arm"}).proceed);
    EXPECT_FALSE(parse({"guard", "arm", "a", "b"}).proceed);
}

TEST(CommandLineTest, CommandsForARunningRecorderNameNoProgram) {
    using Kind = ControlCommand::Kind;
    const Options save = parse({"ctl", "--pid", "12", "save", "2.5"}).options;
    EXPECT_EQ(save.action, Options::Action::kControl);
    EXPECT_EQ(save.controlPid, 12);
    EXPECT_EQ(save.control.kind, Kind::kSave);
    EXPECT_EQ(save.control.number, 2.5);
    EXPECT_TRUE(parse({"ctl", "status", "--json"}).options.control.asJson);
    EXPECT_EQ(parse({"ctl", "duck", "-12"}).options.control.number, -12);
    EXPECT_EQ(parse({"ctl", "duck"}).options.control.number, std::nullopt);
    EXPECT_EQ(parse({"ctl", "unduck"}).options.control.kind, Kind::kUnduck);
    EXPECT_THAT(parse({"--", "ctl", "stop"}).options.command, ElementsAre("ctl", "stop"));
}

TEST(CommandLineTest, WrongUsageIsOneLineAndExitCodeOne) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{}, "no COMMAND"},
        {{"--"}, "no COMMAND"},
        {{""}, "no COMMAND"},
        {{"--bogus", "game"}, "there is no option --bogus"},
        {{"-x", "game"}, "there is no option -x"},
        {{"-o"}, "--output"},
        {{"-d", "soon", "game"}, "--duration: a number from 0.001 to 10000000 is wanted, not soon"},
        {{"-d", "nan", "game"}, "--duration"},
        {{"-d", "-1", "game"}, "--duration"},
        {{"-d", "0", "game"}, "--duration"},
        {{"--ring", "1e99", "game"}, "--ring"},
        {{"--duck=3", "game"}, "--duck"},
        {{"-o", "", "game"}, "--output: is empty"},
        {{"--tracks", "", "game"}, "--tracks: is empty"},
        {{"--events", "", "game"}, "--events: is empty"},
        {{"--picture", "", "game"}, "--picture: is empty"},
        {{"--duck", "--duck-on", "", "game"}, "--duck-on: is empty"},
        {{"--duck=loud", "game"}, "--duck"},
        {{"--duck-on", "microphone", "game"}, "--duck"},
        {{"--compress-threshold", "-9", "game"}, "--compress"},
        {{"--attack", "1", "game"}, "--attack"},
        {{"-q", "-v", "game"}, "excludes"},
        {{"-o", "out.mp9", "game"}, "out.mp9: no format has that extension"},
        {{"-o", "out", "game"}, "no format"},
        {{"-o", "out.wav", "--format", "mp9", "game"}, "no format mp9"},
        {{"--format", "wav", "--tracks", "t", "game"}, "--output, which is missing"},
        {{"-o", "-", "--format", "flac", "game"}, "wav or raw"},
        {{"--tracks", "t", "--tracks-format", "mp9", "game"}, "no format mp9"},
        {{"--tracks", "t", "--tracks-format", "mka", "game"}, "name it with --output"},
        {{"--replay", "5", "-o", "-", "game"}, "--replay goes with neither"},
        {{"--replay", "5", "-o", "a.wav", "--picture", "p", "game"}, "--replay goes with neither"},
        {{"--replay", "5", "-o", "a.wav", "--report", "r.html", "game"},
         "--replay goes with neither --output -, --picture, --report nor"},
        {{"--no-overlap", "game"}, "--replay"},
        {{"ctl"}, "ctl wants save"},
        {{"ctl", "save", "soon"}, "a number is wanted, not soon"},
        {{"ctl", "pause", "5"}, "ctl wants save"},
        {{"ctl", "save", "5", "6"}, "ctl wants save"},
        {{"ctl", "toggle"}, "ctl wants save"},
        {{"ctl", "--pid", "x", "stop"}, "--pid wants"},
        {{"--max-file-time", "5", "-o", "-", "game"}, "--max-file-time is for files"},
        {{"-o", "a.wav", "--events", "./a.wav", "game"}, "name the same file"},
        {{"-o", "a.wav", "--events", "-", "game"}, "only --output writes to standard output"},
        {{"-o", "-", "--tracks", "-", "game"}, "only --output writes to standard output"},
        {{"-o", "a.wav", "-o", "b.wav", "game"}, "--output"},
    };
    for (const auto& [arguments, words] : cases) {
        const CommandLine line = parse(arguments);
        EXPECT_FALSE(line.proceed) << words;
        EXPECT_EQ(line.exitCode, 1) << words;
        EXPECT_EQ(line.output, "") << words;
        EXPECT_THAT(line.error, testing::StartsWith("tqaudiorecord: "));
        EXPECT_THAT(line.error, HasSubstr(words));
        EXPECT_EQ(line.error.find('\n'), std::string::npos) << words;
    }
}

TEST(CommandLineTest, MoreNamesThanAProgramCanBeToldAreRefused) {
    const auto withNames = [](std::size_t count, const std::string& name) {
        std::vector<std::string> words;
        for (std::size_t i = 0; i < count; ++i) {
            words.insert(words.end(), {"--not", name});
        }
        words.emplace_back("game");
        return parseCommandLine(words);
    };
    EXPECT_TRUE(withNames(1000, "music").proceed);
    for (const CommandLine& line :
         {withNames(1001, "music"), withNames(2, std::string(30'000, 'n'))}) {
        EXPECT_EQ(line.exitCode, 1);
        EXPECT_THAT(line.error, HasSubstr("1000 names each at most, of 50000 bytes in all"));
    }
}

TEST(CommandLineTest, HelpVersionAndFormatsGoToStandardOutput) {
    EXPECT_THAT(parse({"--help"}).output, HasSubstr("Usage: tqaudiorecord"));
    EXPECT_EQ(parse({"-h"}).output, parse({"--help", "game"}).output);
    EXPECT_THAT(parse({"--version"}).output,
                testing::MatchesRegex("tqaudiorecord [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_THAT(parse({"--list-formats"}).output, HasSubstr("flac        .flac"));
    EXPECT_EQ(parse({"--help"}).exitCode, 0);
    // What belongs to COMMAND is not ours to answer.
    EXPECT_TRUE(parse({"game", "--help"}).proceed);
}

TEST(CommandLineTest, NumbersAreTakenWithinTheirRangeOnly) {
    int numbers = 0;
    for (const OptionEntry& entry : optionTable()) {
        if (!entry.isNumber()) {
            continue;
        }
        ++numbers;
        const auto isTaken = [&entry](double number) {
            std::vector<std::string> arguments{"-o", "mix.wav"};
            if (!entry.needs.empty()) {
                arguments.push_back("--" + std::string(entry.needs));
            } else if (entry.name == "attack" || entry.name == "release") {
                arguments.emplace_back("--compress");
            }
            arguments.push_back(entry.longForm() + "=" + numberText(number));
            arguments.emplace_back("game");
            return parse(std::move(arguments)).proceed;
        };
        EXPECT_TRUE(isTaken(entry.lowest)) << entry.name;
        EXPECT_TRUE(isTaken(entry.highest)) << entry.name;
        EXPECT_FALSE(isTaken(entry.lowest - 0.01)) << entry.name;
        EXPECT_FALSE(isTaken(entry.highest + 0.01)) << entry.name;
    }
    EXPECT_EQ(numbers, 8);
}

}  // namespace
}  // namespace tqrecorder
