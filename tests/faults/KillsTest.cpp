#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/servers/FileOutputs.h"
#include "support/servers/PulseServer.h"
#include "support/sound/Comparison.h"

// Players of the distribution that are killed at random moments under the recorder: its files are
// whole, and the guard counts deaths inside the library alone.
//
// TQ_TEST_KILLS says how many (six unless told), TQ_TEST_SEED which moments.

namespace {

namespace fs = std::filesystem;
using tqtest::Environment;
using tqtest::Sound;

constexpr int kUsualKills = 6;
constexpr double kLatestSeconds = 1.5;
constexpr int kSoundSeconds = 3;

int numberFrom(const char* variable, int usual) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? usual : std::atoi(text);
}

std::string firstLineOf(const fs::path& file) {
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    return line;
}

/// The process of that name below another one; 0 when there is none.
pid_t findBelow(pid_t process, const std::string& name) {
    std::error_code gone;
    const fs::path folder = fs::path("/proc") / std::to_string(process);
    for (const auto& thread : fs::directory_iterator(folder / "task", gone)) {
        std::ifstream list(thread.path() / "children");
        for (pid_t child = 0; list >> child;) {
            if (firstLineOf(fs::path("/proc") / std::to_string(child) / "comm") == name) {
                return child;
            }
            if (const pid_t found = findBelow(child, name); found != 0) {
                return found;
            }
        }
    }
    return 0;
}

/// Whether every thread of a process that is stopped is in a call of the system, where nothing of
/// the library is ever under way between the beginning and the end of a callback.
bool isOutside(pid_t process) {
    std::error_code gone;
    bool isAny = false;
    const fs::path folder = fs::path("/proc") / std::to_string(process) / "task";
    for (const auto& thread : fs::directory_iterator(folder, gone)) {
        const std::string line = firstLineOf(thread.path() / "syscall");
        if (line.empty() || line.starts_with("-1") || line == "running") {
            return false;
        }
        isAny = true;
    }
    return isAny;
}

void stop(pid_t process) {
    kill(process, SIGSTOP);
    (void)tqtest::eventually([&] {
        std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
        std::string text;
        std::getline(stat, text);
        return text.empty() || text.find(") T ") != std::string::npos ||
               text.find(") Z ") != std::string::npos;
    });
}

/// Frames that a tool of the distribution finds in a file; -1 when it does not like the file.
long framesBySoxi(const std::string& file) {
    const tqtest::ProgramEnd run = tqtest::runProgram({.arguments = {"soxi", "-s", file}});
    return run.code == 0 && run.errors.empty() ? std::atol(run.output.c_str()) : -1;
}

/// A player that gets no processor in time leaves a hole.
Sound withoutSilence(const Sound& sound) {
    Sound rest{sound.format, {}};
    for (std::size_t i = 0; i < sound.frames(); ++i) {
        if (!sound.isSilent(i)) {
            rest.bytes += sound.frame(i);
        }
    }
    return rest;
}

class Kills : public testing::Test {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        writeWav(noise_, sound_);
    }

    /// One recording whose player dies. Returns whether it died inside the library.
    void round(const std::string& player, int signal, double seconds);

    [[nodiscard]] fs::path flags(const std::string& player) const {
        return folder_.path() / "caches" / player / "korva_audio_utils";
    }
    /// ~0 where there is no such file yet.
    static std::uint32_t word(const fs::path& file, std::size_t offset) {
        std::ifstream in(file, std::ios::binary);
        in.seekg(static_cast<std::streamoff>(offset));
        std::uint32_t value = ~0U;
        in.read(reinterpret_cast<char*>(&value), sizeof value);
        return value;
    }
    [[nodiscard]] std::uint32_t retries(const std::string& player) const {
        return word(flags(player) / "korva_audio_hook_config.flag", 4);
    }
    /// Whether the guard found nobody inside when the player had gone.
    [[nodiscard]] bool isCountedOutside(const std::string& player) const {
        const std::uint32_t inside = word(flags(player) / "korva_audio_hook_func_count.flag", 0);
        return inside == 0 || inside == ~0U;
    }
    void expectWhole(const std::string& recordings, const std::string& what);

    const TemporaryFolder folder_;
    const Sound noise_ = tqtest::markedNoise({}, kSoundSeconds * 48000);
    const std::string sound_ = folder_.file("noise.wav");
    const tqtest::PulseServer server_;
    const tqtest::AlsaFilePcm alsa_{server_};

    std::size_t frames_ = 0;  ///< on tracks
    int silent_ = 0;          ///< deaths before the first block
    int inside_ = 0;
    int surelyOutside_ = 0;
};

void Kills::expectWhole(const std::string& recordings, const std::string& what) {
    std::size_t frames = 0;
    for (const auto& entry : fs::recursive_directory_iterator(recordings)) {
        if (!entry.is_regular_file()) {
            continue;
        }
        const std::string file = entry.path();
        const long found = framesBySoxi(file);
        EXPECT_GE(found, 0) << what << ": " << file;
        if (entry.path().extension() != ".wav") {
            continue;
        }
        const Sound sound = tqtest::readWav(entry.path());
        EXPECT_EQ(found, static_cast<long>(sound.frames())) << what << ": " << file;
        // A head that says less than there is would hide frames.
        EXPECT_LT(entry.file_size() - sound.bytes.size(), 4096U) << what << ": " << file;
        if (file.find("/tracks/") != std::string::npos) {
            const Sound heard = withoutSilence(sound);
            frames += heard.frames();
            EXPECT_EQ(tqtest::differences(noise_.part(0, heard.frames()), heard),
                      std::vector<std::string>{})
                << what;
        }
    }
    frames_ += frames;
    silent_ += frames == 0 ? 1 : 0;
}

void Kills::round(const std::string& player, int signal, double seconds) {
    const std::string what =
        player + ", signal " + std::to_string(signal) + ", " + std::to_string(seconds) + " s";
    const bool wasOutside = isCountedOutside(player);
    const std::uint32_t before = retries(player);
    const TemporaryFolder recordings;
    Environment environment = alsa_.environment();
    environment["XDG_CACHE_HOME"] = folder_.file("caches");
    environment["TQ_AUDIO_DEVICE"] = "null";
    const std::string mix = recordings.file(signal == SIGABRT ? "mix.flac" : "mix.wav");
    tqtest::Program recorder(
        tqtest::kept({.arguments = {TQ_RECORDER, "-q", "-o", mix, "--tracks",
                                    recordings.file("tracks"), "--", player, sound_},
                      .environment = environment},
                     folder_.path()));
    pid_t process = 0;
    ASSERT_TRUE(tqtest::eventually([&] {
        return (process = findBelow(recorder.pid(), player)) != 0;
    })) << what;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    bool isSurelyOutside = false;
    if (signal == SIGKILL) {
        // It is looked at before it dies. What ends it then lets no thread run on.
        stop(process);
        isSurelyOutside = isOutside(process);
    }
    kill(process, signal);
    const tqtest::ProgramEnd run = recorder.wait();
    EXPECT_FALSE(run.isTimedOut) << what << ": " << run.text();
    expectWhole(recordings.path(), what);

    const bool isInside = !isCountedOutside(player);
    inside_ += isInside ? 1 : 0;
    surelyOutside_ += isSurelyOutside ? 1 : 0;
    EXPECT_FALSE(isSurelyOutside && isInside) << what << ": nobody was inside";
    const std::uint32_t left = retries(player);
    if (before == 1 || before == 2) {
        EXPECT_EQ(left, wasOutside ? before : before - 1) << what << ": retries";
    }
    if (left == 0 || left == 1) {
        // The next ones shall be recorded as well.
        fs::remove_all(flags(player));
    }
}

TEST_F(Kills, AtAnyMomentLeaveFilesWholeAndSpendNoRetryOutside) {
    const int kills = numberFrom("TQ_TEST_KILLS", kUsualKills);
    std::minstd_rand random(static_cast<unsigned>(numberFrom("TQ_TEST_SEED", 1)));
    std::uniform_real_distribution<double> moment(0, kLatestSeconds);
    constexpr std::array<const char*, 2> kPlayers{"aplay", "paplay"};
    constexpr std::array<int, 3> kSignals{SIGKILL, SIGSEGV, SIGABRT};
    for (int i = 0; i < kills; ++i) {
        const auto number = static_cast<std::size_t>(i);
        round(kPlayers.at(number % 2), kSignals.at(number / 2 % 3), moment(random));
        ASSERT_FALSE(HasFatalFailure());
    }
    EXPECT_LT(silent_, kills) << "nothing was ever recorded";
    std::cout << kills << " kills: " << frames_ << " frames on tracks, " << silent_
              << " before the first block, " << inside_ << " inside, " << surelyOutside_
              << " seen outside\n";
}

}  // namespace
