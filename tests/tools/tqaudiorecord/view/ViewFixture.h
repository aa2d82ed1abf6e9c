#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "tools/tqaudiorecord/output/Sound.h"
#include "view/Observer.h"

namespace tqrecorder::test {

/// A process that plays, as it is observed.
class ViewFixture : public testing::Test {
  protected:
    void play(double amplitudeOfTrack = 1) {
        const auto bytes = mixTone(441, 4410);
        observer_.processBegan(game_);
        observer_.block(game_, mixBlock(bytes, time_));
        if (amplitudeOfTrack > 0) {
            observer_.block(game_, {1, "unit 0x1", kMixFormat, time_, bytes});
        }
        time_ += 100'000;
        const std::array<TrackNumbers, 1> numbers{{{1, "unit 0x1", kMixFormat, 250, 1000}}};
        observer_.numbers(game_, numbers, facts_, 0.125);
    }
    Observer observer_;
    const Process game_ = process(1, "game", true);
    HostFacts facts_{true, false, 2, 1, 1, 10, 10};
    std::uint64_t time_ = 1'000'000;
};

}  // namespace tqrecorder::test
