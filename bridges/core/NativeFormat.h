#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tq::bridges {

/// How a native API lays one sample out. "Swapped" is the other byte order than this machine's;
/// In3 are three bytes, In4 the low three bytes of four.
enum class NativeSample : std::uint8_t {
    kU8,
    kS8,
    kS16,
    kS16Swapped,
    kU16,
    kU16Swapped,
    kS24In3,
    kS24In3Swapped,
    kU24In3,
    kU24In3Swapped,
    kS24In4,
    kS24In4Swapped,
    kU24In4,
    kU24In4Swapped,
    kS32,
    kS32Swapped,
    kU32,
    kU32Swapped,
    kF32,
    kF32Swapped,
    kF64,
    kF64Swapped,
    kNotPcm,
};

/// [any thread] A sample of this machine's byte order as it lies in memory in that order.
[[nodiscard]] constexpr NativeSample inOrder(NativeSample own, std::endian order) noexcept {
    // The other one stands behind it.
    return order == std::endian::native
               ? own
               : static_cast<NativeSample>(static_cast<std::uint8_t>(own) + 1);
}

/// What a value of a native interface stands for here.
template <class Native, class Here>
struct Meaning {
    Native native;
    Here here;
};

/// [any thread] [real-time safe] What one of them stands for, `otherwise` where it is not there.
template <class Here, class Native, std::size_t kCount>
[[nodiscard]] constexpr Here meaningOf(Native native,
                                       const std::array<Meaning<Native, Here>, kCount>& all,
                                       Here otherwise) noexcept {
    const auto found = std::find_if(all.begin(), all.end(), [&](const Meaning<Native, Here>& each) {
        return each.native == native;
    });
    return found == all.end() ? otherwise : found->here;
}

/// What a unit of the platform plays: native byte order, interleaved.
enum class UnitSample : std::uint8_t { kS16, kS32, kF32 };

/// [any thread] Bytes of one sample; 0 for what is not PCM. Real-time safe.
[[nodiscard]] unsigned bytesPerSample(NativeSample sample) noexcept;
[[nodiscard]] unsigned bytesPerSample(UnitSample sample) noexcept;

/// [any thread] The unit's sample that holds this one exactly (64-bit float: as 32-bit float).
/// What is not PCM has none; kF32 is returned for it. Real-time safe.
[[nodiscard]] UnitSample unitSampleOf(NativeSample sample) noexcept;

/// [any thread] Whether the unit's sample holds values that this one has no bits for. Real-time
/// safe.
[[nodiscard]] bool hasFewerBitsThanItsUnit(NativeSample sample) noexcept;

/// What up to eight channels are meant for: numbers of tq_speaker. All zeros: nobody says it, or
/// there is nothing to fold.
using Speakers = std::array<std::uint8_t, 8>;

/// The format of a native stream, interleaved.
struct NativeFormat {
    NativeSample sample = NativeSample::kNotPcm;
    unsigned channels = 0;
    double sampleRate = 0;  ///< frames a second
    Speakers speakers{};    ///< so that the mix can fold more than two channels

    bool operator==(const NativeFormat&) const = default;

    /// [any thread] Bytes of a frame as the program writes it; 0 when it is not PCM.
    [[nodiscard]] unsigned bytesPerFrame() const noexcept;
    /// [any thread] Bytes of a frame as the unit plays it.
    [[nodiscard]] unsigned unitBytesPerFrame() const noexcept;
    /// [any thread] Whether a unit can play it: PCM of 1 to 8 channels at 1000 to 768000 frames a
    /// second.
    [[nodiscard]] bool servable() const noexcept;
};

/// [any thread] What channels at those positions are meant for; `speakerOf` says it of one. Only of
/// 3 to 8, as nothing is folded elsewhere.
template <class Position, class SpeakerOf>
[[nodiscard]] Speakers speakersAt(std::span<const Position> positions, SpeakerOf speakerOf) {
    Speakers speakers{};
    if (positions.size() > 2 && positions.size() <= speakers.size()) {
        std::transform(positions.begin(), positions.end(), speakers.begin(),
                       [&](Position each) { return static_cast<std::uint8_t>(speakerOf(each)); });
    }
    return speakers;
}

}  // namespace tq::bridges
