// What the caretaker of a device tells who listens.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <vector>

#include "platform/device/HandoverCareScene.h"

namespace {

using namespace tqtest::handover;
using tqtest::eventually;

TEST(HandoverCare, AMicrophoneThatGoesBesideTheSpeakersIsToldAndTriedAgain) {
    Device& device = openBoth();
    HandoverClient both(true, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(both));
    ASSERT_TRUE(device.isHearing());
    const Speakers speakers;
    scene.isMicrophoneThere = false;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2"}; }));
    EXPECT_FALSE(device.isHearing());
    scene.isMicrophoneThere = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2", "route 1"}; }));
    EXPECT_TRUE(device.isHearing());
    device.removeClient(both);
}

TEST(HandoverCare, AMicrophoneThatGoesIsToldAlsoWhenTheProgramStartsAnotherUnitRightThen) {
    Device& device = openBoth();
    HandoverClient both(true, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(both));
    const Speakers speakers;
    scene.isMicrophoneThere = false;
    // The keeper is woken, and sees before its next look that nothing is heard.
    ASSERT_TRUE(device.preferMicrophone(""));
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2"}; }));
    device.removeClient(both);
}

TEST(HandoverCare, TheFirstOutputBesideWhoListensIsOneNewRoute) {
    Device& device = openBoth();
    HandoverClient listener(false, true), player(true);
    Notices notices;
    ASSERT_TRUE(device.addClient(listener));
    ASSERT_TRUE(device.addClient(player));
    EXPECT_EQ(notices.told(), Words{"route 8"});
    device.removeClient(player);
    ASSERT_TRUE(device.addClient(player));
    EXPECT_EQ(notices.told(), Words{"route 8"});
    device.removeClient(player);
    device.removeClient(listener);
}

TEST(HandoverCare, SpeakersThatPlaySilenceForWhoListensAreNoInterruptionWhenTheyGo) {
    Device& device = openBoth();
    HandoverClient listener(false, true), player(true);
    Notices notices;
    ASSERT_TRUE(device.addClient(player));
    ASSERT_TRUE(device.addClient(listener));
    device.removeClient(player);
    scene.noted();
    scene.starts = false;
    scene.lose();
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2"}; }));
    scene.starts = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2", "route 1"}; }));
    EXPECT_FALSE(scene.hasCome("open device")) << "the microphone alone";
    device.removeClient(listener);
}

TEST(HandoverCare, AMicrophoneAloneThatCannotBeOpenedIsNoInterruption) {
    Device& device = openBoth();
    HandoverClient player(true), listener(false, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(player));
    device.removeClient(player);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    scene.starts = false;
    ASSERT_TRUE(device.addClient(listener));
    scene.noted();
    ASSERT_TRUE(eventually([] { return scene.hasCome("open microphone"); })) << "again";
    EXPECT_EQ(notices.told(), Words{}) << "who has just begun to listen has lost nothing";
    scene.starts = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1"}; }));
    EXPECT_TRUE(device.isHearing());
    device.removeClient(listener);
}

/// Counts what happens from here on, and when.
class Times {
  public:
    void note() {
        const std::lock_guard lock(mutex_);
        times_.push_back(std::chrono::steady_clock::now());
    }
    /// Until it has happened so often.
    [[nodiscard]] bool await(std::size_t count) {
        return eventually([&] {
            const std::lock_guard lock(mutex_);
            return times_.size() >= count;
        });
    }
    [[nodiscard]] std::chrono::nanoseconds between(std::size_t first, std::size_t last) {
        const std::lock_guard lock(mutex_);
        return times_.at(last) - times_.at(first);
    }

  private:
    std::mutex mutex_;
    std::vector<std::chrono::steady_clock::time_point> times_;
};

TEST(HandoverCare, AMicrophoneAloneThatStandsStillIsToldOnceAndOpenedAnewMoreAndMoreSeldom) {
    Device& device = openBoth();
    HandoverClient listener(false, true);
    Notices notices;
    Times openings;
    ASSERT_TRUE(device.addClient(listener));
    ASSERT_TRUE(device.isHearing());
    scene.start = [&] {
        openings.note();
        return true;
    };
    openings.note();
    scene.isMicrophoneStill = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2"}; }));
    EXPECT_FALSE(device.isHearing());
    ASSERT_TRUE(openings.await(3));
    EXPECT_GT(openings.between(0, 1), std::chrono::seconds(2));
    EXPECT_GT(openings.between(1, 2), std::chrono::seconds(5)) << "twice as long";
    scene.isMicrophoneStill = false;
    awaitLooks();
    EXPECT_FALSE(device.isHearing()) << "it is open, and has brought nothing";
    EXPECT_EQ(notices.told(), Words{"route 2"});
    scene.request();
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2", "route 1"}; }));
    EXPECT_TRUE(device.isHearing());
    device.removeClient(listener);
}

TEST(HandoverCare, AMicrophoneThatStandsStillBesideSpeakersIsOpenedAnewMoreAndMoreSeldom) {
    Device& device = openBoth();
    HandoverClient both(true, true);
    Notices notices;
    Times openings;
    ASSERT_TRUE(device.addClient(both));
    const Speakers speakers;
    scene.hear = [&] { openings.note(); };
    openings.note();
    scene.isMicrophoneStill = true;
    // Each is an end and a beginning.
    ASSERT_TRUE(openings.await(5));
    EXPECT_GT(openings.between(0, 1), std::chrono::seconds(2));
    EXPECT_GT(openings.between(1, 3), std::chrono::seconds(5)) << "twice as long";
    EXPECT_EQ(notices.told(), Words{"route 2"});
    scene.isMicrophoneStill = false;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2", "route 1"}; }));
    device.removeClient(both);
}

TEST(HandoverCare, AMicrophoneAloneThatGoesIsToldOnceAndOnceThatItIsBack) {
    Device& device = openBoth();
    HandoverClient player(true), listener(false, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(player));
    device.removeClient(player);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    ASSERT_TRUE(device.addClient(listener));
    ASSERT_TRUE(device.isHearing());
    scene.starts = false;
    scene.lose();
    ASSERT_TRUE(eventually([&] { return !notices.told().empty(); }));
    for (int tries = 0; tries < 2; ++tries) {
        scene.noted();
        ASSERT_TRUE(eventually([] { return scene.hasCome("open microphone"); }));
    }
    EXPECT_EQ(notices.told(), Words{"route 2"});
    scene.starts = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2", "route 1"}; }));
    device.removeClient(listener);
}

TEST(HandoverCare, AnInterruptionEndsWithTheServerAlsoForWhoListensToAMissingMicrophone) {
    Device& device = openBoth();
    HandoverClient player(true), listener(false, true);
    Notices notices([&] { device.removeClient(player); });
    ASSERT_TRUE(device.addClient(player));
    scene.isThere = false;
    scene.lose();
    ASSERT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    ASSERT_TRUE(device.addClient(listener));
    scene.starts = false;
    scene.isThere = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began", "ended"}; }));
    device.removeClient(listener);
}

TEST(HandoverCare, AMicrophoneThatThePlugIsPutInForIsOneNewRouteAndWhatWasRenderedIsPlayed) {
    Device& device = openBoth();
    HandoverClient both(true, true);
    Notices notices;
    scene.isMicrophoneThere = false;
    ASSERT_TRUE(device.addClient(both));
    const Speakers speakers;
    scene.noted();
    scene.hasNewMicrophone = true;
    ASSERT_TRUE(eventually([] { return scene.hasCome("start device"); }));
    EXPECT_TRUE(eventually([&] { return !notices.told().empty(); }));
    EXPECT_TRUE(scene.hasCome("finish device"));
    awaitLooks();
    EXPECT_EQ(notices.told(), Words{"route 1"});
    EXPECT_TRUE(device.isHearing());
    device.removeClient(both);
}

TEST(HandoverCare, AnotherMicrophoneIsANewRouteForWhoListensAlone) {
    Device& device = openBoth();
    HandoverClient listener(false, true);
    Notices notices;
    moveTo({}, {"one", 48000, 1, true});
    ASSERT_TRUE(device.addClient(listener));
    const Speakers blocks;
    awaitLooks();
    moveTo({}, {"two", 16000, 1, true});
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1"}; }));
    scene.format.inputChannels = 2;
    moveTo({}, {"three", 48000, 2, true});
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1", "route 1"}; }));
    EXPECT_EQ(device.inputChannels(), 2U) << "opened anew";
    device.removeClient(listener);
}

TEST(HandoverCare, AnotherMicrophoneThatIsPreferredDoesNotCutTheSpeakers) {
    Device& device = openBoth();
    HandoverClient both(true, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(both));
    const Speakers speakers;
    scene.noted();
    ASSERT_TRUE(device.preferMicrophone("headset"));
    EXPECT_EQ(scene.noted(), Words{"choose microphone"}) << "nothing is closed";
    EXPECT_EQ(scene.wish.microphone, "headset");
    EXPECT_TRUE(device.isHearing());
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1"}; }));
    scene.isMicrophoneThere = false;
    ASSERT_TRUE(device.preferMicrophone("none"));
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1", "route 2"}; }));
    awaitLooks();
    EXPECT_EQ(notices.told(), (Words{"route 1", "route 2"}));
    device.removeClient(both);
}

TEST(HandoverCare, AMicrophoneThatIsPreferredWhileNobodyListensIsKeptForWhoDoes) {
    Device& device = openBoth();
    HandoverClient player(true), listener(false, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(player));
    const Speakers speakers;
    scene.noted();
    ASSERT_TRUE(device.preferMicrophone("headset"));
    awaitLooks();
    EXPECT_EQ(scene.noted(), Words{"choose microphone"});
    EXPECT_EQ(notices.told(), Words{});
    device.removeClient(player);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    scene.noted();
    ASSERT_TRUE(device.preferMicrophone("another"));
    EXPECT_EQ(scene.noted(), Words{});
    ASSERT_TRUE(device.addClient(listener));
    EXPECT_EQ(scene.wish.microphone, "another");
    device.removeClient(listener);
}

TEST(HandoverCare, AnotherMicrophoneThatIsPreferredIsANewRouteForWhoListensAlone) {
    Device& device = openBoth();
    HandoverClient listener(false, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(listener));
    const Speakers blocks;
    ASSERT_TRUE(device.preferMicrophone("headset"));
    EXPECT_EQ(scene.wish.microphone, "headset");
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1"}; }));
    awaitLooks();
    EXPECT_EQ(notices.told(), Words{"route 1"});
    device.removeClient(listener);
}

TEST(HandoverCare, AMicrophoneThatIsPreferredBesideSpeakersMayHaveOtherChannels) {
    Device& device = openBoth();
    HandoverClient both(true, true);
    moveTo({}, {"one", 48000, 1, true});
    ASSERT_TRUE(device.addClient(both));
    const Speakers speakers;
    awaitLooks();
    scene.noted();
    ASSERT_TRUE(device.preferMicrophone("two"));
    moveTo({}, {"two", 48000, 2, false});
    awaitLooks();
    EXPECT_EQ(scene.noted(), Words{"choose microphone"}) << "the server converts";
    EXPECT_EQ(device.inputChannels(), 1U);
    device.removeClient(both);
}

}  // namespace
