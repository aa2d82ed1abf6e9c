#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "support/ProgramRunner.h"
#include "support/TemporaryFolder.h"

namespace {

std::vector<std::string> sortedLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

/// As the list has them: the name, then the version behind two @ signs.
std::vector<std::string> exportedNames() {
    const auto end =
        tqtest::runProgram({.arguments = {TQ_NM, "-D", "--defined-only", "--format=just-symbols",
                                          TQ_CAPTURE_LIBRARY}});
    EXPECT_EQ(end.code, 0) << end.errors;
    return sortedLines(end.output);
}

}  // namespace

TEST(Exports, AreThoseOfTheList) {
    EXPECT_THAT(exportedNames(), testing::ElementsAreArray(sortedLines(contentOf(TQ_EXPORTS))));
}

TEST(Exports, HaveAVersionEach) {
    for (const std::string& name : exportedNames()) {
        EXPECT_TRUE(name == "TQAudioRecord_1.0" || name.ends_with("@@TQAudioRecord_1.0")) << name;
    }
}

TEST(Exports, HoldNothingOfTheStandardLibrary) {
    for (const std::string& name : exportedNames()) {
        // How names in std begin, and the type information of such.
        for (const char* const begin : {"_ZNSt", "_ZNKSt", "_ZTISt", "_ZTSSt", "_ZTVSt", "_ZSt",
                                        "_ZTVNSt", "_ZTINSt", "_ZTSNSt", "_ZZNSt"}) {
            EXPECT_FALSE(name.starts_with(begin)) << name;
        }
    }
}
