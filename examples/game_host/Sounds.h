#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstddef>
#include <string>
#include <vector>

namespace game {

/// A whole sound in memory: interleaved, at the rate and channel count that it was asked for.
template <class Sample>
struct Clip {
    std::size_t channels = 1;
    std::vector<Sample> samples;

    [[nodiscard]] std::size_t frames() const { return samples.size() / channels; }
};

/// Finds, decodes and converts the game's sounds.
class Sounds {
  public:
    /// `folder` holds all sounds side by side; when it is empty they are taken from where their
    /// Debian packages install them.
    explicit Sounds(std::string folder);

    /// `name` is the path below /usr/share; a folder of one's own holds the last part of it.
    /// Both throw HostError when the file is missing, damaged or empty.
    [[nodiscard]] Clip<float> loadFloat(const std::string& name, int sampleRate,
                                        int channels) const;
    [[nodiscard]] Clip<SInt16> loadShort(const std::string& name, int sampleRate,
                                         int channels) const;

  private:
    [[nodiscard]] std::string pathOf(const std::string& name) const;

    std::string folder_;
};

}  // namespace game
