#include "support/EachCase.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/ProgramRunner.h"
#include "support/TemporaryFolder.h"

namespace {

using Arguments = std::vector<std::string>;

constexpr const char* kFilter = "--gtest_filter=";
constexpr const char* kList = "--gtest_list_tests";

/// This program with the same arguments but for the cases that are selected.
Arguments withFilter(Arguments arguments, const std::string& filter) {
    arguments[0] = std::filesystem::read_symlink("/proc/self/exe").string();
    std::erase_if(arguments, [](const std::string& one) { return one.starts_with(kFilter); });
    arguments.push_back(kFilter + filter);
    return arguments;
}

/// What `--gtest_list_tests` says: a line for each suite, the names of its cases indented below.
std::vector<std::string> selectedCases(const Arguments& given, const std::string& filter) {
    Arguments arguments = withFilter(given, filter);
    arguments.emplace_back(kList);
    std::istringstream lines(tqtest::runProgram({.arguments = arguments}).output);
    std::vector<std::string> cases;
    std::string suite;
    for (std::string line; std::getline(lines, line);) {
        const bool isCase = line.starts_with("  ");
        const std::size_t first = isCase ? 2 : 0;
        const std::string name = line.substr(first, line.find_first_of(" #", first) - first);
        if (isCase) {
            cases.push_back(suite + name);
        } else if (name.ends_with('.')) {
            suite = name;
        }
    }
    return cases;
}

/// One line for each case, and all that it wrote when it failed.
int runEach(const Arguments& given, const std::vector<std::string>& cases) {
    std::vector<std::string> failed;
    for (const std::string& name : cases) {
        const tqtest::ProgramEnd run = tqtest::runProgram({.arguments = withFilter(given, name)});
        if (run.code != 0) {
            failed.push_back(name);
            std::printf("%s", run.text().c_str());
            if (run.signal != 0) {
                std::printf("%s by signal %d\n", run.isTimedOut ? "stopped" : "ended", run.signal);
            }
        }
        std::printf("%s %s\n", run.code == 0 ? "[       OK ]" : "[  FAILED  ]", name.c_str());
        std::fflush(stdout);
    }
    std::printf("%zu of %zu passed\n", cases.size() - failed.size(), cases.size());
    return failed.empty() ? 0 : 1;
}

}  // namespace

std::optional<int> tqtest::runEachCase(int argc, char** argv) {
    const Arguments given(argv, argv + argc);
    testing::InitGoogleTest(&argc, argv);
    const std::string filter = GTEST_FLAG_GET(filter);
    setenv("TQ_AUDIO_DEVICE", "manual", 0);
    if (filter.find_first_of("*?:-") == std::string::npos || GTEST_FLAG_GET(list_tests)) {
        return std::nullopt;
    }
    const TemporaryFolder caches;
    setenv("XDG_CACHE_HOME", caches.path().c_str(), 0);
    const std::vector<std::string> cases = selectedCases(given, filter);
    if (cases.size() == 1) {
        GTEST_FLAG_SET(filter, cases.front());
        return std::nullopt;
    }
    return runEach(given, cases);
}
