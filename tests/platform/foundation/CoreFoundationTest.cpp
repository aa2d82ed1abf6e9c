#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace {

CFStringRef make(const char* text, CFStringEncoding encoding = kCFStringEncodingUTF8) {
    return CFStringCreateWithCString(kCFAllocatorDefault, text, encoding);
}

/// Owns a string for the length of a test.
class Owned {
  public:
    explicit Owned(CFStringRef string) : string_(string) {}
    ~Owned() { CFRelease(string_); }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    [[nodiscard]] CFStringRef get() const { return string_; }

  private:
    CFStringRef string_;
};

}  // namespace

TEST(CFStringCreateWithCStringNoCopy, LeavesTheTextToItsOwner) {
    char text[] = "text";
    const Owned string(CFStringCreateWithCStringNoCopy(
        kCFAllocatorDefault, text, CFStringGetSystemEncoding(), kCFAllocatorNull));
    text[0] = 'T';
    EXPECT_STREQ(CFStringGetCStringPtr(string.get(), kCFStringEncodingUTF8), "text");
}

TEST(CFStringCreateWithCStringNoCopy, FreesTextThatIsHandedOver) {
    // A leak or a second free would be the sanitizer's to tell.
    const Owned string(CFStringCreateWithCStringNoCopy(kCFAllocatorDefault, strdup("text"),
                                                       kCFStringEncodingUTF8, kCFAllocatorDefault));
    EXPECT_EQ(CFStringGetLength(string.get()), 4);
}

TEST(CFStringCreateWithCStringNoCopy, LeavesTextThatItRefusesToItsOwner) {
    char* const text = strdup("\xff");
    EXPECT_EQ(CFStringCreateWithCStringNoCopy(kCFAllocatorDefault, text, kCFStringEncodingUTF8,
                                              kCFAllocatorDefault),
              nullptr);
    std::free(text);
}

TEST(CFRetain, CountsReferences) {
    const CFStringRef string = make("text");
    ASSERT_NE(string, nullptr);
    EXPECT_EQ(CFGetRetainCount(string), 1);
    EXPECT_EQ(CFRetain(string), string);
    EXPECT_EQ(CFGetRetainCount(string), 2);
    CFRelease(string);
    EXPECT_EQ(CFGetRetainCount(string), 1);
    EXPECT_STREQ(CFStringGetCStringPtr(string, kCFStringEncodingUTF8), "text");
    CFRelease(string);
}

TEST(CFRetain, IsIndifferentToNull) {
    EXPECT_EQ(CFRetain(nullptr), nullptr);
    EXPECT_EQ(CFGetRetainCount(nullptr), 0);
    CFRelease(nullptr);
}

TEST(CFRetain, RecognisesAnObjectAlreadyFreed) {
    const CFStringRef string = make("text");
    CFRelease(string);
    EXPECT_EQ(CFGetRetainCount(string), 0);
    EXPECT_EQ(CFRetain(string), nullptr);
    CFRelease(string);
    EXPECT_EQ(CFStringGetLength(string), 0);
    EXPECT_EQ(CFStringGetCStringPtr(string, kCFStringEncodingUTF8), nullptr);
}

TEST(CFRetain, RecognisesPointersToSomethingElse) {
    const std::vector<char> memory(64, 'x');
    for (const void* const foreign :
         {static_cast<const void*>(memory.data()), static_cast<const void*>(memory.data() + 1),
          reinterpret_cast<const void*>(std::uintptr_t{8}),
          reinterpret_cast<const void*>(UINTPTR_MAX)}) {
        EXPECT_EQ(CFRetain(foreign), nullptr);
        EXPECT_EQ(CFGetRetainCount(foreign), 0);
        CFRelease(foreign);
        const auto string = static_cast<CFStringRef>(foreign);
        EXPECT_EQ(CFStringGetLength(string), 0);
        char buffer[8] = "before";
        EXPECT_FALSE(CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingUTF8));
        EXPECT_STREQ(buffer, "before");
    }
    EXPECT_EQ(memory, std::vector<char>(64, 'x'));
}

TEST(CFRetain, MayBeCalledFromManyThreads) {
    const Owned string(make("shared"));
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&string] {
            for (int round = 0; round < 500; ++round) {
                CFRetain(string.get());
                const Owned own(make("own"));
                CFRelease(string.get());
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
}

TEST(CFString, CopiesItsTextOut) {
    const Owned string(make("RemoteIO"));
    char buffer[9] = {};
    EXPECT_TRUE(CFStringGetCString(string.get(), buffer, sizeof buffer, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "RemoteIO");
}

TEST(CFString, LeavesABufferAloneThatIsTooSmall) {
    const Owned string(make("RemoteIO"));
    char buffer[9] = "before";
    EXPECT_FALSE(CFStringGetCString(string.get(), buffer, 8, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(string.get(), buffer, 0, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(string.get(), buffer, -1, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(string.get(), nullptr, 9, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "before");
}

TEST(CFString, CountsItsLengthInUTF16Units) {
    EXPECT_EQ(CFStringGetLength(Owned(make("")).get()), 0);
    EXPECT_EQ(CFStringGetLength(Owned(make("abc")).get()), 3);
    EXPECT_EQ(CFStringGetLength(Owned(make("\xC3\xA4")).get()), 1);
    EXPECT_EQ(CFStringGetLength(Owned(make("\xE2\x82\xAC")).get()), 1);
    EXPECT_EQ(CFStringGetLength(Owned(make("\xF0\x9F\x8E\xB5")).get()), 2);
}

TEST(CFString, SaysInASCIIOnlyWhatIsASCII) {
    const Owned plain(make("plain"));
    const Owned umlaut(make("\xC3\xA4"));
    EXPECT_STREQ(CFStringGetCStringPtr(plain.get(), kCFStringEncodingASCII), "plain");
    EXPECT_EQ(CFStringGetCStringPtr(umlaut.get(), kCFStringEncodingASCII), nullptr);
    EXPECT_STREQ(CFStringGetCStringPtr(umlaut.get(), kCFStringEncodingUTF8), "\xC3\xA4");
    EXPECT_STREQ(CFStringGetCStringPtr(Owned(make("a", kCFStringEncodingASCII)).get(),
                                       kCFStringEncodingUTF8),
                 "a");
}

TEST(CFString, IsNotMadeOfBadInput) {
    EXPECT_EQ(make(nullptr), nullptr);
    EXPECT_EQ(make("text", 12345), nullptr);
    EXPECT_EQ(make("\xC3\xA4", kCFStringEncodingASCII), nullptr);
    // A lone continuation, one missing, longer forms than needed, a surrogate, beyond the planes.
    for (const char* const text :
         {"\x80", "\xC3", "\xC3(", "\xE2\x82", "\xF0\x9F\x8E", "\xC0\xAF", "\xE0\x80\xAF",
          "\xF0\x80\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xFF"}) {
        EXPECT_EQ(make(text), nullptr);
    }
    // The last ones on the good side of those borders.
    for (const char* const text :
         {"\xC2\x80", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_NE(Owned(make(text)).get(), nullptr);
    }
}

TEST(CFString, SaysHowLargeABufferMayHaveToBe) {
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kCFStringEncodingUTF8), 30);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kCFStringEncodingASCII), 10);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, 12345), -1);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(-1, kCFStringEncodingUTF8), -1);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(std::numeric_limits<CFIndex>::max(),
                                                kCFStringEncodingUTF8),
              -1);
}
