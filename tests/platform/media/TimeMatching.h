#pragma once

#include <CoreMedia/CMTime.h>
#include <gtest/gtest.h>

/// Compares by value: a reference to a 64-bit field of a struct packed to four could be misaligned.
inline testing::AssertionResult isTime(const CMTime& time, CMTimeValue value, CMTimeScale timescale,
                                       CMTimeFlags flags = kCMTimeFlags_Valid,
                                       CMTimeEpoch epoch = 0) {
    if (time.value == value && time.timescale == timescale && time.flags == flags &&
        time.epoch == epoch) {
        return testing::AssertionSuccess();
    }
    const CMTimeValue seenValue = time.value;
    const CMTimeEpoch seenEpoch = time.epoch;
    return testing::AssertionFailure() << seenValue << "/" << time.timescale << " flags "
                                       << time.flags << " epoch " << seenEpoch;
}

inline testing::AssertionResult isTime(const CMTime& time, const CMTime& expected) {
    return isTime(time, expected.value, expected.timescale, expected.flags, expected.epoch);
}
