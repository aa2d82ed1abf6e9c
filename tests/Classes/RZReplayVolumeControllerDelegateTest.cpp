#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "RZReplayVolumeController.h"
#include "RZStreamMixManager.h"

// The delegates of controllers and their common list, and controllers without interception.

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Nothing : public RZReplayVolumeControllerListener<Nothing> {};

class DuckingOnly : public RZReplayVolumeControllerListener<DuckingOnly> {
  public:
    void onDuckingGlobalStateChanged(BOOL enabled) override { states.push_back(enabled); }
    std::vector<bool> states;
};

class CompressorOnly : public RZReplayVolumeControllerListener<CompressorOnly> {
  public:
    void onCompressorGlobalStateChanged(BOOL enabled) override { states.push_back(enabled); }
    std::vector<bool> states;
};

std::size_t entries() {
    return RZReplayVolumeController::getGlobalDelegateList().count();
}

}  // namespace

TEST(RZReplayVolumeControllerDelegateTest, RespondsToWhatItDeclares) {
    using Method = RZReplayVolumeControllerDelegate::Method;
    const Nothing nothing;
    const DuckingOnly duckingOnly;
    EXPECT_FALSE(nothing.respondsTo(Method::onDuckingGlobalStateChanged));
    EXPECT_FALSE(nothing.respondsTo(Method::onCompressorGlobalStateChanged));
    EXPECT_TRUE(duckingOnly.respondsTo(Method::onDuckingGlobalStateChanged));
    EXPECT_FALSE(duckingOnly.respondsTo(Method::onCompressorGlobalStateChanged));
    EXPECT_FALSE(duckingOnly.respondsTo(static_cast<Method>(9)));
    Nothing callable;
    callable.onDuckingGlobalStateChanged(YES);
    callable.onCompressorGlobalStateChanged(YES);
}

TEST(RZReplayVolumeControllerDelegateTest, DelegateWithoutTheMethodIsSkipped) {
    RZReplayVolumeController a;
    RZReplayVolumeController b;
    RZReplayVolumeController c;
    const auto nothing = std::make_shared<Nothing>();
    const auto ducking = std::make_shared<DuckingOnly>();
    const auto compressor = std::make_shared<CompressorOnly>();
    a.setDelegate(nothing);
    b.setDelegate(compressor);
    c.setDelegate(ducking);
    a.notifyDuckingStateChanged(YES);
    a.notifyCompressorStateChanged(NO);
    EXPECT_THAT(ducking->states, ElementsAre(true));
    EXPECT_THAT(compressor->states, ElementsAre(false));
}

TEST(RZReplayVolumeControllerDelegateTest, DelegateIsHeldWeaklyAndReadsAsNullWhenGone) {
    RZReplayVolumeController controller;
    auto delegate = std::make_shared<DuckingOnly>();
    controller.setDelegate(delegate);
    EXPECT_EQ(delegate, controller.delegate());
    EXPECT_EQ(delegate, RZReplayVolumeController::getGlobalDelegateList().pointerAtIndex(0));
    delegate.reset();
    EXPECT_EQ(nullptr, controller.delegate());
    ASSERT_EQ(1U, entries());
    EXPECT_EQ(nullptr, RZReplayVolumeController::getGlobalDelegateList().pointerAtIndex(0));
    controller.notifyDuckingStateChanged(YES);
}

TEST(RZReplayVolumeControllerDelegateTest, SettingTheSameDelegateTwiceLeavesOneEntry) {
    RZReplayVolumeController controller;
    const auto delegate = std::make_shared<DuckingOnly>();
    controller.setDelegate(delegate);
    controller.setDelegate(delegate);
    EXPECT_EQ(1U, entries());
    controller.notifyDuckingStateChanged(YES);
    EXPECT_THAT(delegate->states, ElementsAre(true));
}

TEST(RZReplayVolumeControllerDelegateTest, OneDelegateOfTwoControllersHearsOnce) {
    RZReplayVolumeController a;
    RZReplayVolumeController b;
    const auto delegate = std::make_shared<DuckingOnly>();
    a.setDelegate(delegate);
    b.setDelegate(delegate);
    EXPECT_EQ(1U, entries());
    a.notifyDuckingStateChanged(YES);
    EXPECT_THAT(delegate->states, ElementsAre(true));
}

TEST(RZReplayVolumeControllerDelegateTest, NewDelegateTakesTheOldOnesPlace) {
    RZReplayVolumeController controller;
    const auto first = std::make_shared<DuckingOnly>();
    const auto second = std::make_shared<DuckingOnly>();
    controller.setDelegate(first);
    controller.setDelegate(second);
    EXPECT_EQ(1U, entries());
    controller.notifyDuckingStateChanged(YES);
    EXPECT_THAT(first->states, IsEmpty());
    EXPECT_THAT(second->states, ElementsAre(true));
    controller.setDelegate(nullptr);
    EXPECT_EQ(nullptr, controller.delegate());
    EXPECT_EQ(0U, entries());
}

TEST(RZReplayVolumeControllerDelegateTest, DestroyedControllerTakesItsDelegateOut) {
    const auto delegate = std::make_shared<DuckingOnly>();
    {
        RZReplayVolumeController controller;
        controller.setDelegate(delegate);
        EXPECT_EQ(1U, entries());
    }
    EXPECT_EQ(0U, entries());
}

TEST(RZReplayVolumeControllerDelegateTest, RemovingAnyDelegatePurgesThoseThatAreGone) {
    const auto living = std::make_shared<DuckingOnly>();
    const auto leaving = std::make_shared<DuckingOnly>();
    {
        const auto dying = std::make_shared<DuckingOnly>();
        const auto dyingToo = std::make_shared<DuckingOnly>();
        RZReplayVolumeController::addDelegate(dying);
        RZReplayVolumeController::addDelegate(dyingToo);
        RZReplayVolumeController::addDelegate(living);
        RZReplayVolumeController::addDelegate(leaving);
    }
    EXPECT_EQ(4U, entries());
    RZReplayVolumeController::removeDelegate(leaving);
    ASSERT_EQ(1U, entries());
    EXPECT_EQ(living, RZReplayVolumeController::getGlobalDelegateList().pointerAtIndex(0));
}

TEST(RZReplayVolumeControllerDelegateTest, RemovingAStrangerPurgesTooAndKeepsTheRest) {
    const auto living = std::make_shared<DuckingOnly>();
    RZReplayVolumeController::addDelegate(living);
    RZReplayVolumeController::addDelegate(std::make_shared<DuckingOnly>());
    RZReplayVolumeController::removeDelegate(std::make_shared<DuckingOnly>());
    EXPECT_EQ(1U, entries());
}

TEST(RZReplayVolumeControllerDelegateTest, NullIsNeitherAddedNorRemoved) {
    RZReplayVolumeController::addDelegate(std::make_shared<DuckingOnly>());
    RZReplayVolumeController::addDelegate(nullptr);
    RZReplayVolumeController::removeDelegate(nullptr);
    EXPECT_EQ(1U, entries()) << "the gone one is still there: nothing was done";
}

TEST(RZReplayVolumeControllerDelegateTest, AddingTwiceLeavesOneEntry) {
    const auto delegate = std::make_shared<DuckingOnly>();
    RZReplayVolumeController::addDelegate(delegate);
    RZReplayVolumeController::addDelegate(delegate);
    EXPECT_EQ(1U, entries());
}

TEST(RZReplayVolumeControllerDelegateTest, DelegatesComeAndGoWhileStatesAreTold) {
    RZReplayVolumeController teller;
    std::atomic<bool> isDone{false};
    std::thread thread([&] {
        while (!isDone) {
            teller.notifyDuckingStateChanged(YES);
        }
    });
    class Quiet : public RZReplayVolumeControllerListener<Quiet> {
      public:
        void onDuckingGlobalStateChanged(BOOL) override { ++calls; }
        std::atomic<int> calls{0};
    };
    for (int i = 0; i < 500; ++i) {
        // In this order: a controller takes only a living delegate out of the list.
        const auto delegate = std::make_shared<Quiet>();
        RZReplayVolumeController controller;
        controller.setDelegate(delegate);
    }
    isDone = true;
    thread.join();
    EXPECT_EQ(0U, entries());
}

// Without interception.

TEST(RZReplayVolumeControllerWithoutHookTest, SwitchingOnFailsAndChangesNothing) {
    const LogCapture log;
    RZReplayVolumeController controller;
    const auto ducking = std::make_shared<DuckingOnly>();
    controller.setDelegate(ducking);
    const RZReplayVolumeDuckingParam duckingOn(YES);
    EXPECT_EQ(103, controller.enableDucking(&duckingOn));
    EXPECT_FALSE(controller.duckingEnable());
    EXPECT_EQ(11, controller.updateDuckingVolume(-10.0F, YES));
    EXPECT_FALSE(RZStreamMixManager::sharedManager()->isDuckingEnable());
    EXPECT_EQ(nullptr, RZStreamMixManager::sharedManager()->duckingParam());
    EXPECT_THAT(ducking->states, IsEmpty());
    EXPECT_EQ(1U, log.count("[mix] enable ducking: 1")) << "logged before it is refused";

    const auto compressor = std::make_shared<CompressorOnly>();
    controller.setDelegate(compressor);
    const RZReplayVolumeCompressorParam compressorOn(YES);
    EXPECT_EQ(103, controller.enableCompressor(&compressorOn));
    EXPECT_FALSE(controller.compressorEnable());
    EXPECT_EQ(nullptr, RZStreamMixManager::sharedManager()->compressParam());
    EXPECT_THAT(compressor->states, IsEmpty());

    RZReplayVolumeController other;
    EXPECT_EQ(103, other.enableDucking(&duckingOn)) << "and nobody owns the state";
}
