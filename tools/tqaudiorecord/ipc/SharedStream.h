#pragma once

#include <cstdint>
#include <type_traits>

namespace tqrecorder {

/// What a process says of one of its native streams, as the payload of a record; its name follows.
struct SharedStream {
    std::uint64_t stream = 0;
    std::uint32_t fate = 0;  ///< enum tq_stream_fate
    std::uint32_t isClosed = 0;
    std::uint32_t channels = 0;
    std::uint32_t isPaused = 0;
    double sampleRate = 0;
    std::uint64_t written = 0;
    std::uint64_t played = 0;
    std::uint64_t dropped = 0;
    std::uint64_t lost = 0;
};
static_assert(std::is_trivially_copyable_v<SharedStream> && sizeof(SharedStream) == 64);

}  // namespace tqrecorder
