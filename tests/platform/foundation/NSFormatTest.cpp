#include <Foundation/NSString.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <limits>
#include <string>

namespace {

/// What the C library makes of the same.
template <class... Values>
std::string plain(const char* format, Values... values) {
    char text[2048];
    const int size = std::snprintf(text, sizeof text, format, values...);
    return {text, static_cast<std::size_t>(size)};
}

template <class... Values>
void expectAsPlain(const char* format, Values... values) {
    EXPECT_EQ(NSFormat(format, values...), plain(format, values...)) << format;
}

const void* pointer(std::uintptr_t value) {
    return reinterpret_cast<const void*>(value);
}

std::string throughList(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const std::string first = NSFormatWithArguments(format, arguments);
    const std::string second = NSFormatWithArguments(format, arguments);
    va_end(arguments);
    EXPECT_EQ(first, second) << "the caller's list must stay where it is";
    return first;
}

}  // namespace

TEST(NSFormat, CopiesTextWithoutConversions) {
    EXPECT_EQ(NSFormat(""), "");
    EXPECT_EQ(NSFormat("[mix]stop capture"), "[mix]stop capture");
}

TEST(NSFormat, OfANullFormatIsEmpty) {
    const char* const none = nullptr;
    EXPECT_EQ(NSFormat(none), "");
}

TEST(NSFormat, PrintsANullPointerAsAHexadecimalZero) {
    EXPECT_EQ(NSFormat("%p", nullptr), "0x0");
    EXPECT_EQ(NSFormat("[%8p]", nullptr), "[     0x0]");
    EXPECT_EQ(NSFormat("[%-8p]", nullptr), "[0x0     ]");
    EXPECT_EQ(NSFormat("[%.1p]", nullptr), "[0x0]");
}

TEST(NSFormat, PrintsPointersInLowerCaseHexadecimal) {
    EXPECT_EQ(NSFormat("%p", pointer(0x7FFE12ABCDEF)), "0x7ffe12abcdef");
    EXPECT_EQ(NSFormat("[%8p]", pointer(0xAB)), "[    0xab]");
    EXPECT_EQ(NSFormat("%p, %p", nullptr, pointer(1)), "0x0, 0x1");
}

TEST(NSFormat, PrintsStringObjects) {
    const auto string = NSString::create("0x600012");
    const NSString* const object = string.get();
    EXPECT_EQ(NSFormat("unit:%@ resample, trackid:%d", object, 3),
              "unit:0x600012 resample, trackid:3");
    EXPECT_EQ(NSFormat("[%10@|%-10@|%.3@]", object, object, object), "[  0x600012|0x600012  |0x6]");
}

TEST(NSFormat, PrintsAMissingStringObjectAsNull) {
    EXPECT_EQ(NSFormat("%@", static_cast<const NSString*>(nullptr)), "(null)");
}

TEST(NSFormat, KeepsZeroBytesOfStringObjectsAndCharacters) {
    const auto string = NSString::create(std::string_view("a\0b", 3));
    EXPECT_EQ(NSFormat("%@|%c", static_cast<const NSString*>(string.get()), 0),
              std::string("a\0b|\0", 5));
}

TEST(NSFormat, PrintsIntegersOfEveryLengthAsTheCLibrary) {
    expectAsPlain("%d %i %u %x %X %o", -5, INT_MIN, 7U, 0xBEEFU, 0xBEEFU, 8U);
    expectAsPlain("%hhd %hd %hhu %hx", -3, -300, 200U, 0xABCDU);
    expectAsPlain("%ld %lu %lx", LONG_MIN, ULONG_MAX, 0xDEADBEEFCAFEUL);
    expectAsPlain("%lld %llu %llX", LLONG_MIN, ULLONG_MAX, 0x123456789ABCULL);
    expectAsPlain("%zd %zu %jd %ju %td", static_cast<ssize_t>(-1), SIZE_MAX, INTMAX_MIN,
                  UINTMAX_MAX, static_cast<std::ptrdiff_t>(-9));
}

TEST(NSFormat, CutsShortIntegersToTheirLength) {
    EXPECT_EQ(NSFormat("%hhd", 0x1FF), "-1");
    EXPECT_EQ(NSFormat("%hu", 0x12345), "9029");
}

TEST(NSFormat, PrintsFloatingPointAsTheCLibrary) {
    expectAsPlain("%f %.2f %e %G %a", 3.25, 44100.0, 1e-9, 1e20, 0.5);
    expectAsPlain("%Lf %.3Le", 1.5L, 2.25L);
    expectAsPlain("%f %f", std::numeric_limits<double>::infinity(), -1e300);
    expectAsPlain("%.200f", 1.0 / 3);
}

TEST(NSFormat, ObeysFlagsWidthAndPrecision) {
    expectAsPlain("[%5d|%-5d|%05d|%+d|% d|%#x]", 42, 42, 42, 42, 42, 42U);
    expectAsPlain("[%10.3f|%-10.3s|%.0f]", 2.5, "abcdef", 2.5);
    expectAsPlain("[%.d]", 0);
}

TEST(NSFormat, TakesWidthAndPrecisionFromTheArguments) {
    expectAsPlain("[%*d|%-*d|%.*f|%*.*s]", 6, 42, 6, 42, 2, 3.14159, 8, 3, "abcdef");
    expectAsPlain("[%*d|%.*d]", -6, 42, -1, 42);
    EXPECT_EQ(NSFormat("[%*@]", 4, static_cast<const NSString*>(nullptr)), "[(null)]");
}

TEST(NSFormat, PrintsCharactersAndTexts) {
    expectAsPlain("%c%s%c", 'a', "bc", 'd');
    expectAsPlain("%ls %lc", L"wide", static_cast<std::wint_t>(L'w'));
    const char* const none = nullptr;
    EXPECT_EQ(NSFormat("%s", none), "(null)");
}

TEST(NSFormat, PrintsTextsLongerThanAnyBufferWithin) {
    const std::string text(100'000, 'x');
    EXPECT_EQ(NSFormat("<%s>", text.c_str()), "<" + text + ">");
    EXPECT_EQ(NSFormat("%1000d", 7), std::string(999, ' ') + "7");
}

TEST(NSFormat, PrintsPercentSigns) {
    EXPECT_EQ(NSFormat("100%% of %d%%", 5), "100% of 5%");
}

TEST(NSFormat, CopiesALonePercentSign) {
    EXPECT_EQ(NSFormat("%"), "%");
    EXPECT_EQ(NSFormat("50%"), "50%");
    EXPECT_EQ(NSFormat("%-"), "%-");
    EXPECT_EQ(NSFormat("%5.2"), "%5.2");
    EXPECT_EQ(NSFormat("%*.*ll"), "%*.*ll");
    EXPECT_EQ(NSFormat("%."), "%.");
}

TEST(NSFormat, CopiesUnknownConversionsAndTakesNoArgumentForThem) {
    EXPECT_EQ(NSFormat("%y %d", 5), "%y 5");
    EXPECT_EQ(NSFormat("%1$s %d", 5), "%1$s 5");
    EXPECT_EQ(NSFormat("%*y %d", 5), "%*y 5");
    EXPECT_EQ(NSFormat("%99999999999d %d", 5), "%99999999999d 5");
}

TEST(NSFormat, PadsNoFieldBeyondAMillion) {
    EXPECT_EQ(NSFormat("%2147483647d", 1).size(), 1'000'000U);
    EXPECT_EQ(NSFormat("%*d", INT_MAX, 1).size(), 1'000'000U);
    EXPECT_EQ(NSFormat("%*d", INT_MIN, 1).size(), 1'000'000U);
    EXPECT_EQ(NSFormat("%.2147483647d", 1).size(), 1'000'000U);
    EXPECT_EQ(NSFormat("%*p", INT_MAX, nullptr).size(), 1'000'000U);
}

TEST(NSFormat, TakesAnyPrecisionForTexts) {
    EXPECT_EQ(NSFormat("%.*s|%.2147483647s", INT_MAX, "ab", "cd"), "ab|cd");
    const std::string text(1'000'001, 'x');
    EXPECT_EQ(NSFormat("%.1000001s", text.c_str()).size(), 1'000'001U);
}

TEST(NSFormat, CopiesAWideTextThatTheLocaleCannotSay) {
    EXPECT_EQ(NSFormat("%ls %d", L"\u20AC", 5), "%ls 5");
}

TEST(NSFormat, NeverWritesThroughAnArgument) {
    int untouched = 7;
    EXPECT_EQ(NSFormat("ab%n%d", &untouched, 5), "ab5");
    EXPECT_EQ(untouched, 7);
}

TEST(NSFormat, SaysTheErrorOfTheCallerAndLeavesItAlone) {
    errno = ENOENT;
    const std::string text = NSFormat("%d: %m", 1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(text, "1: " + std::string(std::strerror(ENOENT)));
}

TEST(NSFormat, TakesMoreArgumentsThanRegistersHold) {
    EXPECT_EQ(NSFormat("%d%d%d%d%d%d%d%d%d%.1f%.1f%.1f%.1f%.1f%.1f%.1f%.1f%.1f%p", 1, 2, 3, 4, 5, 6,
                       7, 8, 9, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, nullptr),
              "1234567890.10.20.30.40.50.60.70.80.90x0");
}

TEST(NSFormatWithArguments, LeavesTheCallersListAlone) {
    EXPECT_EQ(throughList("%d %s %p", 1, "two", nullptr), "1 two 0x0");
}
