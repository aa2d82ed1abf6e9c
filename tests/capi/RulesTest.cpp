#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <numeric>
#include <string>
#include <vector>

#include "CapturePathFixture.h"
#include "tq_capture.h"

// The rules that recordings may ask for.

namespace {

using testing::ElementsAre;
using testing::IsNull;
using testing::Not;

struct Rules : CapturePath {
    void TearDown() override {
        set(0, 0);
        CapturePath::TearDown();
    }
    static void set(std::uint32_t freesOwn, std::uint32_t endsDisposed,
                    std::uint32_t keepsFloat = 0) {
        tq_capture_rules rules{};
        rules.size = sizeof rules;
        rules.frees_own_number_only = freesOwn;
        rules.ends_disposed_units = endsDisposed;
        rules.keeps_float_tracks = keepsFloat;
        EXPECT_EQ(tq_capture_set_rules(&rules), TQ_OK);
    }
    /// What a program does that leaves the rest to the platform.
    static void disposeInitialised(HostUnit& host) {
        EXPECT_EQ(AudioComponentInstanceDispose(host.unit()), 0);
    }
};

/// The number of the third unit, disposed of, and those of two units that come after it.
std::vector<int> numbersAfterTheThirdHasGone() {
    HostUnit first;
    HostUnit second;
    {
        HostUnit third;
        third.prepare();
        third.uninitialize();
    }
    HostUnit fourth;
    HostUnit fifth;
    return {fourth.object()->trackId(), fifth.object()->trackId()};
}

TEST_F(Rules, ByDefaultAReleasedNumberIsTheMaskOfWhatBecomesFree) {
    EXPECT_THAT(numbersAfterTheThirdHasGone(), ElementsAre(1, 2));
}

TEST_F(Rules, ThatANumberFreesItselfAloneHolds) {
    set(1, 0);
    EXPECT_THAT(numbersAfterTheThirdHasGone(), ElementsAre(3, 4));
}

TEST_F(Rules, WithoutTheirEndAnEighthOfTheDisposedUnitsGetsNoNumber) {
    // Kept, because what ends a HostUnit uninitialises.
    std::array<HostUnit, 7> hosts;
    for (HostUnit& host : hosts) {
        host.play();
        disposeInitialised(host);
    }
    const HostUnit eighth;
    EXPECT_THAT(eighth.object(), IsNull());
}

TEST_F(Rules, DisposedUnitsAreEndedForEver) {
    set(1, 1);
    ASSERT_TRUE(startCapture());
    for (int i = 0; i < 100; ++i) {
        HostUnit passing;
        passing.play();
        ASSERT_THAT(passing.object(), Not(IsNull())) << i;
        ASSERT_TRUE(passing.object()->isCapturing()) << i;
        disposeInitialised(passing);
        ASSERT_THAT(passing.object(), IsNull()) << i;
    }
    EXPECT_EQ(manager().trackId(), 0);
}

TEST_F(Rules, AUnitWithoutACaptureObjectIsDisposedOfUntouched) {
    set(1, 1);
    HostUnit host;
    host.prepare();
    host.uninitialize();
    const std::size_t before = platform.count("AudioUnitUninitialize");
    disposeInitialised(host);
    EXPECT_EQ(platform.count("AudioUnitUninitialize"), before);
}

TEST_F(Rules, WhatEndsDisposedUnitsCanBeSwitchedOffAgain) {
    set(0, 1);
    set(0, 0);
    HostUnit host;
    host.play();
    disposeInitialised(host);
    EXPECT_THAT(host.object(), Not(IsNull()));
}

TEST_F(Rules, AUnitThatIsNotWantedPlaysAndIsInNeitherMixNorTracks) {
    tq_capture_rules rules{};
    rules.size = sizeof rules;
    std::vector<std::string> asked;
    rules.context = &asked;
    rules.is_unit_wanted = [](void* context, const char* name) -> std::uint32_t {
        static_cast<std::vector<std::string>*>(context)->emplace_back(name);
        return std::string(name) == "unit-2" ? 0 : 1;
    };
    ASSERT_EQ(tq_capture_set_rules(&rules), TQ_OK);
    ASSERT_TRUE(startCapture());
    HostUnit wanted;
    wanted.play();
    HostUnit unwanted;
    unwanted.play();
    EXPECT_TRUE(wanted.object()->isCapturing());
    EXPECT_FALSE(unwanted.object()->isCapturing());
    EXPECT_THAT(asked, ElementsAre("unit-1", "unit-2"));
    std::map<std::string, tq_unit_reason> reasons;
    const auto learn = [](void* context, const tq_unit* unit) {
        (*static_cast<std::map<std::string, tq_unit_reason>*>(context))[unit->name] = unit->reason;
    };
    ASSERT_EQ(tq_capture_units(learn, &reasons), TQ_OK);
    EXPECT_EQ(reasons.at("unit-1"), TQ_UNIT_CAPTURED);
    EXPECT_EQ(reasons.at("unit-2"), TQ_UNIT_EXCLUDED);
    pump(10);
    EXPECT_FALSE(listener->posts().empty());
    for (const CaptureListener::Block& block : listener->posts()) {
        EXPECT_EQ(block.info.trackId(), 1);
    }
    stopCapture();
}

TEST_F(Rules, BadInputIsRefused) {
    EXPECT_EQ(tq_capture_set_rules(nullptr), TQ_ERROR_NULL);
    const tq_capture_rules none{};
    EXPECT_EQ(tq_capture_set_rules(&none), TQ_ERROR_SIZE);
}

TEST(RulesWithoutHooks, AreRefused) {
    tq_capture_rules rules{};
    rules.size = sizeof rules;
    EXPECT_EQ(tq_capture_set_rules(&rules), TQ_ERROR_HOOKS_NOT_WORKING);
}

/// Blocks of tracks and of the mix: what each sample is, and the first one of the last block.
struct FloatSound {
    std::vector<std::size_t> bits;
    double sample = 0;
    std::int16_t mix = 0;
    std::uint64_t frames = 0;
};

/// A unit of 32-bit float plays 0.25 for 40 slices.
FloatSound hearFloat(CaptureListener& listener, HostUnit& host, const std::function<void()>& pump) {
    host.sound.format = stream_formats::floatInterleaved(48000, 2);
    host.play();
    pump();
    FloatSound heard;
    for (const CaptureListener::Block& block : listener.posts()) {
        heard.bits.push_back(static_cast<std::size_t>(block.info.bitsPerChannel()));
        heard.frames += block.buffers[0].size() * 8 / heard.bits.back() / 2;
        if (heard.bits.back() == 32) {
            float sample = 0;
            std::memcpy(&sample, block.buffers[0].data() + 400, sizeof sample);
            heard.sample = static_cast<double>(sample);
        } else {
            heard.sample = block.samples()[100] / 32767.0;
        }
    }
    heard.mix = listener.mixes().back().samples()[100];
    return heard;
}

TEST_F(Rules, ByDefaultTracksOfFloatComeAs16BitIntegers) {
    ASSERT_TRUE(startCapture());
    HostUnit host;
    const FloatSound heard = hearFloat(*listener, host, [&] { pump(40); });
    EXPECT_THAT(heard.bits, testing::Each(16U));
    EXPECT_NEAR(heard.sample, 0.25, 1e-4);
    stopCapture();
}

TEST_F(Rules, ThatTracksOfFloatStayFloatHoldsAndLeavesTheMixAsItIs) {
    set(0, 0, 1);
    ASSERT_TRUE(startCapture());
    HostUnit host;
    const FloatSound heard = hearFloat(*listener, host, [&] { pump(40); });
    EXPECT_THAT(heard.bits, testing::Each(32U));
    EXPECT_DOUBLE_EQ(heard.sample, 0.25);
    EXPECT_NEAR(heard.mix, 8191, 2);
    // All but what waits for the next slice.
    EXPECT_GE(heard.frames, 37U * kFrames);
    stopCapture();
    tq_frames frames{};
    frames.size = sizeof frames;
    host.stop();
    ASSERT_EQ(tq_capture_get_frames(1, &frames), TQ_OK);
    EXPECT_EQ(frames.rendered,
              std::accumulate(std::begin(frames.track.lost), std::end(frames.track.lost),
                              frames.track.delivered + frames.track.waiting));
}

}  // namespace
