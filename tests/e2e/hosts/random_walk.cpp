#include <pthread.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "Host.h"

// Calls in an order that no sane host would choose, from the seed that TQ_TEST_SEED names: units
// and graphs are made, also on voice engines' threads, fed, initialised, started and let go, right
// or wrong, their microphones come and go, a recording stops and starts, and a slice is played
// between any two calls. What each call answers is summed up in one number, said at the end.
// TQ_TEST_TRACE=1 tells every step on standard error.

namespace {

constexpr int kSteps = 1500;
constexpr std::size_t kUnits = 9;
constexpr std::size_t kGraphs = 3;
constexpr std::size_t kTones = 6;

class Walk {
  public:
    Walk(HostDevice& device, std::uint32_t seed) : device_(device), state_(seed * 2654435761U + 1) {
        for (std::size_t i = 0; i < kTones; ++i) {
            tones_.push_back(std::make_unique<Tone>(seed + static_cast<std::uint32_t>(i) * 97));
        }
    }

    void run() {
        for (; step_ < kSteps; ++step_) {
            if (step_ == kSteps / 4) {
                device_.openLibrary();
            }
            if (chance(3, 5)) {
                stepUnit(units_[draw(kUnits)]);
            } else {
                stepGraph(graphs_[draw(kGraphs)]);
            }
            if (chance(1, 40)) {
                HostDevice::toggleRecording();
            }
            device_.pump(1, 32);
        }
        std::printf("answers=%08x\n", answers_);
    }

  private:
    struct Feed {
        AudioUnit unit = nullptr;
        AudioUnit mixer = nullptr;  ///< may be connected to it
    };
    struct Net {
        AUGraph graph = nullptr;
        AUNode output = 0;
        AUNode mixer = 0;
    };

    std::uint32_t draw(std::size_t below) {
        state_ = state_ * 1664525U + 1013904223U;
        return static_cast<std::uint32_t>((std::uint64_t{state_} * below) >> 32U);
    }
    bool chance(std::uint32_t of, std::uint32_t in) { return draw(in) < of; }
    AURenderCallbackStruct anyCallback() {
        return chance(1, 8) ? AURenderCallbackStruct{} : tones_[draw(kTones)]->callback();
    }
    /// Takes part in what the walk says at its end.
    void note(const char* what, const void* object, OSStatus status) {
        answers_ = answers_ * 31 + static_cast<std::uint32_t>(status);
        if (isTraced_) {
            std::fprintf(stderr, "%d %s %zu: %d\n", step_, what, nameOf(object),
                         static_cast<int>(status));
        }
    }
    std::size_t nameOf(const void* object) const {
        for (std::size_t i = 0; i < kUnits; ++i) {
            if (object == units_[i].unit) {
                return i;
            }
        }
        for (std::size_t i = 0; i < kGraphs; ++i) {
            if (object == graphs_[i].graph) {
                return 100 + i;
            }
        }
        return 999;
    }

    void stepUnit(Feed& feed) {
        if (feed.unit == nullptr) {
            if (chance(1, 6)) {
                onVoiceEnginesThread([&] { feed.unit = newOutputUnit(); });
            } else {
                feed.unit = newOutputUnit();
            }
            note("new", feed.unit, 0);
            return;
        }
        const AudioUnit unit = feed.unit;
        switch (draw(17)) {
            case 16:
                setMicrophone(unit, unit);
                break;
            case 0:
            case 1:
            case 2:
                setUnitCallback(unit, unit);
                break;
            case 3:
            case 4:
                note("initialize", unit, AudioUnitInitialize(unit));
                break;
            case 5:
                note("uninitialize", unit, AudioUnitUninitialize(unit));
                break;
            case 6:
            case 7:
            case 8:
            case 9:
                note("start", unit, AudioOutputUnitStart(unit));
                break;
            case 10:
            case 11:
                note("stop", unit, AudioOutputUnitStop(unit));
                break;
            case 12:
                connect(feed);
                break;
            case 13:
                if (chance(1, 2)) {
                    letGo(feed);
                }
                break;
            default:
                note("initialize", unit, AudioUnitInitialize(unit));
                note("start", unit, AudioOutputUnitStart(unit));
                break;
        }
    }

    void setUnitCallback(AudioUnit unit, const void* named) {
        const AURenderCallbackStruct callback = anyCallback();
        constexpr std::array<AudioUnitScope, 6> kScopes{
            kAudioUnitScope_Input,  kAudioUnitScope_Input,  kAudioUnitScope_Global,
            kAudioUnitScope_Global, kAudioUnitScope_Output, kAudioUnitScope_Input};
        const AudioUnitScope scope = kScopes[draw(kScopes.size())];
        const AudioUnitElement element = chance(1, 10) ? 1 : 0;
        note("unit callback", named,
             AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, scope, element,
                                  &callback, sizeof(callback)));
    }

    /// Refused once the unit is initialised.
    void setMicrophone(AudioUnit unit, const void* named) {
        const UInt32 isOn = chance(1, 2) ? 1 : 0;
        note("microphone", named,
             AudioUnitSetProperty(unit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1,
                                  &isOn, sizeof(isOn)));
    }

    /// Units that are made on such a thread are left alone.
    template <class Body>
    void onVoiceEnginesThread(const Body& body) {
        constexpr std::array<const char*, 3> kNames{"AgoraServiceThr", "VeqDeviceThread",
                                                    "MWAudioDeviceTh"};
        const char* const name = kNames[draw(kNames.size())];
        std::thread([&] {
            pthread_setname_np(pthread_self(), name);
            body();
        }).join();
    }

    /// A mixer with a tone feeds the unit, or nothing any more.
    void connect(Feed& feed) {
        if (feed.mixer == nullptr) {
            const AudioComponentDescription wanted{kAudioUnitType_Mixer,
                                                   kAudioUnitSubType_MultiChannelMixer,
                                                   kAudioUnitManufacturer_Apple, 0, 0};
            check(AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &feed.mixer));
            setToneFormat(feed.mixer);
            setCallback(feed.mixer, tones_[draw(kTones)]->callback());
            check(AudioUnitInitialize(feed.mixer));
        }
        const AudioUnitConnection connection{chance(1, 4) ? nullptr : feed.mixer, 0, 0};
        note("connect", feed.unit,
             AudioUnitSetProperty(feed.unit, kAudioUnitProperty_MakeConnection,
                                  kAudioUnitScope_Input, 0, &connection, sizeof(connection)));
        tryToneFormat(feed.unit);
    }

    void letGo(Feed& feed) {
        if (chance(4, 5)) {
            note("stop", feed.unit, AudioOutputUnitStop(feed.unit));
            note("uninitialize", feed.unit, AudioUnitUninitialize(feed.unit));
        }
        note("dispose", feed.unit, AudioComponentInstanceDispose(feed.unit));
        if (feed.mixer != nullptr) {
            check(AudioComponentInstanceDispose(feed.mixer));
        }
        feed = {};
    }

    void stepGraph(Net& net) {
        if (net.graph == nullptr) {
            check(NewAUGraph(&net.graph));
            note("new graph", net.graph, 0);
            return;
        }
        const AUGraph graph = net.graph;
        switch (draw(20)) {
            case 0:
            case 1:
                addNode(net);
                break;
            case 2:
            case 3:
            case 4:
                setNode(net);
                break;
            case 5:
                note("graph open", graph, AUGraphOpen(graph));
                break;
            case 6:
                note("graph initialize", graph, AUGraphInitialize(graph));
                break;
            case 7:
            case 8:
                note("graph start", graph, AUGraphStart(graph));
                break;
            case 9:
                note("graph stop", graph, AUGraphStop(graph));
                break;
            case 10:
                note("graph uninitialize", graph, AUGraphUninitialize(graph));
                break;
            case 11:
            case 12:
                note("graph update", graph, AUGraphUpdate(graph, nullptr));
                break;
            case 13:
                join(net);
                break;
            case 14:
                note("graph disconnect", graph, AUGraphDisconnectNodeInput(graph, net.output, 0));
                break;
            case 15:
                stepOutputUnit(net);
                break;
            case 16:
                leave(net);
                break;
            default:
                note("graph open", graph, AUGraphOpen(graph));
                toneFormats(net);
                note("graph initialize", graph, AUGraphInitialize(graph));
                note("graph start", graph, AUGraphStart(graph));
                break;
        }
    }

    void addNode(Net& net) {
        const bool isOutput = chance(2, 3);
        AudioComponentDescription wanted = outputComponent();
        if (!isOutput) {
            wanted.componentType = kAudioUnitType_Mixer;
            wanted.componentSubType = kAudioUnitSubType_MultiChannelMixer;
        }
        AUNode node = 0;
        const OSStatus status = AUGraphAddNode(net.graph, &wanted, &node);
        note(isOutput ? "graph add output" : "graph add mixer", net.graph, status);
        if (status == noErr) {
            (isOutput ? net.output : net.mixer) = node;
        }
    }

    void setNode(Net& net) {
        const AURenderCallbackStruct callback = anyCallback();
        const bool isOutput = chance(3, 4);
        const UInt32 input = chance(1, isOutput ? 12 : 6) ? 1 : 0;
        note(isOutput ? "graph output callback" : "graph mixer callback", net.graph,
             AUGraphSetNodeInputCallback(net.graph, isOutput ? net.output : net.mixer, input,
                                         &callback));
    }

    void join(Net& net) {
        note("graph connect", net.graph,
             AUGraphConnectNodeInput(net.graph, net.mixer, 0, net.output, 0));
    }

    void toneFormats(Net& net) {
        for (const AUNode node : {net.mixer, net.output}) {
            AudioUnit unit = nullptr;
            if (AUGraphNodeInfo(net.graph, node, nullptr, &unit) == noErr && unit != nullptr) {
                tryToneFormat(unit);
            }
        }
    }

    /// Refused while a connection sets the format.
    void tryToneFormat(AudioUnit unit) {
        const AudioStreamBasicDescription format = toneFormat();
        note("format", unit,
             AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                                  &format, sizeof(format)));
    }

    /// What hosts do to the output node's unit behind the graph's back.
    void stepOutputUnit(Net& net) {
        AudioUnit unit = nullptr;
        if (AUGraphNodeInfo(net.graph, net.output, nullptr, &unit) != noErr || unit == nullptr) {
            return;
        }
        switch (draw(7)) {
            case 0:
            case 1:
                setUnitCallback(unit, net.graph);
                break;
            case 6:
                setMicrophone(unit, net.graph);
                break;
            case 2:
                note("its unit start", net.graph, AudioOutputUnitStart(unit));
                break;
            case 3:
                note("its unit stop", net.graph, AudioOutputUnitStop(unit));
                break;
            case 4:
                note("its unit uninitialize", net.graph, AudioUnitUninitialize(unit));
                break;
            default:
                note("its unit initialize", net.graph, AudioUnitInitialize(unit));
                break;
        }
    }

    void leave(Net& net) {
        switch (draw(4)) {
            case 0:
                note("graph close", net.graph, AUGraphClose(net.graph));
                break;
            case 1:
                note("graph remove output", net.graph, AUGraphRemoveNode(net.graph, net.output));
                break;
            case 2:
                note("graph remove mixer", net.graph, AUGraphRemoveNode(net.graph, net.mixer));
                break;
            default:
                note("graph dispose", net.graph, DisposeAUGraph(net.graph));
                net = {};
                break;
        }
    }

    HostDevice& device_;
    std::uint32_t state_;
    std::vector<std::unique_ptr<Tone>> tones_;
    std::array<Feed, kUnits> units_{};
    std::array<Net, kGraphs> graphs_{};
    std::uint32_t answers_ = 0;
    bool isTraced_ = std::getenv("TQ_TEST_TRACE") != nullptr;
    int step_ = 0;
};

}  // namespace

void runHost(HostDevice& device) {
    const char* const seed = std::getenv("TQ_TEST_SEED");
    Walk walk(device, seed == nullptr ? 1 : static_cast<std::uint32_t>(std::atoi(seed)));
    walk.run();
}
