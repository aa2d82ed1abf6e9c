#include "TQAudioUnitRecordResolveManager.h"

#include <Foundation/Foundation.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Posted = std::vector<std::pair<std::string, std::string>>;

class ResolveManager : public testing::Test {
  protected:
    ResolveManager() {
        for (const char* name :
             {TQAudioNewRegisterAudioUnitNotification, TQAudioNewRegisterAuGraphNotification}) {
            NSNotificationCenter::defaultCenter().addObserver(
                this,
                [this](const NSNotification& notification) {
                    posted_.emplace_back(notification.name,
                                         notification.textForKey(TQAudioNewRegisteredObject));
                },
                name, nullptr);
        }
    }
    ~ResolveManager() override { NSNotificationCenter::defaultCenter().removeObserver(this); }

    // Handles are identities to the manager: any address does.
    AudioUnit unit(std::size_t index) { return reinterpret_cast<AudioUnit>(&places_.at(index)); }
    AUGraph graph(std::size_t index) { return reinterpret_cast<AUGraph>(&places_.at(index)); }

    TQAudioUnitRecordResolveManager& manager_ = TQAudioUnitRecordResolveManager::sharedManager();
    Posted posted_;

  private:
    std::array<long, 4> places_{};
};

TEST_F(ResolveManager, IsOneForTheProcess) {
    EXPECT_EQ(&TQAudioUnitRecordResolveManager::sharedManager(), &manager_);
}

TEST_F(ResolveManager, KnowsNothingAtFirst) {
    EXPECT_FALSE(manager_.existAudioUnit(unit(0)));
    EXPECT_FALSE(manager_.existAuGraph(graph(0)));
}

TEST_F(ResolveManager, KnowsUnitsOfEitherKindUntilTheyAreUnregistered) {
    manager_.registerRTCUsedAudioUnit(unit(0));
    manager_.registerNonGameUsedAudioUnit(unit(1));
    EXPECT_TRUE(manager_.existAudioUnit(unit(0)));
    EXPECT_TRUE(manager_.existAudioUnit(unit(1)));
    manager_.unregisterRTCUsedAudioUnit(unit(0));
    manager_.unregisterNonGameUsedAudioUnit(unit(1));
    EXPECT_FALSE(manager_.existAudioUnit(unit(0)));
    EXPECT_FALSE(manager_.existAudioUnit(unit(1)));
}

TEST_F(ResolveManager, KeepsTheTwoKindsOfUnitsApart) {
    manager_.registerRTCUsedAudioUnit(unit(0));
    manager_.unregisterNonGameUsedAudioUnit(unit(0));
    EXPECT_TRUE(manager_.existAudioUnit(unit(0)));
    manager_.registerNonGameUsedAudioUnit(unit(0));
    manager_.unregisterRTCUsedAudioUnit(unit(0));
    EXPECT_TRUE(manager_.existAudioUnit(unit(0)));
}

TEST_F(ResolveManager, KnowsGraphsApartFromUnits) {
    manager_.registerNonGameUsedAuGraph(graph(0));
    EXPECT_TRUE(manager_.existAuGraph(graph(0)));
    EXPECT_FALSE(manager_.existAudioUnit(unit(0)));
    manager_.unregisterNonGameUsedAuGraph(graph(0));
    EXPECT_FALSE(manager_.existAuGraph(graph(0)));
}

TEST_F(ResolveManager, AnnouncesUnitsOfBothKindsWithTheHandlesText) {
    manager_.registerRTCUsedAudioUnit(unit(0));
    manager_.registerNonGameUsedAudioUnit(unit(1));
    EXPECT_EQ(posted_,
              (Posted{{"TQAudioNewRegisterAudioUnitNotification", NSFormat("%p", unit(0))},
                      {"TQAudioNewRegisterAudioUnitNotification", NSFormat("%p", unit(1))}}));
}

TEST_F(ResolveManager, AnnouncesGraphsWithTheHandlesText) {
    manager_.registerNonGameUsedAuGraph(graph(0));
    EXPECT_EQ(posted_,
              (Posted{{"TQAudioNewRegisterAuGraphNotification", NSFormat("%p", graph(0))}}));
}

TEST_F(ResolveManager, UserInfoKeyIsTheOneThatObserversKnow) {
    EXPECT_STREQ(TQAudioNewRegisteredObject, "TQAudioNewRegisteredObject");
}

TEST_F(ResolveManager, AnnouncesARepeatedRegistrationOnce) {
    manager_.registerRTCUsedAudioUnit(unit(0));
    manager_.registerRTCUsedAudioUnit(unit(0));
    EXPECT_EQ(posted_.size(), 1U);
    manager_.unregisterRTCUsedAudioUnit(unit(0));
    manager_.registerRTCUsedAudioUnit(unit(0));
    EXPECT_EQ(posted_.size(), 2U) << "new again once it was unregistered";
}

TEST_F(ResolveManager, AnnouncesNothingWhenSomethingIsUnregistered) {
    manager_.registerNonGameUsedAuGraph(graph(0));
    posted_.clear();
    manager_.unregisterNonGameUsedAuGraph(graph(0));
    manager_.unregisterNonGameUsedAuGraph(graph(1));
    manager_.unregisterRTCUsedAudioUnit(unit(1));
    EXPECT_TRUE(posted_.empty());
}

TEST_F(ResolveManager, IgnoresNull) {
    manager_.registerRTCUsedAudioUnit(nullptr);
    manager_.registerNonGameUsedAudioUnit(nullptr);
    manager_.registerNonGameUsedAuGraph(nullptr);
    manager_.unregisterRTCUsedAudioUnit(nullptr);
    EXPECT_FALSE(manager_.existAudioUnit(nullptr));
    EXPECT_FALSE(manager_.existAuGraph(nullptr));
    EXPECT_TRUE(posted_.empty());
}

TEST_F(ResolveManager, ObserverMayAskAndRegisterFromTheAnnouncement) {
    bool isKnown = false;
    NSNotificationCenter::defaultCenter().addObserver(
        &isKnown,
        [&](const NSNotification&) {
            isKnown = manager_.existAudioUnit(unit(0));
            manager_.registerNonGameUsedAuGraph(graph(1));
        },
        TQAudioNewRegisterAudioUnitNotification, nullptr);
    manager_.registerRTCUsedAudioUnit(unit(0));
    NSNotificationCenter::defaultCenter().removeObserver(&isKnown);
    EXPECT_TRUE(isKnown);
    EXPECT_TRUE(manager_.existAuGraph(graph(1)));
}

TEST_F(ResolveManager, ThreadsMayRegisterAtTheSameTime) {
    NSNotificationCenter::defaultCenter().removeObserver(this);
    std::array<long, 512> places{};
    std::vector<std::thread> threads;
    for (std::size_t start = 0; start < 4; ++start) {
        threads.emplace_back([&, start] {
            for (std::size_t i = start; i < places.size(); i += 4) {
                const auto handle = reinterpret_cast<AudioUnit>(&places[i]);
                manager_.registerRTCUsedAudioUnit(handle);
                EXPECT_TRUE(manager_.existAudioUnit(handle));
                if (i % 2 == 0) {
                    manager_.unregisterRTCUsedAudioUnit(handle);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t i = 0; i < places.size(); ++i) {
        EXPECT_EQ(manager_.existAudioUnit(reinterpret_cast<AudioUnit>(&places[i])), i % 2 == 1);
    }
}

}  // namespace
