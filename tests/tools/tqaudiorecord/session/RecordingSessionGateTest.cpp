// Which programs the recorder goes into, and that they do not notice.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "SessionFixture.h"

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

}  // namespace
