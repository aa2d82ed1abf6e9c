// What the device asks a sound server for, and what becomes of what it brings.

#include "platform/cubeb/CubebDevice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/cubeb/MadeUpServer.h"

namespace {

using tqcommon::DriftFifo;
using tqcubeb::CubebDevice;
using tqtest::theServer;

class Host final : public tqplatform::HeardHost {
  public:
    void renderHeard(const tqplatform::BlockRequest& block) noexcept override {
        heard.clear();
        for (UInt32 frame = 0; frame < block.heard.frames(); ++frame) {
            heard.push_back(block.heard.at(0, frame));
        }
    }
    void lostHeard() noexcept override { ++losses; }

    std::vector<float> heard;  ///< with the last block; empty where nobody listens
    int losses = 0;
};

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

TEST(CubebDevice, AMicrophoneThatFailedIsOpenedAgain) {
    Host host;
    const auto device = playing(host);
    ASSERT_NE(device, nullptr);
    theServer.microphoneStarts = false;
    device->hear(true);
    EXPECT_FALSE(device->isHearing());
    theServer.microphoneStarts = true;
    device->hear(true);
    ASSERT_TRUE(device->isHearing());
    cubeb_stream* const microphone = theServer.microphone;
    microphone->state(microphone, microphone->self, CUBEB_STATE_ERROR);
    EXPECT_FALSE(device->isHearing());
    device->hear(false);
    device->hear(true);
    EXPECT_TRUE(device->isHearing());
    EXPECT_EQ(host.losses, 0) << "the speakers go on";
}

TEST(CubebDevice, AMicrophoneThatIsPluggedInLaterHasTheDeviceOpenedAnew) {
    Host host;
    theServer.microphones = 0;
    const auto device = playing(host);
    ASSERT_NE(device, nullptr);
    device->hear(true);
    EXPECT_EQ(host.losses, 0);
    theServer.microphones = 1;
    device->hear(true);
    EXPECT_EQ(host.losses, 1);
}

TEST(CubebDevice, WhoListensAgainHearsNothingOfTheTimeBefore) {
    Host host;
    const auto device = playing(host);
    ASSERT_NE(device, nullptr);
    device->hear(true);
    theServer.hear(std::vector<float>(8192, 0.25F));
    device->hear(false);
    device->hear(true);
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
    device->hear(true);
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
