#include <Foundation/Foundation.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

namespace hosts {
struct Listener {
    virtual ~Listener() = default;
};
template <class T>
struct Adapter : Listener {};
}  // namespace hosts

namespace {

struct Line {
    int priority;
    std::string text;
};
std::vector<Line> lines;

void keep(int priority, const char* format, std::va_list arguments) {
    char text[1024];
    std::vsnprintf(text, sizeof text, format, arguments);
    lines.push_back({priority, text});
}

}  // namespace

// These stand before the C library's: what the platform library logs comes here. The second one is
// what the first becomes in a build with hardened library calls.
extern "C" __attribute__((visibility("default"))) void syslog(int priority, const char* format,
                                                              ...) {
    std::va_list arguments;
    va_start(arguments, format);
    keep(priority, format, arguments);
    va_end(arguments);
}
extern "C" __attribute__((visibility("default"))) void __syslog_chk(int priority, int,
                                                                    const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    keep(priority, format, arguments);
    va_end(arguments);
}

TEST(NSStringFromClass, SaysTheNameAsWrittenInTheSource) {
    EXPECT_EQ(NSStringFromClass(typeid(hosts::Listener)), "hosts::Listener");
    EXPECT_EQ(NSStringFromClass(typeid(hosts::Adapter<int>)), "hosts::Adapter<int>");
}

TEST(NSStringFromClass, SaysTheClassOfTheObjectBehindAReference) {
    const hosts::Adapter<char> adapter;
    const hosts::Listener& listener = adapter;
    EXPECT_EQ(NSStringFromClass(typeid(listener)), "hosts::Adapter<char>");
}

TEST(NSLog, WritesOneLineToTheSystemLogAsAUserNotice) {
    NSLog("[RZReplay] start %s", "AudioUnitCapture");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].priority, LOG_USER | LOG_NOTICE);
    EXPECT_EQ(lines[0].text, "[RZReplay] start AudioUnitCapture");
}

TEST(NSLog, FollowsTheFormatRulesOfStrings) {
    const auto name = NSString::create("unit");
    NSLog("%@ %p", static_cast<const NSString*>(name.get()), nullptr);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text, "unit 0x0");
}

TEST(NSLog, DoesNotTakeTheTextItselfForAFormat) {
    NSLog("%s", "100 %s %n %d");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text, "100 %s %n %d");
}

TEST(BOOL, HasItsTwoValues) {
    EXPECT_TRUE(YES);
    EXPECT_FALSE(NO);
    EXPECT_EQ(sizeof(NSInteger), sizeof(void*));
    EXPECT_EQ(sizeof(NSUInteger), sizeof(void*));
}
