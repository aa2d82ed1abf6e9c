#include <CoreMedia/CoreMedia.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

static_assert(kCMMediaType_Audio == 0x736F756E);
static_assert(kCMFormatDescriptionError_InvalidParameter == -12710);
static_assert(kCMFormatDescriptionError_AllocationFailed == -12711);

namespace {

constexpr AudioStreamBasicDescription kStream = {44100, kAudioFormatLinearPCM, 0xC, 4, 1, 4, 2, 16,
                                                 0};

/// Anything but null, so that a test sees it being cleared.
CMAudioFormatDescriptionRef somethingElse() {
    return reinterpret_cast<CMAudioFormatDescriptionRef>(&kStream);
}

OSStatus create(const AudioStreamBasicDescription* stream, size_t layoutSize,
                const AudioChannelLayout* layout, size_t cookieSize, const void* cookie,
                CMAudioFormatDescriptionRef* out) {
    return CMAudioFormatDescriptionCreate(kCFAllocatorDefault, stream, layoutSize, layout,
                                          cookieSize, cookie, nullptr, out);
}

}  // namespace

TEST(FormatDescription, CopiesItsInput) {
    AudioStreamBasicDescription stream = kStream;
    AudioChannelLayout layout = {kAudioChannelLayoutTag_Stereo, 0, 0, {}};
    char cookie[] = "cookie";
    CMAudioFormatDescriptionRef description = nullptr;
    ASSERT_EQ(create(&stream, sizeof layout, &layout, sizeof cookie, cookie, &description), noErr);
    stream = {};
    layout = {};
    std::memset(cookie, 0, sizeof cookie);

    const AudioStreamBasicDescription* const kept =
        CMAudioFormatDescriptionGetStreamBasicDescription(description);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(std::memcmp(kept, &kStream, sizeof kStream), 0);
    size_t size = 0;
    const AudioChannelLayout* const keptLayout =
        CMAudioFormatDescriptionGetChannelLayout(description, &size);
    ASSERT_NE(keptLayout, nullptr);
    EXPECT_EQ(size, sizeof layout);
    EXPECT_EQ(keptLayout->mChannelLayoutTag, AudioChannelLayoutTag{kAudioChannelLayoutTag_Stereo});
    const void* const keptCookie = CMAudioFormatDescriptionGetMagicCookie(description, &size);
    ASSERT_EQ(size, 7U);
    EXPECT_STREQ(static_cast<const char*>(keptCookie), "cookie");
    EXPECT_EQ(CMFormatDescriptionGetMediaType(description), CMMediaType{kCMMediaType_Audio});
    CFRelease(description);
}

TEST(FormatDescription, NeedsNeitherLayoutNorCookie) {
    CMAudioFormatDescriptionRef description = nullptr;
    ASSERT_EQ(create(&kStream, 0, nullptr, 0, nullptr, &description), noErr);
    size_t size = 7;
    EXPECT_EQ(CMAudioFormatDescriptionGetChannelLayout(description, &size), nullptr);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(CMAudioFormatDescriptionGetMagicCookie(description, nullptr), nullptr);
    CFRelease(description);
}

TEST(FormatDescription, RefusesMissingParameters) {
    CMAudioFormatDescriptionRef description = somethingElse();
    EXPECT_EQ(create(nullptr, 0, nullptr, 0, nullptr, &description), -12710);
    EXPECT_EQ(description, nullptr);
    EXPECT_EQ(create(&kStream, 0, nullptr, 0, nullptr, nullptr), -12710);
}

TEST(FormatDescription, RefusesSizesWithoutPointersAndTheReverse) {
    const AudioChannelLayout layout = {};
    CMAudioFormatDescriptionRef description = somethingElse();
    EXPECT_EQ(create(&kStream, 12, nullptr, 0, nullptr, &description), -12710);
    EXPECT_EQ(create(&kStream, 0, &layout, 0, nullptr, &description), -12710);
    EXPECT_EQ(create(&kStream, 0, nullptr, 4, nullptr, &description), -12710);
    EXPECT_EQ(create(&kStream, 0, nullptr, 0, "cookie", &description), -12710);
    EXPECT_EQ(description, nullptr);
}

TEST(FormatDescription, RefusesALayoutShorterThanItSays) {
    AudioChannelLayout layout = {};
    CMAudioFormatDescriptionRef description = nullptr;
    EXPECT_EQ(create(&kStream, 11, &layout, 0, nullptr, &description), -12710);
    layout.mNumberChannelDescriptions = 2;
    EXPECT_EQ(create(&kStream, sizeof layout, &layout, 0, nullptr, &description), -12710);
    layout.mNumberChannelDescriptions = UINT32_MAX;
    EXPECT_EQ(create(&kStream, sizeof layout, &layout, 0, nullptr, &description), -12710);
    layout.mNumberChannelDescriptions = 1;
    EXPECT_EQ(create(&kStream, sizeof layout, &layout, 0, nullptr, &description), noErr);
    CFRelease(description);
}

TEST(FormatDescription, SaysWhenThereIsNoMemoryForIt) {
    CMAudioFormatDescriptionRef description = somethingElse();
    EXPECT_EQ(create(&kStream, 0, nullptr, SIZE_MAX, "cookie", &description), -12711);
    EXPECT_EQ(description, nullptr);
}

TEST(FormatDescription, GettersAnswerNothingForOtherHandles) {
    CMAudioFormatDescriptionRef stale = nullptr;
    ASSERT_EQ(create(&kStream, 0, nullptr, 0, nullptr, &stale), noErr);
    CFRelease(stale);
    const CFStringRef string =
        CFStringCreateWithCString(kCFAllocatorDefault, "text", kCFStringEncodingUTF8);
    for (const CMAudioFormatDescriptionRef wrong :
         {CMAudioFormatDescriptionRef{nullptr}, stale, somethingElse(),
          reinterpret_cast<CMAudioFormatDescriptionRef>(string)}) {
        size_t size = 7;
        EXPECT_EQ(CMAudioFormatDescriptionGetStreamBasicDescription(wrong), nullptr);
        EXPECT_EQ(CMAudioFormatDescriptionGetChannelLayout(wrong, &size), nullptr);
        EXPECT_EQ(size, 0U);
        EXPECT_EQ(CMAudioFormatDescriptionGetMagicCookie(wrong, nullptr), nullptr);
        EXPECT_EQ(CMFormatDescriptionGetMediaType(wrong), 0U);
    }
    CFRelease(string);
}
