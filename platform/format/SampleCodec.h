#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

// One sample in memory against one float of full scale 1.0, for each sample type. Everything is
// branch-free arithmetic on values already in registers, so the loops over it vectorise.

namespace tqplatform::codec {

/// Rounds to nearest, ties to even. Adding 1.5 * 2^23 pushes the fraction out of the mantissa,
/// which leaves the integer in its low bits. |value| up to 2^22.
inline std::int32_t rounded(float value) noexcept {
    constexpr float kShift = 12582912.0F;
    return std::bit_cast<std::int32_t>(value + kShift) - std::bit_cast<std::int32_t>(kShift);
}

/// The same in double precision (1.5 * 2^52), for values up to the whole range of 32 bits.
inline std::int32_t rounded(double value) noexcept {
    constexpr double kShift = 6755399441055744.0;
    return static_cast<std::int32_t>(
        static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(value + kShift)));
}

/// `value * Scale` as an integer from -Limit to Limit - 1. A NaN becomes 0. Scales are powers of
/// two, so the product is exact and only the rounding can lose anything.
template <std::int64_t Scale, std::int64_t Limit, class Real>
std::int32_t quantised(float value) noexcept {
    const Real clean = value == value ? static_cast<Real>(value) : Real{0};
    const Real scaled = clean * static_cast<Real>(Scale);
    const Real low = scaled < static_cast<Real>(-Limit) ? static_cast<Real>(-Limit) : scaled;
    const Real high = low > static_cast<Real>(Limit - 1) ? static_cast<Real>(Limit - 1) : low;
    return rounded(high);
}

inline std::uint8_t swapped(std::uint8_t raw) noexcept {
    return raw;
}
inline std::uint16_t swapped(std::uint16_t raw) noexcept {
    return __builtin_bswap16(raw);
}
inline std::uint32_t swapped(std::uint32_t raw) noexcept {
    return __builtin_bswap32(raw);
}
inline std::uint64_t swapped(std::uint64_t raw) noexcept {
    return __builtin_bswap64(raw);
}

template <class Raw, bool Big>
Raw load(const std::byte* at) noexcept {
    Raw raw;
    std::memcpy(&raw, at, sizeof raw);
    return Big == (std::endian::native == std::endian::big) ? raw : swapped(raw);
}

template <class Raw, bool Big>
void store(Raw raw, std::byte* at) noexcept {
    raw = Big == (std::endian::native == std::endian::big) ? raw : swapped(raw);
    std::memcpy(at, &raw, sizeof raw);
}

/// Integers of 8 and 16 bits: a float holds every value. Unsigned ones are signed ones with the
/// highest bit turned over.
template <class Signed, class Raw, bool Big, Raw Turned = 0>
struct SmallInteger {
    static constexpr std::size_t kBytes = sizeof(Raw);
    static constexpr std::int64_t kScale = std::int64_t{1} << (8 * kBytes - 1);

    static float read(const std::byte* at) noexcept {
        const auto raw = static_cast<Raw>(load<Raw, Big>(at) ^ Turned);
        return static_cast<float>(std::bit_cast<Signed>(raw)) * (1.0F / static_cast<float>(kScale));
    }
    static void write(float value, std::byte* at) noexcept {
        const auto raw = static_cast<Raw>(quantised<kScale, kScale, float>(value));
        store<Raw, Big>(static_cast<Raw>(raw ^ Turned), at);
    }
};

/// 24 bits in three bytes.
template <bool Big>
struct Integer24 {
    static constexpr std::size_t kBytes = 3;
    static constexpr std::int64_t kScale = std::int64_t{1} << 23;

    static float read(const std::byte* at) noexcept {
        // Assembled in the top of a word, so that the sign is where an int has it.
        const std::uint32_t raw = std::to_integer<std::uint32_t>(at[Big ? 2 : 0]) << 8 |
                                  std::to_integer<std::uint32_t>(at[1]) << 16 |
                                  std::to_integer<std::uint32_t>(at[Big ? 0 : 2]) << 24;
        return static_cast<float>(std::bit_cast<std::int32_t>(raw)) * (1.0F / 2147483648.0F);
    }
    static void write(float value, std::byte* at) noexcept {
        const auto raw = static_cast<std::uint32_t>(quantised<kScale, kScale, double>(value));
        at[Big ? 2 : 0] = static_cast<std::byte>(raw & 0xFF);
        at[1] = static_cast<std::byte>(raw >> 8 & 0xFF);
        at[Big ? 0 : 2] = static_cast<std::byte>(raw >> 16 & 0xFF);
    }
};

/// 32 bits, of which `FractionBits` lie below full scale: 31 for plain integers, 24 for 8.24
/// fixed-point, which has headroom up to 128 times full scale.
template <int FractionBits, bool Big>
struct Integer32 {
    static constexpr std::size_t kBytes = 4;
    static constexpr std::int64_t kScale = std::int64_t{1} << FractionBits;
    static constexpr std::int64_t kLimit = std::int64_t{1} << 31;

    static float read(const std::byte* at) noexcept {
        const auto value = std::bit_cast<std::int32_t>(load<std::uint32_t, Big>(at));
        return static_cast<float>(value) * (1.0F / static_cast<float>(kScale));
    }
    static void write(float value, std::byte* at) noexcept {
        store<std::uint32_t, Big>(
            static_cast<std::uint32_t>(quantised<kScale, kLimit, double>(value)), at);
    }
};

/// Floats keep what lies beyond full scale; only a NaN is taken out when written.
template <bool Big>
struct Real32 {
    static constexpr std::size_t kBytes = 4;

    static float read(const std::byte* at) noexcept {
        return std::bit_cast<float>(load<std::uint32_t, Big>(at));
    }
    static void write(float value, std::byte* at) noexcept {
        store<std::uint32_t, Big>(std::bit_cast<std::uint32_t>(value == value ? value : 0.0F), at);
    }
};

template <bool Big>
struct Real64 {
    static constexpr std::size_t kBytes = 8;

    static float read(const std::byte* at) noexcept {
        return static_cast<float>(std::bit_cast<double>(load<std::uint64_t, Big>(at)));
    }
    static void write(float value, std::byte* at) noexcept {
        const double wide = static_cast<double>(value == value ? value : 0.0F);
        store<std::uint64_t, Big>(std::bit_cast<std::uint64_t>(wide), at);
    }
};

}  // namespace tqplatform::codec
