#include "device/HostTimes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

using tqplatform::BlockRequest;
using tqplatform::HostTimes;

constexpr double kRate = 48000;
constexpr UInt32 kClocksBlock = 512;  ///< the clock's
constexpr UInt32 kInHand = 1200;      ///< the device's
constexpr UInt32 kRequest = 300;      ///< the same, once it plays
constexpr UInt64 kBegin = 1000'000'000'000;

UInt64 lengthOf(double frames) {
    return static_cast<UInt64>(std::llround(frames * 1e9 / kRate));
}

/// A clock and a device in turn, as they ask and stamp.
class Turns {
  public:
    /// The clock, from `begin` on or from now on.
    void clock(UInt64 begin, double seconds) {
        const UInt64 end = now_ + lengthOf(seconds * kRate);
        // What is rendered at one time is played a period later.
        now_ = std::max(now_, begin - std::min(begin, lengthOf(kClocksBlock)));
        for (; now_ < end; now_ += lengthOf(kClocksBlock)) {
            BlockRequest block{.frames = kClocksBlock, .hostTime = now_ + lengthOf(kClocksBlock)};
            times_.ofClock(block, kRate);
            take(block);
        }
        // It is ended in the middle of a period.
        now_ = end;
    }
    /// The device, which fills up what it has in hand at once, in so many pieces. Gives when the
    /// clock is to begin.
    UInt64 device(double seconds, UInt32 pieces = 1) {
        const UInt64 end = now_ + lengthOf(seconds * kRate);
        const auto request = [this](UInt32 frames) {
            BlockRequest block{.frames = frames, .hostTime = now_ + lengthOf(kInHand - frames)};
            times_.ofDevice(block, kRate);
            take(block);
        };
        for (UInt32 piece = 0; piece < pieces; ++piece) {
            request(kInHand / pieces);
        }
        for (now_ += lengthOf(kRequest); now_ < end; now_ += lengthOf(kRequest)) {
            request(kRequest);
        }
        now_ = end;
        return times_.deviceIsOver();
    }
    [[nodiscard]] double elapsed() const { return static_cast<double>(now_ - kBegin) / 1e9; }
    /// Seconds of sound.
    [[nodiscard]] double rendered() const { return frames_ / kRate; }
    /// The most by which a stamp was away from where the frames before it end, in seconds.
    [[nodiscard]] double mostAway() const { return mostAway_; }

  private:
    void take(const BlockRequest& block) {
        EXPECT_GE(block.hostTime, last_);
        last_ = block.hostTime;
        const double stamp = static_cast<double>(block.hostTime - kBegin) / 1e9;
        mostAway_ = std::max(mostAway_, std::abs(stamp - rendered()));
        frames_ += block.frames;
    }

    HostTimes times_;
    UInt64 now_ = kBegin;
    UInt64 last_ = 0;
    double frames_ = 0;
    double mostAway_ = 0;
};

constexpr double kInHandSeconds = kInHand / kRate;

TEST(HostTimes, AsMuchIsRenderedAsTimePassesThoughTheDeviceIsOpenedAgainAndAgain) {
    Turns turns;
    UInt64 begin = 0;
    for (int turn = 0; turn < 100; ++turn) {
        // So that they meet in all places of a period.
        turns.clock(begin, 0.5 + 0.0013 * turn);
        begin = turns.device(0.7 + 0.0007 * turn, turn % 2 == 0 ? 1 : 4);
    }
    EXPECT_NEAR(turns.rendered(), turns.elapsed(), 2 * kInHandSeconds);
    EXPECT_LE(turns.mostAway(), 2 * kInHandSeconds) << "stamps and frames agree all the time";
}

TEST(HostTimes, ADeviceThatIsOpenedAtOnceBehindAnotherIsTakenIntoAccount) {
    Turns turns;
    turns.clock(0, 1);
    UInt64 begin = 0;
    for (int turn = 0; turn < 10; ++turn) {
        begin = turns.device(0.5);
    }
    turns.clock(begin, 2);
    EXPECT_NEAR(turns.rendered(), turns.elapsed(), 2 * kInHandSeconds);
}

}  // namespace
