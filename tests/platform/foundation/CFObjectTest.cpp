#include "foundation/CFObject.h"

#include <gtest/gtest.h>

namespace {

using tqplatform::CFKind;
using tqplatform::CFObject;
using tqplatform::CFReference;

int alive = 0;

class Sample : public CFObject {
  public:
    static constexpr CFKind kKind = CFKind::blockBuffer;
    explicit Sample(CFReference held = {}) : CFObject(kKind), held_(std::move(held)) { ++alive; }
    ~Sample() override { --alive; }

  private:
    CFReference held_;
};

}  // namespace

TEST(CFObject, IsHandedOutWithOneReferenceAndFreedWithTheLast) {
    const CFTypeRef handle = tqplatform::handOut(std::make_unique<Sample>());
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(CFGetRetainCount(handle), 1);
    CFRelease(handle);
    EXPECT_EQ(alive, 0);
}

TEST(CFObject, IsFoundOnlyAsWhatItIs) {
    const CFTypeRef handle = tqplatform::handOut(std::make_unique<Sample>());
    EXPECT_NE(tqplatform::findObject<Sample>(handle), nullptr);
    EXPECT_EQ(tqplatform::findObject(handle, CFKind::sampleBuffer), nullptr);
    CFRelease(handle);
    EXPECT_EQ(tqplatform::findObject<Sample>(handle), nullptr);
    EXPECT_EQ(tqplatform::findObject<Sample>(nullptr), nullptr);
}

TEST(CFObject, MayHoldAnotherAsItsLastOwner) {
    auto inner = CFReference::adopt(tqplatform::handOut(std::make_unique<Sample>()));
    const CFTypeRef outer = tqplatform::handOut(std::make_unique<Sample>(std::move(inner)));
    EXPECT_EQ(alive, 2);
    CFRelease(outer);
    EXPECT_EQ(alive, 0);
}

TEST(CFReference, TakesMovesAndDropsReferences) {
    const CFTypeRef handle = tqplatform::handOut(std::make_unique<Sample>());
    {
        CFReference first(handle);
        EXPECT_EQ(CFGetRetainCount(handle), 2);
        CFReference second = std::move(first);
        EXPECT_EQ(CFGetRetainCount(handle), 2);
        second = CFReference();
        EXPECT_EQ(CFGetRetainCount(handle), 1);
        CFReference third(handle);
        EXPECT_EQ(third.release(), handle);
        EXPECT_EQ(third.get(), nullptr);
    }
    EXPECT_EQ(CFGetRetainCount(handle), 2);
    CFRelease(handle);
    CFRelease(handle);
    EXPECT_EQ(alive, 0);
}

TEST(CFReference, HoldsNothingForAHandleThatIsNotAlive) {
    const CFTypeRef handle = tqplatform::handOut(std::make_unique<Sample>());
    CFRelease(handle);
    EXPECT_EQ(CFReference(handle).get(), nullptr);
}

TEST(MakeCFString, MakesStringsOfWellFormedTextOnly) {
    const CFStringRef string = tqplatform::makeCFString("Platform: RemoteIO");
    ASSERT_NE(string, nullptr);
    EXPECT_STREQ(CFStringGetCStringPtr(string, kCFStringEncodingUTF8), "Platform: RemoteIO");
    CFRelease(string);
    EXPECT_EQ(tqplatform::makeCFString("\xFF"), nullptr);
}
