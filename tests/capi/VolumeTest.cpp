#include <cmath>
#include <limits>

#include "CapturePathFixture.h"
#include "tq_capture.h"

// Ducking and compression through the C interface.

namespace {

struct Volume : CapturePath {
    tq_volume* volume = nullptr;
    tq_ducking ducking{};
    tq_compressor compressor{};

    void SetUp() override {
        CapturePath::SetUp();
        ASSERT_EQ(tq_volume_open(&volume), TQ_OK);
        ducking.size = sizeof ducking;
        ASSERT_EQ(tq_ducking_defaults(&ducking), TQ_OK);
        compressor.size = sizeof compressor;
        ASSERT_EQ(tq_compressor_defaults(&compressor), TQ_OK);
    }
    void TearDown() override {
        tq_volume_close(volume);
        CapturePath::TearDown();
    }
};

TEST_F(Volume, DefaultsAreTheUsualValues) {
    EXPECT_EQ(ducking.size, sizeof ducking);
    EXPECT_FLOAT_EQ(ducking.attack_seconds, 0.2F);
    EXPECT_FLOAT_EQ(ducking.release_seconds, 1);
    EXPECT_FLOAT_EQ(ducking.hold_seconds, 1);
    EXPECT_FLOAT_EQ(ducking.threshold_db, -30);
    EXPECT_FLOAT_EQ(ducking.target_gain_db, -20);
    EXPECT_FLOAT_EQ(compressor.attack_seconds, 0.05F);
    EXPECT_FLOAT_EQ(compressor.release_seconds, 0.1F);
    EXPECT_FLOAT_EQ(compressor.side_chain_threshold_db, -40);
    EXPECT_FLOAT_EQ(compressor.threshold_db, -15);
}

TEST_F(Volume, DuckingPullsTheProgramDownWhileTheLevelIsHigh) {
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    ducking.attack_seconds = 0.01F;
    ASSERT_EQ(tq_volume_set_ducking(volume, &ducking), TQ_OK);
    pump();
    ASSERT_EQ(tq_volume_set_ducking_level(volume, 0), TQ_OK) << "known from the first block on";
    pump(100);
    const auto samples = listener->posts().back().samples();
    EXPECT_NEAR(samples.back(), 0.25 * 32767 * std::pow(10, -20 / 20.0), 20);
}

TEST_F(Volume, CompressionHoldsPeaksDown) {
    HostUnit host;
    host.sound.value = 0.9;
    host.play();
    ASSERT_TRUE(startCapture());
    ASSERT_EQ(tq_volume_set_compressor(volume, &compressor), TQ_OK);
    pump(100);
    EXPECT_LT(listener->posts().back().samples().back(), 0.5 * 32767);
}

TEST_F(Volume, NullSwitchesOff) {
    ASSERT_EQ(tq_volume_set_ducking(volume, &ducking), TQ_OK);
    ASSERT_EQ(tq_volume_set_compressor(volume, &compressor), TQ_OK);
    EXPECT_TRUE(manager().isDuckingEnable());
    EXPECT_TRUE(manager().isCompressorEnable());
    EXPECT_EQ(tq_volume_set_ducking(volume, nullptr), TQ_OK);
    EXPECT_EQ(tq_volume_set_compressor(volume, nullptr), TQ_OK);
    EXPECT_FALSE(manager().isDuckingEnable());
    EXPECT_FALSE(manager().isCompressorEnable());
    EXPECT_EQ(tq_volume_set_ducking_level(volume, 0), TQ_ERROR_NOT_ON);
    EXPECT_EQ(tq_volume_set_compressor_level(volume, 0), TQ_ERROR_NOT_ON);
}

TEST_F(Volume, ClosingSwitchesOff) {
    ASSERT_EQ(tq_volume_set_ducking(volume, &ducking), TQ_OK);
    ASSERT_EQ(tq_volume_set_compressor(volume, &compressor), TQ_OK);
    EXPECT_EQ(tq_volume_close(volume), TQ_OK);
    EXPECT_FALSE(manager().isDuckingEnable());
    EXPECT_FALSE(manager().isCompressorEnable());
    EXPECT_EQ(tq_volume_set_ducking(volume, &ducking), TQ_ERROR_HANDLE);
    EXPECT_EQ(tq_volume_close(volume), TQ_ERROR_HANDLE);
}

TEST_F(Volume, OnlyWhoSwitchedItOnMayChangeIt) {
    ASSERT_EQ(tq_volume_set_ducking(volume, &ducking), TQ_OK);
    tq_volume* other = nullptr;
    ASSERT_EQ(tq_volume_open(&other), TQ_OK);
    EXPECT_EQ(tq_volume_set_ducking(other, &ducking), TQ_ERROR_OWNED_BY_ANOTHER);
    EXPECT_EQ(tq_volume_set_ducking_level(other, 0), TQ_ERROR_NOT_ON);
    EXPECT_EQ(tq_volume_set_compressor(other, &compressor), TQ_OK) << "that one is free";
    EXPECT_EQ(tq_volume_close(other), TQ_OK);
    EXPECT_TRUE(manager().isDuckingEnable());
}

TEST_F(Volume, BadInputIsRefused) {
    EXPECT_EQ(tq_volume_open(nullptr), TQ_ERROR_NULL);
    EXPECT_EQ(tq_volume_set_ducking(nullptr, &ducking), TQ_ERROR_HANDLE);
    EXPECT_EQ(tq_ducking_defaults(nullptr), TQ_ERROR_NULL);
    EXPECT_EQ(tq_compressor_defaults(nullptr), TQ_ERROR_NULL);
    tq_ducking noSize{};
    EXPECT_EQ(tq_ducking_defaults(&noSize), TQ_ERROR_SIZE);
    EXPECT_EQ(tq_volume_set_ducking(volume, &noSize), TQ_ERROR_SIZE);
    tq_compressor noSizeEither{};
    EXPECT_EQ(tq_compressor_defaults(&noSizeEither), TQ_ERROR_SIZE);
    EXPECT_EQ(tq_volume_set_compressor(volume, &noSizeEither), TQ_ERROR_SIZE);
    EXPECT_FALSE(manager().isDuckingEnable());
}

TEST_F(Volume, ValuesOutOfRangeAreRefused) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const auto duckingWith = [this](float tq_ducking::*field, float value) {
        tq_ducking changed = ducking;
        changed.*field = value;
        return tq_volume_set_ducking(volume, &changed);
    };
    EXPECT_EQ(duckingWith(&tq_ducking::attack_seconds, 0), TQ_ERROR_VALUE);
    EXPECT_EQ(duckingWith(&tq_ducking::release_seconds, -1), TQ_ERROR_VALUE);
    EXPECT_EQ(duckingWith(&tq_ducking::hold_seconds, -1), TQ_ERROR_VALUE);
    EXPECT_EQ(duckingWith(&tq_ducking::threshold_db, nan), TQ_ERROR_VALUE);
    EXPECT_EQ(duckingWith(&tq_ducking::target_gain_db, 1), TQ_ERROR_VALUE);
    const auto compressorWith = [this](float tq_compressor::*field, float value) {
        tq_compressor changed = compressor;
        changed.*field = value;
        return tq_volume_set_compressor(volume, &changed);
    };
    EXPECT_EQ(compressorWith(&tq_compressor::attack_seconds, nan), TQ_ERROR_VALUE);
    EXPECT_EQ(compressorWith(&tq_compressor::release_seconds, 0), TQ_ERROR_VALUE);
    EXPECT_EQ(compressorWith(&tq_compressor::side_chain_threshold_db, nan), TQ_ERROR_VALUE);
    EXPECT_EQ(compressorWith(&tq_compressor::threshold_db, nan), TQ_ERROR_VALUE);
    EXPECT_EQ(tq_volume_set_ducking_level(volume, nan), TQ_ERROR_VALUE);
    EXPECT_EQ(tq_volume_set_compressor_level(volume, nan), TQ_ERROR_VALUE);
    EXPECT_FALSE(manager().isDuckingEnable());
    EXPECT_FALSE(manager().isCompressorEnable());
}

TEST(VolumeWithoutHooks, CannotBeSwitchedOn) {
    tq_volume* volume = nullptr;
    ASSERT_EQ(tq_volume_open(&volume), TQ_OK);
    tq_ducking ducking{};
    ducking.size = sizeof ducking;
    ASSERT_EQ(tq_ducking_defaults(&ducking), TQ_OK);
    EXPECT_EQ(tq_volume_set_ducking(volume, &ducking), TQ_ERROR_HOOKS_NOT_WORKING);
    EXPECT_EQ(tq_volume_close(volume), TQ_OK);
}

}  // namespace
