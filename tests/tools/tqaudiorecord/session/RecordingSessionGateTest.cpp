// Which programs the recorder goes into, and that they do not notice.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "SessionFixture.h"
#include "session/ProcessTree.h"

namespace {

using namespace tqrecorder;
namespace fs = std::filesystem;

const std::string kQuiet = TQ_QUIET_HOST;
const std::string kNaming = TQ_NAMING_HOST;

struct GateSession : Session {
    /// The programs that have connected, in order.
    [[nodiscard]] std::vector<std::string> connected() const {
        std::vector<std::string> names;
        for (const auto& [id, seen] : sink.processes) {
            names.push_back(seen.process.name);
        }
        return names;
    }
};

TEST_F(GateSession, AChildThatHoldsTheNameOfASoundLibraryIsLetIn) {
    record({kHost, "run", kNaming});
    EXPECT_EQ(connected(), (std::vector<std::string>{"recorded_host", "naming_host"}));
}

TEST_F(GateSession, AChildThatKnowsNothingOfSoundIsLeftAlone) {
    record({kHost, "run", kQuiet});
    EXPECT_EQ(connected(), (std::vector<std::string>{"recorded_host"}));
}

TEST_F(GateSession, ASoundServerThatAChildStartsIsLeftAlone) {
    const std::string server = caches / "pulseaudio";
    fs::copy_file(kNaming, server);
    record({kHost, "run", server});
    EXPECT_EQ(connected(), (std::vector<std::string>{"recorded_host"}));
    sink.processes.clear();
    record({server});
    EXPECT_EQ(connected(), (std::vector<std::string>{"pulseaudio"})) << "asked for by name";
}

TEST_F(GateSession, TheCommandIsLetInWhateverItKnows) {
    record({kQuiet});
    EXPECT_EQ(connected(), (std::vector<std::string>{"quiet_host"}));
}

TEST_F(GateSession, AProgramThatIsStartedTwiceKeepsItsName) {
    const std::string answer = caches / "answer";
    record({kQuiet, answer});
    EXPECT_EQ(contentOf(answer), kQuiet + " quiet_host " + kQuiet);
}

TEST_F(GateSession, AProgramThatIsReachedByALinkKeepsTheLinksName) {
    const std::string link = caches / "by_link";
    fs::create_symlink(kQuiet, link);
    const std::string answer = caches / "answer";
    record({link, answer});
    EXPECT_EQ(contentOf(answer), link + " by_link " + link);
}

TEST_F(GateSession, AScriptThatIsStartedTwiceKeepsItsName) {
    const std::string script = caches / "launcher.sh";
    const std::string answer = caches / "answer";
    std::ofstream(script) << "#!/bin/sh\nread name < /proc/$$/comm\necho $0 $name > " << answer
                          << "\n";
    fs::permissions(script, fs::perms::owner_all);
    record({script});
    EXPECT_EQ(contentOf(answer), script + " launcher.sh\n");
}

/// Records with an installation whose path the loader's list cannot hold.
struct BlankPathSession : GateSession {
    void SetUp() override {
        GateSession::SetUp();
        fs::create_directory(caches / "tmp");
        fs::create_directory_symlink(fs::path(kGate).parent_path(), caches / "a place");
        setenv("TMPDIR", (caches / "tmp").c_str(), 1);
    }
    void recordThroughLink(std::vector<std::string> command) {
        options.command = std::move(command);
        RecordingSession session(options, sink, caches / "a place" / fs::path(kGate).filename());
        EXPECT_EQ(session.run().end, RecordingResult::End::kHostEnded);
    }
    /// How many libraries can be reached through what the recorder has left.
    [[nodiscard]] int librariesLeft() const {
        int count = 0;
        for (const auto& folder : fs::directory_iterator(caches / "tmp")) {
            count += fs::exists(folder.path() / "lib" / fs::path(kGate).filename()) ? 1 : 0;
        }
        return count;
    }
};

TEST_F(BlankPathSession, TheLinkGoesWithTheLastProgram) {
    recordThroughLink({kQuiet});
    EXPECT_EQ(connected().size(), 1U);
    EXPECT_TRUE(fs::is_empty(caches / "tmp"));
}

TEST_F(BlankPathSession, WhatIsLeftRunningStillFindsTheLibrary) {
    // A sound server that COMMAND has started: it is not waited for.
    const fs::path server = caches / "pulseaudio";
    fs::create_symlink(TQ_LAUNCHER_HOST, server);
    recordThroughLink({server, "child", "60", "0", kQuiet});
    EXPECT_EQ(librariesLeft(), 1);
    for (const pid_t child : childrenOf("/proc", getpid())) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

}  // namespace
