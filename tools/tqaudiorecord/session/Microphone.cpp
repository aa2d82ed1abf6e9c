#include "session/Microphone.h"

#include <TQPlatform/Devices.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "ipc/Printable.h"

namespace tqrecorder {
namespace {

constexpr double kRate = 44100;  ///< the mix's
constexpr std::size_t kMostChannels = 2;
constexpr std::size_t kRingFrames = std::size_t{1} << 18U;  ///< 6 seconds
constexpr std::size_t kLargestSlice = 8192;
constexpr float kSilence = -1000;
constexpr std::uint64_t kNsPerMicrosecond = 1000;

AudioStreamBasicDescription format(std::uint32_t channels) {
    AudioStreamBasicDescription description{};
    description.mSampleRate = kRate;
    description.mFormatID = kAudioFormatLinearPCM;
    description.mFormatFlags = static_cast<AudioFormatFlags>(kAudioFormatFlagIsFloat) |
                               static_cast<AudioFormatFlags>(kAudioFormatFlagIsPacked);
    description.mFramesPerPacket = 1;
    description.mChannelsPerFrame = channels;
    description.mBitsPerChannel = 32;
    description.mBytesPerFrame = description.mBytesPerPacket =
        channels * static_cast<UInt32>(sizeof(float));
    return description;
}

float decibels(const std::vector<float>& samples, std::size_t count) {
    double squares = 0;
    for (std::size_t i = 0; i < count; ++i) {
        squares += static_cast<double>(samples[i]) * static_cast<double>(samples[i]);
    }
    return squares > 0 ? static_cast<float>(10 * std::log10(squares / static_cast<double>(count)))
                       : kSilence;
}

}  // namespace

bool Microphone::start(const std::string& name, std::string& error) {
    const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    name_ = name;
    // A device without any to choose from is one of silence.
    hasChoice_ = TQPreferMicrophone(name.c_str()) == noErr;
    OSStatus status = AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit_);
    const auto set = [&](AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element,
                         const auto& value) {
        if (status == noErr) {
            status = AudioUnitSetProperty(unit_, id, scope, element, &value, sizeof value);
        }
    };
    set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, UInt32{1});
    set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, 0, UInt32{0});
    AudioStreamBasicDescription own{};
    UInt32 size = sizeof own;
    if (status == noErr) {
        status = AudioUnitGetProperty(unit_, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                      1, &own, &size);
    }
    channels_ = std::clamp<std::uint32_t>(own.mChannelsPerFrame, 1, kMostChannels);
    ring_.assign(kRingFrames * channels_, 0.0F);
    taken_.reserve(kRingFrames * channels_);
    block_.assign(kLargestSlice * channels_, 0.0F);
    set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 1, format(channels_));
    set(kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 0,
        AURenderCallbackStruct{&Microphone::listen, this});
    status = status == noErr ? AudioUnitInitialize(unit_) : status;
    status = status == noErr ? AudioOutputUnitStart(unit_) : status;
    if (status != noErr) {
        error = "the microphone cannot be opened: the platform answers " + std::to_string(status);
        stop();
    }
    return status == noErr;
}

void Microphone::stop() {
    if (unit_ != nullptr) {
        AudioOutputUnitStop(unit_);
        AudioUnitUninitialize(unit_);
        AudioComponentInstanceDispose(unit_);
        unit_ = nullptr;
    }
}

bool Microphone::isOpen() {
    return TQIsHearing() != 0;
}

std::string Microphone::lack(bool isToDuck) const {
    // A server may answer others by now: what counts is whether the platform looks again.
    const bool mayCome = hasChoice_ && TQPreferMicrophone(name_.c_str()) == noErr;
    const char* const chosen = std::getenv("TQ_AUDIO_DEVICE");
    std::string line = "there is no microphone";
    line += name_.empty() ? "" : " called " + printable(name_);
    if (mayCome) {
        line += "; tqplatform-devices lists what there is";
        return line + (isToDuck ? ". Nothing is ducked before one comes" : "");
    }
    line += hasChoice_ || chosen == nullptr
                ? ", since no sound server or card can be reached"
                : ", since TQ_AUDIO_DEVICE=" + printable(chosen) + " chooses a device without one";
    return line + "; one that comes later is not heard" + (isToDuck ? ". Nothing is ducked" : "");
}

OSStatus Microphone::listen(void* self, AudioUnitRenderActionFlags* flags,
                            const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                            AudioBufferList* /*data*/) noexcept {
    return static_cast<Microphone*>(self)->listen(flags, *time, bus, frames);
}

OSStatus Microphone::listen(AudioUnitRenderActionFlags* flags, const AudioTimeStamp& time,
                            UInt32 bus, UInt32 frames) noexcept {
    if (frames > kLargestSlice) {
        return kAudioUnitErr_TooManyFramesToProcess;
    }
    AudioBufferList list{};
    list.mNumberBuffers = 1;
    list.mBuffers[0].mNumberChannels = channels_;
    list.mBuffers[0].mDataByteSize = frames * channels_ * static_cast<UInt32>(sizeof(float));
    list.mBuffers[0].mData = block_.data();
    const OSStatus status = AudioUnitRender(unit_, flags, &time, bus, frames, &list);
    if (status != noErr) {
        return status;
    }
    const std::size_t samples = std::size_t{frames} * channels_;
    level_.store(decibels(block_, samples), std::memory_order_relaxed);
    const std::uint64_t written = written_.load(std::memory_order_relaxed);
    const bool hasRoom =
        written - read_.load(std::memory_order_acquire) < kBlocks &&
        frames_ + frames - readFrames_.load(std::memory_order_relaxed) <= kRingFrames;
    // What finds no room is missed in the count of time, and silence of its length.
    lost_ += hasRoom ? 0 : frames;
    if (hasRoom) {
        for (std::size_t i = 0; i < samples; ++i) {
            ring_[(frames_ * channels_ + i) & (ring_.size() - 1)] = block_[i];
        }
        headers_[written % kBlocks] = {time.mHostTime / kNsPerMicrosecond, frames_, frames,
                                       std::exchange(lost_, 0)};
        frames_ += frames;
        written_.store(written + 1, std::memory_order_release);
    }
    return noErr;
}

void Microphone::take(const std::function<void(const HeardBlock&)>& each) {
    const bool isNowOpen = isOpen();
    for (std::uint64_t read = read_.load(std::memory_order_relaxed);
         read != written_.load(std::memory_order_acquire); ++read) {
        const Header& header = headers_[read % kBlocks];
        taken_.resize(std::size_t{header.frames} * channels_);
        for (std::size_t i = 0; i < taken_.size(); ++i) {
            taken_[i] = ring_[(header.first * channels_ + i) & (ring_.size() - 1)];
        }
        each({header.microseconds, channels_, taken_, isNowOpen, header.lost});
        readFrames_.store(header.first + header.frames, std::memory_order_relaxed);
        read_.store(read + 1, std::memory_order_release);
    }
}

}  // namespace tqrecorder
