#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "bridges/programs/ProgramRun.h"
#include "support/sound/Comparison.h"

// Programs of the tests that play 32-bit floats through ports, one a channel.

namespace programruns {

inline constexpr tqtest::SoundFormat kFloatStereo{
    .rate = 48000, .channels = 2, .encoding = tqtest::Encoding::F32};
/// A track of float sound has 16 bits unless the recorder is told otherwise.
inline constexpr double kTrackRounding = 2.0 / 32768;

template <typename Server>
class PortPlayers : public testing::Test {
  protected:
    /// The monitor of the server gives samples that far from those that were played.
    PortPlayers(std::string program, double heardWithin)
        : program_(std::move(program)), heardWithin_(heardWithin) {}

    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    }
    /// The player's command for that sound.
    [[nodiscard]] std::vector<std::string> player(
        const tqtest::Sound& sound, const std::vector<std::string>& options = {}) const {
        const std::string file = output_.folder().file("sound.raw");
        std::ofstream(file, std::ios::binary) << sound.bytes;
        std::vector<std::string> command{program_, file, std::to_string(sound.format.channels)};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }
    /// Plays noise with those options; it is to be heard as it is, and to be the one track.
    ProgramRun expectWhole(const std::vector<std::string>& options) {
        const tqtest::Sound noise = tqtest::markedNoise(kFloatStereo, 48000);
        ProgramRun run = runRecorded(output_, player(noise, options));
        EXPECT_EQ(run.end.code, 0) << run.end.text();
        EXPECT_LE(tqtest::largestDifference(noise, run.heard), heardWithin_)
            << run.heard.frames() << " frames";
        EXPECT_EQ(run.tracks.size(), 1U) << run.end.text();
        for (const auto& [name, track] : run.tracks) {
            EXPECT_LE(tqtest::largestDifference(noise, track.trimmed()), kTrackRounding)
                << track.trimmed().frames() << " frames\n"
                << run.end.text();
        }
        return run;
    }
    /// Ducked by 20 dB it is heard as loud as that.
    void expectDucked() {
        const tqtest::Sound noise = tqtest::markedNoise(kFloatStereo, 48000);
        const ProgramRun run = runRecorded(output_, player(noise), {"--duck=-20"});
        EXPECT_LE(tqtest::largestDifference(noise, run.heard, 0.1), heardWithin_ + 1e-6)
            << run.end.text();
    }

    ServerOutput<Server> output_;
    std::string program_;
    double heardWithin_;
};

}  // namespace programruns
