#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "core/Records.h"

namespace tqrecorder {

/// Loudness as EBU R128 measures it, of a stream of any length in bounded memory.
class Loudness {
  public:
    /// Null for a format that cannot be measured.
    [[nodiscard]] static std::unique_ptr<Loudness> of(const BlockFormat& format);
    ~Loudness();
    Loudness(const Loudness&) = delete;
    Loudness& operator=(const Loudness&) = delete;

    /// `frames` interleaved frames, full scale 1.
    void add(const float* samples, std::size_t frames);
    void addSilence(std::uint64_t frames);

    /// Integrated, LUFS; nothing where no 0.4 s of it were louder than -70 LUFS.
    [[nodiscard]] std::optional<double> integrated() const;
    /// The highest peak between the samples too, full scale 1.
    [[nodiscard]] double truePeak() const;

  private:
    class State;
    explicit Loudness(std::unique_ptr<State> state);

    std::unique_ptr<State> state_;
};

}  // namespace tqrecorder
