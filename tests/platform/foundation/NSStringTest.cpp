#include <Foundation/NSString.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

/// Counts what a reference does to its object.
struct Counted {
    int references = 1;
    void retain() { ++references; }
    void release() { --references; }
};

}  // namespace

TEST(NSString, KeepsACopyOfTheText) {
    std::string text = "0x1234";
    const auto string = NSString::create(text);
    text = "changed";
    EXPECT_STREQ(string->UTF8String(), "0x1234");
    EXPECT_EQ(string->length(), 6U);
}

TEST(NSString, CountsBytesIncludingZeroOnes) {
    const auto string = NSString::create(std::string_view("a\0b", 3));
    EXPECT_EQ(string->length(), 3U);
    EXPECT_EQ(std::string(string->UTF8String(), 4), std::string("a\0b\0", 4));
}

TEST(NSString, MayBeEmpty) {
    const auto string = NSString::create("");
    EXPECT_STREQ(string->UTF8String(), "");
    EXPECT_EQ(string->length(), 0U);
}

TEST(NSString, LivesAsLongAsItsLastReference) {
    auto first = NSString::create("text");
    NSString* const handle = first.get();
    handle->retain();
    first = NSRef<NSString>();
    EXPECT_STREQ(handle->UTF8String(), "text");
    handle->release();
}

TEST(NSString, MayBeSharedByThreads) {
    const auto string = NSString::create("shared by several threads");
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([reference = string] {
            for (int round = 0; round < 1000; ++round) {
                const NSRef<NSString> copy = reference;
                ASSERT_EQ(copy->length(), 25U);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

TEST(NSString, IsFreedOnWhicheverThreadLetsGoLast) {
    for (int round = 0; round < 200; ++round) {
        auto string = NSString::create("freed under a sanitizer's eyes");
        std::thread other([reference = string]() mutable { reference = NSRef<NSString>(); });
        string = NSRef<NSString>();
        other.join();
    }
}

TEST(NSRef, TakesAndDropsAReferenceOfItsOwn) {
    Counted object;
    {
        const NSRef<Counted> reference(&object);
        EXPECT_EQ(object.references, 2);
        const NSRef<Counted> copy = reference;
        EXPECT_EQ(object.references, 3);
    }
    EXPECT_EQ(object.references, 1);
}

TEST(NSRef, MovesAndAssignsWithoutLosingCount) {
    Counted one;
    Counted other;
    {
        NSRef<Counted> reference(&one);
        NSRef<Counted> moved = std::move(reference);
        EXPECT_EQ(one.references, 2);
        moved = NSRef<Counted>(&other);
        EXPECT_EQ(one.references, 1);
        EXPECT_EQ(other.references, 2);
    }
    EXPECT_EQ(other.references, 1);
}

TEST(NSRef, AdoptsTheCallersReference) {
    Counted object;
    { const auto reference = NSRef<Counted>::adopt(&object); }
    EXPECT_EQ(object.references, 0);
}

TEST(NSRef, OfNothingIsFalse) {
    EXPECT_FALSE(NSRef<Counted>());
    EXPECT_FALSE(NSRef<Counted>(nullptr));
    EXPECT_EQ(NSRef<Counted>().get(), nullptr);
}
