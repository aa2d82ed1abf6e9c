#include "Effects.h"

#include <algorithm>
#include <utility>

namespace game {

Effects::Effects(std::vector<Clip<SInt16>> clips) : clips_(std::move(clips)) {
    check(NewAUGraph(&graph_), "NewAUGraph");
    try {
        build();
    } catch (...) {
        DisposeAUGraph(graph_);
        throw;
    }
}

Effects::~Effects() {
    AUGraphStop(graph_);
    AUGraphUninitialize(graph_);
    AUGraphClose(graph_);
    DisposeAUGraph(graph_);
}

void Effects::build() {
    const AudioComponentDescription mixerDescription =
        componentDescription(kAudioUnitType_Mixer, kAudioUnitSubType_MultiChannelMixer);
    const AudioComponentDescription outputDescription =
        componentDescription(kAudioUnitType_Output, kAudioUnitSubType_RemoteIO);
    AUNode mixerNode = 0;
    AUNode outputNode = 0;
    check(AUGraphAddNode(graph_, &mixerDescription, &mixerNode), "adding the mixer");
    check(AUGraphAddNode(graph_, &outputDescription, &outputNode), "adding the output");
    check(AUGraphConnectNodeInput(graph_, mixerNode, 0, outputNode, 0), "connecting the mixer");
    check(AUGraphOpen(graph_), "AUGraphOpen");
    check(AUGraphNodeInfo(graph_, mixerNode, nullptr, &mixer_), "AUGraphNodeInfo");

    const UInt32 count = kBuses;
    check(AudioUnitSetProperty(mixer_, kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0,
                               &count, sizeof count),
          "setting the mixer's buses");
    const AudioStreamBasicDescription format = shortFormat(kSampleRate, kChannels);
    for (UInt32 bus = 0; bus < kBuses; ++bus) {
        const AURenderCallbackStruct callback{&Effects::render, &buses_[bus]};
        check(AUGraphSetNodeInputCallback(graph_, mixerNode, bus, &callback),
              "setting a mixer callback");
        check(AudioUnitSetProperty(mixer_, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                   bus, &format, sizeof format),
              "setting a mixer format");
    }
    check(AudioUnitSetProperty(mixer_, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0,
                               &format, sizeof format),
          "setting the mixer's output format");
    check(AUGraphInitialize(graph_), "AUGraphInitialize");
}

void Effects::start() {
    check(AUGraphStart(graph_), "AUGraphStart");
}

void Effects::stop() {
    check(AUGraphStop(graph_), "AUGraphStop");
}

void Effects::trigger(std::size_t index, UInt32 bus, float volume, float pan) {
    check(AudioUnitSetParameter(mixer_, kMultiChannelMixerParam_Volume, kAudioUnitScope_Input, bus,
                                volume, 0),
          "setting an effect's volume");
    check(AudioUnitSetParameter(mixer_, kMultiChannelMixerParam_Pan, kAudioUnitScope_Input, bus,
                                pan, 0),
          "setting an effect's place");
    // Written by the game, taken by the render thread, whose acquire sees the clip complete.
    buses_[bus].next.store(&clips_[index], std::memory_order_release);
}

OSStatus Effects::render(void* refCon, AudioUnitRenderActionFlags* flags,
                         const AudioTimeStamp* /*time*/, UInt32 /*bus*/, UInt32 frames,
                         AudioBufferList* data) noexcept {
    Bus& bus = *static_cast<Bus*>(refCon);
    if (const Clip<SInt16>* next = bus.next.exchange(nullptr, std::memory_order_acquire)) {
        bus.playing = next;
        bus.position = 0;
    }
    auto* out = static_cast<SInt16*>(data->mBuffers[0].mData);
    const std::size_t wanted = std::size_t{frames} * kChannels;
    std::size_t copied = 0;
    if (bus.playing != nullptr) {
        const std::vector<SInt16>& samples = bus.playing->samples;
        copied = std::min(wanted, samples.size() - bus.position);
        std::copy_n(samples.data() + bus.position, copied, out);
        bus.position += copied;
        if (bus.position == samples.size()) {
            bus.playing = nullptr;
        }
    }
    std::fill(out + copied, out + wanted, SInt16{0});
    if (copied == 0) {
        *flags |= kAudioUnitRenderAction_OutputIsSilence;
    }
    return noErr;
}

}  // namespace game
