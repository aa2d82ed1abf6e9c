#include "session/HostProgram.h"

#include <elf.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "session/ElfFile.h"
#include "session/RecordingSession.h"
#include "support/TemporaryFolder.h"

// What is found out about a command before it is started.

namespace {

using namespace tqrecorder;
namespace fs = std::filesystem;
using Problem = HostProgram::Problem;

const std::string kHost = TQ_RECORDED_HOST;

struct HostPrograms : testing::Test {
    TemporaryFolder temporary;
    const fs::path& folder = temporary.path();

    [[nodiscard]] std::string make(const std::string& name, const std::string& bytes,
                                   mode_t mode = 0755) const {
        const std::string path = folder / name;
        std::ofstream(path, std::ios::binary) << bytes;
        chmod(path.c_str(), mode);
        return path;
    }
    /// The host's file without the entry that names its loader.
    static std::string staticHost() {
        std::string bytes = contentOf(kHost);
        Elf64_Ehdr head{};
        std::memcpy(&head, bytes.data(), sizeof head);
        for (std::size_t i = 0; i < head.e_phnum; ++i) {
            const std::size_t place = head.e_phoff + i * sizeof(Elf64_Phdr);
            Elf64_Phdr segment{};
            std::memcpy(&segment, bytes.data() + place, sizeof segment);
            if (segment.p_type == PT_INTERP) {
                segment.p_type = PT_NULL;
                std::memcpy(bytes.data() + place, &segment, sizeof segment);
            }
        }
        return bytes;
    }
};

TEST_F(HostPrograms, ThatAreHostsHaveNoProblem) {
    const HostProgram program = findHostProgram(kHost);
    EXPECT_EQ(program.problem, Problem::kNone);
    EXPECT_EQ(program.path, kHost);
    EXPECT_TRUE(program.isWorthStarting());
    EXPECT_EQ(program.text(kHost), "");
}

TEST_F(HostPrograms, AreLookedUpInThePath) {
    const HostProgram program = findHostProgram("ls");
    EXPECT_EQ(fs::path(program.path).filename(), "ls");
    EXPECT_EQ(program.problem, Problem::kNoSound);
    EXPECT_TRUE(program.isWorthStarting()) << "it may open the platform later";
}

TEST_F(HostPrograms, ThatAreNotThereAreSaidNotToBe) {
    for (const std::string command : {"no-such-command-anywhere", "./none", "/none/none"}) {
        const HostProgram program = findHostProgram(command);
        EXPECT_EQ(program.problem, Problem::kNotFound);
        EXPECT_FALSE(program.isWorthStarting());
        EXPECT_EQ(program.text(command), command + ": not found");
    }
}

TEST_F(HostPrograms, ThatCannotBeExecutedAreSaidSo) {
    EXPECT_EQ(findHostProgram(make("plain", contentOf(kHost), 0644)).problem,
              Problem::kNotExecutable);
    EXPECT_EQ(findHostProgram(folder).problem, Problem::kNotExecutable);
}

TEST_F(HostPrograms, ThatAreStaticallyLinkedAreFoundOut) {
    const std::string path = make("static", staticHost());
    const HostProgram program = findHostProgram(path);
    EXPECT_EQ(program.problem, Problem::kStatic);
    EXPECT_FALSE(program.isWorthStarting());
    EXPECT_EQ(program.text(path), path + ": is statically linked and cannot be recorded");
}

TEST_F(HostPrograms, ForAnotherMachineAreFoundOut) {
    std::string bytes = contentOf(kHost);
    const Elf64_Half machine = EM_S390;
    std::memcpy(bytes.data() + offsetof(Elf64_Ehdr, e_machine), &machine, sizeof machine);
    EXPECT_EQ(findHostProgram(make("foreign", bytes)).problem, Problem::kOtherMachine);
    bytes[EI_CLASS] = ELFCLASS32;
    EXPECT_EQ(findHostProgram(make("small", bytes)).problem, Problem::kOtherMachine);
}

TEST_F(HostPrograms, WithRaisedPrivilegesAreFoundOut) {
    const std::string path = make("raised", contentOf(kHost));
    const uid_t other = getuid() + 1;
    if (chown(path.c_str(), other, getgid()) != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    ASSERT_EQ(chmod(path.c_str(), 04755), 0);
    EXPECT_EQ(findHostProgram(path).problem, Problem::kPrivileged);
    ASSERT_EQ(chmod(path.c_str(), 0755), 0);
    EXPECT_EQ(findHostProgram(path).problem, Problem::kNone);
}

TEST_F(HostPrograms, ThatAreScriptsNeedTheirInterpreter) {
    const HostProgram good = findHostProgram(make("good", "#! /bin/sh -e\nexit 0\n"));
    EXPECT_EQ(good.problem, Problem::kNone);
    EXPECT_EQ(good.interpreter, "/bin/sh");
    EXPECT_EQ(findHostProgram(make("bad", "#!/none/sh\n")).problem, Problem::kNoInterpreter);
    EXPECT_EQ(findHostProgram(make("bare", "exit 0\n")).interpreter, "/bin/sh");
}

TEST_F(HostPrograms, ThatAreBrokenProgramsDoNoHarm) {
    const std::string whole = contentOf(kHost);
    for (const std::size_t length : {4U, 16U, 63U, 64U, 100U, 600U}) {
        (void)findHostProgram(make("part" + std::to_string(length), whole.substr(0, length)));
    }
    std::string bytes = whole;
    for (std::size_t i = 24; i < 3000 && i < bytes.size(); ++i) {
        std::string changed = bytes;
        changed[i] = '\xff';
        if (i % 40 == 0) {
            (void)findHostProgram(make("changed", changed));
        }
    }
    EXPECT_EQ(findHostProgram(make("empty", "")).interpreter, "/bin/sh");
}

TEST_F(HostPrograms, InAFolderNamedLikeThePlaceholderOfItsSearchPathAreLookedAt) {
    std::string bytes = contentOf(kHost);
    const std::string libraries = fs::path(TQ_RECORDER_GATE).parent_path();
    const std::size_t place = bytes.find(libraries);
    ASSERT_NE(place, std::string::npos) << "the host's search path names the build's libraries";
    ASSERT_GT(libraries.size(), 16U);
    std::memcpy(bytes.data() + place, "$ORIGIN:$ORIGIN\0", 16);
    fs::create_directory(folder / fs::path("$ORIGIN"));
    const std::string path = make("$ORIGIN/host", bytes);
    EXPECT_EQ(findHostProgram(path).path, path);
}

TEST_F(HostPrograms, ThatCannotBeRecordedAreNotStarted) {
    Options options;
    Sink sink;
    for (const std::string& command : {make("static", staticHost()), std::string("none/none")}) {
        options.command = {command};
        RecordingSession session(options, sink, TQ_RECORDER_GATE);
        std::string error;
        EXPECT_FALSE(session.prepare(error));
        EXPECT_EQ(error.rfind(command + ": ", 0), 0U) << error;
        EXPECT_EQ(session.run().end, RecordingResult::End::kNotStarted);
    }
}

TEST_F(HostPrograms, AreNotStartedWithoutTheLibraryToLoad) {
    Options options;
    Sink sink;
    options.command = {kHost};
    RecordingSession session(options, sink, "");
    std::string error;
    EXPECT_FALSE(session.prepare(error));
    EXPECT_NE(error.find("missing"), std::string::npos);
}

TEST_F(HostPrograms, TheLoaderIsNoStaticProgram) {
    const auto self = readElfFile("/proc/self/exe");
    ASSERT_TRUE(self);
    EXPECT_EQ(findHostProgram(self->interpreter).problem, Problem::kNone);
}

}  // namespace
