#include <AudioToolbox/AudioToolbox.h>
#include <TQPlatform/ManualDevice.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <span>

#include "RZHookSet.h"
#include "RZReplayAudioRecorder.h"
#include "RZReplayAudioUnitCapturer.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "RZStreamCollectManager.h"
#include "RZStreamMixManager.h"
#include "TQAudioCaptureBase.h"
#include "TQAudioRecordLog.h"
#include "support/FailingAllocations.h"

// Memory that runs out in the middle of a host's call: the host gets the platform's own answer, the
// library's share is dropped.

namespace {

using tqtest::allocationsLeft;
using tqtest::hasAllocationFailed;

class Listener : public RZReplayAudioRecorderListener<Listener> {
  public:
    void onAudioReceivePCM(AudioBufferList* /*pcm*/, const RZReplayASBDInfo& /*info*/) override {}
    void onAudioRecordEvent(std::uint64_t /*category*/, std::uint64_t /*code*/,
                            const std::string& message) override {
        const std::string copy = message + " and more, so that it does not fit in place";
        EXPECT_FALSE(copy.empty());
    }
    [[nodiscard]] std::uint64_t getPCMDataType() override { return 3; }
};

void ignoreLine(const char* /*file*/, const char* /*function*/, NSString* /*tag*/, int /*level*/,
                int /*line*/, NSString* /*message*/) {
}

OSStatus silence(void* /*refCon*/, AudioUnitRenderActionFlags* /*flags*/,
                 const AudioTimeStamp* /*ts*/, UInt32 /*bus*/, UInt32 /*frames*/,
                 AudioBufferList* /*ioData*/) {
    return 0;
}

/// Runs `call` with the nth allocation failing, n from 0 up, until it needs no more of them; each
/// time `prepare` before and `restore` after it with memory enough. Answers how often it failed.
int starve(const std::function<void()>& prepare, const std::function<void()>& call,
           const std::function<void()>& restore) {
    int failures = 0;
    for (int left = 0; left < 500; ++left) {
        prepare();
        hasAllocationFailed = false;
        allocationsLeft = left;
        EXPECT_NO_THROW(call());
        allocationsLeft = -1;
        restore();
        if (!hasAllocationFailed) {
            return failures;
        }
        ++failures;
    }
    ADD_FAILURE() << "the call never succeeded";
    return failures;
}

class OutOfMemory : public testing::Test {
  protected:
    void SetUp() override {
        RZReplayAudioUnitCapturer::startHook();
        RZReplayAudioUnitGraphCapturer::startHook();
        TQAudioRecordRegisterYLogCallback(ignoreLine);
        auto& collect = RZStreamCollectManager::sharedManager();
        ASSERT_TRUE(collect.startAudioStreamCollect(listener));
        dispatch_sync(collect.audioRecorder()->queue(), [] {});
        ASSERT_TRUE(manager().isCapturing());
    }
    void TearDown() override {
        auto& collect = RZStreamCollectManager::sharedManager();
        collect.stopAudioStreamCollect(listener);
        dispatch_sync(collect.audioRecorder()->queue(), [] {});
        TQAudioRecordUnregisterYLogCallback(ignoreLine);
    }
    static RZStreamMixManager& manager() { return *RZStreamMixManager::sharedManager(); }

    void makeUnit() {
        const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                               kAudioUnitManufacturer_Apple, 0, 0};
        ASSERT_EQ(AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit), 0);
    }
    void endUnit() {
        AudioOutputUnitStop(unit);
        AudioUnitUninitialize(unit);
        AudioComponentInstanceDispose(unit);
        unit = nullptr;
    }
    OSStatus setCallback() const {
        const AURenderCallbackStruct callback{silence, nullptr};
        return AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback,
                                    kAudioUnitScope_Input, 0, &callback, sizeof callback);
    }

    std::shared_ptr<Listener> listener = std::make_shared<Listener>();
    AudioUnit unit = nullptr;
};

TEST_F(OutOfMemory, ANewUnitIsTheHostsWithOrWithoutACaptureObject) {
    const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    const AudioComponent component = AudioComponentFindNext(nullptr, &wanted);
    OSStatus status = 0;
    const int failures = starve([] {},
                                [&] {
                                    unit = nullptr;
                                    status = AudioComponentInstanceNew(component, &unit);
                                },
                                [&] {
                                    EXPECT_EQ(status == 0, unit != nullptr);
                                    if (unit != nullptr) {
                                        endUnit();
                                    }
                                    // No track number is lost on the way.
                                    EXPECT_EQ(manager().trackId(), 0);
                                });
    EXPECT_GT(failures, 3);
}

TEST_F(OutOfMemory, ACallbackIsSetAndTheUnitStartsAndStops) {
    OSStatus status = 0;
    const auto isAnswer = [&] { EXPECT_TRUE(status == 0 || status == -108) << status; };
    starve([&] { makeUnit(); }, [&] { status = setCallback(); },
           [&] {
               isAnswer();
               endUnit();
           });
    const int failures = starve(
        [&] {
            makeUnit();
            setCallback();
            AudioUnitInitialize(unit);
        },
        [&] {
            status = AudioOutputUnitStart(unit);
            static_cast<void>(AudioOutputUnitStop(unit));
            static_cast<void>(AudioUnitUninitialize(unit));
        },
        [&] {
            isAnswer();
            endUnit();
        });
    EXPECT_GT(failures, 3);
}

TEST_F(OutOfMemory, AGraphLivesItsWholeLife) {
    AUGraph graph = nullptr;
    AUNode node = 0;
    const AudioComponentDescription output{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    const AURenderCallbackStruct callback{silence, nullptr};
    const int failures =
        starve([&] { ASSERT_EQ(NewAUGraph(&graph), 0); },
               [&] {
                   static_cast<void>(AUGraphAddNode(graph, &output, &node));
                   static_cast<void>(AUGraphSetNodeInputCallback(graph, node, 0, &callback));
                   static_cast<void>(AUGraphOpen(graph));
                   static_cast<void>(AUGraphInitialize(graph));
                   static_cast<void>(AUGraphStart(graph));
                   static_cast<void>(AUGraphUpdate(graph, nullptr));
                   static_cast<void>(AUGraphStop(graph));
                   static_cast<void>(AUGraphClose(graph));
                   static_cast<void>(DisposeAUGraph(graph));
               },
               [&] {
                   static_cast<void>(DisposeAUGraph(graph));
                   manager().setTrackId(0);
                   for (const auto& obj : manager().getUnitObjListWithCopy()) {
                       manager().disposeAudioUnitObj(obj);
                   }
               });
    EXPECT_GT(failures, 10);
}

TEST_F(OutOfMemory, TheSoundGoesOnWhileBlocksCannotBeKept) {
    makeUnit();
    setCallback();
    AudioUnitInitialize(unit);
    ASSERT_EQ(AudioOutputUnitStart(unit), 0);
    std::uint64_t hostTime = 1'000'000;
    // Slices are rendered on the calling thread. The first makes the rings.
    const int failures = starve([] {},
                                [&] {
                                    EXPECT_EQ(TQManualDevicePump(480, hostTime), 0);
                                    hostTime += 10'000'000;
                                },
                                [] {});
    EXPECT_GT(failures, 0);
    endUnit();
}

TEST_F(OutOfMemory, AReportFromARenderThreadIsDropped) {
    int nobody = 0;
    AudioUnitRenderActionFlags flags = 0;
    allocationsLeft = 0;
    OSStatus status = -1;
    EXPECT_NO_THROW(status = RZReplayAudioUnitCapture_InputProcessCallback(&nobody, &flags, nullptr,
                                                                           0, 480, nullptr));
    allocationsLeft = -1;
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(hasAllocationFailed);
}

TEST_F(OutOfMemory, AnotherStartOfTheHooksThrowsNothing) {
    starve([] {},
           [] {
               RZReplayAudioUnitCapturer::startHook();
               RZReplayAudioUnitGraphCapturer::startHook();
           },
           [] {
               EXPECT_TRUE(RZReplayAudioUnitCapturer::isHookStarted());
               EXPECT_TRUE(RZReplayAudioUnitGraphCapturer::isHookStarted());
           });
}

TEST(OutOfMemoryAtLoad, HookSetsStartTogetherOrNotAtAll) {
    const RZHookSet::Plan plan{"an announcement that does not fit in place",
                               [] { return std::span<const TQRebinding>(); }, nullptr};
    std::unique_ptr<RZHookSet> one;
    std::unique_ptr<RZHookSet> two;
    const int failures = starve(
        [&] {
            one = std::make_unique<RZHookSet>(plan);
            two = std::make_unique<RZHookSet>(plan);
        },
        [&] {
            try {
                RZHookSet::start({one.get(), two.get()});
            } catch (const std::bad_alloc&) {
                // The next start tries again.
            }
        },
        [&] {
            EXPECT_EQ(one->isStarted(), !hasAllocationFailed);
            EXPECT_EQ(two->isStarted(), !hasAllocationFailed);
        });
    EXPECT_GT(failures, 2);
}

}  // namespace
