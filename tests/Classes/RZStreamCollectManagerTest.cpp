#include "RZStreamCollectManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "BufferLists.h"
#include "FakeListeners.h"
#include "LogCapture.h"
#include "RZReplayAudioRecorder.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "TQAudioRecordLock.h"

// Listeners come and go, the state of the interception, and the test for garbage. Each case runs
// in a process of its own: the manager is one for the process.

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kFile = "Classes/RZStreamCollectManager";
constexpr const char* kStart = "-[RZStreamCollectManager startAudioStreamCollect:]";
constexpr const char* kStop = "-[RZStreamCollectManager stopAudioStreamCollect:]";

class RZStreamCollectManagerTest : public testing::Test {
  protected:
    void TearDown() override {
        const auto left = manager.arrAudioListener();
        for (const auto& listener : left) {
            manager.stopAudioStreamCollect(listener);
        }
        drain();
    }
    /// Until the recorder has done what it was asked for.
    void drain() const {
        dispatch_sync(manager.audioRecorder()->queue(), [] {});
    }
    [[nodiscard]] std::shared_ptr<PcmListener> pcmListener(const std::string& name = "listener") {
        return std::make_shared<PcmListener>(book, name);
    }

    RZStreamCollectManager& manager = RZStreamCollectManager::sharedManager();
    CallBook book;
    LogCapture log;
};

}  // namespace

TEST_F(RZStreamCollectManagerTest, OneInstanceOwnsTheRecorderWhoseDelegateItIs) {
    EXPECT_EQ(&manager, &RZStreamCollectManager::sharedManager());
    ASSERT_NE(nullptr, manager.audioRecorder());
    EXPECT_EQ(&manager, manager.audioRecorder()->delegate().get());
    EXPECT_NE(nullptr, manager.lock());
    EXPECT_THAT(manager.arrAudioListener(), IsEmpty());
    EXPECT_EQ(nullptr, manager.lastStopAudioListener());
}

TEST_F(RZStreamCollectManagerTest, FirstListenerStartsRecording) {
    const auto listener = pcmListener();
    EXPECT_TRUE(manager.startAudioStreamCollect(listener));
    EXPECT_THAT(manager.arrAudioListener(), ElementsAre(listener));
    EXPECT_THAT(
        log.linesOf(kStart),
        ElementsAre(IsLogLine(kFile, kStart, 2, "start stream obj:" + classNameOf(*listener)),
                    IsLogLine(kFile, kStart, 2, "start record audio")));
    drain();
    EXPECT_EQ(1U, log.count("[mix] start capture, isCurrentInterrupting: 0, isCapturing: 0"));
}

TEST_F(RZStreamCollectManagerTest, SecondListenerStartsNothing) {
    manager.startAudioStreamCollect(pcmListener());
    const auto second = pcmListener();
    log.clear();
    EXPECT_TRUE(manager.startAudioStreamCollect(second));
    EXPECT_EQ(2U, manager.arrAudioListener().size());
    EXPECT_EQ(second, manager.arrAudioListener()[1]) << "in order of registration";
    drain();
    EXPECT_THAT(
        log.linesOf(kStart),
        ElementsAre(IsLogLine(kFile, kStart, 2, "start stream obj:" + classNameOf(*second))));
}

TEST_F(RZStreamCollectManagerTest, ListenerAddedTwiceStandsOnceAndRecordingStartsOnce) {
    const auto listener = pcmListener();
    EXPECT_TRUE(manager.startAudioStreamCollect(listener));
    log.clear();
    EXPECT_TRUE(manager.startAudioStreamCollect(listener));
    EXPECT_THAT(manager.arrAudioListener(), ElementsAre(listener));
    EXPECT_THAT(
        log.linesOf(kStart),
        ElementsAre(IsLogLine(kFile, kStart, 2, "start stream obj:" + classNameOf(*listener)),
                    IsLogLine(kFile, kStart, 2, "obj has already started!")));
}

TEST_F(RZStreamCollectManagerTest, ListenerWithoutThePcmMethodIsRefused) {
    const auto listener = std::make_shared<EventOnlyListener>();
    EXPECT_FALSE(manager.startAudioStreamCollect(listener));
    EXPECT_THAT(manager.arrAudioListener(), IsEmpty());
    EXPECT_THAT(
        log.linesOf(kStart),
        ElementsAre(IsLogLine(kFile, kStart, 2, "start stream obj:" + classNameOf(*listener)),
                    IsLogLine(kFile, kStart, 4, "obj not implement protocol")));
    EXPECT_TRUE(manager.lock()->tryLock());
    manager.lock()->unlock();
}

TEST_F(RZStreamCollectManagerTest, NullListenerIsRefused) {
    EXPECT_FALSE(manager.startAudioStreamCollect(nullptr));
    EXPECT_THAT(log.linesOf(kStart),
                ElementsAre(IsLogLine(kFile, kStart, 2, "start stream obj:(null)"),
                            IsLogLine(kFile, kStart, 4, "obj not implement protocol")));
    EXPECT_FALSE(manager.stopAudioStreamCollect(nullptr));
    EXPECT_THAT(log.linesOf(kStop),
                ElementsAre(IsLogLine(kFile, kStop, 2, "stop stream obj:(null)"),
                            IsLogLine(kFile, kStop, 4, "obj not found in array!")));
}

TEST_F(RZStreamCollectManagerTest, ListenersAreHeldUntilTheyAreRemoved) {
    auto listener = pcmListener();
    const std::weak_ptr<PcmListener> observer = listener;
    manager.startAudioStreamCollect(listener);
    listener.reset();
    EXPECT_FALSE(observer.expired());
    manager.stopAudioStreamCollect(observer.lock());
    EXPECT_TRUE(observer.expired());
}

TEST_F(RZStreamCollectManagerTest, RemovingTheLastListenerStopsRecordingAndRemembersIt) {
    auto listener = pcmListener();
    manager.startAudioStreamCollect(listener);
    drain();
    log.clear();
    EXPECT_TRUE(manager.stopAudioStreamCollect(listener));
    EXPECT_THAT(manager.arrAudioListener(), IsEmpty());
    EXPECT_EQ(listener, manager.lastStopAudioListener());
    EXPECT_THAT(log.linesOf(kStop),
                ElementsAre(IsLogLine(kFile, kStop, 2, "stop stream obj:" + classNameOf(*listener)),
                            IsLogLine(kFile, kStop, 2, "stop record audio")));
    drain();
    EXPECT_EQ(1U, log.count("[mix]stop capture"));
    listener.reset();
    EXPECT_EQ(nullptr, manager.lastStopAudioListener()) << "held weakly";
}

TEST_F(RZStreamCollectManagerTest, RemovingOneOfSeveralStopsNothing) {
    const auto first = pcmListener();
    const auto second = pcmListener();
    manager.startAudioStreamCollect(first);
    manager.startAudioStreamCollect(second);
    drain();
    log.clear();
    EXPECT_TRUE(manager.stopAudioStreamCollect(first));
    EXPECT_THAT(manager.arrAudioListener(), ElementsAre(second));
    EXPECT_EQ(nullptr, manager.lastStopAudioListener());
    drain();
    EXPECT_THAT(log.messages(), ElementsAre("stop stream obj:" + classNameOf(*first)));
}

TEST_F(RZStreamCollectManagerTest, RemovingAStrangerAnswersNoAndStopsNothing) {
    const auto listener = pcmListener();
    manager.startAudioStreamCollect(listener);
    drain();
    log.clear();
    const auto stranger = pcmListener();
    EXPECT_FALSE(manager.stopAudioStreamCollect(stranger));
    EXPECT_THAT(manager.arrAudioListener(), ElementsAre(listener));
    drain();
    EXPECT_THAT(log.lines(),
                ElementsAre(IsLogLine(kFile, kStop, 2, "stop stream obj:" + classNameOf(*stranger)),
                            IsLogLine(kFile, kStop, 4, "obj not found in array!")));
}

TEST_F(RZStreamCollectManagerTest, RemovedListenerMayBeTheListsOwnElement) {
    manager.startAudioStreamCollect(pcmListener());
    EXPECT_TRUE(manager.stopAudioStreamCollect(manager.arrAudioListener().front()));
    EXPECT_THAT(manager.arrAudioListener(), IsEmpty());
}

TEST_F(RZStreamCollectManagerTest, RecordingIsOnWhileThereIsAListener) {
    RZReplayAudioUnitGraphCapturer::startHook();
    const auto first = pcmListener("first");
    const auto second = pcmListener("second");
    manager.startAudioStreamCollect(first);
    manager.startAudioStreamCollect(second);
    drain();
    EXPECT_TRUE(manager.audioRecorder()->isRecording());
    manager.stopAudioStreamCollect(first);
    drain();
    EXPECT_TRUE(manager.audioRecorder()->isRecording());
    manager.stopAudioStreamCollect(second);
    drain();
    EXPECT_FALSE(manager.audioRecorder()->isRecording());
    manager.startAudioStreamCollect(first);
    drain();
    EXPECT_TRUE(manager.audioRecorder()->isRecording());
}

TEST_F(RZStreamCollectManagerTest, StartComesBackWhileTheManagerIsBusy) {
    const auto busy = std::make_shared<NSRecursiveLock>();
    busy->lock();
    dispatch_async(manager.audioRecorder()->queue(),
                   [busy] { const TQAudioRecordLock held(busy); });
    const auto listener = pcmListener();
    EXPECT_TRUE(manager.startAudioStreamCollect(listener));
    EXPECT_TRUE(manager.stopAudioStreamCollect(listener));
    busy->unlock();
    drain();
    EXPECT_EQ(1U, log.count("[mix]stop capture"));
}

// The interception.

TEST_F(RZStreamCollectManagerTest, WithoutInterceptionTheSelfTestFindsNothing) {
    EXPECT_FALSE(manager.isHookSuccess());
    RZStreamCollectManager::testAUGraphHook();
    EXPECT_FALSE(manager.isHookSuccess());
    EXPECT_FALSE(manager.isHookStarted());
}

TEST_F(RZStreamCollectManagerTest, GraphsOfTheHostAreNotTakenForTheSelfTests) {
    AUGraph graph = nullptr;
    NewAUGraph(&graph);
    RZStreamCollectManager::notifyNewAUGraph(graph);
    RZStreamCollectManager::notifyNewAUGraph(nullptr);
    DisposeAUGraph(graph);
    EXPECT_FALSE(manager.isHookSuccess());
}

TEST_F(RZStreamCollectManagerTest, InstallingTheGraphHooksRunsTheSelfTest) {
    RZReplayAudioUnitGraphCapturer::startHook();
    EXPECT_TRUE(manager.isHookSuccess());
    RZStreamCollectManager::notifyNewAUGraph(nullptr);
    EXPECT_TRUE(manager.isHookSuccess()) << "never cleared";
    EXPECT_FALSE(manager.isHookStarted()) << "the units' hooks are missing";
}

TEST_F(RZStreamCollectManagerTest, StartWithoutInterceptionReachesTheListenerAsAnEvent) {
    const auto listener = std::make_shared<FullListener>(book, "full", 1);
    manager.startAudioStreamCollect(listener);
    drain();
    EXPECT_THAT(book.entries(), ElementsAre("full 0/103 [mix] start capture with hook failed"));
    EXPECT_FALSE(manager.audioRecorder()->isRecording());
}

// Garbage.

namespace {

BOOL isGarbage(const std::vector<std::uint32_t>& words) {
    auto list = OwnedBufferList::interleaved(2, static_cast<UInt32>(words.size() * 4));
    for (std::size_t i = 0; i < words.size(); ++i) {
        list.samples<std::uint32_t>()[i] = words[i];
    }
    return RZStreamCollectManager::sharedManager().checkAudioRealTimeError(list.get());
}

}  // namespace

TEST(RZStreamCollectManagerGarbageTest, FullScaleInEitherOfTheFirstTwoWordsIsGarbage) {
    for (const std::uint32_t word : {0x80007FFFU, 0x7FFF8000U, 0x80000000U, 0x7FFF0000U}) {
        EXPECT_TRUE(isGarbage({word, 0, 0})) << std::hex << word;
        EXPECT_TRUE(isGarbage({0, word, 0})) << std::hex << word;
        EXPECT_FALSE(isGarbage({0, 0, word})) << std::hex << word;
    }
}

TEST(RZStreamCollectManagerGarbageTest, OrdinaryOpeningsAreNot) {
    for (const std::uint32_t word :
         {0U, 0x7FFF7FFFU, 0x00007FFFU, 0x00008000U, 0x80008000U, 0x80007FFEU, 0x12345678U}) {
        EXPECT_FALSE(isGarbage({word, word})) << std::hex << word;
    }
}

TEST(RZStreamCollectManagerGarbageTest, WordsAreReadAsPairsOfSixteenBitSamples) {
    auto list = OwnedBufferList::interleaved(2, 8);
    list.fill<SInt16>({0, 32767, 1, 1});
    EXPECT_TRUE(RZStreamCollectManager::sharedManager().checkAudioRealTimeError(list.get()));
    list.fill<SInt16>({32767, 0, 1, 1});
    EXPECT_FALSE(RZStreamCollectManager::sharedManager().checkAudioRealTimeError(list.get()));
}

TEST(RZStreamCollectManagerGarbageTest, OnlyTheFirstBufferCounts) {
    auto list = OwnedBufferList::planar(2, 8);
    list.fill<std::uint32_t>({0x80000000U}, 1);
    EXPECT_FALSE(RZStreamCollectManager::sharedManager().checkAudioRealTimeError(list.get()));
}

TEST(RZStreamCollectManagerGarbageTest, NothingToLookAtIsNoGarbage) {
    RZStreamCollectManager& manager = RZStreamCollectManager::sharedManager();
    EXPECT_FALSE(manager.checkAudioRealTimeError(nullptr));
    auto none = OwnedBufferList::planar(0, 0);
    EXPECT_FALSE(manager.checkAudioRealTimeError(none.get()));
    auto hollow = OwnedBufferList::planar(1, 8);
    hollow.buffer().mData = nullptr;
    EXPECT_FALSE(manager.checkAudioRealTimeError(hollow.get()));
}

TEST(RZStreamCollectManagerGarbageTest, ShortBlockIsNotReadBeyondItsEnd) {
    EXPECT_TRUE(isGarbage({0x80000000U}));
    EXPECT_FALSE(isGarbage({0}));
    auto tiny = OwnedBufferList::planar(1, 2);
    EXPECT_FALSE(RZStreamCollectManager::sharedManager().checkAudioRealTimeError(tiny.get()));
}
