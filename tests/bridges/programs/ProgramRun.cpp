#include "ProgramRun.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "support/sound/Comparison.h"

namespace programruns {
namespace {

namespace fs = std::filesystem;
using tqtest::Sound;

constexpr int kFolded = 6;
constexpr double kPartSeconds = 0.2;
constexpr double kHertz = 441;
constexpr double kPeak = 0.5;

ProgramRun run(Output& output, const std::vector<std::string>& command,
               const tqtest::Environment& more) {
    tqtest::Environment environment = output.environment();
    environment.insert(more.begin(), more.end());
    output.listen();
    ProgramRun run;
    run.end =
        tqtest::Kept({.arguments = command, .environment = environment}, output.folder().path())
            .wait();
    run.heard = output.heard();
    return run;
}

}  // namespace

ProgramRun runBare(Output& output, const std::vector<std::string>& command) {
    return run(output, command, {});
}

ProgramRun runRecorded(Output& output, const std::vector<std::string>& command,
                       const std::vector<std::string>& options) {
    const TemporaryFolder folder;
    std::vector<std::string> all{TQ_TEST_RECORDER, "-o", folder.file("mix.wav"), "--tracks",
                                 folder.file("tracks")};
    all.insert(all.end(), options.begin(), options.end());
    all.emplace_back("--");
    all.insert(all.end(), command.begin(), command.end());
    // The guard of a program is its own in every run.
    ProgramRun result =
        run(output, all, {{"XDG_CACHE_HOME", folder.file("caches")}, {"TQ_AUDIO_DEVICE", "null"}});
    std::error_code none;
    for (const auto& track : fs::directory_iterator(folder.file("tracks"), none)) {
        result.tracks[track.path().filename()] = tqtest::readWav(track.path());
    }
    if (fs::exists(folder.file("mix.wav"))) {
        result.mix = tqtest::readWav(folder.file("mix.wav"));
    }
    return result;
}

Sound oneChannelAfterTheOther(int rate) {
    Sound sound{{.rate = rate, .channels = kFolded}, {}};
    const auto part = static_cast<std::size_t>(kPartSeconds * rate);
    const Sound one = tqtest::tone({.rate = rate, .channels = 1}, part, kHertz);
    for (int alone = 0; alone < kFolded; ++alone) {
        for (std::size_t frame = 0; frame < part; ++frame) {
            for (int channel = 0; channel < kFolded; ++channel) {
                sound.bytes +=
                    channel == alone ? std::string(one.frame(frame)) : std::string(2, '\0');
            }
        }
    }
    return sound;
}

void expectFolded(const ProgramRun& run, const std::array<std::array<double, 2>, 6>& gains) {
    const std::size_t begin = run.mix.silenceAtStart();
    const auto part = static_cast<std::size_t>(kPartSeconds * run.mix.format.rate);
    ASSERT_GT(run.mix.frames(), begin + (gains.size() - 1) * part) << "the mix is too short";
    for (std::size_t each = 0; each < gains.size(); ++each) {
        for (std::size_t side = 0; side < 2; ++side) {
            // Its middle: two clocks drift by less than what is left out.
            const Sound middle = run.mix.part(begin + each * part + part / 4, part / 2);
            double power = 0;
            for (std::size_t frame = 0; frame < middle.frames(); ++frame) {
                power += middle.value(frame, side) * middle.value(frame, side);
            }
            ASSERT_GT(middle.frames(), 0U) << "the mix ends at channel " << each;
            const double level = std::sqrt(2 * power / static_cast<double>(middle.frames()));
            EXPECT_NEAR(level / kPeak, gains.at(each).at(side), 0.02)
                << "channel " << each << (side == 0 ? " left" : " right");
        }
    }
}

void expectSameSound(const ProgramRun& bare, const ProgramRun& other, const std::string& what) {
    EXPECT_GT(bare.heard.frames(), 0U) << what << " is not heard bare either: " << bare.end.text();
    EXPECT_EQ(tqtest::differences(bare.heard, other.heard), std::vector<std::string>{})
        << what << ": " << other.end.text();
}

void expectSameSoundAsBare(Output& output, const std::vector<std::string>& command) {
    const ProgramRun bare = runBare(output, command);
    expectSameSound(bare, runRecorded(output, command), command[0]);
}

std::vector<std::string> trackFaults(const ProgramRun& run, const Sound& played) {
    if (run.tracks.size() != 1) {
        std::string names;
        for (const auto& [name, sound] : run.tracks) {
            names += " " + name;
        }
        return {std::to_string(run.tracks.size()) + " tracks instead of one:" + names};
    }
    return tqtest::differences(played.trimmed(), run.tracks.begin()->second.trimmed());
}

void expectOnTracks(const ProgramRun& run, const Sound& played) {
    std::string found;
    for (const auto& [name, track] : run.tracks) {
        const std::vector<std::string> faults =
            tqtest::differences(played, tqtest::alignedTo(played, track));
        if (faults.empty()) {
            return;
        }
        found += name + ": " + faults.front() + "\n";
    }
    ADD_FAILURE() << "on no track:\n" << found << run.end.text();
}

void expectTrackHolds(const ProgramRun& run, const Sound& played) {
    EXPECT_EQ(trackFaults(run, played), std::vector<std::string>{}) << run.end.text();
}

}  // namespace programruns
