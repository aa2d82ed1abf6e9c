#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

struct SwrContext;

namespace mixing {

inline constexpr int kTracks = 7;
inline constexpr double kInputRate = 48000;
inline constexpr double kOutputRate = 44100;
inline constexpr UInt32 kFrames = 512;

/// A sample of a mono signal at a time in frames of 48000 Hz.
using Signal = std::function<float(std::uint64_t frame)>;

/// The platform's mixer, `tracks` of its buses fed with planar stereo float of 48000 Hz.
class OurMixer {
  public:
    /// Every bus plays `signal`; `isFloat` says what comes out, 16-bit integers or floats.
    OurMixer(int tracks, const Signal& signal, bool isFloat);
    ~OurMixer();
    OurMixer(const OurMixer&) = delete;
    OurMixer& operator=(const OurMixer&) = delete;

    /// The next frames, interleaved stereo in the mixer's output format.
    const void* pull(UInt32 frames = kFrames);
    /// Frames of one bus that were asked for so far.
    [[nodiscard]] std::uint64_t consumed() const;

  private:
    struct Source;
    AudioUnit unit_ = nullptr;
    std::vector<std::unique_ptr<Source>> sources_;
    std::vector<float> memory_;
    double time_ = 0;
    bool isFloat_;
};

/// Seven swresample streams of their own, summed and limited to 16 bits.
class SwresampleTracks {
  public:
    explicit SwresampleTracks(const Signal& signal);
    const std::int16_t* pull();

  private:
    struct Free {
        void operator()(SwrContext* context) const;
    };
    void convert(SwrContext& context, float* planes[2]);

    std::vector<std::unique_ptr<SwrContext, Free>> streams_;
    std::vector<float> input_;
    std::vector<float> left_;
    std::vector<float> right_;
    std::vector<float> sum_;
    std::vector<std::int16_t> mix_;
};

}  // namespace mixing
