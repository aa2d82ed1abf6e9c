#include "hook/Hook.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string_view>

namespace {

constexpr tqhook::HookTable kHooks{
    tqhook::hook<&getppid>([](auto* original) { return original() + 1; }),
    tqhook::hook<&setenv>([](auto* original, const char* name, const char* value, int overwrite) {
        return std::string_view(name) == "TQ_FORBIDDEN" ? -2 : original(name, value, overwrite);
    }),
};
constexpr tqhook::HookTable kMoreHooks{
    tqhook::hook<&getppid>([](auto* original) { return original() + 100; }),
};

template <class Table>
void install(const Table& table) {
    const auto rows = table.rows();
    ASSERT_EQ(tqhook_rebind(rows.data(), rows.size(), nullptr), 0);
}

TEST(Hook, RowNamesTheFunctionAndKeepsTheOrder) {
    const auto rows = kHooks.rows();
    EXPECT_STREQ(rows[0].symbol, "getppid");
    EXPECT_STREQ(rows[1].symbol, "setenv");
    EXPECT_NE(rows[0].replacement, rows[1].replacement);
    EXPECT_NE(rows[0].saved, rows[1].saved);
}

TEST(Hook, NameTakesAPrefix) {
    EXPECT_STREQ((tqhook::kNameOf<&getppid, "our_">.data()), "our_getppid");
}

TEST(Hook, BodyRunsInPlaceOfTheFunctionAndCallsIt) {
    const pid_t parent = getppid();
    install(kHooks);
    EXPECT_EQ(getppid(), parent + 1);
    EXPECT_EQ(setenv("TQ_FORBIDDEN", "1", 1), -2);
    EXPECT_EQ(setenv("TQ_ALLOWED", "1", 1), 0);
    EXPECT_STREQ(getenv("TQ_ALLOWED"), "1");
}

TEST(Hook, TwoHooksOfOneFunctionChain) {
    const pid_t parent = getppid();
    install(kHooks);
    install(kMoreHooks);
    EXPECT_EQ(getppid(), parent + 101);
}

TEST(Hook, RowsFillAnyRecordOfTheSameMembers) {
    struct Other {
        const char* symbol;
        void* replacement;
        void** saved;
    };
    EXPECT_STREQ(kHooks.rows<Other>()[1].symbol, "setenv");
}

}  // namespace
