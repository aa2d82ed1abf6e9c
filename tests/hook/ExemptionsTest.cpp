// Images that keep their calls: by name, or because they are the caller's own.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>

#include "HostRunner.h"
#include "hook/rebind/Exemptions.h"
#include "hook/rebind/LoaderCalls.h"
#include "hook/tq_hook.h"

extern "C" {
#include "hosts/target.h"
}

namespace {

using Add = int (*)(int, int);

Add savedFirst = nullptr;
Add savedSecond = nullptr;

int first(int a, int b) {
    return savedFirst(a, b) + 1000;
}
int second(int a, int b) {
    return savedSecond(a, b) + 20000;
}

int rebind(Add replacement, Add& saved, const tqhook_options* options) {
    const tqhook_rebinding record{"t_add", reinterpret_cast<void*>(replacement),
                                  reinterpret_cast<void**>(&saved)};
    return tqhook_rebind(&record, 1, options);
}

template <std::size_t kCount>
tqhook_options exempting(const std::array<const char*, kCount>& patterns) {
    return {sizeof(tqhook_options), patterns.data(), kCount, 0};
}

void* load(const std::string& library) {
    void* handle = dlopen(library.c_str(), RTLD_LAZY | RTLD_LOCAL);
    EXPECT_NE(handle, nullptr) << dlerror();
    return handle;
}

// Not through the test's own slot of dlsym(), which is redirected as well.
template <class Function = Add>
Function function(void* handle, const char* name) {
    return reinterpret_cast<Function>(tqhook::loaderCalls()->symbol(handle, name));
}

std::string module() {
    return std::string(HOOK_HOSTS) + "/libasound_module_test.so";
}

TEST(Exemptions, PatternsCoverTheLastPartOfAPath) {
    tqhook::Exemptions exempt;
    exempt.addPattern("libsome_*.so");
    EXPECT_TRUE(exempt.cover("/usr/lib/libsome_thing.so", 0));
    EXPECT_TRUE(exempt.cover("libsome_thing.so", 0));
    EXPECT_FALSE(exempt.cover("/usr/libsome_x.so/other.so", 0));
    EXPECT_FALSE(exempt.cover("/usr/lib/libsome_thing.so.1", 0));
}

TEST(Exemptions, NoPatternCoversTheMainProgram) {
    tqhook::Exemptions exempt;
    exempt.addPattern("*");
    EXPECT_FALSE(exempt.cover("", 0));
}

TEST(Exemptions, SoundPluginKeepsItsCallsAndItsLookups) {
    ASSERT_EQ(rebind(first, savedFirst, nullptr), 0);
    void* handle = load(module());
    EXPECT_EQ(function(handle, "p_call")(1, 2), 3);
    EXPECT_EQ(function(handle, "p_lookup")(1, 2), 3);
}

TEST(Exemptions, SoundPluginThatIsThereAlreadyKeepsItsCalls) {
    void* handle = load(module());
    ASSERT_EQ(rebind(first, savedFirst, nullptr), 0);
    EXPECT_EQ(function(handle, "p_call")(1, 2), 3);
}

TEST(Exemptions, WhatASoundPluginLoadsIsRedirected) {
    ASSERT_EQ(rebind(first, savedFirst, nullptr), 0);
    void* handle = load(module());
    const auto loadThere = function<void* (*)(const char*)>(handle, "p_load");
    void* plugin = loadThere(hostLibrary("plugin_lazy").c_str());
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(function(plugin, "p_call")(1, 2), 1003);
}

TEST(Exemptions, NamedImagesAreExemptFromEveryRequest) {
    ASSERT_EQ(tqhook_exempt_images("libhook_plugin_n?w.so"), 0);
    ASSERT_EQ(rebind(first, savedFirst, nullptr), 0);
    ASSERT_EQ(rebind(second, savedSecond, nullptr), 0);
    EXPECT_EQ(function(load(hostLibrary("plugin_now")), "p_call")(1, 2), 3);
    EXPECT_EQ(function(load(hostLibrary("plugin_lazy")), "p_call")(1, 2), 21003);
}

TEST(Exemptions, ImagesNamedLaterAreExemptWhenTheyAreLoaded) {
    ASSERT_EQ(rebind(first, savedFirst, nullptr), 0);
    ASSERT_EQ(tqhook_exempt_images("libhook_plugin_now.so"), 0);
    EXPECT_EQ(function(load(hostLibrary("plugin_now")), "p_call")(1, 2), 3);
    EXPECT_EQ(t_add(1, 2), 1003);
}

TEST(Exemptions, PatternWithoutTextIsRefused) {
    EXPECT_EQ(tqhook_exempt_images(nullptr), -1);
    EXPECT_EQ(tqhook_exempt_images(""), -1);
}

TEST(Exemptions, FrontWithoutASymbolIsRefused) {
    EXPECT_EQ(tqhook_front_images(nullptr), -1);
    EXPECT_EQ(tqhook_front_images(""), -1);
}

TEST(Exemptions, RequestsOwnPatternsConcernItAlone) {
    ASSERT_EQ(rebind(first, savedFirst, nullptr), 0);
    const std::array<const char*, 2> patterns{"libnothing.so", "libhook_plugin_now.so"};
    const tqhook_options options = exempting(patterns);
    ASSERT_EQ(rebind(second, savedSecond, &options), 0);
    void* exempt = load(hostLibrary("plugin_now"));
    void* other = load(hostLibrary("plugin_lazy"));
    EXPECT_EQ(function(exempt, "p_call")(1, 2), 1003);
    EXPECT_EQ(function(exempt, "p_lookup")(1, 2), 1003);
    EXPECT_EQ(function(exempt, "p_constant")(1, 2), 1003);
    EXPECT_EQ(function(other, "p_call")(1, 2), 21003);
    EXPECT_EQ(function(other, "p_lookup")(1, 2), 21003);
}

TEST(Exemptions, ImageThatOnlyTheOlderRequestExemptsReachesTheNewer) {
    const std::array<const char*, 1> patterns{"libhook_plugin_now.so"};
    const tqhook_options options = exempting(patterns);
    ASSERT_EQ(rebind(first, savedFirst, &options), 0);
    void* exempt = load(hostLibrary("plugin_now"));
    EXPECT_EQ(function(exempt, "p_call")(1, 2), 3);
    ASSERT_EQ(rebind(second, savedSecond, nullptr), 0);
    EXPECT_EQ(function(exempt, "p_call")(1, 2), 21003);
}

TEST(Exemptions, OwnImageKeepsItsCallsWhenTheRequestSaysSo) {
    tqhook_options options{};
    options.size = sizeof options;
    options.exemptsOwnImages = 1;
    ASSERT_EQ(rebind(first, savedFirst, &options), 0);
    EXPECT_EQ(t_add(1, 2), 3);
    EXPECT_EQ(reinterpret_cast<Add>(dlsym(RTLD_DEFAULT, "t_add"))(1, 2), 3);
    void* plugin = load(hostLibrary("plugin_lazy"));
    EXPECT_EQ(function(plugin, "p_call")(1, 2), 1003);
    EXPECT_EQ(function(plugin, "p_lookup")(1, 2), 1003);
}

TEST(Exemptions, OptionsOfAnOlderCallerAreReadToTheirEnd) {
    tqhook_options options{};
    options.size = offsetof(tqhook_options, exemptsOwnImages);
    options.exemptsOwnImages = 1;
    ASSERT_EQ(rebind(first, savedFirst, &options), 0);
    EXPECT_EQ(t_add(1, 2), 1003);
}

TEST(Exemptions, NullPatternsAreRefusedAndNothingIsRedirected) {
    std::array<const char*, 2> patterns{"libnothing.so", nullptr};
    const tqhook_options holding = exempting(patterns);
    EXPECT_EQ(rebind(first, savedFirst, &holding), -1);
    tqhook_options none = holding;
    none.exemptPatterns = nullptr;
    EXPECT_EQ(rebind(first, savedFirst, &none), -1);
    EXPECT_EQ(t_add(1, 2), 3);
}

}  // namespace
