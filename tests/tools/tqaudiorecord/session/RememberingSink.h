#pragma once

#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "core/Sink.h"

/// A sink that keeps everything, and calls what a test has set.
class RememberingSink : public tqrecorder::Sink {
  public:
    struct Stream {
        std::string unit;
        tqrecorder::BlockFormat format;
        std::vector<std::byte> bytes;
        std::vector<std::uint64_t> stamps;

        [[nodiscard]] std::size_t frames() const {
            return format.frameBytes() == 0 ? 0 : bytes.size() / format.frameBytes();
        }
        [[nodiscard]] double seconds() const {
            return static_cast<double>(frames()) / format.sampleRate;
        }
        /// One channel of 16-bit integers or 32-bit floats.
        [[nodiscard]] std::vector<double> samples(std::size_t channel) const {
            std::vector<double> result;
            for (std::size_t i = 0; i < frames(); ++i) {
                const std::size_t at = i * format.channels + channel;
                if (format.isFloat) {
                    float value = 0;
                    std::memcpy(&value, bytes.data() + at * sizeof value, sizeof value);
                    result.push_back(static_cast<double>(value));
                } else {
                    std::int16_t value = 0;
                    std::memcpy(&value, bytes.data() + at * sizeof value, sizeof value);
                    result.push_back(value / 32768.0);
                }
            }
            return result;
        }
    };
    struct Seen {
        tqrecorder::Process process;
        std::vector<std::string> names;
        std::map<int, Stream> streams;
        std::vector<tqrecorder::Event> events;
        std::vector<tqrecorder::LogLine> log;
        std::vector<tqrecorder::TrackNumbers> numbers;  ///< the last that were not empty
        std::vector<tqrecorder::StreamFacts> streamFacts;
        tqrecorder::HostFacts facts;
        std::uint64_t lostBlocks = 0;
        std::uint64_t lostBytes = 0;
        bool ended = false;
    };

    std::map<int, Seen> processes;
    std::vector<std::string> notices;
    int ticks = 0;
    int saves = 0;
    int heardBlocks = 0;
    std::vector<bool> turns;  ///< whether all was taken
    int finishes = 0;
    bool isWriting = false;  ///< clips, until they are given up
    std::function<void()> onWait;
    std::string end;
    std::function<void(const tqrecorder::Process&, const tqrecorder::Block&)> onBlock;

    /// The one process that delivered sound, or an empty one.
    [[nodiscard]] const Seen& only() const {
        static const Seen kNobody;
        const Seen* found = &kNobody;
        for (const auto& [id, seen] : processes) {
            if (!seen.streams.empty()) {
                found = &seen;
            }
        }
        return *found;
    }

    void processBegan(const tqrecorder::Process& process) override {
        Seen& seen = processes[process.id];
        seen.process = process;
        seen.names.push_back(process.name);
    }
    void block(const tqrecorder::Process& process, const tqrecorder::Block& block) override {
        Stream& stream = processes[process.id].streams[block.track];
        stream.unit = block.unit;
        stream.format = block.format;
        stream.bytes.insert(stream.bytes.end(), block.frames.begin(), block.frames.end());
        stream.stamps.push_back(block.microseconds);
        if (onBlock) {
            onBlock(process, block);
        }
    }
    void lost(const tqrecorder::Process& process, std::uint64_t blocks,
              std::uint64_t bytes) override {
        processes[process.id].lostBlocks += blocks;
        processes[process.id].lostBytes += bytes;
    }
    void heard(const tqrecorder::HeardBlock& /*block*/) override { ++heardBlocks; }
    void turnEnded(bool isAll) override { turns.push_back(isAll); }
    void event(const tqrecorder::Process& process, const tqrecorder::Event& event) override {
        processes[process.id].events.push_back(event);
    }
    void log(const tqrecorder::Process& process, const tqrecorder::LogLine& line) override {
        processes[process.id].log.push_back(line);
    }
    void stream(const tqrecorder::Process& process, const tqrecorder::StreamFacts& facts) override {
        processes[process.id].streamFacts.push_back(facts);
    }
    void numbers(const tqrecorder::Process& process,
                 std::span<const tqrecorder::TrackNumbers> tracks,
                 const tqrecorder::HostFacts& facts, double /*ringFill*/) override {
        if (!tracks.empty()) {
            processes[process.id].numbers.assign(tracks.begin(), tracks.end());
        }
        processes[process.id].facts = facts;
    }
    void processEnded(const tqrecorder::Process& process,
                      const tqrecorder::HostFacts& facts) override {
        processes[process.id].facts = facts;
        processes[process.id].ended = true;
    }
    void notice(const std::string& line) override { notices.push_back(line); }
    void tick(std::uint64_t /*elapsed*/) override { ++ticks; }
    tqrecorder::ControlAnswer control(const tqrecorder::ControlCommand& command) override {
        saves += command.kind == tqrecorder::ControlCommand::Kind::kSave ? 1 : 0;
        return {true, {}};
    }
    [[nodiscard]] bool isSaving() override {
        if (isWriting && onWait) {
            onWait();
        }
        return isWriting;
    }
    void giveUpSaves() override { isWriting = false; }
    void finish() override { ++finishes; }
    [[nodiscard]] std::string reasonToEnd() const override { return end; }
};

/// How much of the samples is a sine of that frequency: its amplitude by correlation.
inline double amplitudeAt(const std::vector<double>& samples, double rate, double frequency) {
    double in = 0;
    double quadrature = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double phase = 2 * 3.14159265358979323846 * frequency * static_cast<double>(i) / rate;
        in += samples[i] * std::sin(phase);
        quadrature += samples[i] * std::cos(phase);
    }
    return samples.empty() ? 0
                           : 2 * std::hypot(in, quadrature) / static_cast<double>(samples.size());
}
