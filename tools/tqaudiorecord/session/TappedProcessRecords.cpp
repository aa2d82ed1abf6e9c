// What a recorded process has written into its rings: sound, events, log and native streams.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "ipc/Printable.h"
#include "ipc/SharedStream.h"
#include "session/TappedProcess.h"

namespace tqrecorder {
namespace {

constexpr double kLowestRate = 1;
constexpr double kHighestRate = 1e6;
/// Eight channels of 64-bit samples at 384 kHz are 24.6 MB a second.
constexpr double kMostBytesPerSecond = 32e6;
/// A block is a second at most, and no device asks for more than that many frames however slow it
/// is.
constexpr double kMostFrames = 8192;

bool isSound(const RecordHeader& header) {
    const std::uint32_t bits = header.bitsPerChannel;
    const double frameBytes = static_cast<double>(header.channels) * bits / 8;
    return header.channels > 0 && header.channels <= TappedProcess::kMostChannels &&
           header.track < kTracks &&
           (bits == 8 || bits == 16 || bits == 24 || bits == 32 || bits == 64) &&
           std::isfinite(header.sampleRate) && header.sampleRate >= kLowestRate &&
           header.sampleRate <= kHighestRate &&
           header.sampleRate * frameBytes <= kMostBytesPerSecond && header.fractionBits < bits &&
           (header.fractionBits == 0 || bits <= 32) && header.nameBytes <= kLongestName &&
           header.nameBytes <= header.payloadBytes &&
           header.payloadBytes - header.nameBytes <=
               std::max(header.sampleRate, kMostFrames) * frameBytes &&
           (header.buffers == 1 || header.buffers == header.channels);
}

/// A sample of fixed point, little-endian, at full scale; what is louder than that is cut.
void scaleUp(std::span<std::byte> sample, std::uint32_t fractionBits) {
    const auto bits = static_cast<std::uint32_t>(8 * sample.size());
    std::uint32_t word = 0;
    std::memcpy(&word, sample.data(), sample.size());
    const std::int64_t value = static_cast<std::int32_t>(word << (32 - bits)) >> (32 - bits);
    const std::int64_t highest = (std::int64_t{1} << (bits - 1)) - 1;
    word = static_cast<std::uint32_t>(
        std::clamp(value << (bits - 1 - fractionBits), -highest - 1, highest));
    std::memcpy(sample.data(), &word, sample.size());
}

/// Makes samples those that Block promises: little-endian, integers signed and of full scale.
void normalise(std::span<std::byte> samples, const RecordHeader& header) {
    const std::size_t width = header.bitsPerChannel / 8;
    for (std::size_t at = 0; at + width <= samples.size(); at += width) {
        const std::span<std::byte> sample = samples.subspan(at, width);
        if (header.isBigEndian != 0) {
            std::reverse(sample.begin(), sample.end());
        }
        if (header.isUnsigned != 0) {
            sample.back() ^= std::byte{0x80};
        }
        if (header.fractionBits != 0) {
            scaleUp(sample, header.fractionBits);
        }
    }
}

std::string textOf(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Whether there is more to take of what was written by `end`, and time for it.
bool goesOn(const RingReader& ring, std::uint64_t end,
            std::chrono::steady_clock::time_point deadline) {
    return !ring.hasTaken(end) && std::chrono::steady_clock::now() < deadline;
}

}  // namespace

std::string TappedProcess::unitNameOf(std::string_view text) {
    return text.empty() ? "unit" : printable(text.substr(0, kLongestName));
}

bool TappedProcess::takeSound(Sink& sink, Deadline deadline) {
    RecordHeader header;
    std::span<const std::byte> payload;
    const std::uint64_t end = endOf(RingId::kSound, sound_);
    while (goesOn(sound_, end, deadline)) {
        switch (sound_.next(header, payload)) {
            case RingReader::Found::kNothing:
                return true;
            case RingReader::Found::kCorrupt:
                markCorrupt(sink);
                return true;
            case RingReader::Found::kRecord:
                if (!handBlock(sink, header, payload)) {
                    markCorrupt(sink);
                    return true;
                }
        }
    }
    return sound_.hasTaken(end);
}

bool TappedProcess::handBlock(Sink& sink, const RecordHeader& header,
                              std::span<const std::byte> payload) {
    const bool isMix = header.kind == RecordKind::kMix;
    if ((!isMix && header.kind != RecordKind::kTrack) || !isSound(header) ||
        (isMix ? header.track != 0 : header.track == 0) || payload.size() != header.payloadBytes) {
        return false;
    }
    const std::string unit =
        isMix ? std::string() : unitNameOf(textOf(payload.last(header.nameBytes)));
    payload = payload.first(payload.size() - header.nameBytes);
    Block block;
    block.track = static_cast<int>(header.track);
    block.lostFrames = header.lostFrames;
    block.format = {header.sampleRate, header.channels, header.bitsPerChannel, header.isFloat != 0};
    block.microseconds = header.microseconds;
    block.unit = unit;
    const std::size_t frameBytes = block.format.frameBytes();
    const std::size_t frames = payload.size() / frameBytes;
    block.frames = payload.first(frames * frameBytes);
    if (header.buffers > 1) {
        const std::size_t sample = header.bitsPerChannel / 8;
        const std::size_t stride = payload.size() / header.buffers;
        interleaved_.resize(frames * frameBytes);
        std::byte* out = interleaved_.data();
        for (std::size_t frame = 0; frame < frames; ++frame) {
            for (std::size_t channel = 0; channel < header.channels; ++channel, out += sample) {
                std::memcpy(out, payload.data() + channel * stride + frame * sample, sample);
            }
        }
        block.frames = interleaved_;
    }
    if (header.isBigEndian != 0 || header.isUnsigned != 0 || header.fractionBits != 0) {
        if (header.buffers == 1) {
            interleaved_.assign(block.frames.begin(), block.frames.end());
        }
        normalise(interleaved_, header);
        block.frames = interleaved_;
    }
    if (isMix) {
        ++blocks_;
        blocksWithSound_ += std::any_of(block.frames.begin(), block.frames.end(),
                                        [](std::byte byte) { return byte != std::byte{0}; })
                                ? 1
                                : 0;
    }
    if (frames > 0) {
        sink.block(process_, block);
    }
    return true;
}

bool TappedProcess::takeEvents(Sink& sink, Deadline deadline) {
    RecordHeader header;
    std::span<const std::byte> payload;
    const std::uint64_t end = endOf(RingId::kEvents, events_);
    bool isEmpty = false;
    while (goesOn(events_, end, deadline)) {
        const RingReader::Found found = events_.next(header, payload);
        if (found == RingReader::Found::kNothing) {
            isEmpty = true;
            break;
        }
        if (found == RingReader::Found::kCorrupt || header.kind != RecordKind::kEvent) {
            markCorrupt(sink);
            return true;
        }
        sink.event(process_, {header.microseconds, header.category, header.code, textOf(payload)});
    }
    if (const std::uint64_t count = events_.takeLostRecords(); count > 0) {
        sink.log(process_, {3, "tqaudiorecord", std::to_string(count) + " events were lost"});
    }
    return isEmpty || events_.hasTaken(end);
}

bool TappedProcess::takeLog(Sink& sink, Deadline deadline) {
    RecordHeader header;
    std::span<const std::byte> payload;
    const std::uint64_t end = endOf(RingId::kLog, log_);
    bool isEmpty = false;
    while (goesOn(log_, end, deadline)) {
        const RingReader::Found found = log_.next(header, payload);
        if (found == RingReader::Found::kNothing) {
            isEmpty = true;
            break;
        }
        if (found == RingReader::Found::kCorrupt || header.kind != RecordKind::kLog ||
            header.nameBytes > payload.size()) {
            markCorrupt(sink);
            return true;
        }
        sink.log(process_, {static_cast<int>(std::min<std::uint64_t>(header.code, 4)),
                            textOf(payload.first(header.nameBytes)),
                            textOf(payload.subspan(header.nameBytes))});
    }
    if (const std::uint64_t count = log_.takeLostRecords(); count > 0) {
        sink.log(process_, {3, "tqaudiorecord", std::to_string(count) + " log lines were lost"});
    }
    return isEmpty || log_.hasTaken(end);
}

bool TappedProcess::takeStreams(Sink& sink, Deadline deadline) {
    RecordHeader header;
    std::span<const std::byte> payload;
    const std::uint64_t end = endOf(RingId::kStreams, streams_);
    bool isEmpty = false;
    while (goesOn(streams_, end, deadline)) {
        const RingReader::Found found = streams_.next(header, payload);
        if (found == RingReader::Found::kNothing) {
            isEmpty = true;
            break;
        }
        if (found == RingReader::Found::kCorrupt || header.kind != RecordKind::kStream ||
            header.nameBytes > kLongestName ||
            payload.size() != sizeof(SharedStream) + header.nameBytes) {
            markCorrupt(sink);
            return true;
        }
        SharedStream shared;
        std::memcpy(&shared, payload.data(), sizeof shared);
        if (!std::isfinite(shared.sampleRate)) {
            markCorrupt(sink);
            return true;
        }
        hasStreamPlayed_ = hasStreamPlayed_ || shared.written > 0;
        sink.stream(
            process_,
            {shared.stream, unitNameOf(textOf(payload.last(header.nameBytes))), shared.fate,
             shared.isClosed != 0, std::min(shared.channels, kMostChannels), shared.sampleRate,
             shared.written, shared.played, shared.dropped, shared.lost, shared.isPaused != 0});
    }
    return isEmpty || streams_.hasTaken(end);
}

void TappedProcess::markCorrupt(Sink& sink) {
    isCorrupt_ = true;
    program_.socket.reset();
    next_.clear();
    sink.log(process_, {4, "tqaudiorecord",
                        "its shared memory is corrupt; this process is recorded no further"});
}

double TappedProcess::drop(Sink& sink) {
    double seconds = 0;
    while (!isCorrupt_) {
        RecordHeader header;
        std::span<const std::byte> payload;
        std::uint64_t blocks = 0;
        std::uint64_t bytes = 0;
        while (!sound_.hasTaken(endOf(RingId::kSound, sound_)) &&
               sound_.next(header, payload) == RingReader::Found::kRecord && isSound(header)) {
            ++blocks;
            bytes += header.payloadBytes;
            const BlockFormat format{header.sampleRate, header.channels, header.bitsPerChannel,
                                     header.isFloat != 0};
            if (header.kind == RecordKind::kMix) {
                seconds += static_cast<double>(header.payloadBytes / format.frameBytes()) /
                           format.sampleRate;
            }
        }
        if (blocks > 0) {
            sink.lost(process_, blocks, bytes);
        }
        if (next_.empty()) {
            break;
        }
        read(std::move(next_.front()));
        next_.pop_front();
        sink.processBegan(process_);
    }
    return seconds;
}

}  // namespace tqrecorder
