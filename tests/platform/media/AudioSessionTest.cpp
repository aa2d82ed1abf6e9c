#include <AVFoundation/AVFoundation.h>
#include <AudioToolbox/AudioSession.h>
#include <TQPlatform/ManualDevice.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

constexpr UInt32 code(const char (&letters)[5]) {
    UInt32 value = 0;
    for (int index = 0; index < 4; ++index) {
        value = value << 8 | static_cast<unsigned char>(letters[index]);
    }
    return value;
}

static_assert(kAudioSessionNoError == 0);
static_assert(kAudioSessionNotInitialized == code("!ini"));
static_assert(kAudioSessionAlreadyInitialized == code("init"));
static_assert(kAudioSessionUnsupportedPropertyError == code("pty?"));
static_assert(kAudioSessionBadPropertySizeError == code("!siz"));
static_assert(kAudioSessionIncompatibleCategory == code("!cat"));
static_assert(kAudioSessionProperty_AudioCategory == code("acat"));
static_assert(kAudioSessionProperty_CurrentHardwareSampleRate == code("chsr"));
static_assert(kAudioSessionProperty_PreferredHardwareSampleRate == code("hwsr"));
static_assert(kAudioSessionProperty_CurrentHardwareIOBufferDuration == code("chbd"));
static_assert(kAudioSessionProperty_PreferredHardwareIOBufferDuration == code("iobd"));
static_assert(kAudioSessionProperty_CurrentHardwareInputNumberChannels == code("chic"));
static_assert(kAudioSessionProperty_CurrentHardwareOutputNumberChannels == code("choc"));
static_assert(kAudioSessionProperty_CurrentHardwareInputLatency == code("cilt"));
static_assert(kAudioSessionProperty_CurrentHardwareOutputLatency == code("colt"));
static_assert(kAudioSessionProperty_Mode == code("mode"));
static_assert(kAudioSessionProperty_OverrideCategoryMixWithOthers == code("cmix"));
static_assert(kAudioSessionProperty_AudioRouteChange == code("roch"));
static_assert(kAudioSessionProperty_AudioInputAvailable == code("aiav"));
static_assert(kAudioSessionCategory_AmbientSound == code("ambi"));
static_assert(kAudioSessionCategory_SoloAmbientSound == code("solo"));
static_assert(kAudioSessionCategory_MediaPlayback == code("medi"));
static_assert(kAudioSessionCategory_RecordAudio == code("reca"));
static_assert(kAudioSessionCategory_PlayAndRecord == code("plar"));
static_assert(kAudioSessionBeginInterruption == 1 && kAudioSessionEndInterruption == 0);

/// What listeners were told: which property, and how many bytes.
using Calls = std::vector<std::pair<AudioSessionPropertyID, UInt32>>;

void record(void* calls, AudioSessionPropertyID id, UInt32 size, const void* data) {
    EXPECT_NE(data, nullptr);
    static_cast<Calls*>(calls)->emplace_back(id, size);
}

void recordState(void* states, UInt32 state) {
    static_cast<std::vector<UInt32>*>(states)->push_back(state);
}

template <class Value>
Value get(AudioSessionPropertyID id) {
    Value value{};
    UInt32 size = sizeof value;
    EXPECT_EQ(AudioSessionGetProperty(id, &size, &value), kAudioSessionNoError);
    EXPECT_EQ(size, sizeof value);
    UInt32 told = 0;
    EXPECT_EQ(AudioSessionGetPropertySize(id, &told), kAudioSessionNoError);
    EXPECT_EQ(told, sizeof value);
    return value;
}

template <class Value>
OSStatus set(AudioSessionPropertyID id, Value value) {
    return AudioSessionSetProperty(id, sizeof value, &value);
}

void post(const char* name, NSUserInfo userInfo = {}) {
    NSNotificationCenter::defaultCenter().postNotificationName(name, nullptr, std::move(userInfo));
}

void postInterruption(long type) {
    post(AVAudioSessionInterruptionNotification, {{AVAudioSessionInterruptionTypeKey, type}});
}

class Session : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(AudioSessionInitialize(nullptr, nullptr, recordState, &states_), noErr);
    }

    std::vector<UInt32> states_;
    Calls calls_;
};

}  // namespace

TEST(SessionBefore, InitialisationAnswersSo) {
    const OSStatus expected = kAudioSessionNotInitialized;
    UInt32 value = 0;
    UInt32 size = sizeof value;
    Calls calls;
    EXPECT_EQ(AudioSessionSetActive(1), expected);
    EXPECT_EQ(AudioSessionGetProperty(kAudioSessionProperty_Mode, &size, &value), expected);
    EXPECT_EQ(AudioSessionGetPropertySize(kAudioSessionProperty_Mode, &size), expected);
    EXPECT_EQ(set(kAudioSessionProperty_Mode, value), expected);
    EXPECT_EQ(AudioSessionAddPropertyListener(kAudioSessionProperty_Mode, record, &calls),
              expected);
    EXPECT_EQ(
        AudioSessionRemovePropertyListenerWithUserData(kAudioSessionProperty_Mode, record, &calls),
        expected);
}

TEST_F(Session, IsInitialisedOnce) {
    std::vector<UInt32> others;
    EXPECT_EQ(AudioSessionInitialize(nullptr, nullptr, recordState, &others),
              static_cast<OSStatus>(code("init")));
    postInterruption(1);
    EXPECT_THAT(others, IsEmpty());
    EXPECT_THAT(states_, ElementsAre(1U));
}

TEST_F(Session, CanBeMadeActiveAndInactive) {
    EXPECT_EQ(AudioSessionSetActive(1), kAudioSessionNoError);
    EXPECT_EQ(AudioSessionSetActive(0), kAudioSessionNoError);
}

TEST_F(Session, TellsItsListenerOfInterruptions) {
    postInterruption(AVAudioSessionInterruptionTypeBegan);
    EXPECT_THAT(states_, ElementsAre(1U));
    postInterruption(AVAudioSessionInterruptionTypeEnded);
    EXPECT_THAT(states_, ElementsAre(1U, 0U));
}

TEST_F(Session, PassesOverNoticesWithoutAKnownType) {
    postInterruption(7);
    post(AVAudioSessionInterruptionNotification);
    post(AVAudioSessionInterruptionNotification, {{AVAudioSessionInterruptionTypeKey, "1"}});
    EXPECT_THAT(states_, IsEmpty());
}

TEST(SessionWithoutListener, SurvivesInterruptions) {
    ASSERT_EQ(AudioSessionInitialize(nullptr, nullptr, nullptr, nullptr), noErr);
    EXPECT_NO_THROW(postInterruption(1));
}

TEST_F(Session, SaysWhatTheHardwareIs) {
    EXPECT_EQ(get<Float64>(kAudioSessionProperty_CurrentHardwareSampleRate), 48000.0);
    EXPECT_EQ(get<UInt32>(kAudioSessionProperty_CurrentHardwareOutputNumberChannels), 2U);
    EXPECT_GE(get<UInt32>(kAudioSessionProperty_CurrentHardwareInputNumberChannels), 1U);
    EXPECT_EQ(get<UInt32>(kAudioSessionProperty_AudioInputAvailable), 1U);
    for (const AudioSessionPropertyID id : {kAudioSessionProperty_CurrentHardwareIOBufferDuration,
                                            kAudioSessionProperty_CurrentHardwareInputLatency,
                                            kAudioSessionProperty_CurrentHardwareOutputLatency}) {
        const Float32 seconds = get<Float32>(id);
        EXPECT_GT(seconds, 0.0F);
        EXPECT_LE(seconds, 1024 / 48000.0F);
    }
}

TEST_F(Session, FollowsTheRateOfTheDevice) {
    ASSERT_EQ(TQManualDeviceSetSampleRate(44100), noErr);
    EXPECT_EQ(get<Float64>(kAudioSessionProperty_CurrentHardwareSampleRate), 44100.0);
}

TEST_F(Session, KeepsWhatIsSet) {
    EXPECT_EQ(get<UInt32>(kAudioSessionProperty_AudioCategory), code("solo"));
    EXPECT_EQ(set(kAudioSessionProperty_AudioCategory, code("plar")), noErr);
    EXPECT_EQ(get<UInt32>(kAudioSessionProperty_AudioCategory), code("plar"));
    EXPECT_EQ(set(kAudioSessionProperty_Mode, code("vcct")), noErr);
    EXPECT_EQ(get<UInt32>(kAudioSessionProperty_Mode), code("vcct"));
    EXPECT_EQ(set(kAudioSessionProperty_OverrideCategoryMixWithOthers, 1U), noErr);
    EXPECT_EQ(get<UInt32>(kAudioSessionProperty_OverrideCategoryMixWithOthers), 1U);
}

TEST_F(Session, TheDeviceFollowsThePreferredRate) {
    EXPECT_EQ(get<Float64>(kAudioSessionProperty_PreferredHardwareSampleRate), 48000.0);
    ASSERT_EQ(AudioSessionAddPropertyListener(kAudioSessionProperty_CurrentHardwareSampleRate,
                                              record, &calls_),
              noErr);
    EXPECT_EQ(set(kAudioSessionProperty_PreferredHardwareSampleRate, 22050.0), noErr);
    EXPECT_EQ(get<Float64>(kAudioSessionProperty_PreferredHardwareSampleRate), 22050.0);
    EXPECT_EQ(get<Float64>(kAudioSessionProperty_CurrentHardwareSampleRate), 22050.0);
    EXPECT_THAT(calls_, ElementsAre(Pair(code("chsr"), 8U)));
}

TEST_F(Session, ARateThatChangesTheDeviceIsARouteChangeAndTheSameRateIsNone) {
    ASSERT_EQ(
        AudioSessionAddPropertyListener(kAudioSessionProperty_AudioRouteChange, record, &calls_),
        noErr);
    EXPECT_EQ(set(kAudioSessionProperty_PreferredHardwareSampleRate, 48000.0), noErr);
    EXPECT_THAT(calls_, IsEmpty());
    EXPECT_EQ(set(kAudioSessionProperty_PreferredHardwareSampleRate, 22050.0), noErr);
    EXPECT_THAT(calls_, ElementsAre(Pair(code("roch"), 8U)));
    EXPECT_EQ(set(kAudioSessionProperty_PreferredHardwareSampleRate, 22050.0), noErr);
    EXPECT_THAT(calls_, ElementsAre(Pair(code("roch"), 8U)));
}

TEST_F(Session, ARateThatTheDeviceCannotHaveIsRefusedAndForgotten) {
    EXPECT_EQ(set(kAudioSessionProperty_PreferredHardwareSampleRate, 500.0),
              kAudioSessionUnspecifiedError);
    EXPECT_EQ(get<Float64>(kAudioSessionProperty_PreferredHardwareSampleRate), 48000.0);
    EXPECT_EQ(get<Float64>(kAudioSessionProperty_CurrentHardwareSampleRate), 48000.0);
}

TEST_F(Session, ADurationThatTheDeviceCannotHaveIsRefusedAndForgotten) {
    ASSERT_EQ(TQManualDevicePump(480, 1000), noErr);
    ASSERT_EQ(AudioSessionAddPropertyListener(
                  kAudioSessionProperty_PreferredHardwareIOBufferDuration, record, &calls_),
              noErr);
    EXPECT_EQ(set(kAudioSessionProperty_PreferredHardwareIOBufferDuration, 0.005F),
              kAudioSessionUnspecifiedError);
    EXPECT_EQ(get<Float32>(kAudioSessionProperty_PreferredHardwareIOBufferDuration), 0.01F);
    EXPECT_EQ(get<Float32>(kAudioSessionProperty_CurrentHardwareIOBufferDuration), 0.01F);
    EXPECT_THAT(calls_, IsEmpty());
}

TEST_F(Session, SaysHowLongTheDevicesSlicesAre) {
    for (const UInt32 frames : {480U, 64U}) {
        ASSERT_EQ(TQManualDevicePump(frames, 1000), noErr);
        EXPECT_EQ(get<Float32>(kAudioSessionProperty_CurrentHardwareIOBufferDuration),
                  static_cast<Float32>(frames / 48000.0));
    }
}

TEST_F(Session, RefusesBadSizes) {
    const OSStatus expected = kAudioSessionBadPropertySizeError;
    Float64 rate = 7;
    UInt32 size = 7;
    EXPECT_EQ(
        AudioSessionGetProperty(kAudioSessionProperty_CurrentHardwareSampleRate, &size, &rate),
        expected);
    EXPECT_EQ(rate, 7.0);
    EXPECT_EQ(set(kAudioSessionProperty_AudioCategory, Float64{1}), expected);
    EXPECT_EQ(set(kAudioSessionProperty_PreferredHardwareSampleRate, Float32{44100}), expected);
    EXPECT_EQ(set(kAudioSessionProperty_Mode, UInt8{1}), expected);
}

TEST_F(Session, CopiesIntoALargerBuffer) {
    UInt32 values[2] = {7, 7};
    UInt32 size = sizeof values;
    EXPECT_EQ(AudioSessionGetProperty(kAudioSessionProperty_AudioCategory, &size, values), noErr);
    EXPECT_EQ(size, 4U);
    EXPECT_THAT(values, ElementsAre(code("solo"), 7U));
}

TEST_F(Session, RefusesUnknownAndUnsuitableProperties) {
    const OSStatus expected = kAudioSessionUnsupportedPropertyError;
    UInt32 value = 0;
    UInt32 size = sizeof value;
    for (const AudioSessionPropertyID id : {code("????"), code("roch")}) {
        EXPECT_EQ(AudioSessionGetProperty(id, &size, &value), expected);
        EXPECT_EQ(AudioSessionGetPropertySize(id, &size), expected);
        EXPECT_EQ(set(id, value), expected);
    }
    EXPECT_EQ(set(kAudioSessionProperty_CurrentHardwareSampleRate, 44100.0), expected);
    EXPECT_EQ(AudioSessionAddPropertyListener(code("????"), record, &calls_), expected);
    EXPECT_EQ(AudioSessionRemovePropertyListenerWithUserData(code("????"), record, &calls_),
              expected);
}

TEST_F(Session, RefusesNullPointers) {
    UInt32 size = 4;
    EXPECT_EQ(AudioSessionGetProperty(kAudioSessionProperty_Mode, nullptr, &size),
              kAudio_ParamError);
    EXPECT_EQ(AudioSessionGetProperty(kAudioSessionProperty_Mode, &size, nullptr),
              kAudio_ParamError);
    EXPECT_EQ(AudioSessionGetPropertySize(kAudioSessionProperty_Mode, nullptr), kAudio_ParamError);
    EXPECT_EQ(AudioSessionSetProperty(kAudioSessionProperty_Mode, 4, nullptr), kAudio_ParamError);
    EXPECT_EQ(AudioSessionAddPropertyListener(kAudioSessionProperty_Mode, nullptr, nullptr),
              kAudio_ParamError);
}

TEST_F(Session, RefusesValuesThatMakeNoSense) {
    EXPECT_EQ(set(kAudioSessionProperty_AudioCategory, code("????")),
              kAudioSessionIncompatibleCategory);
    EXPECT_EQ(get<UInt32>(kAudioSessionProperty_AudioCategory), code("solo"));
    for (const Float64 rate : {0.0, -44100.0, std::numeric_limits<Float64>::infinity(),
                               std::numeric_limits<Float64>::quiet_NaN()}) {
        EXPECT_EQ(set(kAudioSessionProperty_PreferredHardwareSampleRate, rate), kAudio_ParamError);
    }
    EXPECT_EQ(set(kAudioSessionProperty_PreferredHardwareIOBufferDuration, 0.0F),
              kAudio_ParamError);
}

TEST_F(Session, TellsListenersOfAnotherValueOnly) {
    ASSERT_EQ(AudioSessionAddPropertyListener(kAudioSessionProperty_Mode, record, &calls_), noErr);
    ASSERT_EQ(set(kAudioSessionProperty_Mode, code("vcct")), noErr);
    ASSERT_EQ(set(kAudioSessionProperty_Mode, code("vcct")), noErr);
    ASSERT_EQ(set(kAudioSessionProperty_AudioCategory, code("medi")), noErr);
    EXPECT_THAT(calls_, ElementsAre(Pair(code("mode"), 4U)));
}

TEST_F(Session, TellsListenersOfANewRouteAndOfTheRateItBrings) {
    for (const AudioSessionPropertyID id :
         {kAudioSessionProperty_AudioRouteChange, kAudioSessionProperty_CurrentHardwareSampleRate,
          kAudioSessionProperty_CurrentHardwareOutputNumberChannels}) {
        ASSERT_EQ(AudioSessionAddPropertyListener(id, record, &calls_), noErr);
    }
    post(AVAudioSessionRouteChangeNotification);
    EXPECT_THAT(calls_, ElementsAre(Pair(code("roch"), 8U)));
    calls_.clear();
    ASSERT_EQ(TQManualDeviceSetSampleRate(44100), noErr);
    post(AVAudioSessionRouteChangeNotification);
    // The device may have told of its new rate itself; what counts is that the listener knows.
    EXPECT_THAT(calls_, testing::Contains(Pair(code("roch"), 8U)));
    EXPECT_THAT(calls_, testing::Contains(Pair(code("chsr"), 8U)));
    EXPECT_THAT(calls_, testing::Not(testing::Contains(Pair(code("choc"), testing::_))));
}

TEST_F(Session, TellsAListenerOnceHoweverOftenItIsAdded) {
    ASSERT_EQ(AudioSessionAddPropertyListener(kAudioSessionProperty_Mode, record, &calls_), noErr);
    ASSERT_EQ(AudioSessionAddPropertyListener(kAudioSessionProperty_Mode, record, &calls_), noErr);
    Calls others;
    ASSERT_EQ(AudioSessionAddPropertyListener(kAudioSessionProperty_Mode, record, &others), noErr);
    ASSERT_EQ(set(kAudioSessionProperty_Mode, code("vcct")), noErr);
    EXPECT_EQ(calls_.size(), 1U);
    EXPECT_EQ(others.size(), 1U);
}

TEST_F(Session, ForgetsARemovedListener) {
    ASSERT_EQ(AudioSessionAddPropertyListener(kAudioSessionProperty_Mode, record, &calls_), noErr);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(AudioSessionRemovePropertyListenerWithUserData(kAudioSessionProperty_Mode, record,
                                                                 &calls_),
                  noErr);
    }
    ASSERT_EQ(set(kAudioSessionProperty_Mode, code("vcct")), noErr);
    EXPECT_THAT(calls_, IsEmpty());
}

TEST_F(Session, ListenersMayCallBack) {
    const auto setsTheMode = [](void*, AudioSessionPropertyID, UInt32, const void*) {
        EXPECT_EQ(set(kAudioSessionProperty_Mode, code("dflt")), noErr);
    };
    ASSERT_EQ(AudioSessionAddPropertyListener(kAudioSessionProperty_Mode, setsTheMode, nullptr),
              noErr);
    ASSERT_EQ(set(kAudioSessionProperty_Mode, code("vcct")), noErr);
    EXPECT_EQ(get<UInt32>(kAudioSessionProperty_Mode), code("dflt"));
}
