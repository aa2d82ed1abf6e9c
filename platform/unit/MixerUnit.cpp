#include "unit/MixerUnit.h"

#include <algorithm>
#include <cstddef>

#include "unit/BusReader.h"
#include "unit/RateGroup.h"

namespace tqplatform {

using tqcommon::AudioView;
using tqcommon::ConstAudioView;

namespace {

/// Panning takes away on the other side only: in the middle both sides have it all.
void setGains(std::array<Float32, kMaximumChannels>& gains, UInt32 channels, Float32 volume,
              Float32 pan) noexcept {
    std::fill_n(gains.begin(), channels, volume);
    if (channels > 1) {
        gains[0] *= std::min(1.0F, 1.0F - pan);
        gains[1] *= std::min(1.0F, 1.0F + pan);
    }
}

}  // namespace

struct MixerUnit::Input {
    UInt32 bus;
    InputSource source;
    bool allocate;
    std::shared_ptr<BusReader> reader;
    std::shared_ptr<RateGroup> group;
};

struct MixerUnit::Plan : RenderPlan {
    std::vector<Input> inputs;  ///< those with a source, in bus order
    std::vector<std::shared_ptr<RateGroup>> groups;
    std::shared_ptr<tqcommon::Planes> bus;  ///< one bus at its own rate
    std::shared_ptr<tqcommon::Planes> mix;
};

MixerUnit::MixerUnit(const Component& component) : Unit(component) {
    constexpr Float64 kRate = 44100;
    inputs_.resize(kDefaultInputs);
    outputs_.resize(1);
    for (Bus& bus : inputs_) {
        bus.format = floatDescription(kRate, 2);
    }
    outputs_[0].format = floatDescription(kRate, 2);
}

bool MixerUnit::acceptsFormat(AudioUnitScope scope, const PCMFormat& format) {
    return scope == kAudioUnitScope_Input || format.type == SampleType::int16 ||
           format.type == SampleType::int32 || format.type == SampleType::fixed824 ||
           format.type == SampleType::float32;
}

OSStatus MixerUnit::setInputCount(UInt32 count) {
    if (count == 0 || count > kMostInputs) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    const std::size_t before = inputs_.size();
    inputs_.resize(count);
    for (std::size_t i = before; i < count; ++i) {
        inputs_[i].format = floatDescription(outputs_[0].format.mSampleRate, 2);
        levels_[i].volume.set(1);
        levels_[i].enable.set(1);
        levels_[i].pan.set(0);
        levels_[i].meter.turn(false);
    }
    inputCount_.store(count);
    return republish();
}

std::unique_ptr<RenderPlan> MixerUnit::makePlan(const RenderPlan* old) {
    const auto* const last = static_cast<const Plan*>(old);
    auto plan = std::make_unique<Plan>();
    const PCMFormat out = parsed(outputs_[0].format);
    plan->maximumFrames = maximumFrames_;
    plan->outputs.push_back({out, outputs_[0].allocate, memoryFor(0, out, maximumFrames_)});
    const bool sameSize = last != nullptr && last->mix->channels() == out.channels &&
                          last->maximumFrames == maximumFrames_;
    plan->bus =
        sameSize ? last->bus : std::make_shared<tqcommon::Planes>(out.channels, maximumFrames_);
    plan->mix =
        sameSize ? last->mix : std::make_shared<tqcommon::Planes>(out.channels, maximumFrames_);

    // What went before is kept where it still fits: its converters know the past.
    const auto groupFor = [&](Float64 rate) {
        using Groups = std::vector<std::shared_ptr<RateGroup>>;
        const Groups* const known[] = {&plan->groups, last != nullptr ? &last->groups : nullptr};
        for (const Groups* groups : known) {
            if (groups == nullptr) {
                continue;
            }
            for (const auto& group : *groups) {
                if (group->fits(rate, out.sampleRate, out.channels, maximumFrames_)) {
                    return group;
                }
            }
        }
        return std::make_shared<RateGroup>(rate, out.sampleRate, out.channels, maximumFrames_);
    };
    const auto readerFor = [&](UInt32 bus, const PCMFormat& format) {
        const bool isFolded = out.channels == 2 && format.channels > 2;
        const ChannelFold fold =
            isFolded ? ChannelFold(busLayout(kAudioUnitScope_Input, bus)) : ChannelFold();
        if (last != nullptr) {
            for (const Input& input : last->inputs) {
                if (input.bus == bus &&
                    input.reader->fits(format, out.channels, maximumFrames_, fold)) {
                    return input.reader;
                }
            }
        }
        return std::make_shared<BusReader>(format, out.channels, maximumFrames_, fold);
    };
    for (UInt32 i = 0; i < inputs_.size(); ++i) {
        if (!inputs_[i].source.exists()) {
            continue;
        }
        const PCMFormat format = parsed(inputs_[i].format);
        const auto group = groupFor(format.sampleRate);
        if (std::find(plan->groups.begin(), plan->groups.end(), group) == plan->groups.end()) {
            plan->groups.push_back(group);
        }
        plan->inputs.push_back(
            {i, inputs_[i].source, inputs_[i].allocate, readerFor(i, format), group});
    }
    return plan;
}

void MixerUnit::addInput(const Input& input, const RenderCall& call,
                         const AudioView& planes) noexcept {
    Levels& levels = levels_[input.bus];
    const Float32 volume = levels.volume.load();
    const Float32 pan = levels.pan.load();
    std::array<Float32, kMaximumChannels> gains;
    setGains(gains, planes.channels(), volume, pan);
    const bool isVolumeRamped = levels.volumeRamp.begin(levels.volume);
    const bool isPanRamped = levels.panRamp.begin(levels.pan);
    const bool isRamped = isVolumeRamped || isPanRamped;
    LevelMeter* const meter = levels.meter.active();
    if (meter != nullptr) {
        meter->begin();
    }
    RateGroup& group = *input.group;
    const Float64 scale = call.frames / std::max(1.0, static_cast<Float64>(group.inputFrames()));
    AudioTimeStamp time = call.time;
    for (UInt32 done = 0; done < group.inputFrames();) {
        const UInt32 frames = std::min(group.inputFrames() - done, planes.frames());
        time.mSampleTime = group.sampleTime() + done;
        AudioUnitRenderActionFlags flags = 0;
        ConstAudioView found;
        const OSStatus status = input.reader->readInPlace(
            {input.source, input.allocate, input.bus, flags, time}, planes.slice(0, frames), found);
        if (status != noErr) {
            keepRenderError(status);
            break;  // this bus is silent, the others go on
        }
        if (meter != nullptr) {
            meter->add(found);
        }
        if (isRamped) {
            addRamped(input, levels, done, scale, found);
        } else {
            group.add(done, found, gains.data());
        }
        done += frames;
    }
    if (isVolumeRamped) {
        levels.volumeRamp.end(call.frames, levels.volume);
    }
    if (isPanRamped) {
        levels.panRamp.end(call.frames, levels.pan);
    }
    if (meter != nullptr) {
        setGains(gains, planes.channels(), levels.volume.load(), levels.pan.load());
        meter->end(gains.data(), call.frames, group.outputRate(), sliceCount());
    }
}

void MixerUnit::addRamped(const Input& input, const Levels& levels, UInt32 first, Float64 scale,
                          const ConstAudioView& found) noexcept {
    std::array<Float32, kMaximumChannels> gains;
    const Float32 volume = levels.volume.load();
    const Float32 pan = levels.pan.load();
    for (UInt32 i = 0; i < found.frames(); ++i) {
        const Float64 frame = (first + i) * scale;
        setGains(gains, found.channels(), levels.volumeRamp.at(frame, volume),
                 levels.panRamp.at(frame, pan));
        input.group->add(first + i, found.slice(i, 1), gains.data());
    }
}

OSStatus MixerUnit::renderBus(const RenderPlan& base, const RenderCall& call) noexcept {
    const auto& plan = static_cast<const Plan&>(base);
    const bool restart = takeRestart();
    for (const auto& group : plan.groups) {
        if (restart) {
            group->restart();
        }
        group->begin(call.frames, call.time.mSampleTime);
    }
    for (const Input& input : plan.inputs) {
        if (levels_[input.bus].enable.load() >= 0.5F) {
            addInput(input, call, plan.bus->view());
        }
    }
    const AudioView mix = plan.mix->view(call.frames);
    if (plan.groups.empty()) {
        silence(mix);
    }
    bool isFirst = true;
    for (const auto& group : plan.groups) {
        group->finish(mix, isFirst);
        isFirst = false;
    }
    LevelMeter* const meter = outputMeter_.active();
    if (meter != nullptr) {
        meter->begin();
        meter->add(mix);
    }
    const Float32 volume = outputVolume_.load();
    if (outputRamp_.begin(outputVolume_)) {
        for (UInt32 i = 0; i < call.frames; ++i) {
            const Float32 gain = outputRamp_.at(i, volume);
            for (UInt32 channel = 0; channel < mix.channels(); ++channel) {
                mix.plane(channel)[i] *= gain;
            }
        }
        outputRamp_.end(call.frames, outputVolume_);
    } else if (volume != 1.0F) {
        for (UInt32 channel = 0; channel < mix.channels(); ++channel) {
            float* const plane = mix.plane(channel);
            for (UInt32 i = 0; i < call.frames; ++i) {
                plane[i] *= volume;
            }
        }
    }
    if (meter != nullptr) {
        std::array<Float32, kMaximumChannels> gains;
        setGains(gains, mix.channels(), outputVolume_.load(), 0);
        meter->end(gains.data(), call.frames, plan.outputs[0].format.sampleRate, sliceCount());
    }
    fromFloat(mix, plan.outputs[0].format, call.list);
    if (plan.inputs.empty()) {
        call.flags |= kAudioUnitRenderAction_OutputIsSilence;
    }
    return noErr;
}

}  // namespace tqplatform
