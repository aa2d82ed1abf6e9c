#include <limits>
#include <stdexcept>

#include "BufferLists.h"
#include "CapturePathFixture.h"
#include "RZAudioRecordStat.h"
#include "RZReplayVolumeController.h"

// Nonsense at the public boundary, and hosts' own code that throws, while sound is running.

namespace {

using testing::IsEmpty;
using testing::Not;

struct BadInput : CapturePath {
    void run() {
        ASSERT_TRUE(startCapture());
        pump(3);
    }
};

class Thrower : public RZReplayAudioRecorderListener<Thrower> {
  public:
    void onAudioReceivePCM(AudioBufferList*, const RZReplayASBDInfo&) {
        ++blocks;
        throw std::runtime_error("block");
    }
    void onAudioRecordEvent(std::uint64_t, std::uint64_t, const std::string&) {
        ++events;
        throw 1;
    }
    [[nodiscard]] std::uint64_t getPCMDataType() {
        if (isMaskThrown) {
            throw std::runtime_error("mask");
        }
        return 3;
    }
    int blocks = 0;
    int events = 0;
    bool isMaskThrown = false;
};

TEST_F(BadInput, AListenerThatThrowsKeepsNobodyFromListening) {
    HostUnit unit;
    unit.play();
    const auto thrower = std::make_shared<Thrower>();
    ASSERT_TRUE(collect().startAudioStreamCollect(thrower));
    run();
    EXPECT_GT(thrower->blocks, 3);
    EXPECT_GT(thrower->events, 0);
    EXPECT_THAT(listener->mixes(), testing::SizeIs(3));
    EXPECT_THAT(listener->posts(), Not(IsEmpty()));
    thrower->isMaskThrown = true;
    listener->clear();
    pump(3);
    EXPECT_THAT(listener->mixes(), testing::SizeIs(3));
    EXPECT_EQ(unit.sound.calls, 6);
    EXPECT_TRUE(collect().stopAudioStreamCollect(thrower));
}

TEST_F(BadInput, ALogCallbackThatThrowsKeepsTheCapturePathOpen) {
    static int thrown = 0;
    const auto callback = +[](const char*, const char*, NSString*, int, int, NSString*) {
        ++thrown;
        throw std::runtime_error("log");
    };
    ASSERT_EQ(TQAudioRecordRegisterYLogCallback(callback), 1);
    HostUnit unit;
    unit.play();
    run();
    EXPECT_GT(thrown, 10);
    EXPECT_EQ(unit.sound.calls, 3);
    EXPECT_THAT(listener->mixes(), testing::SizeIs(3));
    EXPECT_EQ(TQAudioRecordUnregisterYLogCallback(callback), 1);
}

class ThrowingDelegate : public RZReplayVolumeControllerListener<ThrowingDelegate> {
  public:
    void onDuckingGlobalStateChanged(BOOL) {
        ++calls;
        throw std::runtime_error("ducking");
    }
    void onCompressorGlobalStateChanged(BOOL) {
        ++calls;
        throw 7;
    }
    int calls = 0;
};

TEST_F(BadInput, AVolumeDelegateThatThrowsChangesNoResult) {
    const auto delegate = std::make_shared<ThrowingDelegate>();
    RZReplayVolumeController controller;
    controller.setDelegate(delegate);
    const RZReplayVolumeDuckingParam ducking(YES);
    const RZReplayVolumeCompressorParam compressor(YES);
    EXPECT_EQ(controller.enableDucking(&ducking), 0);
    EXPECT_EQ(controller.enableCompressor(&compressor), 0);
    EXPECT_EQ(controller.enableDucking(nullptr), 0);
    EXPECT_EQ(controller.enableCompressor(nullptr), 0);
    EXPECT_EQ(delegate->calls, 4);
    EXPECT_FALSE(manager().isDuckingEnable());
    EXPECT_FALSE(manager().isCompressorEnable());
}

TEST_F(BadInput, NullAtThePublicCallsIsRefused) {
    EXPECT_FALSE(collect().startAudioStreamCollect(nullptr));
    EXPECT_FALSE(collect().stopAudioStreamCollect(nullptr));
    EXPECT_EQ(collect().createSampleBufferFromAudioBufferList(nullptr, {}, CMTime{}), nullptr);
    EXPECT_FALSE(collect().checkAudioRealTimeError(nullptr));
    AudioBufferList empty{};
    EXPECT_FALSE(collect().checkAudioRealTimeError(&empty));
    empty.mNumberBuffers = 1;
    EXPECT_FALSE(collect().checkAudioRealTimeError(&empty)) << "a buffer without data";
    EXPECT_EQ(RZAudioRecordStat().getHookAudioTrackStat(~0ULL)->audio_track_id(), 0U);
    manager().audioUnitStart(nullptr);
    manager().audioUnitUpdate(nullptr);
    manager().audioUnitStop(nullptr);
    manager().disposeAudioUnitObj(nullptr);
    TQAudioRecordLog(nullptr, nullptr, nullptr, 0, 0, nullptr);
}

TEST_F(BadInput, AbsurdDescriptionsMakeNoSampleBufferAndNoCrash) {
    auto list = OwnedBufferList::interleaved(2, 64);
    RZReplayASBDInfo info;
    for (const double rate : {0.0, -1.0, 1e300, std::numeric_limits<double>::quiet_NaN()}) {
        info.setSampleRate(rate);
        info.setChannelsPerFrame(-1);
        info.setBitsPerChannel(0x7FFFFFFF);
        if (CMSampleBufferRef buffer =
                collect().createSampleBufferFromAudioBufferList(list.get(), info, CMTime{})) {
            CFRelease(buffer);
        }
    }
}

TEST_F(BadInput, BlocksGivenInByHandAreSurvived) {
    ASSERT_TRUE(startCapture());
    const auto& recorder = collect().audioRecorder();
    RZReplayASBDInfo info;
    AudioBufferList none{};
    recorder->onAudioReceivePrePCM(&none, info);
    recorder->onAudioReceivePostPCM(&none, info);
    recorder->onAudioRecordEvent(~0ULL, ~0ULL, "");
    EXPECT_THAT(listener->events(), testing::Contains(event(~0ULL, ~0ULL, "")));
}

TEST_F(BadInput, AHostsCallbackThatIsFreedWithItsUnitIsNotCalledAgain) {
    auto unit = std::make_unique<HostUnit>();
    unit->play();
    run();
    unit.reset();  // and with it the sound that the callback pointed to
    pump(5);
    EXPECT_TRUE(listener->mixes().back().isSilent());
}

TEST_F(BadInput, AListenerThatIsForgottenByItsOwnerLivesUntilItIsRemoved) {
    std::weak_ptr<Thrower> watched;
    {
        const auto thrower = std::make_shared<Thrower>();
        watched = thrower;
        ASSERT_TRUE(collect().startAudioStreamCollect(thrower));
    }
    run();
    ASSERT_FALSE(watched.expired());
    EXPECT_TRUE(collect().stopAudioStreamCollect(watched.lock()));
    EXPECT_TRUE(watched.expired());
}

}  // namespace
