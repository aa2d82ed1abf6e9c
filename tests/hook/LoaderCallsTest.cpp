// What a loading call leaves behind for its caller.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "HostRunner.h"
#include "hook/tq_hook.h"

extern "C" {
#include "hosts/target.h"
}

namespace {

int protections = 0;

int replacement(int /*a*/, int /*b*/) {
    return -1;
}

}  // namespace

// A success may change errno. In this program it always does.
extern "C" int mprotect(void* address, std::size_t size, int protection) noexcept {
    const long result = syscall(SYS_mprotect, address, size, protection);
    ++protections;
    errno = EDOM;
    return static_cast<int>(result);
}

namespace {

class LoaderCallsErrno : public testing::TestWithParam<bool> {};

TEST_P(LoaderCallsErrno, IsAsTheLoaderLeftIt) {
    const tqhook_rebinding rebinding{"t_add", reinterpret_cast<void*>(replacement), nullptr};
    ASSERT_EQ(tqhook_rebind(&rebinding, 1, nullptr), 0);
    ASSERT_EQ(t_add(1, 2), -1);
    protections = 0;
    // Its read-only slots are made writable for a moment.
    const std::string plugin = hostLibrary("plugin_now");
    errno = 0;
    void* const handle = GetParam() ? dlmopen(LM_ID_BASE, plugin.c_str(), RTLD_NOW)
                                    : dlopen(plugin.c_str(), RTLD_NOW);
    const int error = errno;
    ASSERT_NE(handle, nullptr);
    EXPECT_GT(protections, 0);
    EXPECT_EQ(error, 0);
}

INSTANTIATE_TEST_SUITE_P(Hook, LoaderCallsErrno, testing::Bool(),
                         [](const auto& each) { return each.param ? "dlmopen" : "dlopen"; });

}  // namespace
