#include "HostRuns.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>

#include "support/TemporaryFolder.h"

namespace hostruns {

namespace {

namespace fs = std::filesystem;

template <class Sample>
std::vector<Sample> samplesOf(const fs::path& file) {
    const std::string bytes = contentOf(file);
    std::vector<Sample> samples(bytes.size() / sizeof(Sample));
    if (!samples.empty()) {
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(Sample));
    }
    return samples;
}

tqtest::ProgramEnd launch(const std::vector<std::string>& command, const fs::path& folder,
                          const std::map<std::string, std::string>& more) {
    std::map<std::string, std::string> environment{{"XDG_CACHE_HOME", folder / "caches"},
                                                   {"TQ_AUDIO_DEVICE", "manual"},
                                                   {"TQ_TEST_PLAYED", folder / "played"},
                                                   {"TQ_TEST_RECORDED", folder.string()}};
    environment.insert(more.begin(), more.end());
    return tqtest::runProgram({.arguments = command, .environment = environment});
}

}  // namespace

float HostRun::peak() const {
    float highest = 0;
    for (const float sample : played) {
        highest = std::max(highest, std::abs(sample));
    }
    return highest;
}

HostRun run(const std::string& host, With with,
            const std::map<std::string, std::string>& environment) {
    const TemporaryFolder temporary;
    const fs::path& folder = temporary.path();
    const std::string program = std::string(TQ_E2E_HOSTS "/") + host;
    std::map<std::string, std::string> variables = environment;
    if (with != With::Nothing) {
        const auto armed = launch({program, "arm"}, folder, {{"LD_PRELOAD", TQ_E2E_RECORDING}});
        EXPECT_EQ(armed.code, 0) << armed.text();
        const bool isLate = with == With::HooksLate || with == With::RecordingLate;
        const bool isRecorded = with == With::Recording || with == With::RecordingLate;
        variables[isLate ? "TQ_TEST_OPEN_LATE" : "LD_PRELOAD"] =
            isRecorded ? TQ_E2E_RECORDING : TQ_E2E_LIBRARY;
    }
    HostRun result;
    result.end = launch({program}, folder, variables);
    EXPECT_EQ(result.end.code, 0) << result.end.text();
    result.played = samplesOf<float>(folder / "played");
    for (int track = 1; track <= 7; ++track) {
        const fs::path file = folder / ("track" + std::to_string(track));
        if (fs::exists(file)) {
            result.recorded[track] = samplesOf<std::int16_t>(file);
        }
    }
    result.recorded[0] = samplesOf<std::int16_t>(folder / "mix");
    result.events = contentOf(folder / "events");
    return result;
}

void expectSamePlayed(const HostRun& plain, const HostRun& captured, const std::string& what) {
    EXPECT_GT(plain.peak(), 0) << what << ": nothing is played without the library either";
    ASSERT_EQ(plain.played.size(), captured.played.size()) << what;
    const auto [mine, theirs] =
        std::mismatch(plain.played.begin(), plain.played.end(), captured.played.begin());
    if (mine != plain.played.end()) {
        ADD_FAILURE() << what << " plays otherwise from frame " << mine - plain.played.begin()
                      << " on: " << *theirs << " instead of " << *mine << "; peak "
                      << captured.peak() << " instead of " << plain.peak();
    }
}

void expectPlaysTheSame(const std::string& host, With with) {
    expectSamePlayed(run(host, With::Nothing), run(host, with), host);
}

void expectTheHostPlaysOn(const std::string& host) {
    expectPlaysTheSame(host, With::Hooks);
    expectPlaysTheSame(host, With::Recording);
}

bool holds(const std::vector<std::int16_t>& track, const std::vector<float>& played,
           std::size_t from, std::size_t frames) {
    if (from + frames > played.size()) {
        return false;
    }
    std::vector<std::int16_t> wanted;
    for (std::size_t i = from; i < from + frames; ++i) {
        wanted.push_back(static_cast<std::int16_t>(played[i] * 32767.0F));
    }
    return std::search(track.begin(), track.end(), wanted.begin(), wanted.end()) != track.end();
}

}  // namespace hostruns
