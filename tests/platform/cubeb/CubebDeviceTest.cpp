// What the device asks a sound server for, and what becomes of what it brings.

#include "platform/cubeb/CubebDevice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/cubeb/MadeUpServer.h"
#include "support/ProgramRunner.h"

namespace {

using tqcommon::DriftFifo;
using tqcubeb::CubebDevice;
using tqtest::theServer;

class Host final : public tqplatform::HeardHost {
  public:
    void renderHeard(const tqplatform::BlockRequest& block) noexcept override {
        times = block;
        heard.clear();
        for (UInt32 frame = 0; frame < block.heard.frames(); ++frame) {
            heard.push_back(block.heard.at(0, frame));
        }
    }
    void lostHeard() noexcept override { ++losses; }
    bool isWantedAgain() noexcept override { return isWanted.load(); }

    std::vector<float> heard;  ///< with the last block; empty where nobody listens
    tqplatform::BlockRequest times{.frames = 0, .hostTime = 0};  ///< of that block
    int losses = 0;
    std::atomic<bool> isWanted{false};  ///< while the device plays out
};

UInt64 now() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<UInt64>(std::chrono::nanoseconds(now).count());
}

std::unique_ptr<CubebDevice> playing(Host& host, const tqplatform::HeardWish& wish = {}) {
    auto device = std::make_unique<CubebDevice>("");
    if (!device->open(host, wish) || !device->start()) {
        return nullptr;
    }
    return device;
}

TEST(CubebDevice, ACardIsNotTakenWhileTheServerThatWasPlayedOnIsAway) {
    Host host;
    ASSERT_NE(playing(host), nullptr);
    theServer.answers["pulse"] = false;
    theServer.reached.clear();
    EXPECT_EQ(playing(host), nullptr);
    EXPECT_EQ(theServer.reached, (std::vector<std::string>{"pulse"}));
    theServer.answers["pulse"] = true;
    EXPECT_NE(playing(host), nullptr);
}

TEST(CubebDevice, TheRateOfAServerIsBounded) {
    Host host;
    theServer.rate = 4'000'000'000;
    const auto device = playing(host);
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(theServer.openedRates, (std::vector<uint32_t>{192000}));
}

TEST(CubebDevice, ItsLatencyIsAllThatIsInHand) {
    Host host;
    CubebDevice device("");
    const auto format = device.open(host, {.seconds = 0.02});
    ASSERT_TRUE(format);
    EXPECT_EQ(format->usualFrames, 960U);
    EXPECT_EQ(format->outputLatency, 1920U) << "two requests";
    EXPECT_EQ(format->inputLatency, 960U) << "what comes at a time, and as much between the two";
}

TEST(CubebDevice, LessThanTheServersLeastIsNotKeptInHand) {
    Host host;
    CubebDevice device("");
    const auto format = device.open(host, {.seconds = 0.005});
    ASSERT_TRUE(format);
    EXPECT_EQ(format->usualFrames, 512U);
    EXPECT_EQ(format->outputLatency, 1024U);
    CubebDevice listening("");
    EXPECT_EQ(listening.open(host, {.seconds = 0.001, .isToPlay = false})->usualFrames, 256U);
}

TEST(CubebDevice, AMicrophoneAloneBringsAsMuchAtATimeAsIsPreferred) {
    Host host;
    for (const auto& [seconds, frames] : {std::pair{0.0, 512U}, std::pair{0.02, 960U}}) {
        CubebDevice device("");
        const auto format = device.open(host, {.seconds = seconds, .isToPlay = false});
        ASSERT_TRUE(format && device.start());
        EXPECT_EQ(format->usualFrames, frames);
        EXPECT_EQ(format->inputLatency, 4 * frames);
        EXPECT_EQ(theServer.microphoneLatency, 4 * frames) << "a quarter comes at a time";
    }
}

TEST(CubebDevice, OnJackThePeriodsAreTheServersWhateverIsPreferred) {
    theServer.answers = {{"jack", true}};
    Host host;
    CubebDevice device("jack");
    const auto format = device.open(host, {.seconds = 0.01});
    ASSERT_TRUE(format);
    EXPECT_EQ(format->usualFrames, 1024U);
    EXPECT_EQ(format->outputLatency, 2048U) << "one is played while the next is made";
    CubebDevice listening("jack");
    const auto alone =
        listening.open(host, {.sampleRate = 24000, .seconds = 0.01, .isToPlay = false});
    ASSERT_TRUE(alone);
    EXPECT_EQ(alone->usualFrames, 512U) << "at the rate of the program";
    EXPECT_EQ(alone->inputLatency, 512U);
}

TEST(CubebDevice, WhatIsShorterThanTheServersLeastIsOfOneLength) {
    Host host;
    theServer.microphones = 0;
    CubebDevice device("");
    ASSERT_TRUE(device.open(host, {}));
    EXPECT_TRUE(device.hasLengthOf(0));
    EXPECT_TRUE(device.hasLengthOf(0.005));
    EXPECT_TRUE(device.hasLengthOf(0.01));
    EXPECT_FALSE(device.hasLengthOf(0.02));
    CubebDevice longer("");
    ASSERT_TRUE(longer.open(host, {.seconds = 0.02}));
    EXPECT_TRUE(longer.hasLengthOf(0.02));
    EXPECT_FALSE(longer.hasLengthOf(0.03));
    EXPECT_FALSE(longer.hasLengthOf(0));
    CubebDevice longest("");
    ASSERT_TRUE(longest.open(host, {.seconds = 1}));
    EXPECT_TRUE(longest.hasLengthOf(2)) << "there is a most, too";
}

TEST(CubebDevice, WhatIsInHandBesideAMicrophoneIsOfItsLengthToo) {
    Host host;
    CubebDevice device("");
    ASSERT_TRUE(device.open(host, {}));
    EXPECT_FALSE(device.hasLengthOf(0.005)) << "who prefers one wants more in hand";
    CubebDevice preferred("");
    ASSERT_TRUE(preferred.open(host, {.seconds = 0.005}));
    EXPECT_TRUE(preferred.hasLengthOf(0.01));
    EXPECT_FALSE(preferred.hasLengthOf(0));
}

TEST(CubebDevice, AMicrophoneAloneIsOfTheLengthThatItBrings) {
    Host host;
    CubebDevice device("");
    ASSERT_TRUE(device.open(host, {.isToPlay = false}));
    EXPECT_FALSE(device.hasLengthOf(0.005));
    EXPECT_TRUE(device.hasLengthOf(512 / 48000.0)) << "as many as without a wish";
    EXPECT_FALSE(device.hasLengthOf(0.02));
}

TEST(CubebDevice, OnJackEveryLengthIsTheServers) {
    theServer.answers = {{"jack", true}};
    Host host;
    for (const bool isToPlay : {true, false}) {
        CubebDevice device("jack");
        ASSERT_TRUE(device.open(host, {.isToPlay = isToPlay}));
        for (const Float64 seconds : {0.0, 0.001, 0.02, 0.1}) {
            EXPECT_TRUE(device.hasLengthOf(seconds)) << seconds;
        }
    }
}

TEST(CubebDevice, ARateIsTriedWithoutPlaying) {
    Host host;
    theServer.refusedRate = 32000;
    for (const auto& [rate, isTaken] : {std::pair{32000, false}, std::pair{22050, true}}) {
        CubebDevice device("");
        ASSERT_TRUE(device.open(host, {.sampleRate = static_cast<Float64>(rate)}));
        EXPECT_EQ(device.accepts(), isTaken) << rate;
    }
    EXPECT_EQ(theServer.speakers, nullptr) << "it is held no longer";
    EXPECT_EQ(host.times.frames, 0U);
}

TEST(CubebDevice, AMicrophoneThatFailedIsOpenedAgain) {
    Host host;
    const auto device = playing(host);
    ASSERT_NE(device, nullptr);
    theServer.microphoneStarts = false;
    EXPECT_TRUE(device->hear(true));
    EXPECT_FALSE(device->isHearing());
    theServer.microphoneStarts = true;
    EXPECT_TRUE(device->hear(true));
    ASSERT_TRUE(device->isHearing());
    cubeb_stream* const microphone = theServer.microphone;
    microphone->state(microphone, microphone->self, CUBEB_STATE_ERROR);
    EXPECT_FALSE(device->isHearing());
    EXPECT_TRUE(device->hear(false));
    EXPECT_TRUE(device->hear(true));
    EXPECT_TRUE(device->isHearing());
    EXPECT_EQ(host.losses, 0) << "the speakers go on";
}

TEST(CubebDevice, AMicrophoneThatIsPluggedInLaterHasTheDeviceOpenedAnew) {
    Host host;
    theServer.microphones = 0;
    const auto device = playing(host);
    ASSERT_NE(device, nullptr);
    EXPECT_TRUE(device->hear(true));
    theServer.microphones = 1;
    EXPECT_FALSE(device->hear(true));
    EXPECT_EQ(host.losses, 0) << "the speakers go on until then";
}

TEST(CubebDevice, TheChannelsAreThoseOfTheMicrophoneThatIsOpened) {
    theServer.microphones = 2;
    Host host;
    CubebDevice device("");
    const auto format = device.open(host, {});
    ASSERT_TRUE(format && device.start() && device.hear(true));
    EXPECT_EQ(format->inputChannels, 1U) << "the default's";
    EXPECT_EQ(theServer.openedChannels, 1U);
    CubebDevice named("");
    EXPECT_EQ(named.open(host, {.microphone = "another"})->inputChannels, 2U);
}

TEST(CubebDevice, TheMonitorOfSpeakersIsNoMicrophoneUnlessItIsNamed) {
    theServer.defaultIsMonitor = true;
    Host host;
    const auto channelsOf = [&](const tqplatform::HeardWish& wish) {
        CubebDevice device("");
        return device.open(host, wish)->inputChannels;
    };
    EXPECT_EQ(channelsOf({}), 0U);
    EXPECT_EQ(channelsOf({.microphone = "speakers.monitor"}), 1U);
    EXPECT_EQ(playing(host, {.isToPlay = false}), nullptr) << "there is nothing to listen to";
    const auto device = playing(host);
    ASSERT_TRUE(device && device->hear(true));
    EXPECT_FALSE(device->isHearing());
    theServer.defaultIsMonitor = false;
    EXPECT_FALSE(device->hear(true)) << "one was plugged in";
}

TEST(CubebDevice, ALiveSourceOfTheRecorderIsNoMicrophone) {
    EXPECT_TRUE(tqcubeb::isOfPrograms("tqaudiorecord.game.mix"));
    EXPECT_TRUE(tqcubeb::isOfPrograms("speakers.monitor"));
    EXPECT_FALSE(tqcubeb::isOfPrograms("alsa_input.usb-headset.mono-fallback"));
    EXPECT_FALSE(tqcubeb::isOfPrograms(""));
}

TEST(CubebDevice, AnotherMicrophoneIsHeardWhereTheDefaultIsAMonitor) {
    theServer.defaultIsMonitor = true;
    theServer.microphones = 2;
    Host host;
    const auto device = playing(host);
    ASSERT_TRUE(device && device->hear(true));
    EXPECT_TRUE(device->isHearing());
    EXPECT_EQ(theServer.openedChannels, 2U);
    ASSERT_NE(theServer.openedMicrophone, nullptr);
    EXPECT_STREQ(static_cast<const char*>(theServer.openedMicrophone), "another");
}

TEST(CubebDevice, AnotherMicrophoneIsChosenBesideSpeakersThatGoOn) {
    theServer.microphones = 2;
    Host host;
    const auto device = playing(host);
    ASSERT_TRUE(device && device->hear(true));
    cubeb_stream* const speakers = theServer.speakers;
    ASSERT_TRUE(device->hear(false));
    device->choose("another");
    ASSERT_TRUE(device->hear(true));
    EXPECT_TRUE(device->isHearing());
    EXPECT_STREQ(static_cast<const char*>(theServer.openedMicrophone), "another");
    EXPECT_EQ(theServer.openedChannels, 1U) << "as programs were told";
    EXPECT_EQ(theServer.speakers, speakers);
    EXPECT_EQ(host.losses, 0);
}

TEST(CubebDevice, ADefaultThatIsAMonitorIsNotListedAsTheDefault) {
    theServer.defaultIsMonitor = true;
    theServer.microphones = 2;
    std::vector<std::pair<std::string, bool>> listed;
    CubebDevice("").list(
        [](void* all, const TQDeviceDescription* one) {
            static_cast<decltype(listed)*>(all)->emplace_back(one->name, one->isDefault != 0);
        },
        &listed);
    EXPECT_EQ(listed, (decltype(listed){{"speakers.monitor", false}, {"another", false}}));
}

TEST(CubebDevice, AMicrophoneThatTheServerReplacesByTheSpeakersIsHeardNoMore) {
    Host host;
    const auto device = playing(host);
    ASSERT_TRUE(device && device->hear(true));
    theServer.hear(std::vector<float>(4096, 0.5F));
    theServer.place.microphone.name = "speakers.monitor";
    theServer.hear(std::vector<float>(128, 0.25F));
    EXPECT_FALSE(device->isHearing());
    EXPECT_FALSE(device->place().microphone.isKnown());
    std::vector<float> played(2 * 8192);
    theServer.play(played);
    EXPECT_EQ(std::count(host.heard.begin(), host.heard.end(), 0.25F), 0);
    EXPECT_EQ(host.losses, 0) << "the speakers go on";
}

TEST(CubebDevice, AMicrophoneAloneThatTheServerReplacesByTheSpeakersIsLost) {
    Host host;
    const auto device = playing(host, {.isToPlay = false});
    ASSERT_NE(device, nullptr);
    theServer.hear(std::vector<float>(128, 0.5F));
    EXPECT_EQ(host.heard.size(), 128U);
    host.heard.clear();
    theServer.place.microphone.name = "speakers.monitor";
    theServer.hear(std::vector<float>(128, 0.25F));
    theServer.hear(std::vector<float>(128, 0.25F));
    EXPECT_EQ(host.heard, std::vector<float>{});
    EXPECT_EQ(host.losses, 1);
    EXPECT_FALSE(device->isHearing());
}

TEST(CubebDevice, AMonitorThatIsNamedIsHeard) {
    theServer.defaultIsMonitor = true;
    theServer.place.microphone.name = "speakers.monitor";
    Host host;
    const auto device = playing(host, {.microphone = "speakers.monitor", .isToPlay = false});
    ASSERT_NE(device, nullptr);
    theServer.hear(std::vector<float>(128, 0.5F));
    EXPECT_EQ(host.heard, std::vector<float>(128, 0.5F));
    EXPECT_TRUE(device->place().microphone.isKnown());
    EXPECT_EQ(host.losses, 0);
}

TEST(CubebDevice, AMicrophoneThatStandsStillIsNotOpenUntilItBringsSomething) {
    Host host;
    const auto device = playing(host);
    ASSERT_TRUE(device && device->hear(true));
    EXPECT_TRUE(device->isHearing()) << "it may take long to wake";
    const auto brings = [&] {
        theServer.hear(std::vector<float>(128, 0.5F));
        return device->isHearing();
    };
    const auto standsStill = [&] { return !device->isHearing(); };
    EXPECT_TRUE(tqtest::eventually(brings));
    EXPECT_TRUE(tqtest::eventually(standsStill));
    EXPECT_TRUE(tqtest::eventually(brings)) << "it went on by itself";
    EXPECT_TRUE(tqtest::eventually(standsStill));
    ASSERT_TRUE(device->hear(false) && device->hear(true));
    EXPECT_FALSE(device->isHearing()) << "opened anew, it stands still as before";
    EXPECT_TRUE(tqtest::eventually(brings));
    EXPECT_EQ(host.losses, 0) << "the speakers go on";
}

TEST(CubebDevice, AMicrophoneThatIsOpenAndBringsNothingIsStillAndOneThatFailedIsNot) {
    for (const bool isToPlay : {true, false}) {
        Host host;
        const auto device = playing(host, {.isToPlay = isToPlay});
        ASSERT_TRUE(device);
        EXPECT_FALSE(device->isStill()) << "nobody listens, or it may take long to wake";
        ASSERT_TRUE(device->hear(true));
        EXPECT_TRUE(tqtest::eventually([&] { return device->isStill(); }));
        theServer.hear(std::vector<float>(128, 0.5F));
        EXPECT_TRUE(tqtest::eventually([&] {
            theServer.hear(std::vector<float>(128, 0.5F));
            return !device->isStill() && device->isHearing();
        }));
        cubeb_stream* const microphone = theServer.microphone;
        microphone->state(microphone, microphone->self, CUBEB_STATE_ERROR);
        EXPECT_FALSE(device->isStill());
        EXPECT_FALSE(device->isHearing());
    }
}

TEST(CubebDevice, AJackServerThatGoesIsALossThoughTheLibrarySaysNothing) {
    theServer.answers = {{"jack", true}};
    for (const bool isToPlay : {true, false}) {
        Host host;
        auto device = playing(host, {.isToPlay = isToPlay});
        ASSERT_TRUE(device && theServer.goneJack);
        theServer.goneJack();
        EXPECT_EQ(host.losses, 1);
        EXPECT_FALSE(device->isHearing());
        device.reset();
        EXPECT_FALSE(theServer.goneJack) << "nobody listens any more";
    }
    theServer.answers = {{"alsa", true}};
    Host host;
    CubebDevice onAlsa("alsa");
    ASSERT_TRUE(onAlsa.open(host, {}) && onAlsa.start());
    EXPECT_FALSE(theServer.goneJack) << "it has no such server";
}

TEST(CubebDevice, AJackServerThatGoesBeforeAnythingIsPlayedIsKnownByTheStart) {
    theServer.answers = {{"jack", true}};
    Host host;
    CubebDevice device("jack");
    ASSERT_TRUE(device.open(host, {}));
    ASSERT_TRUE(theServer.goneJack) << "a client that is made later may find no server";
    theServer.goneJack();
    EXPECT_EQ(host.losses, 1);
}

TEST(CubebDevice, WhileTheMicrophoneIsAwayThereIsSilenceInAsManyChannels) {
    theServer.microphones = 0;
    Host host;
    CubebDevice never("");
    EXPECT_EQ(never.open(host, {})->inputChannels, 0U) << "there never was one";
    theServer.microphones = 1;
    CubebDevice before("");
    EXPECT_EQ(before.open(host, {})->inputChannels, 1U);
    theServer.microphones = 0;
    CubebDevice away("");
    const auto format = away.open(host, {});
    ASSERT_TRUE(format && away.start() && away.hear(true));
    EXPECT_EQ(format->inputChannels, 1U);
    EXPECT_FALSE(away.isHearing());
    std::vector<float> played(2 * 512);
    theServer.play(played);
    EXPECT_EQ(host.heard, std::vector<float>{}) << "which is silence";
    theServer.microphones = 1;
    EXPECT_FALSE(away.hear(true)) << "it is opened anew when one is plugged in";
}

TEST(CubebDevice, WhatIsPlayedOutGoesOnWhenItIsWantedAgain) {
    Host host;
    const auto device = playing(host);
    ASSERT_TRUE(device);
    std::vector<float> played(2 * 32);
    theServer.play(played);
    host.times.frames = 0;
    std::atomic<bool> goesOn{false};
    std::thread keeper([&] { goesOn = device->finish(); });
    const bool isSilent = tqtest::eventually([&] {
        host.times.frames = 0;
        theServer.play(played);
        return host.times.frames == 0;
    });
    host.isWanted = true;
    keeper.join();
    EXPECT_TRUE(isSilent && goesOn);
    theServer.play(played);
    EXPECT_EQ(host.times.frames, 32U) << "the program is asked again";
}

TEST(CubebDevice, WhatHasBeenPlayedOutDoesNotGoOn) {
    Host host;
    const auto device = playing(host);
    ASSERT_TRUE(device);
    std::atomic<bool> goesOn{true};
    std::thread keeper([&] { goesOn = device->finish(); });
    std::vector<float> played(2 * 4096);
    const bool isOver = tqtest::eventually([&] {
        cubeb_stream* const stream = theServer.speakers;
        return stream->each(stream, stream->self, nullptr, played.data(), 4096) == 0;
    });
    host.isWanted = true;
    keeper.join();
    EXPECT_TRUE(isOver);
    EXPECT_FALSE(goesOn) << "the server has been told that nothing more comes";
}

TEST(CubebDevice, ARequestThatComesWhileItEndsIsAnswered) {
    Host host;
    auto device = playing(host);
    ASSERT_NE(device, nullptr);
    ASSERT_TRUE(device->hear(true));
    theServer.playsOnWhileItEnds = true;
    device.reset();
    EXPECT_EQ(host.times.frames, 512U);
}

TEST(CubebDevice, WhatIsHeardBesideSpeakersHasTheTimeAtWhichItWasHeard) {
    Host host;
    const auto device = playing(host);
    ASSERT_NE(device, nullptr);
    ASSERT_TRUE(device->hear(true));
    std::vector<float> played(2 * 512);
    theServer.play(played);
    UInt64 heardAt = 0;
    for (int block = 0; block < 20; ++block) {
        const UInt64 before = now();
        theServer.hear(std::vector<float>(512, 0.5F));
        const UInt64 after = now();
        if (block == 0) {
            continue;
        }
        theServer.play(played);
        EXPECT_GE(host.times.heardTime, heardAt);
        heardAt = host.times.heardTime;
        EXPECT_LE(heardAt, after) << "the past";
        EXPECT_LT(before - heardAt, UInt64{1'000'000'000}) << "but not for long";
        EXPECT_GT(host.times.hostTime, after) << "is still to be played";
    }
}

TEST(CubebDevice, WhoListensAgainHearsNothingOfTheTimeBefore) {
    Host host;
    const auto device = playing(host);
    ASSERT_NE(device, nullptr);
    ASSERT_TRUE(device->hear(true));
    theServer.hear(std::vector<float>(8192, 0.25F));
    ASSERT_TRUE(device->hear(false) && device->hear(true));
    theServer.hear(std::vector<float>(128, 0.5F));
    std::vector<float> played(2 * 512);
    for (int block = 0; block < 8; ++block) {
        theServer.play(played);
        EXPECT_EQ(std::count(host.heard.begin(), host.heard.end(), 0.25F), 0);
        theServer.hear(std::vector<float>(512, 0.5F));
    }
    EXPECT_EQ(host.heard.back(), 0.5F);
}

TEST(CubebDevice, ALargeRequestIsHeardWhole) {
    Host host;
    const auto device = playing(host);
    ASSERT_NE(device, nullptr);
    ASSERT_TRUE(device->hear(true));
    std::vector<float> played(2 * 8192);
    theServer.play(played);
    theServer.hear(std::vector<float>(16384, 0.5F));
    theServer.play(played);
    EXPECT_EQ(host.heard, std::vector<float>(8192, 0.5F));
}

TEST(DriftFifo, FlowsAtTheLowestRateWithTheLargestRequests) {
    DriftFifo fifo(1, 8000, 2048);
    const std::vector<float> heard(2048, 0.5F);
    std::vector<float> played(8192);
    for (int block = 0; block < 4; ++block) {
        for (int piece = 0; piece < 4; ++piece) {
            fifo.write(heard.data(), 2048);
        }
        fifo.read(played.data(), 8192);
    }
    EXPECT_EQ(played, std::vector<float>(8192, 0.5F));
}

}  // namespace
