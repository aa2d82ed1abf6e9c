#include "RZReplayVolumeController.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "RZStreamMixManager.h"

// The two states are process-wide: each case needs a process of its own. Both features follow the
// same rules, so most cases run for both.

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// One feature under names that both share.
struct DuckingFeature {
    using Param = RZReplayVolumeDuckingParam;
    static constexpr const char* kLogFunction = "-[RZStreamMixManager enableDucking:]";
    static constexpr const char* kLogText = "[mix] enable ducking: ";
    static std::int32_t enable(RZReplayVolumeController& c, const Param* p) {
        return c.enableDucking(p);
    }
    static std::int32_t update(RZReplayVolumeController& c, float volume, BOOL isDB) {
        return c.updateDuckingVolume(volume, isDB);
    }
    static BOOL isOn(const RZReplayVolumeController& c) { return c.duckingEnable(); }
    static void setOn(RZReplayVolumeController& c, BOOL on) { c.setDuckingEnable(on); }
    static BOOL isOnInManager() { return RZStreamMixManager::sharedManager()->isDuckingEnable(); }
    static float levelOf(const korva_audio_utils::VolumeController& c) { return c.DuckingVolume(); }
    static float strengthOf(const korva_audio_utils::VolumeController& c) {
        return c.GetDuckingParams().threshold;
    }
    static void notify(RZReplayVolumeController& c, BOOL on) { c.notifyDuckingStateChanged(on); }
};

struct CompressorFeature {
    using Param = RZReplayVolumeCompressorParam;
    static constexpr const char* kLogFunction = "-[RZStreamMixManager enableCompressor:]";
    static constexpr const char* kLogText = "[mix] enable compressor: ";
    static std::int32_t enable(RZReplayVolumeController& c, const Param* p) {
        return c.enableCompressor(p);
    }
    static std::int32_t update(RZReplayVolumeController& c, float volume, BOOL isDB) {
        return c.updateCompressorVolume(volume, isDB);
    }
    static BOOL isOn(const RZReplayVolumeController& c) { return c.compressorEnable(); }
    static void setOn(RZReplayVolumeController& c, BOOL on) { c.setCompressorEnable(on); }
    static BOOL isOnInManager() {
        return RZStreamMixManager::sharedManager()->isCompressorEnable();
    }
    static float levelOf(const korva_audio_utils::VolumeController& c) {
        return c.CompressorVolume();
    }
    static float strengthOf(const korva_audio_utils::VolumeController& c) {
        return c.GetCompressorParams().threshold;
    }
    static void notify(RZReplayVolumeController& c, BOOL on) { c.notifyCompressorStateChanged(on); }
};

/// Notes "ducking 1", "compressor 0", ... in a book that several may share.
class Hearer : public RZReplayVolumeControllerListener<Hearer> {
  public:
    explicit Hearer(std::vector<std::string>& heard, std::string name = "")
        : heard_(heard), name_(std::move(name)) {}
    void onDuckingGlobalStateChanged(BOOL enabled) override { note("ducking", enabled); }
    void onCompressorGlobalStateChanged(BOOL enabled) override { note("compressor", enabled); }
    std::function<void()> onCall;

  private:
    void note(const char* feature, BOOL enabled) {
        heard_.push_back(name_ + feature + (enabled ? " 1" : " 0"));
        // A copy runs, so that the call may replace itself.
        if (const auto running = onCall) {
            running();
        }
    }
    std::vector<std::string>& heard_;
    std::string name_;
};

template <class Feature>
std::string heardAs(BOOL enabled) {
    const bool isDucking = std::is_same_v<Feature, DuckingFeature>;
    return std::string(isDucking ? "ducking" : "compressor") + (enabled ? " 1" : " 0");
}

template <class Feature>
class RZReplayVolumeControllerTest : public testing::Test {
  protected:
    using Param = typename Feature::Param;

    void SetUp() override { RZReplayAudioUnitGraphCapturer::startHook(); }
    std::int32_t enable(RZReplayVolumeController& controller, BOOL on) {
        const Param param(on);
        return Feature::enable(controller, &param);
    }
    /// How often the mix manager was asked.
    std::size_t managerCalls() { return log.linesOf(Feature::kLogFunction).size(); }

    LogCapture log;
    std::vector<std::string> heard;
    const std::shared_ptr<Hearer> hearer = std::make_shared<Hearer>(heard);
    RZReplayVolumeController a;
    RZReplayVolumeController b;
};

struct FeatureNames {
    template <class Feature>
    static std::string GetName(int) {
        return std::is_same_v<Feature, DuckingFeature> ? "Ducking" : "Compressor";
    }
};
using Features = testing::Types<DuckingFeature, CompressorFeature>;
TYPED_TEST_SUITE(RZReplayVolumeControllerTest, Features, FeatureNames);

}  // namespace

TYPED_TEST(RZReplayVolumeControllerTest, NewControllerIsOffWithALockOfItsOwn) {
    EXPECT_FALSE(TypeParam::isOn(this->a));
    EXPECT_EQ(nullptr, this->a.delegate());
    ASSERT_NE(nullptr, this->a.opLock());
    EXPECT_NE(this->a.opLock(), this->b.opLock());
    const auto lock = std::make_shared<NSRecursiveLock>();
    this->a.setOpLock(lock);
    EXPECT_EQ(lock, this->a.opLock());
    TypeParam::setOn(this->a, YES);
    EXPECT_TRUE(TypeParam::isOn(this->a));
}

// The whole state table: process state, controller state, request.

TYPED_TEST(RZReplayVolumeControllerTest, OffOffDisableDoesNothing) {
    this->a.setDelegate(this->hearer);
    EXPECT_EQ(0, this->enable(this->a, NO));
    EXPECT_EQ(0U, this->managerCalls());
    EXPECT_THAT(this->heard, IsEmpty());
}

TYPED_TEST(RZReplayVolumeControllerTest, OffOffEnableSwitchesOnAndNotifies) {
    this->a.setDelegate(this->hearer);
    EXPECT_EQ(0, this->enable(this->a, YES));
    EXPECT_TRUE(TypeParam::isOn(this->a));
    EXPECT_TRUE(TypeParam::isOnInManager());
    EXPECT_THAT(
        this->log.linesOf(TypeParam::kLogFunction),
        ElementsAre(IsLogLine("Classes/MixManager/RZStreamMixManager", TypeParam::kLogFunction, 2,
                              std::string(TypeParam::kLogText) + "1")));
    EXPECT_THAT(this->heard, ElementsAre(heardAs<TypeParam>(YES)));
}

TYPED_TEST(RZReplayVolumeControllerTest, OnOnEnableAppliesTheParametersAgainSilently) {
    this->a.setDelegate(this->hearer);
    const auto obj =
        RZStreamMixManager::sharedManager()->newAudioUnitObj(reinterpret_cast<AudioUnit>(0x1000));
    const auto buffer = obj->getOrCreateBufferAt(0);
    this->enable(this->a, YES);
    typename TypeParam::Param param(YES);
    param.setThreshold(-12.0F);
    EXPECT_EQ(0, TypeParam::enable(this->a, &param));
    EXPECT_EQ(2U, this->managerCalls());
    EXPECT_EQ(-12.0F, TypeParam::strengthOf(*buffer->volumeController()));
    EXPECT_THAT(this->heard, ElementsAre(heardAs<TypeParam>(YES)));
    EXPECT_TRUE(TypeParam::isOn(this->a));
}

TYPED_TEST(RZReplayVolumeControllerTest, OnOnDisableSwitchesOffAndNotifies) {
    this->a.setDelegate(this->hearer);
    this->enable(this->a, YES);
    EXPECT_EQ(0, this->enable(this->a, NO));
    EXPECT_FALSE(TypeParam::isOn(this->a));
    EXPECT_FALSE(TypeParam::isOnInManager());
    EXPECT_EQ(2U, this->managerCalls());
    EXPECT_THAT(this->heard, ElementsAre(heardAs<TypeParam>(YES), heardAs<TypeParam>(NO)));
}

TYPED_TEST(RZReplayVolumeControllerTest, OnOffEnableIsRefusedAsAnothersState) {
    this->enable(this->a, YES);
    this->b.setDelegate(this->hearer);
    EXPECT_EQ(13, this->enable(this->b, YES));
    EXPECT_FALSE(TypeParam::isOn(this->b));
    EXPECT_EQ(1U, this->managerCalls());
    EXPECT_THAT(this->heard, IsEmpty());
}

TYPED_TEST(RZReplayVolumeControllerTest, OnOffDisableDoesNothing) {
    this->enable(this->a, YES);
    EXPECT_EQ(0, this->enable(this->b, NO));
    EXPECT_TRUE(TypeParam::isOn(this->a));
    EXPECT_TRUE(TypeParam::isOnInManager());
    EXPECT_EQ(1U, this->managerCalls());
}

TYPED_TEST(RZReplayVolumeControllerTest, OffOnEnableAsksTheManagerAgainSilently) {
    this->a.setDelegate(this->hearer);
    TypeParam::setOn(this->a, YES);
    EXPECT_EQ(0, this->enable(this->a, YES));
    EXPECT_EQ(1U, this->managerCalls());
    EXPECT_THAT(this->heard, IsEmpty());
}

TYPED_TEST(RZReplayVolumeControllerTest, OffOnDisableIsRefused) {
    this->a.setDelegate(this->hearer);
    TypeParam::setOn(this->a, YES);
    EXPECT_EQ(13, this->enable(this->a, NO));
    EXPECT_TRUE(TypeParam::isOn(this->a));
    EXPECT_EQ(0U, this->managerCalls());
    EXPECT_THAT(this->heard, IsEmpty());
}

TYPED_TEST(RZReplayVolumeControllerTest, OwnerSwitchesOffAndTheOtherMayThenSwitchOn) {
    std::vector<std::string> other;
    const auto otherHearer = std::make_shared<Hearer>(other);
    this->a.setDelegate(this->hearer);
    this->b.setDelegate(otherHearer);
    EXPECT_EQ(0, this->enable(this->a, YES));
    EXPECT_EQ(13, this->enable(this->b, YES));
    EXPECT_EQ(0, this->enable(this->b, NO));
    EXPECT_EQ(0, this->enable(this->a, NO));
    const std::vector<std::string> onOff{heardAs<TypeParam>(YES), heardAs<TypeParam>(NO)};
    EXPECT_EQ(onOff, this->heard);
    EXPECT_EQ(onOff, other);
    EXPECT_EQ(0, this->enable(this->b, YES));
    EXPECT_EQ(13, this->enable(this->a, YES));
}

TYPED_TEST(RZReplayVolumeControllerTest, OwnerThatGoesLeavesTheStateOnForGood) {
    {
        RZReplayVolumeController owner;
        this->enable(owner, YES);
    }
    EXPECT_TRUE(TypeParam::isOnInManager());
    EXPECT_EQ(13, this->enable(this->a, YES));
    EXPECT_EQ(0, this->enable(this->a, NO));
    EXPECT_TRUE(TypeParam::isOnInManager());
}

TYPED_TEST(RZReplayVolumeControllerTest, NullRecordCountsAsOneThatIsOff) {
    EXPECT_EQ(0, TypeParam::enable(this->a, nullptr));
    EXPECT_EQ(0U, this->managerCalls());
    this->enable(this->a, YES);
    EXPECT_EQ(0, TypeParam::enable(this->a, nullptr));
    EXPECT_FALSE(TypeParam::isOn(this->a));
    EXPECT_FALSE(TypeParam::isOnInManager());
}

TYPED_TEST(RZReplayVolumeControllerTest, RecordIsCopied) {
    typename TypeParam::Param param(YES);
    param.setThreshold(-11.0F);
    TypeParam::enable(this->a, &param);
    param.setEnable(NO);
    param.setThreshold(-1.0F);
    EXPECT_TRUE(TypeParam::isOnInManager());
    const auto obj =
        RZStreamMixManager::sharedManager()->newAudioUnitObj(reinterpret_cast<AudioUnit>(0x1000));
    EXPECT_EQ(-11.0F, TypeParam::strengthOf(*obj->getOrCreateBufferAt(0)->volumeController()))
        << "units that come later get what was stored";
}

TYPED_TEST(RZReplayVolumeControllerTest, LevelNeedsAControllerThatIsOn) {
    EXPECT_EQ(11, TypeParam::update(this->a, -10.0F, YES));
    this->enable(this->a, YES);
    EXPECT_EQ(11, TypeParam::update(this->b, -10.0F, YES)) << "it is on, but by another";
    EXPECT_EQ(0, TypeParam::update(this->a, -10.0F, YES));
    this->enable(this->a, NO);
    EXPECT_EQ(11, TypeParam::update(this->a, -10.0F, YES));
}

TYPED_TEST(RZReplayVolumeControllerTest, LevelReachesTheUnits) {
    const auto obj =
        RZStreamMixManager::sharedManager()->newAudioUnitObj(reinterpret_cast<AudioUnit>(0x1000));
    const auto buffer = obj->getOrCreateBufferAt(0);
    this->enable(this->a, YES);
    TypeParam::update(this->a, -13.0F, YES);
    EXPECT_EQ(-13.0F, TypeParam::levelOf(*buffer->volumeController()));
    TypeParam::update(this->a, 0.1F, NO);
    EXPECT_NEAR(-20.0F, TypeParam::levelOf(*buffer->volumeController()), 1e-4);
}

TYPED_TEST(RZReplayVolumeControllerTest, FeaturesAreApart) {
    this->enable(this->a, YES);
    const RZReplayVolumeDuckingParam ducking(YES);
    const RZReplayVolumeCompressorParam compressor(YES);
    const bool isDucking = std::is_same_v<TypeParam, DuckingFeature>;
    EXPECT_EQ(0,
              isDucking ? this->b.enableCompressor(&compressor) : this->b.enableDucking(&ducking));
}

TYPED_TEST(RZReplayVolumeControllerTest, NotificationsRunWithNoLockHeldOnTheCallersThread) {
    this->a.setDelegate(this->hearer);
    std::vector<std::int32_t> answers;
    bool isSameThread = false;
    const std::thread::id caller = std::this_thread::get_id();
    this->hearer->onCall = [&] {
        isSameThread = std::this_thread::get_id() == caller;
        this->hearer->onCall = nullptr;
        // Another thread gets all the locks that the call took before: this ends or hangs.
        std::thread([&] {
            answers.push_back(this->enable(this->b, YES));
            answers.push_back(this->enable(this->a, YES));
            this->b.setDelegate(nullptr);
        }).join();
    };
    EXPECT_EQ(0, this->enable(this->a, YES));
    EXPECT_THAT(answers, ElementsAre(13, 0));
    EXPECT_TRUE(isSameThread);
}

TYPED_TEST(RZReplayVolumeControllerTest, DelegatesMayComeAndGoInsideANotification) {
    std::vector<std::string> other;
    const auto second = std::make_shared<Hearer>(other, "second ");
    const auto third = std::make_shared<Hearer>(other, "third ");
    this->a.setDelegate(this->hearer);
    this->b.setDelegate(second);
    this->hearer->onCall = [&] {
        this->hearer->onCall = nullptr;
        this->b.setDelegate(third);
    };
    this->enable(this->a, YES);
    EXPECT_THAT(other, ElementsAre("second " + heardAs<TypeParam>(YES)))
        << "the pass goes on with those it began with";
    other.clear();
    this->enable(this->a, NO);
    EXPECT_THAT(other, ElementsAre("third " + heardAs<TypeParam>(NO)));
}

TYPED_TEST(RZReplayVolumeControllerTest, NotifyTellsEveryDelegateInOrderWithoutChangingAnything) {
    std::vector<std::string> book;
    const auto first = std::make_shared<Hearer>(book, "first ");
    const auto second = std::make_shared<Hearer>(book, "second ");
    this->a.setDelegate(first);
    this->b.setDelegate(second);
    TypeParam::notify(this->a, YES);
    EXPECT_THAT(
        book, ElementsAre("first " + heardAs<TypeParam>(YES), "second " + heardAs<TypeParam>(YES)));
    EXPECT_FALSE(TypeParam::isOn(this->a));
    EXPECT_EQ(0U, this->managerCalls());
}

TYPED_TEST(RZReplayVolumeControllerTest, DelegateThatThrowsDoesNotKeepTheOthersFromHearing) {
    std::vector<std::string> book;
    const auto second = std::make_shared<Hearer>(book);
    this->a.setDelegate(this->hearer);
    this->b.setDelegate(second);
    this->hearer->onCall = [] { throw 1; };
    EXPECT_EQ(0, this->enable(this->a, YES));
    EXPECT_THAT(book, ElementsAre(heardAs<TypeParam>(YES)));
    EXPECT_TRUE(TypeParam::isOn(this->a));
}

TYPED_TEST(RZReplayVolumeControllerTest, OneOfManyThreadsBecomesTheOwner) {
    std::atomic<int> owners{0};
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            RZReplayVolumeController controller;
            const std::int32_t answer = this->enable(controller, YES);
            owners += answer == 0 ? 1 : 0;
            refused += answer == 13 ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(1, owners);
    EXPECT_EQ(7, refused);
}
