#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstdint>
#include <string>
#include <vector>

/// A host as the library meets it: an output unit whose render callback plays one sine and
/// remembers every sample that it rendered.
class ToneHost {
  public:
    struct Format {
        double sampleRate;
        unsigned channels;
        bool isFloat;  ///< 32-bit float, else 16-bit integer
        bool isInterleaved;
    };

    /// Makes, sets up and initialises the unit; amplitude is of full scale.
    ToneHost(const Format& format, double frequency, double amplitude,
             OSType subType = kAudioUnitSubType_RemoteIO);
    ~ToneHost();
    ToneHost(const ToneHost&) = delete;
    ToneHost& operator=(const ToneHost&) = delete;

    void start();
    void stop();
    void dispose();
    [[nodiscard]] AudioUnit unit() const { return unit_; }
    /// Everything rendered so far, one plane per channel, as 16-bit samples: float ones truncated
    /// the way the library converts them.
    [[nodiscard]] const std::vector<std::vector<std::int16_t>>& rendered() const {
        return rendered_;
    }
    [[nodiscard]] std::uint64_t callbacks() const { return callbacks_; }

  private:
    static OSStatus render(void* refCon, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* ts, UInt32 bus, UInt32 frames,
                           AudioBufferList* ioData);

    Format format_;
    double frequency_;
    double amplitude_;
    AudioUnit unit_ = nullptr;
    std::uint64_t frame_ = 0;
    std::uint64_t callbacks_ = 0;
    std::vector<std::vector<std::int16_t>> rendered_;
};

/// One running unit's component, by subtype of the output type.
AudioUnit newOutputUnit(OSType subType);
/// The description of a host format.
AudioStreamBasicDescription describe(const ToneHost::Format& format);
