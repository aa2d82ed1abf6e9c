#pragma once

#include <algorithm>

#include "CubebStreams.h"

namespace tqcubeb {

/// How much is asked for at a time and kept in hand, in frames.
struct StreamLengths {
    UInt32 played = 0;      ///< what is in hand behind a request at the most: twice a request
    UInt32 heard = 0;       ///< that a microphone beside speakers brings at a time
    UInt32 inHand = 0;      ///< between it and the speakers at first
    UInt32 aloneSlice = 0;  ///< that a microphone alone brings at a time
    UInt32 alone = 0;       ///< its latency

    /// [any thread] By the frames of a request that a program wants (0 for none) and the least that
    /// the server calls its latency.
    [[nodiscard]] static StreamLengths of(Float64 wanted, UInt32 least) noexcept;
    /// [any thread] On JACK, by its period: one is played while the next is made, and a microphone
    /// brings a whole one, whatever is wanted.
    [[nodiscard]] static StreamLengths ofJack(UInt32 period) noexcept;
};

inline StreamLengths StreamLengths::of(Float64 wanted, UInt32 least) noexcept {
    const bool isWished = wanted > 0;
    const auto slice = static_cast<UInt32>(std::clamp<Float64>(wanted, 0, kMaximumFrames));
    StreamLengths lengths;
    // With less in hand than the server's least there are holes.
    lengths.played = std::clamp(std::max(kRequestsInHand * slice, least), kFewestFrames,
                                kRequestsInHand * kMaximumFrames);
    lengths.heard = std::max(lengths.played / kRequestsInLatency, kFewestFrames);
    // A program that says how much it wants to wait for wants it whole; others want it early, but
    // behind two of the pieces in which PulseAudio brings it.
    lengths.inHand = isWished ? lengths.heard : lengths.heard * 7 / 16;
    lengths.aloneSlice = isWished ? std::max({slice, least / kRequestsInLatency, kFewestFrames})
                                  : kHeardAloneFrames / kRequestsInLatency;
    lengths.alone = kRequestsInLatency * lengths.aloneSlice;
    return lengths;
}

inline StreamLengths StreamLengths::ofJack(UInt32 period) noexcept {
    const UInt32 slice = std::clamp(period, UInt32{1}, kMaximumFrames);
    return {.played = kRequestsInHand * slice,
            .heard = slice,
            .inHand = slice * 7 / 16,
            .aloneSlice = slice,
            .alone = slice};
}

}  // namespace tqcubeb
