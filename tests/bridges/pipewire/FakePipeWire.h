#pragma once

#include <pipewire/filter.h>
#include <pipewire/pipewire.h>

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// A made-up libpipewire without a server: formats and cycles come when the test says so, and what
// is queued is kept as a reader sees it.

inline constexpr std::size_t kFakePlanes = 8;

/// One buffer, which is dequeued again and again.
struct FakeBuffer {
    FakeBuffer();

    std::array<std::vector<std::byte>, kFakePlanes> memory;
    std::array<spa_chunk, kFakePlanes> chunks{};
    std::array<spa_data, kFakePlanes> datas{};
    spa_buffer buffer{};
    pw_buffer handle{};
};

struct FakeNode {
    std::string name;
    std::vector<spa_dict_item> items;
    pw_properties properties{};
    int answer = 0;  ///< of calls that answer with a number
};

struct pw_stream : FakeNode {
    std::vector<std::pair<const pw_stream_events*, void*>> listeners;
    FakeBuffer buffer;
    std::array<std::string, kFakePlanes> taken;  ///< by plane
    bool isActive = true;
    std::uint32_t queued = 1;  ///< blocks that the graph has not taken
    bool isDestroyed = false;
    std::vector<bool> flushes;  ///< whether each was a drain
};

struct FakePort {
    pw_filter* filter = nullptr;
    bool isOutput = false;
    bool hasMemory = true;
    FakeBuffer buffer;
    bool isGiven = false;  ///< its memory was handed out or queued in this cycle
};

struct pw_filter : FakeNode {
    std::vector<std::pair<const pw_filter_events*, void*>> listeners;
    std::vector<std::unique_ptr<FakePort>> ports;
    std::vector<float> heard;  ///< the output ports behind each cycle, interleaved
    spa_io_position position{};
    bool isDestroyed = false;
};

extern "C" {
/// The format of the stream's port is that one now; null for none.
void fake_pw_format(pw_stream* stream, const spa_pod* format);
/// The library wants a block.
void fake_pw_process(pw_stream* stream);
/// The graph runs the filter at that many frames a second from now on, or no more.
void fake_pw_run(pw_filter* filter, std::uint32_t sampleRate);
void fake_pw_pause(pw_filter* filter);
/// One cycle; memory of ports that nobody asked for is not heard.
void fake_pw_cycle(pw_filter* filter, std::uint32_t frames);
}
