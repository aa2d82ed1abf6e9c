#include "session/DuckSource.h"

#include <AudioToolbox/AudioToolbox.h>
#include <sndfile.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <vector>

namespace tqrecorder {
namespace {

constexpr float kSilence = -1000;
constexpr double kWindowSeconds = 0.02;
constexpr std::size_t kLargestSlice = 8192;
/// 6 hours of windows. What follows in a longer file counts as silence.
constexpr std::size_t kMostWindows = 1'080'000;

float decibels(double squares, std::size_t samples) {
    return squares > 0 && samples > 0
               ? static_cast<float>(10 * std::log10(squares / static_cast<double>(samples)))
               : kSilence;
}

class FileLevel final : public DuckSource {
  public:
    [[nodiscard]] bool read(const std::string& path, std::string& error) {
        SF_INFO info{};
        const std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file(
            sf_open(path.c_str(), SFM_READ, &info), &sf_close);
        if (file == nullptr) {
            error = path + ": " + sf_strerror(nullptr);
            return false;
        }
        const auto frames = std::max<sf_count_t>(
            1, static_cast<sf_count_t>(kWindowSeconds * static_cast<double>(info.samplerate)));
        std::vector<float> window(static_cast<std::size_t>(frames * info.channels));
        for (sf_count_t got = 0; levels_.size() < kMostWindows &&
                                 (got = sf_readf_float(file.get(), window.data(), frames)) > 0;) {
            const auto count = static_cast<std::size_t>(got * info.channels);
            double squares = 0;
            for (std::size_t i = 0; i < count; ++i) {
                squares += static_cast<double>(window[i]) * static_cast<double>(window[i]);
            }
            levels_.push_back(decibels(squares, count));
        }
        return true;
    }
    [[nodiscard]] float level(std::uint64_t microseconds) override {
        const auto window =
            static_cast<std::size_t>(static_cast<double>(microseconds) / 1e6 / kWindowSeconds);
        return window < levels_.size() ? levels_[window] : kSilence;
    }

  private:
    std::vector<float> levels_;
};

/// The platform's microphone, opened in the recorder: in the host its unit would look like one of
/// the host's own.
class MicrophoneLevel final : public DuckSource {
  public:
    ~MicrophoneLevel() override {
        if (unit_ != nullptr) {
            AudioOutputUnitStop(unit_);
            AudioUnitUninitialize(unit_);
            AudioComponentInstanceDispose(unit_);
        }
    }
    [[nodiscard]] bool start(std::string& error) {
        const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                               kAudioUnitManufacturer_Apple, 0, 0};
        constexpr double kSampleRate = 48000;
        const UInt32 on = 1;
        const UInt32 off = 0;
        AudioStreamBasicDescription format{};
        format.mSampleRate = kSampleRate;
        format.mFormatID = kAudioFormatLinearPCM;
        format.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
        format.mBytesPerPacket = sizeof(float);
        format.mFramesPerPacket = 1;
        format.mBytesPerFrame = sizeof(float);
        format.mChannelsPerFrame = 1;
        format.mBitsPerChannel = 32;
        const AURenderCallbackStruct callback{&MicrophoneLevel::listen, this};
        OSStatus status =
            AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit_);
        const auto set = [&](AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element,
                             const void* data, UInt32 size) {
            if (status == noErr) {
                status = AudioUnitSetProperty(unit_, id, scope, element, data, size);
            }
        };
        set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, &on, sizeof on);
        set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, 0, &off, sizeof off);
        set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 1, &format, sizeof format);
        set(kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 0, &callback,
            sizeof callback);
        status = status == noErr ? AudioUnitInitialize(unit_) : status;
        status = status == noErr ? AudioOutputUnitStart(unit_) : status;
        if (status != noErr) {
            error =
                "the microphone cannot be opened: the platform answers " + std::to_string(status);
        }
        return status == noErr;
    }
    [[nodiscard]] float level(std::uint64_t /*microseconds*/) override {
        return level_.load(std::memory_order_relaxed);
    }

  private:
    /// [render thread]
    static OSStatus listen(void* refCon, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                           AudioBufferList* /*data*/) noexcept {
        auto& self = *static_cast<MicrophoneLevel*>(refCon);
        if (frames > kLargestSlice) {
            return kAudioUnitErr_TooManyFramesToProcess;
        }
        AudioBufferList list{};
        list.mNumberBuffers = 1;
        list.mBuffers[0].mNumberChannels = 1;
        list.mBuffers[0].mDataByteSize = frames * static_cast<UInt32>(sizeof(float));
        list.mBuffers[0].mData = self.heard_.data();
        const OSStatus status = AudioUnitRender(self.unit_, flags, time, bus, frames, &list);
        if (status == noErr) {
            double squares = 0;
            for (UInt32 i = 0; i < frames; ++i) {
                squares +=
                    static_cast<double>(self.heard_[i]) * static_cast<double>(self.heard_[i]);
            }
            self.level_.store(decibels(squares, frames), std::memory_order_relaxed);
        }
        return status;
    }

    AudioUnit unit_ = nullptr;
    std::array<float, kLargestSlice> heard_{};
    std::atomic<float> level_{kSilence};
};

}  // namespace

std::unique_ptr<DuckSource> DuckSource::open(const std::string& source, std::string& error) {
    if (source == "microphone") {
        auto microphone = std::make_unique<MicrophoneLevel>();
        return microphone->start(error) ? std::move(microphone) : nullptr;
    }
    auto file = std::make_unique<FileLevel>();
    return file->read(source, error) ? std::move(file) : nullptr;
}

}  // namespace tqrecorder
