#include <audio_stats.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "EventRecorder.h"
#include "LogCapture.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "RZStreamMixManager.h"
#include "StreamFormats.h"
#include "TQAudioUnitRecordResolveManager.h"

// The registry of units, track numbers, eligibility and the notices of the interception, as far
// as no unit needs to exist: handles are identities here. Each case runs in a process of its own.

using korva_audio_utils::KorvaAudioStats;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kFile = "Classes/MixManager/RZStreamMixManager";

AudioUnit unit(std::uintptr_t number) {
    return reinterpret_cast<AudioUnit>(0x1000 * number);
}
AUGraph graph(std::uintptr_t number) {
    return reinterpret_cast<AUGraph>(0x100000 * number);
}

class RZStreamMixManagerRegistryTest : public testing::Test {
  protected:
    using Object = RZStreamMixManager::UnitObject;

    void SetUp() override { manager.setCallback(receiver); }
    Object add(std::uintptr_t number) { return manager.newAudioUnitObj(unit(number)); }
    /// Registered and fit to be captured.
    Object addEligible(std::uintptr_t number) {
        const Object obj = add(number);
        obj->setStreamDesc(stream_formats::int16Interleaved(44100, 2));
        obj->startAudioUnit();
        return obj;
    }
    /// The verdict on an object, and the line that explains a refusal.
    void expectRefused(const Object& obj, const std::string& message) {
        log.clear();
        EXPECT_FALSE(manager.isUnitObjCanStartCapture(obj));
        EXPECT_THAT(log.lines(),
                    ElementsAre(IsLogLine(kFile, "-[RZStreamMixManager isUnitObjCanStartCapture:]",
                                          4, message)));
    }

    LogCapture log;
    const std::shared_ptr<EventRecorder> receiver = std::make_shared<EventRecorder>();
    RZStreamMixManager& manager = *RZStreamMixManager::sharedManager();
};

}  // namespace

TEST_F(RZStreamMixManagerRegistryTest, StartsAtRest) {
    EXPECT_EQ(RZStreamMixManager::sharedManager(), RZStreamMixManager::sharedManager());
    EXPECT_EQ(0, manager.trackId());
    EXPECT_FALSE(manager.isResamplerInit());
    EXPECT_FALSE(manager.isCapturing());
    EXPECT_FALSE(manager.isPendingStartCapturing());
    EXPECT_FALSE(manager.lastStopError());
    EXPECT_FALSE(manager.isCurrentInterrupting());
    EXPECT_EQ(nullptr, manager.mGraph());
    EXPECT_EQ(nullptr, manager.mixUnit());
    EXPECT_EQ(nullptr, manager.outUnit());
    EXPECT_EQ(nullptr, manager.outInfo());
    EXPECT_EQ(nullptr, manager.duckingParam());
    EXPECT_EQ(nullptr, manager.compressParam());
    EXPECT_EQ(nullptr, manager.queue());
    EXPECT_EQ(2000, manager.eventFilter().Interval());
    EXPECT_NE(nullptr, manager.operatorLock());
    EXPECT_NE(manager.operatorLock(), manager.mapLock());
    EXPECT_NE(manager.mapLock(), manager.auGraphUpdateLock());
    EXPECT_THAT(manager.getUnitObjListWithCopy(), IsEmpty());
    mach_timebase_info_data_t timeBase{};
    mach_timebase_info(&timeBase);
    EXPECT_EQ(timeBase.numer, manager.timeBaseInfo().numer);
    EXPECT_EQ(timeBase.denom, manager.timeBaseInfo().denom);
}

TEST_F(RZStreamMixManagerRegistryTest, KeyIsThePrintedHandle) {
    EXPECT_EQ("0x1000", RZStreamMixManager::getKey(unit(1)));
    EXPECT_EQ("0x0", RZStreamMixManager::getKey(nullptr));
}

TEST_F(RZStreamMixManagerRegistryTest, HostTimeIsTurnedIntoMicroseconds) {
    manager.setTimeBaseInfo({125, 3});
    EXPECT_EQ(1000ULL * 125 / 3 / 1000, manager.microsecondsOfHostTime(1000));
    EXPECT_EQ(987654321ULL * 125 / 3 / 1000, manager.microsecondsOfHostTime(987654321));
    manager.setTimeBaseInfo({1, 0});
    EXPECT_EQ(0U, manager.microsecondsOfHostTime(1000));
}

// New units.

TEST_F(RZStreamMixManagerRegistryTest, NewUnitGetsAnObjectAndALine) {
    const Object obj = add(1);
    ASSERT_NE(nullptr, obj);
    EXPECT_EQ(unit(1), obj->inUnit());
    EXPECT_EQ(1, obj->trackId());
    EXPECT_EQ(1, obj->asbdInfo()->trackId());
    EXPECT_EQ(&manager, obj->callback().get());
    EXPECT_EQ(1, manager.trackId());
    EXPECT_THAT(log.lines(),
                ElementsAre(IsLogLine(kFile, "-[RZStreamMixManager newAudioUnitObj:]", 2,
                                      "[mix] newAudioUnitObj, key: 0x1000, ioUnit: 0x1000")));
}

TEST_F(RZStreamMixManagerRegistryTest, SameUnitTwiceIsOneObjectAndOneTrack) {
    const Object obj = add(1);
    log.clear();
    EXPECT_EQ(obj, add(1));
    EXPECT_EQ(1, manager.trackId());
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(1U, manager.getUnitObjListWithCopy().size());
}

TEST_F(RZStreamMixManagerRegistryTest, ObserversOfNewUnitsKeepNoRenderWaiting) {
    std::vector<bool> wasFree;
    const auto observer = RZUnitFacts::shared().observe([&](const RZUnitFact&) {
        std::thread render([&] {
            wasFree.push_back(manager.mapLock()->tryLock());
            if (wasFree.back()) {
                manager.mapLock()->unlock();
            }
        });
        render.join();
    });
    for (std::uintptr_t number = 1; number <= 8; ++number) {
        add(number);
    }
    RZUnitFacts::shared().stopObserving(observer);
    EXPECT_EQ(std::vector<bool>(8, true), wasFree);
}

TEST_F(RZStreamMixManagerRegistryTest, ObserversOfUnitsDoNotDependOnEachOther) {
    RZUnitFacts& facts = RZUnitFacts::shared();
    RZUnitFacts::ObserverId stopped = 0;
    int told = 0;
    const auto first = facts.observe([&](const RZUnitFact&) {
        facts.stopObserving(stopped);
        throw std::runtime_error("a bad observer");
    });
    stopped = facts.observe([&](const RZUnitFact&) { told += 100; });
    const auto last = facts.observe([&](const RZUnitFact&) { ++told; });
    add(1);
    facts.stopObserving(first);
    facts.stopObserving(last);
    EXPECT_EQ(1, told);
}

TEST_F(RZStreamMixManagerRegistryTest, TracksAreNumberedFromOneAndTheEighthUnitGetsNone) {
    for (int n = 1; n <= 7; ++n) {
        EXPECT_EQ(n, add(static_cast<std::uintptr_t>(n))->trackId());
        EXPECT_EQ((1 << n) - 1, manager.trackId());
    }
    log.clear();
    EXPECT_EQ(nullptr, add(8));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(7U, manager.getUnitObjListWithCopy().size());
    EXPECT_NE(nullptr, add(7)) << "a known unit is still found";
}

TEST_F(RZStreamMixManagerRegistryTest, LowestFreeNumberWins) {
    manager.setTrackId(0b0010101);
    EXPECT_EQ(2, manager.generateNewTrackID());
    EXPECT_EQ(4, manager.generateNewTrackID());
    EXPECT_EQ(6, manager.generateNewTrackID());
    EXPECT_EQ(7, manager.generateNewTrackID());
    EXPECT_EQ(0, manager.generateNewTrackID());
    EXPECT_EQ(0b1111111, manager.trackId());
}

TEST_F(RZStreamMixManagerRegistryTest, NewUnitGetsTheStoredParameters) {
    RZReplayAudioUnitGraphCapturer::startHook();
    RZReplayVolumeDuckingParam ducking(YES);
    ducking.setHoldTime(4.0F);
    const RZReplayVolumeCompressorParam compressor(YES);
    ASSERT_EQ(0, manager.enableDucking(&ducking));
    ASSERT_EQ(0, manager.enableCompressor(&compressor));
    const auto* const controller = add(1)->getOrCreateBufferAt(0)->volumeController();
    EXPECT_EQ(4.0F, controller->GetDuckingParams().holdTime);
    EXPECT_TRUE(controller->GetCompressorParams().enable);
}

// Finding.

TEST_F(RZStreamMixManagerRegistryTest, UnitsAreFoundByHandleAndByKey) {
    const Object first = add(1);
    const Object second = add(2);
    EXPECT_EQ(first, manager.findAudioUnitObj(unit(1)));
    EXPECT_EQ(second, manager.findAudioUnitObj(unit(2)));
    EXPECT_EQ(nullptr, manager.findAudioUnitObj(unit(3)));
    EXPECT_EQ(nullptr, manager.findAudioUnitObj(nullptr));
    EXPECT_EQ(second, manager.getAudioUnitObjWithKey("0x2000"));
    EXPECT_EQ(nullptr, manager.getAudioUnitObjWithKey("0x3000"));
    EXPECT_EQ(nullptr, manager.getAudioUnitObjWithKey(""));
}

TEST_F(RZStreamMixManagerRegistryTest, FirstObjectOfAGraphIsFound) {
    add(1);
    const Object second = add(2);
    const Object third = add(3);
    second->setAuGraph(graph(1));
    third->setAuGraph(graph(1));
    EXPECT_EQ(second, manager.findAudioUnitObjByAUGraph(graph(1)));
    EXPECT_EQ(nullptr, manager.findAudioUnitObjByAUGraph(graph(2)));
    EXPECT_EQ(nullptr, manager.findAudioUnitObjByAUGraph(nullptr))
        << "units outside any graph are not a null graph's";
}

TEST_F(RZStreamMixManagerRegistryTest, RemovedKeyIsFoundNoMore) {
    const Object obj = add(1);
    manager.removeAudioUnitObjByKey("0x1000");
    manager.removeAudioUnitObjByKey("0x1000");
    EXPECT_EQ(nullptr, manager.findAudioUnitObj(unit(1)));
    EXPECT_EQ(nullptr, manager.getAudioUnitObjWithKey("0x1000"));
    EXPECT_EQ(1, manager.trackId()) << "the number is not the registry's to give back";
}

TEST_F(RZStreamMixManagerRegistryTest, ListIsACopyInTheOrderOfComing) {
    const Object first = add(3);
    const Object second = add(1);
    const auto copy = manager.getUnitObjListWithCopy();
    manager.removeAudioUnitObjByKey(RZStreamMixManager::getKey(unit(3)));
    EXPECT_THAT(copy, ElementsAre(first, second));
    EXPECT_THAT(manager.getUnitObjListWithCopy(), ElementsAre(second));
}

TEST_F(RZStreamMixManagerRegistryTest, AsAMapItIsACopyByKey) {
    const Object first = add(3);
    const Object second = add(1);
    const auto units = manager.unitMap();
    EXPECT_THAT(units, ElementsAre(testing::Pair(RZStreamMixManager::getKey(unit(1)), second),
                                   testing::Pair(RZStreamMixManager::getKey(unit(3)), first)));
    manager.setUnitMap({{RZStreamMixManager::getKey(unit(3)), first}});
    EXPECT_EQ(nullptr, manager.findAudioUnitObj(unit(1)));
    EXPECT_EQ(first, manager.findAudioUnitObj(unit(3)));
}

TEST_F(RZStreamMixManagerRegistryTest, AMapWithoutObjectsIsAnEmptyRegistry) {
    add(1);
    manager.setUnitMap({{RZStreamMixManager::getKey(unit(3)), nullptr}});
    EXPECT_THAT(manager.getUnitObjListWithCopy(), IsEmpty());
}

TEST_F(RZStreamMixManagerRegistryTest, LocksAreTheOnesThatAreSet) {
    const auto lock = std::make_shared<NSRecursiveLock>();
    manager.setOperatorLock(lock);
    manager.setMapLock(lock);
    manager.setAuGraphUpdateLock(lock);
    EXPECT_EQ(lock, manager.operatorLock());
    EXPECT_EQ(lock, manager.mapLock());
    EXPECT_EQ(lock, manager.auGraphUpdateLock());
}

// Eligibility.

TEST_F(RZStreamMixManagerRegistryTest, StartedAvailableUnitCanBeCaptured) {
    const Object obj = addEligible(1);
    log.clear();
    EXPECT_TRUE(manager.isUnitObjCanStartCapture(obj));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RZStreamMixManagerRegistryTest, UnitOfTheCompanionIsRefusedFirstOfAll) {
    const Object obj = addEligible(1);
    obj->setInput_enableIO(YES);
    TQAudioUnitRecordResolveManager::sharedManager().registerRTCUsedAudioUnit(unit(1));
    expectRefused(obj, "the exist audio unit:0x1000");
}

TEST_F(RZStreamMixManagerRegistryTest, UnitWithAMicrophoneIsRefusedEachTime) {
    const Object obj = addEligible(1);
    obj->setInput_enableIO(YES);
    for (int i = 0; i < 2; ++i) {
        expectRefused(obj,
                      "[korva]this audiounit is rtc seamd. input_enableIO:1, audio "
                      "unit:0x1000");
    }
}

TEST_F(RZStreamMixManagerRegistryTest, UnitWithoutAFormatIsRefused) {
    const Object obj = add(1);
    obj->startAudioUnit();
    expectRefused(obj, "data not available: 0x1000");
}

TEST_F(RZStreamMixManagerRegistryTest, UnitThatIsNotStartedOrCapturesAlreadyIsRefused) {
    const Object obj = addEligible(1);
    obj->startCapture();
    expectRefused(obj, "status isStarted:1, isCapture:1");
    obj->stopAudioUnit();
    expectRefused(obj, "status isStarted:0, isCapture:1");
    obj->stopCapture();
    expectRefused(obj, "status isStarted:0, isCapture:0");
}

TEST_F(RZStreamMixManagerRegistryTest, NullObjectIsRefused) {
    expectRefused(nullptr, "status isStarted:0, isCapture:0");
}

TEST_F(RZStreamMixManagerRegistryTest, FilterKeepsTheEligibleInOrder) {
    const Object first = addEligible(2);
    add(3);
    const Object third = addEligible(1);
    EXPECT_THAT(manager.filterCanStartUnitObjList(), ElementsAre(first, third));
}

// Events.

TEST_F(RZStreamMixManagerRegistryTest, EventsGoToTheCallbackUnfiltered) {
    manager.onAudioRecordEvent(1, 104, "message");
    manager.onAudioRecordEvent(1, 104, "message");
    EXPECT_EQ(2U, receiver->events().size());
    EXPECT_EQ((RecordedEvent{1, 104, "message"}), receiver->events()[1]);
}

TEST_F(RZStreamMixManagerRegistryTest, EventsWithoutAReceiverAreDropped) {
    class Deaf : public RZReplayAudioRecorderInternalListener<Deaf> {};
    manager.setCallback(std::make_shared<Deaf>());
    manager.onAudioRecordEvent(1, 104, "message");
    manager.setCallback(nullptr);
    manager.onAudioRecordEvent(1, 104, "message");
    EXPECT_THAT(receiver->events(), IsEmpty());
}

TEST_F(RZStreamMixManagerRegistryTest, CallbackIsHeldStrongly) {
    auto callback = std::make_shared<EventRecorder>();
    const std::weak_ptr<EventRecorder> observer = callback;
    manager.setCallback(std::move(callback));
    EXPECT_FALSE(observer.expired());
}

TEST_F(RZStreamMixManagerRegistryTest, EventsOfUnitsReachTheCallbackThroughTheManager) {
    add(1)->onAudioRecordEvent(2, 111, "from a unit");
    EXPECT_THAT(receiver->events(), ElementsAre(RecordedEvent{2, 111, "from a unit"}));
}

// Notices with capture off.

TEST_F(RZStreamMixManagerRegistryTest, StartWithCaptureOffRecordsTheTrackAndTouchesNoGraph) {
    const Object obj = add(2);
    obj->setStreamDesc({48000.9, kAudioFormatLinearPCM, 41, 4, 1, 5, 2, 32, 0});
    log.clear();
    manager.audioUnitStart(obj);
    EXPECT_TRUE(obj->isStarted());
    EXPECT_FALSE(obj->isCapturing());
    EXPECT_THAT(receiver->events(), ElementsAre(RecordedEvent{6, 0, "audio unit start: 1"}));
    EXPECT_THAT(log.linesOf("-[RZStreamMixManager audioUnitStart:]"),
                ElementsAre(IsLogLine(kFile, "-[RZStreamMixManager audioUnitStart:]", 2,
                                      "audio unit start: 1")));
    EXPECT_EQ(nullptr, manager.mGraph());
    ASSERT_EQ(1U, KorvaAudioStats::getInstance()->getAudioTrackSize());
    KorvaAudioStats::HookAudioTrackInfo info;
    KorvaAudioStats::getInstance()->getHookAudioTrackInfos(&info, 1);
    EXPECT_EQ(1U, info.audio_track_id);
    EXPECT_EQ(41U, info.audio_format) << "the flags";
    EXPECT_EQ(4U, info.buffersize) << "bytes per packet";
    EXPECT_EQ(8, info.track_type);
    EXPECT_EQ(48000, info.sample_rate) << "truncated";
    EXPECT_EQ(2, info.channel);
}

TEST_F(RZStreamMixManagerRegistryTest, SecondStartKeepsTheFirstRecordButIsRaisedAgain) {
    const Object obj = add(1);
    manager.audioUnitStart(obj);
    obj->setStreamDesc(stream_formats::int16Interleaved(44100, 2));
    manager.audioUnitStart(obj);
    EXPECT_EQ(2U, receiver->events().size());
    KorvaAudioStats::HookAudioTrackInfo info;
    KorvaAudioStats::getInstance()->getHookAudioTrackInfos(&info, 1);
    EXPECT_EQ(0, info.sample_rate);
}

TEST_F(RZStreamMixManagerRegistryTest, TrackTypeTellsTheKindOfSource) {
    const Object alone = add(1);
    const Object inGraph = add(2);
    inGraph->setAuGraph(graph(1));
    const Object withCallback = add(3);
    withCallback->setAuGraph(graph(1));
    withCallback->setOriginCallback({[](void*, AudioUnitRenderActionFlags*, const AudioTimeStamp*,
                                        UInt32, UInt32, AudioBufferList*) { return OSStatus{0}; },
                                     nullptr});
    for (const Object& obj : {alone, inGraph, withCallback}) {
        manager.audioUnitStart(obj);
    }
    KorvaAudioStats::HookAudioTrackInfo infos[3];
    ASSERT_EQ(3, KorvaAudioStats::getInstance()->getHookAudioTrackInfos(infos, 3));
    EXPECT_EQ(8, infos[0].track_type);
    EXPECT_EQ(32, infos[1].track_type);
    EXPECT_EQ(16, infos[2].track_type);
}

TEST_F(RZStreamMixManagerRegistryTest, StopWithCaptureOffStopsTheUnitOnly) {
    const Object obj = addEligible(1);
    log.clear();
    manager.audioUnitStop(obj);
    EXPECT_FALSE(obj->isStarted());
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(receiver->events(), IsEmpty());
}

TEST_F(RZStreamMixManagerRegistryTest, UpdateOfAUnitThatNeitherRunsNorCapturesDoesNothing) {
    const Object obj = add(1);
    log.clear();
    manager.audioUnitUpdate(obj);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(receiver->events(), IsEmpty());
}

TEST_F(RZStreamMixManagerRegistryTest, StartOfANullObjectIsTrackZeroWithoutAFormat) {
    auto& statistics = *korva_audio_utils::KorvaAudioStats::getInstance();
    manager.audioUnitStart(nullptr);
    EXPECT_THAT(receiver->events(), ElementsAre(RecordedEvent{6, 0, "audio unit start: 0"}));
    korva_audio_utils::KorvaAudioStats::HookAudioTrackInfo info{9, 9, 9, 9, 9, 9};
    ASSERT_EQ(statistics.getHookAudioTrackInfos(&info, 1), 1);
    EXPECT_EQ(info.audio_track_id, 0U);
    EXPECT_EQ(info.audio_format, 0U);
    EXPECT_EQ(info.buffersize, 0U);
    EXPECT_EQ(info.track_type, 8);
    EXPECT_EQ(info.sample_rate, 0);
    EXPECT_EQ(info.channel, 0);
    manager.disposeAudioUnitObj(nullptr);
    EXPECT_EQ(statistics.getAudioTrackSize(), 0U);
}

TEST_F(RZStreamMixManagerRegistryTest, UpdateAndStopOfANullObjectDoNothing) {
    manager.audioUnitUpdate(nullptr);
    manager.audioUnitStop(nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(receiver->events(), IsEmpty());
}

// Disposal.

TEST_F(RZStreamMixManagerRegistryTest, DisposedUnitLeavesRegistryStatisticsAndCompanion) {
    auto& companion = TQAudioUnitRecordResolveManager::sharedManager();
    const Object obj = add(1);
    manager.audioUnitStart(obj);
    companion.registerRTCUsedAudioUnit(unit(1));
    log.clear();
    manager.disposeAudioUnitObj(obj);
    EXPECT_FALSE(obj->isStarted());
    EXPECT_EQ(nullptr, manager.findAudioUnitObj(unit(1)));
    EXPECT_EQ(0, manager.trackId());
    EXPECT_EQ(0U, KorvaAudioStats::getInstance()->getAudioTrackSize());
    EXPECT_FALSE(companion.existAudioUnit(unit(1)));
    EXPECT_THAT(log.lines(),
                ElementsAre(IsLogLine(kFile, "-[RZStreamMixManager disposeAudioUnitObj:]", 2,
                                      "[mix] disposeAudioUnitObj: 0x1000, 0x1000")));
}

TEST_F(RZStreamMixManagerRegistryTest, AfterDisposingTrackOneTheNextUnitGetsTrackOne) {
    for (std::uintptr_t n = 1; n <= 7; ++n) {
        add(n);
    }
    manager.disposeAudioUnitObj(manager.findAudioUnitObj(unit(1)));
    EXPECT_EQ(1, add(8)->trackId());
    EXPECT_EQ(nullptr, add(9));
}

TEST_F(RZStreamMixManagerRegistryTest, DisposingTrackThreeFreesTracksOneAndTwoInstead) {
    for (std::uintptr_t n = 1; n <= 3; ++n) {
        add(n);
    }
    manager.disposeAudioUnitObj(manager.findAudioUnitObj(unit(3)));
    EXPECT_EQ(0b100, manager.trackId()) << "its own bit stays";
    EXPECT_EQ(1, add(4)->trackId()) << "although another object bears that number";
    EXPECT_EQ(1, manager.findAudioUnitObj(unit(1))->trackId());
    EXPECT_EQ(2, add(5)->trackId());
    EXPECT_EQ(4, add(6)->trackId());
}

class RZStreamMixManagerReleaseTest : public RZStreamMixManagerRegistryTest,
                                      public testing::WithParamInterface<int> {};

TEST_P(RZStreamMixManagerReleaseTest, TheNumberItselfIsTheMask) {
    for (std::uintptr_t n = 1; n <= 7; ++n) {
        add(n);
    }
    const int track = GetParam();
    manager.disposeAudioUnitObj(manager.findAudioUnitObj(unit(static_cast<std::uintptr_t>(track))));
    EXPECT_EQ(0b1111111 & ~track, manager.trackId());
}

INSTANTIATE_TEST_SUITE_P(EveryTrack, RZStreamMixManagerReleaseTest, testing::Range(1, 8));

// Checked by the thread sanitizer as well.

TEST_F(RZStreamMixManagerRegistryTest, UnitsComeAndGoWhileOthersLookThemUp) {
    std::atomic<bool> isDone{false};
    std::thread looker([&] {
        while (!isDone) {
            if (const Object obj = manager.findAudioUnitObj(unit(1))) {
                EXPECT_EQ(unit(1), obj->inUnit());
            }
            EXPECT_GE(2U, manager.getUnitObjListWithCopy().size());
            EXPECT_EQ(nullptr, manager.findAudioUnitObjByAUGraph(graph(9)));
        }
    });
    for (int i = 0; i < 500; ++i) {
        const Object first = add(1);
        const Object second = add(2);
        ASSERT_EQ(1, first->trackId());
        ASSERT_EQ(2, second->trackId());
        manager.disposeAudioUnitObj(second);
        manager.disposeAudioUnitObj(first);
        ASSERT_EQ(0, manager.trackId());
    }
    isDone = true;
    looker.join();
}

TEST_F(RZStreamMixManagerRegistryTest, TwoThreadsNeverGetOneTrackNumber) {
    // Tracks 1 and 2 give their own bits back, so that the numbers can go round for ever.
    const auto churn = [this](std::uintptr_t number) {
        for (int i = 0; i < 2000; ++i) {
            const Object mine = add(number);
            ASSERT_NE(nullptr, mine);
            const Object other = manager.findAudioUnitObj(unit(3 - number));
            if (other) {
                ASSERT_NE(mine->trackId(), other->trackId());
            }
            manager.disposeAudioUnitObj(mine);
        }
    };
    std::thread second([&] { churn(2); });
    churn(1);
    second.join();
    EXPECT_EQ(0, manager.trackId());
}
