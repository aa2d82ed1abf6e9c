#pragma once

#include <AudioToolbox/AudioToolbox.h>
#include <TQPlatform/ManualDevice.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <vector>

// What tests of units and graphs share: callbacks as lambdas, units by kind, and the manual device
// with what it played.

namespace platform {

inline constexpr Float64 deviceRate = 48000;

/// A render callback, input callback or notify as a lambda. The object is the reference constant.
struct Callback {
    using Body =
        std::function<OSStatus(AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time,
                               UInt32 bus, UInt32 frames, AudioBufferList* list)>;
    Body body;
    int calls = 0;

    static OSStatus proc(void* refCon, AudioUnitRenderActionFlags* flags,
                         const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                         AudioBufferList* list) {
        auto& self = *static_cast<Callback*>(refCon);
        ++self.calls;
        return self.body ? self.body(*flags, *time, bus, frames, list) : OSStatus{noErr};
    }
    AURenderCallbackStruct structure() { return {proc, this}; }
};

inline AudioComponentDescription description(OSType type, OSType subType) {
    return {type, subType, kAudioUnitManufacturer_Apple, 0, 0};
}
inline AudioComponentDescription remoteIO() {
    return description(kAudioUnitType_Output, kAudioUnitSubType_RemoteIO);
}
inline AudioComponentDescription genericOutput() {
    return description(kAudioUnitType_Output, kAudioUnitSubType_GenericOutput);
}
inline AudioComponentDescription mixer() {
    return description(kAudioUnitType_Mixer, kAudioUnitSubType_MultiChannelMixer);
}
inline AudioComponentDescription converter() {
    return description(kAudioUnitType_FormatConverter, kAudioUnitSubType_AUConverter);
}

inline AudioUnit makeUnit(const AudioComponentDescription& wanted) {
    AudioUnit unit = nullptr;
    EXPECT_EQ(AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit), noErr);
    return unit;
}

/// A unit that is disposed of at the end.
class OwnedUnit {
  public:
    explicit OwnedUnit(const AudioComponentDescription& wanted) : unit_(makeUnit(wanted)) {}
    ~OwnedUnit() { AudioComponentInstanceDispose(unit_); }
    OwnedUnit(const OwnedUnit&) = delete;
    OwnedUnit& operator=(const OwnedUnit&) = delete;
    operator AudioUnit() const { return unit_; }

  private:
    AudioUnit unit_;
};

template <class T>
OSStatus set(AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element,
             const T& value) {
    return AudioUnitSetProperty(unit, id, scope, element, &value, sizeof value);
}

template <class T>
T get(AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element) {
    T value{};
    UInt32 size = sizeof value;
    EXPECT_EQ(AudioUnitGetProperty(unit, id, scope, element, &value, &size), noErr);
    EXPECT_EQ(size, sizeof value);
    return value;
}

inline OSStatus setCallback(AudioUnit unit, UInt32 bus, Callback& callback,
                            AudioUnitScope scope = kAudioUnitScope_Input) {
    return set(unit, kAudioUnitProperty_SetRenderCallback, scope, bus, callback.structure());
}

inline OSStatus setFormat(AudioUnit unit, AudioUnitScope scope, UInt32 bus,
                          const AudioStreamBasicDescription& format) {
    return set(unit, kAudioUnitProperty_StreamFormat, scope, bus, format);
}

template <class Sample>
Sample* samples(AudioBufferList* list, UInt32 buffer = 0) {
    return static_cast<Sample*>(list->mBuffers[buffer].mData);
}

/// The manual device: pumped by the test, keeps everything that it played.
class Player {
  public:
    Player() { EXPECT_EQ(TQManualDeviceSetOutput(hear, this), noErr); }
    ~Player() { TQManualDeviceSetOutput(nullptr, nullptr); }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    void pump(UInt32 frames) {
        hostTime_ += 1000;
        EXPECT_EQ(TQManualDevicePump(frames, hostTime_), noErr);
    }
    void pump(UInt32 frames, int times) {
        for (int i = 0; i < times; ++i) {
            pump(frames);
        }
    }
    [[nodiscard]] UInt64 hostTime() const { return hostTime_; }
    std::vector<float> left;
    std::vector<float> right;

  private:
    static void hear(void* refCon, const AudioTimeStamp*, UInt32 channels, UInt32 frames,
                     const float* const* planes) {
        auto& self = *static_cast<Player*>(refCon);
        self.left.insert(self.left.end(), planes[0], planes[0] + frames);
        const float* const other = planes[channels > 1 ? 1 : 0];
        self.right.insert(self.right.end(), other, other + frames);
    }

    UInt64 hostTime_ = 1000;
};

/// Amplitude of a tone in samples from `first` on, by correlation over whole seconds' parts.
inline double amplitude(const std::vector<float>& heard, double frequency, double rate,
                        std::size_t first) {
    double sine = 0;
    double cosine = 0;
    for (std::size_t i = first; i < heard.size(); ++i) {
        const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / rate;
        sine += heard[i] * std::sin(phase);
        cosine += heard[i] * std::cos(phase);
    }
    return 2 * std::hypot(sine, cosine) / static_cast<double>(heard.size() - first);
}

}  // namespace platform
