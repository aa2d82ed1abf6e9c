#include <gtest/gtest.h>

#include <elf.h>

#include <filesystem>
#include <fstream>

#include "bridges/programs/RecordedRun.h"

// Programs that come to their sound library by every road that the loader has.

namespace programruns {
namespace {

using tqtest::AlsaFilePcm;
using tqtest::PulseServer;
using tqtest::Sound;

/// A program that plays one file, or two one after the other.
template <class Kind>
struct Playing : RecordedRun {
    explicit Playing(std::unique_ptr<Kind> on) : output(std::move(on)) {
        std::ofstream(firstFile, std::ios::binary) << first.bytes;
        std::ofstream(secondFile, std::ios::binary) << second.bytes;
    }
    std::vector<std::string> loader(const std::string& kind) const {
        return {TQ_TEST_ALSA_LOADER, kind, TQ_TEST_ALSA_PLUGIN, firstFile, secondFile};
    }

    const std::unique_ptr<Kind> output;
    const Sound first = tqtest::markedNoise({}, 30000, 1);
    const Sound second = tqtest::markedNoise({}, 30000, 2);
    const std::string firstFile = output->folder().file("first.raw");
    const std::string secondFile = output->folder().file("second.raw");
};

struct Bindings : Playing<FileOutput<AlsaFilePcm>> {
    Bindings() : Playing(std::make_unique<FileOutput<AlsaFilePcm>>()) {}

    /// Runs it bare and recorded; both are heard alike and answered alike.
    ProgramRun expectUntouched(const std::vector<std::string>& command) {
        const ProgramRun bare = runBare(*output, command);
        ProgramRun recorded = runRecorded(*output, command);
        EXPECT_EQ(bare.end.code, 0) << bare.end.text();
        expectSameSound(bare, recorded, command[0]);
        EXPECT_EQ(bare.end.output, recorded.end.output);
        return recorded;
    }
};

/// The type of an executable: at a fixed place or not.
int typeOf(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    Elf64_Ehdr header{};
    stream.read(reinterpret_cast<char*>(&header), sizeof header);
    return header.e_type;
}

TEST_F(Bindings, AnExecutableAtAFixedPlace) {
    ASSERT_EQ(typeOf(TQ_TEST_ALSA_PLAYER_FIXED), ET_EXEC);
    for (const char* const road : {"writei", "mapped"}) {
        expectTrackHolds(expectUntouched({TQ_TEST_ALSA_PLAYER_FIXED, road, firstFile}), first);
    }
}

TEST_F(Bindings, APlugInThatPrefersItsOwnLibraries) {
    expectTrackHolds(expectUntouched(loader("deepbind")), first);
}

TEST_F(Bindings, ALibraryThatIsClosedAndOpenedAgain) {
    const ProgramRun run = expectUntouched(loader("reopen"));
    expectOnTracks(run, first);
    expectOnTracks(run, second);
}

TEST_F(Bindings, OfTwoCopiesOfALibraryTheFirstIsRecordedAndBothPlay) {
    const std::string copy = output->folder().file("libsound.so");
    std::filesystem::copy_file(TQ_TEST_ALSA_LIBRARY, copy);
    auto command = loader("copies");
    command.push_back(copy);
    const ProgramRun run = expectUntouched(command);
    EXPECT_EQ(run.heard.frames(), first.frames() + second.frames());
    expectTrackHolds(run, first);
}

/// At the speed of the wall clock.
struct PacedBindings : Playing<Output> {
    PacedBindings() : Playing(makePaced()) {}

    static std::unique_ptr<Output> makePaced() {
        struct Paced : Output {
            PulseServer server;
            AlsaFilePcm file{server};
            [[nodiscard]] const tqtest::Environment& environment() const override {
                return file.environment();
            }
            [[nodiscard]] const TemporaryFolder& folder() const override { return file.folder(); }
            [[nodiscard]] Sound heard() override { return Sound{{}, file.takeWritten()}; }
        };
        return std::make_unique<Paced>();
    }
};

TEST_F(PacedBindings, AProgramThatBecomesAnotherWhileItPlays) {
    const ProgramRun run = runRecorded(*output, loader("exec"));
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    expectOnTracks(run, second);
    // What it had not played is gone with it.
    expectOnTracks(run, first.part(0, 9600));
}

TEST_F(Bindings, Mpg123) {
    const Sound noise = tqtest::markedNoise({}, 48000);
    const std::string wav = output->folder().file("noise.wav");
    const std::string mp3 = output->folder().file("noise.mp3");
    writeWav(noise, wav);
    tqtest::needTool("ffmpeg", "ffmpeg");
    ASSERT_EQ(runBare(*output, {"ffmpeg", "-loglevel", "error", "-i", wav, mp3}).end.code, 0);
    const ProgramRun run = expectUntouched({"mpg123", "-q", "-o", "alsa", "-a", "cap", mp3});
    EXPECT_GT(run.heard.frames(), 47000U);
    expectTrackHolds(run, run.heard);
}

}  // namespace
}  // namespace programruns
