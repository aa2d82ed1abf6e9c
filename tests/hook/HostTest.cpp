// Programs linked in each way, hooked in each way, with plug-ins linked in each way.

#include <gtest/gtest.h>

#include <tuple>

#include "HostRunner.h"

namespace {

using Matrix = std::tuple<std::string, std::string, std::string>;  // host, hooking, plug-in

HostRun runCase(const std::string& host, const std::string& way,
                std::vector<std::string> arguments) {
    const bool isLinked = way == "linked";
    arguments.insert(arguments.begin(),
                     hostProgram("host_" + host + (isLinked ? "_linked" : "_plain")));
    if (way == "late") {
        arguments.insert(arguments.begin() + 1, {"--hook", hostLibrary("hook")});
    }
    std::map<std::string, std::string> variables;
    if (way == "preload") {
        variables["LD_PRELOAD"] = hostLibrary("hook");
    }
    return runHost(arguments, variables);
}

class HostMatrix : public testing::TestWithParam<Matrix> {
  protected:
    void SetUp() override {
        const auto [host, way, plugin] = GetParam();
        run_ = runCase(host, way, {"--plugin", hostLibrary("plugin_" + plugin)});
        ASSERT_EQ(run_.code, 0) << run_.text();
    }
    HostRun run_;
};

TEST_P(HostMatrix, EveryCallOfTheHostReachesTheReplacementAndTheOriginal) {
    const std::string way = std::get<1>(GetParam());
    EXPECT_EQ(run_["before"], way == "late" ? "3" : "1003");
    EXPECT_EQ(run_["call_1"], "1003");
    EXPECT_EQ(run_["call_2"], "1003");
    EXPECT_EQ(run_["call_1000"], "1003");
    EXPECT_EQ(run_["pick"], "1007");
    EXPECT_EQ(run_["variable"], "1003");
    EXPECT_EQ(run_["constant"], "1003");
    EXPECT_EQ(run_["default_lookup"], "1003");
    EXPECT_EQ(run_["handle_lookup"], "1003");
    EXPECT_EQ(run_["next_lookup"], "3") << "others ask so for what stands behind them";
    EXPECT_EQ(run_["inner"], "6") << "the defining library keeps its own calls";
    EXPECT_EQ(run_["one_address"], "1");
    EXPECT_EQ(run_["constant_page"].substr(0, 2), "r-") << "read-only memory stays so";
    EXPECT_EQ(run_["rebind_status"], "0");
    EXPECT_EQ(run_["own_call"], "1003");
    EXPECT_EQ(run_["original_is_definition"], "1");
    EXPECT_EQ(run_["missing_saved"], "0");
    EXPECT_EQ(run_["refused_images"], "0");
    EXPECT_EQ(run_["message_after_lookup"], "0");
    EXPECT_EQ(run_["missing_lookup"], "0");
    EXPECT_NE(run_["missing_message"].find("t_defined_nowhere"), std::string::npos);

    EXPECT_EQ(run_["message_after_load"], "0");
    EXPECT_EQ(run_["p_call"], "1003");
    EXPECT_EQ(run_["p_variable"], "1003");
    EXPECT_EQ(run_["p_constant"], "1003");
    EXPECT_EQ(run_["p_lookup"], "1003");
}

std::string caseName(const testing::TestParamInfo<Matrix>& parameters) {
    const auto [host, way, plugin] = parameters.param;
    return host + "_" + way + "_" + plugin;
}

INSTANTIATE_TEST_SUITE_P(Hook, HostMatrix,
                         testing::Combine(testing::Values<std::string>("fixed_lazy", "fixed_now",
                                                                       "pie_lazy", "pie_now",
                                                                       "no_plt"),
                                          testing::Values<std::string>("preload", "linked", "late"),
                                          testing::Values<std::string>("lazy", "now")),
                         caseName);

TEST(HookHost, WithoutTheHookNothingIsRedirected) {
    const HostRun run = runCase("pie_lazy", "none", {"--plugin", hostLibrary("plugin_lazy")});
    ASSERT_EQ(run.code, 0) << run.text();
    EXPECT_EQ(run["call_1000"], "3");
    EXPECT_EQ(run["p_call"], "3");
    EXPECT_EQ(run["pick"], "7");
}

TEST(HookHost, PluginThatPrefersItsOwnScopeIsRedirected) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers end a program that loads with RTLD_DEEPBIND";
#endif
    for (const char* plugin : {"plugin_lazy", "plugin_now"}) {
        const HostRun run =
            runCase("pie_lazy", "preload", {"--deepbind", "--plugin", hostLibrary(plugin)});
        ASSERT_EQ(run.code, 0) << run.text();
        EXPECT_EQ(run["p_call"], "1003");
        EXPECT_EQ(run["p_lookup"], "1003");
    }
}

TEST(HookHost, PluginWithTheOldHashTableIsRedirected) {
    const HostRun run = runCase("pie_now", "preload", {"--plugin", hostLibrary("plugin_sysv")});
    ASSERT_EQ(run.code, 0) << run.text();
    EXPECT_EQ(run["p_call"], "1003");
}

TEST(HookHost, PluginWithPackedRelocationsIsRedirected) {
    const HostRun run = runCase("pie_now", "preload", {"--plugin", hostLibrary("plugin_relr")});
    ASSERT_EQ(run.code, 0) << run.text();
    EXPECT_EQ(run["p_call"], "1003");
    EXPECT_EQ(run["p_constant"], "1003");
}

TEST(HookHost, PluginIsRedirectedAgainEachTimeItIsLoaded) {
    const HostRun run = runCase("pie_lazy", "preload", {"--reload", hostLibrary("plugin_lazy")});
    ASSERT_EQ(run.code, 0) << run.text();
    EXPECT_EQ(run["reload_0"], "1003");
    EXPECT_EQ(run["reload_1"], "1003");
    EXPECT_EQ(run["reload_2"], "1003");
    EXPECT_EQ(run["reload_3"], "1003");
    EXPECT_EQ(run["reload_place_3"], run["reload_place_2"]) << "loads must share a place";
}

TEST(HookHost, AnotherPreloadedToolStaysInTheChainInEitherOrder) {
    const std::string hook = hostLibrary("hook");
    const std::string tool = hostLibrary("interposer");
    for (const std::string& both : {hook + ":" + tool, tool + ":" + hook}) {
        const HostRun run =
            runHost({hostProgram("host_pie_lazy_plain"), "--plugin", hostLibrary("plugin_lazy")},
                    {{"LD_PRELOAD", both}});
        ASSERT_EQ(run.code, 0) << run.text();
        EXPECT_EQ(run["call_1"], "1013") << both;
        EXPECT_EQ(run["call_1000"], "1013") << both;
        EXPECT_EQ(run["p_call"], "1013") << both;
    }
}

TEST(HookHost, TwoHooksOfSeparateOriginChain) {
    const std::string first = hostLibrary("hook");
    const std::string second = hostLibrary("second_hook");
    for (const std::string& both : {first + ":" + second, second + ":" + first}) {
        for (const char* host : {"host_pie_lazy_plain", "host_fixed_now_plain"}) {
            const HostRun run = runHost({hostProgram(host), "--plugin", hostLibrary("plugin_lazy")},
                                        {{"LD_PRELOAD", both}});
            ASSERT_EQ(run.code, 0) << run.text();
            EXPECT_EQ(run["call_1"], "21003") << both;
            EXPECT_EQ(run["call_1000"], "21003") << both;
            EXPECT_EQ(run["constant"], "21003") << both;
        }
    }
}

TEST(HookHost, AnotherLibraryOfTheSameNameKeepsItsCallers) {
    for (const char* plugin : {"plugin_other_lazy", "plugin_other_now"}) {
        const HostRun run = runHost({hostProgram("bare_host"), hostLibrary("hook"),
                                     hostLibrary("plugin_lazy"), hostLibrary(plugin)});
        ASSERT_EQ(run.code, 0) << run.text();
        EXPECT_EQ(run["plugin_2"], "1003");
        EXPECT_EQ(run["plugin_again_2"], "1003");
        EXPECT_EQ(run["plugin_3"], "503") << plugin;
        EXPECT_EQ(run["plugin_again_3"], "503") << plugin;
    }
}

TEST(HookHost, WhatLibrariesKeepToThemselvesStaysInvisibleToTheProgram) {
    const HostRun run =
        runHost({hostProgram("bare_host"), hostLibrary("hook"), hostLibrary("plugin_lazy")});
    ASSERT_EQ(run.code, 0) << run.text();
    EXPECT_EQ(run["global_before"], "0");
    EXPECT_EQ(run["global_after"], "0");
    EXPECT_EQ(run["message"], "1");
}

TEST(HookHost, ProgramsOwnSearchPathStillLeadsToItsPlugins) {
    const HostRun run = runHost({hostProgram("runpath_host"), "libhook_plugin_hidden.so"},
                                {{"LD_PRELOAD", hostLibrary("hook")}});
    ASSERT_EQ(run.code, 0) << run.text();
    EXPECT_EQ(run["loaded_1"], "1") << run["message_1"];
    EXPECT_EQ(run["message_1"], "");
    EXPECT_EQ(run["call_1"], "1003");
}

TEST(HookHost, PathRelativeToTheProgramStillLeadsToItsPlugins) {
    const HostRun run =
        runHost({hostProgram("runpath_host"), "$ORIGIN/hidden/libhook_plugin_hidden.so",
                 "${ORIGIN}/libhook_plugin_lazy.so"},
                {{"LD_PRELOAD", hostLibrary("hook")}});
    ASSERT_EQ(run.code, 0) << run.text();
    EXPECT_EQ(run["call_1"], "1003") << run["message_1"];
    EXPECT_EQ(run["call_2"], "1003") << run["message_2"];
}

TEST(HookHost, ProgramWithoutASearchPathMayNamePluginsRelativeToItself) {
    const HostRun run =
        runHost({hostProgram("bare_host"), hostLibrary("hook"), "$ORIGIN/libhook_plugin_lazy.so"});
    ASSERT_EQ(run.code, 0) << run.text();
    EXPECT_EQ(run["plugin_2"], "1003");
}

TEST(HookHost, LibraryThatIsNowhereFailsWithTheLoadersMessage) {
    const std::string name = "libhook_is_nowhere.so";
    const HostRun without = runHost({hostProgram("runpath_host"), name, "./" + name});
    const HostRun with = runHost({hostProgram("runpath_host"), name, "./" + name},
                                 {{"LD_PRELOAD", hostLibrary("hook")}});
    ASSERT_EQ(with.code, 0) << with.text();
    EXPECT_EQ(with["loaded_1"], "0");
    EXPECT_EQ(with["message_1"], without["message_1"]);
    EXPECT_EQ(with["message_2"], without["message_2"]);
    EXPECT_NE(with["message_1"].find(name), std::string::npos);
}

}  // namespace
