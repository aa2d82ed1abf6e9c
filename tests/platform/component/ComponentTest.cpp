#include "PlatformFixture.h"

namespace platform {
namespace {

UInt32 count(OSType type, OSType subType, OSType maker) {
    const AudioComponentDescription wanted{type, subType, maker, 0, 0};
    return AudioComponentCount(&wanted);
}

TEST(Components, ZerosInTheDescriptionMatchAnything) {
    EXPECT_EQ(count(0, 0, 0), 5U);
    EXPECT_EQ(count(kAudioUnitType_Output, 0, 0), 3U);
    EXPECT_EQ(count(0, kAudioUnitSubType_AUConverter, 0), 1U);
    EXPECT_EQ(count(0, 0, kAudioUnitManufacturer_Apple), 5U);
    EXPECT_EQ(count(kAudioUnitType_Effect, 0, 0), 0U);
    EXPECT_EQ(count(0, 0, 0x58585858), 0U);
}

TEST(Components, EveryKindIsFoundOnceByItsOwnDescription) {
    for (const auto& wanted :
         {remoteIO(), description(kAudioUnitType_Output, kAudioUnitSubType_VoiceProcessingIO),
          genericOutput(), mixer(), converter()}) {
        const AudioComponent found = AudioComponentFindNext(nullptr, &wanted);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(AudioComponentFindNext(found, &wanted), nullptr);
        AudioComponentDescription is{};
        EXPECT_EQ(AudioComponentGetDescription(found, &is), noErr);
        EXPECT_EQ(is.componentType, wanted.componentType);
        EXPECT_EQ(is.componentSubType, wanted.componentSubType);
        EXPECT_EQ(is.componentManufacturer, wanted.componentManufacturer);
    }
}

TEST(Components, FindNextWalksThroughAllMatches) {
    const AudioComponentDescription any{};
    UInt32 walked = 0;
    for (AudioComponent at = AudioComponentFindNext(nullptr, &any); at != nullptr;
         at = AudioComponentFindNext(at, &any)) {
        ++walked;
    }
    EXPECT_EQ(walked, AudioComponentCount(&any));
}

TEST(Components, FlagsCountOnlyWhereTheMaskSaysSo) {
    AudioComponentDescription wanted = remoteIO();
    wanted.componentFlags = kAudioComponentFlag_Unsearchable;
    EXPECT_EQ(AudioComponentCount(&wanted), 1U);
    wanted.componentFlagsMask = kAudioComponentFlag_Unsearchable;
    EXPECT_EQ(AudioComponentCount(&wanted), 0U);
}

TEST(Components, HaveANameAndAVersion) {
    const auto wanted = mixer();
    const AudioComponent component = AudioComponentFindNext(nullptr, &wanted);
    CFStringRef name = nullptr;
    ASSERT_EQ(AudioComponentCopyName(component, &name), noErr);
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(CFStringGetCStringPtr(name, kCFStringEncodingUTF8),
                 "TQPlatform: MultiChannelMixer");
    CFRelease(name);
    UInt32 version = 0;
    EXPECT_EQ(AudioComponentGetVersion(component, &version), noErr);
    EXPECT_EQ(version, 0x00010000U);
}

TEST(Components, NullAndForeignArgumentsAreRefused) {
    const auto wanted = mixer();
    int other = 0;
    const auto foreign = reinterpret_cast<AudioComponent>(&other);
    AudioComponentDescription is{};
    AudioUnit unit = nullptr;
    EXPECT_EQ(AudioComponentFindNext(nullptr, nullptr), nullptr);
    EXPECT_EQ(AudioComponentFindNext(foreign, &wanted), nullptr);
    EXPECT_EQ(AudioComponentCount(nullptr), 0U);
    EXPECT_EQ(AudioComponentGetDescription(nullptr, &is), kAudio_ParamError);
    EXPECT_EQ(AudioComponentGetDescription(foreign, &is), kAudio_ParamError);
    EXPECT_EQ(AudioComponentGetDescription(AudioComponentFindNext(nullptr, &wanted), nullptr),
              kAudio_ParamError);
    EXPECT_EQ(AudioComponentCopyName(foreign, nullptr), kAudio_ParamError);
    EXPECT_EQ(AudioComponentGetVersion(nullptr, nullptr), kAudio_ParamError);
    EXPECT_EQ(AudioComponentInstanceNew(nullptr, &unit), kAudio_ParamError);
    EXPECT_EQ(AudioComponentInstanceNew(foreign, &unit), kAudio_ParamError);
    EXPECT_EQ(AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), nullptr),
              kAudio_ParamError);
}

TEST(Components, AnInstanceKnowsItsComponent) {
    const auto wanted = converter();
    const OwnedUnit unit(wanted);
    EXPECT_EQ(AudioComponentInstanceGetComponent(unit), AudioComponentFindNext(nullptr, &wanted));
    EXPECT_EQ(AudioComponentInstanceGetComponent(nullptr), nullptr);
}

}  // namespace
}  // namespace platform
