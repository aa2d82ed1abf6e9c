#include "mixer_tracks.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <sample_conversion.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace mixing {

namespace {

/// A second of the signal, again and again; what plays it must not pay for computing it.
constexpr std::size_t kMemory = 48000;

void must(OSStatus status) {
    if (status != noErr) {
        throw std::runtime_error("mixer: " + std::to_string(status));
    }
}

AudioStreamBasicDescription description(double rate, bool isFloat, bool isPlanar) {
    const UInt32 bytes = isFloat ? 4 : 2;
    AudioStreamBasicDescription format{};
    format.mSampleRate = rate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags =
        (isFloat ? UInt32{kAudioFormatFlagIsFloat} : UInt32{kAudioFormatFlagIsSignedInteger}) |
        kAudioFormatFlagIsPacked | (isPlanar ? UInt32{kAudioFormatFlagIsNonInterleaved} : 0);
    format.mBytesPerFrame = isPlanar ? bytes : 2 * bytes;
    format.mBytesPerPacket = format.mBytesPerFrame;
    format.mFramesPerPacket = 1;
    format.mChannelsPerFrame = 2;
    format.mBitsPerChannel = 8 * bytes;
    return format;
}

std::vector<float> remember(const Signal& signal) {
    std::vector<float> second(kMemory);
    for (std::size_t i = 0; i < kMemory; ++i) {
        second[i] = signal(i);
    }
    return second;
}

}  // namespace

struct OurMixer::Source {
    std::vector<float> second;
    std::uint64_t consumed = 0;

    static OSStatus render(void* refCon, AudioUnitRenderActionFlags* /*flags*/,
                           const AudioTimeStamp* /*time*/, UInt32 /*bus*/, UInt32 frames,
                           AudioBufferList* list) {
        auto& self = *static_cast<Source*>(refCon);
        for (UInt32 b = 0; b < list->mNumberBuffers; ++b) {
            auto* target = static_cast<float*>(list->mBuffers[b].mData);
            for (UInt32 done = 0; done < frames;) {
                const std::size_t at = (self.consumed + done) % kMemory;
                const std::size_t run = std::min<std::size_t>(frames - done, kMemory - at);
                std::memcpy(target + done, self.second.data() + at, run * sizeof(float));
                done += static_cast<UInt32>(run);
            }
        }
        self.consumed += frames;
        return noErr;
    }
};

OurMixer::OurMixer(int tracks, const Signal& signal, bool isFloat)
    : memory_(2 * 4096), isFloat_(isFloat) {
    const AudioComponentDescription wanted{kAudioUnitType_Mixer,
                                           kAudioUnitSubType_MultiChannelMixer,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    must(AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit_));
    const auto output = description(kOutputRate, isFloat, false);
    must(AudioUnitSetProperty(unit_, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0,
                              &output, sizeof output));
    const UInt32 most = 4096;
    must(AudioUnitSetProperty(unit_, kAudioUnitProperty_MaximumFramesPerSlice,
                              kAudioUnitScope_Global, 0, &most, sizeof most));
    const auto input = description(kInputRate, true, true);
    for (int track = 1; track <= tracks; ++track) {
        const auto bus = static_cast<UInt32>(track);
        sources_.push_back(std::make_unique<Source>());
        sources_.back()->second = remember(signal);
        const AURenderCallbackStruct callback{Source::render, sources_.back().get()};
        must(AudioUnitSetProperty(unit_, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                  bus, &input, sizeof input));
        must(AudioUnitSetProperty(unit_, kAudioUnitProperty_SetRenderCallback,
                                  kAudioUnitScope_Input, bus, &callback, sizeof callback));
    }
    must(AudioUnitInitialize(unit_));
}

OurMixer::~OurMixer() {
    AudioComponentInstanceDispose(unit_);
}

const void* OurMixer::pull(UInt32 frames) {
    AudioBufferList list{};
    list.mNumberBuffers = 1;
    list.mBuffers[0].mNumberChannels = 2;
    list.mBuffers[0].mDataByteSize = frames * (isFloat_ ? 8 : 4);
    list.mBuffers[0].mData = memory_.data();
    AudioUnitRenderActionFlags flags = 0;
    AudioTimeStamp time{};
    time.mFlags = kAudioTimeStampSampleTimeValid;
    time.mSampleTime = time_;
    time_ += frames;
    must(AudioUnitRender(unit_, &flags, &time, 0, frames, &list));
    return list.mBuffers[0].mData;
}

std::uint64_t OurMixer::consumed() const {
    return sources_.front()->consumed;
}

void SwresampleTracks::Free::operator()(SwrContext* context) const {
    swr_free(&context);
}

SwresampleTracks::SwresampleTracks(const Signal& signal)
    : input_(remember(signal)), left_(4096), right_(4096), sum_(2 * kFrames), mix_(2 * kFrames) {
    AVChannelLayout stereo{};
    av_channel_layout_default(&stereo, 2);
    for (int track = 0; track < kTracks; ++track) {
        SwrContext* context = nullptr;
        if (swr_alloc_set_opts2(&context, &stereo, AV_SAMPLE_FMT_FLTP, 44100, &stereo,
                                AV_SAMPLE_FMT_FLTP, 48000, 0, nullptr) < 0) {
            throw std::runtime_error("swresample");
        }
        streams_.emplace_back(context);
        av_opt_set_int(context, "filter_size", 96, 0);
        av_opt_set_double(context, "cutoff", 0.95, 0);
        av_opt_set_double(context, "kaiser_beta", 10, 0);
        av_opt_set_sample_fmt(context, "internal_sample_fmt", AV_SAMPLE_FMT_FLTP, 0);
        if (swr_init(context) < 0) {
            throw std::runtime_error("swresample");
        }
    }
}

/// Exactly kFrames out of one stream, fed with as much as that takes.
void SwresampleTracks::convert(SwrContext& context, float* planes[2]) {
    constexpr int kFeed = 16;
    const auto* source = reinterpret_cast<const std::uint8_t*>(input_.data());
    const std::uint8_t* in[2] = {source, source};
    int done = 0;
    int feed = static_cast<int>(kFrames * kInputRate / kOutputRate);
    while (done < static_cast<int>(kFrames)) {
        std::uint8_t* out[2] = {reinterpret_cast<std::uint8_t*>(planes[0] + done),
                                reinterpret_cast<std::uint8_t*>(planes[1] + done)};
        done += swr_convert(&context, out, static_cast<int>(kFrames) - done, in, feed);
        feed = kFeed;
    }
}

const std::int16_t* SwresampleTracks::pull() {
    std::fill(sum_.begin(), sum_.end(), 0.0F);
    for (const auto& stream : streams_) {
        float* planes[2] = {left_.data(), right_.data()};
        convert(*stream, planes);
        for (UInt32 i = 0; i < kFrames; ++i) {
            sum_[2 * i] += left_[i];
            sum_[2 * i + 1] += right_[i];
        }
    }
    korva_audio_utils::ConvertFloatToInt16(sum_.data(), mix_.data(), sum_.size());
    return mix_.data();
}

}  // namespace mixing
