#include "ProgramRun.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/sound/Comparison.h"

namespace programruns {
namespace {

namespace fs = std::filesystem;
using tqtest::Sound;

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
    return result;
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

void expectTrackHolds(const ProgramRun& run, const Sound& played) {
    EXPECT_EQ(trackFaults(run, played), std::vector<std::string>{}) << run.end.text();
}

}  // namespace programruns
