#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/Frames.h"

// What travels from the recorded processes to the sinks that write or show it.

namespace tqrecorder {

/// Sample format of a stream as the library states it.
struct BlockFormat {
    double sampleRate = 0;  ///< Hz
    std::uint32_t channels = 0;
    std::uint32_t bitsPerChannel = 0;
    bool isFloat = false;

    [[nodiscard]] bool operator==(const BlockFormat&) const = default;
    [[nodiscard]] std::size_t frameBytes() const {
        return std::size_t{channels} * (bitsPerChannel / 8);
    }
};

/// One recorded process: the command itself or a child of it.
struct Process {
    int id = 0;              ///< 1 for the first that connected, then upwards; never reused
    pid_t pid = 0;           ///< as the recorder sees it
    std::string name;        ///< the program's name without folders
    bool isCommand = false;  ///< the command that was asked for (also after it execs)
    /// Written for the platform; what others play is heard through bridges.
    bool usesPlatform = false;
};

/// As hosts stamp their blocks, in microseconds.
inline std::uint64_t hostTime() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

/// A block of sound. `track` 0 is the process's mix (44100 Hz, 16-bit, stereo); 1 to 7 are the
/// tracks, after the library's own processing.
struct Block {
    int track = 0;
    std::string_view unit;  ///< the host unit's text; empty for the mix
    BlockFormat format;
    std::uint64_t microseconds = 0;     ///< host time of its first frame
    std::span<const std::byte> frames;  ///< interleaved, little-endian, whole; integers
                                        ///< signed, of full scale
    std::uint64_t lostFrames = 0;       ///< of this stream, right before it, that did not arrive
    std::uint64_t filledFrames = 0;     ///< of this stream, somewhere before it since the last
                                        ///< such, that came as silence for a hole
};

/// A block of what the recorder's own microphone hears.
struct HeardBlock {
    std::uint64_t microseconds = 0;  ///< host time of its first frame
    std::uint32_t channels = 0;
    std::span<const float> samples;  ///< interleaved, whole frames at the mix's rate
    bool isOpen = false;             ///< else no microphone is there, and this is silence
    std::uint64_t lostFrames = 0;    ///< right before it, that the recorder was too late for
};

/// Its number beside those of the tracks, and what stands for its unit.
inline constexpr int kMicrophoneTrack = 8;
inline constexpr std::string_view kMicrophoneName = "microphone";

/// An event of the library.
struct Event {
    std::uint64_t microseconds = 0;  ///< host time
    std::uint64_t category = 0;
    std::uint64_t code = 0;
    std::string message;
    std::uint64_t paused = 0;  ///< microseconds before it that are not in the recording
};

/// A line of the library's log.
struct LogLine {
    int level = 0;  ///< 1 debug, 2 info, 3 warning, 4 error
    std::string function;
    std::string text;
};

/// Numbers of one track (or of the mix, track 0) as of now.
struct TrackNumbers {
    int track = 0;
    std::string unit;
    BlockFormat format;
    std::uint64_t bufferedBytes = 0;   ///< captured, not yet mixed
    std::uint64_t bufferCapacity = 0;  ///< bytes
};

/// What became of a native stream of a process (enum tq_stream_fate). Frames are the stream's own.
struct StreamFacts {
    std::uint64_t id = 0;  ///< from 1 in the order of opening
    std::string name;
    std::uint32_t fate = 0;
    bool isClosed = false;
    std::uint32_t channels = 0;
    double sampleRate = 0;      ///< Hz
    std::uint64_t written = 0;  ///< taken from the program
    std::uint64_t played = 0;   ///< of those, rendered into the track
    std::uint64_t dropped = 0;  ///< of those, thrown away by the program
    std::uint64_t lost = 0;     ///< of those, not in the track
    bool isPaused = false;      ///< by the program

    [[nodiscard]] bool operator==(const StreamFacts&) const = default;
};

/// What was seen from outside of a process below COMMAND, or of COMMAND itself.
struct SeenProcess {
    pid_t pid = 0;
    std::string name;
    std::string program{};      ///< its file; empty where the system does not tell
    bool isTapped = false;      ///< it has connected
    bool isStatic = false;      ///< nothing can be loaded into it
    bool isPrivileged = false;  ///< the system lets nothing be loaded into it
    bool isSandboxed = false;   ///< behind a filter of system calls, or in a network of its own
    std::string library{};      ///< the first for sound that it has loaded
    std::string device{};       ///< the first raw device for sound that it holds open
    bool loadsApart = false;    ///< it has libraries in a namespace of their own (dlmopen)
    bool isPrepared = false;    ///< what records it is loaded; of a fork, before its first sound

    [[nodiscard]] bool operator==(const SeenProcess&) const = default;
};

/// What came of asking for the bridges, through which native sound interfaces are recorded.
enum class BridgeState : std::uint32_t {
    kNotAsked,  ///< the hooks are out
    kOn,
    kMissing,  ///< their library is not there, or cannot be loaded
    kRefused,
};

/// A unit of a process that played without being captured, at least for a while.
struct LeftOutUnit {
    std::string unit;
    std::uint32_t reasons = 0;  ///< bit n for the library's reason n (enum tq_unit_reason)

    [[nodiscard]] bool operator==(const LeftOutUnit&) const = default;
};

/// What is known of a process that may explain a silent recording. Counts only grow.
struct HostFacts {
    bool hooksInstalled = false;
    bool guardRefused = false;  ///< the crash guard kept the hooks out
    int retriesLeft = 0;
    std::uint64_t unitsCreated = 0;
    std::uint64_t unitsStarted = 0;
    std::uint64_t blocksWithSound = 0;   ///< mix blocks that were not all zero
    std::uint64_t blocks = 0;            ///< mix blocks
    std::vector<LeftOutUnit> leftOut{};  ///< the first of them
    /// The crash guard's folder where its files cannot be used.
    std::string brokenGuard{};
    std::uint32_t leftOutMoreReasons = 0;  ///< of others that are not listed
    FramesOfTracks frames{};
    BridgeState bridges = BridgeState::kNotAsked;
    bool mayPlay = false;  ///< linked against a library for sound, or names one
};

}  // namespace tqrecorder
