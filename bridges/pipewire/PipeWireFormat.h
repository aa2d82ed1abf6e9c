#pragma once

#include <TQAudioRecord/tq_source.h>
#include <spa/param/audio/raw.h>

#include "bridges/core/NativeFormat.h"

namespace tq::bridges {

/// How one sample of a stream of PipeWire lies in memory, and whether channels lie apart.
struct PipeWireSample {
    NativeSample sample = NativeSample::kNotPcm;
    bool isPlanar = false;

    bool operator==(const PipeWireSample&) const = default;
};

/// [any thread]
[[nodiscard]] PipeWireSample pipeWireSample(spa_audio_format format) noexcept;

/// [any thread] What a port whose channel bears that name ("FL") is meant for. Null for no name.
[[nodiscard]] tq_speaker pipeWireSpeaker(const char* channel) noexcept;

/// [any thread] What channels at those positions are meant for (enum spa_audio_channel).
[[nodiscard]] Speakers pipeWireSpeakers(std::span<const std::uint32_t> positions) noexcept;

}  // namespace tq::bridges
