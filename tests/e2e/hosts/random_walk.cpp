#include <pthread.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Host.h"

// Calls in an order that no sane host would choose, from the seed that TQ_TEST_SEED names: units
// and graphs are made, also on voice engines' threads, fed, initialised, started and let go, right
// or wrong, their microphones come and go, a recording stops and starts, and a slice is played
// between any two calls. What each call answers is summed up in one number, said at the end.
// TQ_TEST_WALK=graphs is about few units and two graphs, which are edited, uninitialised, closed
// and played behind their backs; callbacks call the platform themselves. TQ_TEST_TRACE=1 tells
// every step on standard error.

namespace {

constexpr int kSteps = 1500;
constexpr std::size_t kMostUnits = 9;
constexpr std::size_t kMostGraphs = 3;
constexpr std::size_t kTones = 6;

class Walk {
  public:
    Walk(HostDevice& device, std::uint32_t seed, bool isAboutGraphs)
        : device_(device), state_(seed * 2654435761U + 1), isAboutGraphs_(isAboutGraphs) {
        for (std::size_t i = 0; i < kTones; ++i) {
            tones_.push_back(std::make_unique<Tone>(seed + static_cast<std::uint32_t>(i) * 97));
        }
    }

    void run() {
        for (; step_ < kSteps; ++step_) {
            if (step_ == kSteps / 4) {
                device_.openLibrary();
            }
            if (isAboutGraphs_ ? chance(1, 5) : chance(3, 5)) {
                stepUnit(anyFeed());
            } else {
                stepGraph(anyNet());
            }
            if (chance(1, 40)) {
                HostDevice::toggleRecording();
            }
            isCallBackDue_ = isAboutGraphs_ && chance(1, 8);
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
    Feed& anyFeed() { return units_[draw(isAboutGraphs_ ? 3 : kMostUnits)]; }
    Net& anyNet() { return graphs_[draw(isAboutGraphs_ ? 2 : kMostGraphs)]; }
    bool chance(std::uint32_t of, std::uint32_t in) { return draw(in) < of; }
    AURenderCallbackStruct anyCallback() {
        return chance(1, 8) ? AURenderCallbackStruct{} : callBackOf(*tones_[draw(kTones)]);
    }
    /// Stands before a tone: once in a while the unit that is rendered is the one that calls.
    struct CallingTone {
        Walk* walk;
        AURenderCallbackStruct tone;
    };
    AURenderCallbackStruct callBackOf(Tone& tone) {
        if (!isAboutGraphs_) {
            return tone.callback();
        }
        callingTones_.push_back(std::make_unique<CallingTone>(CallingTone{this, tone.callback()}));
        return {renderAndCall, callingTones_.back().get()};
    }
    static OSStatus renderAndCall(void* refCon, AudioUnitRenderActionFlags* flags,
                                  const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                                  AudioBufferList* data) {
        const CallingTone& self = *static_cast<CallingTone*>(refCon);
        if (std::exchange(self.walk->isCallBackDue_, false)) {
            self.walk->stepInside();
        }
        return self.tone.inputProc(self.tone.inputProcRefCon, flags, time, bus, frames, data);
    }
    /// What a callback may ask of the platform.
    void stepInside() {
        const Feed& feed = anyFeed();
        const Net& net = anyNet();
        switch (draw(5)) {
            case 0:
                note("inside: stop", feed.unit, AudioOutputUnitStop(feed.unit));
                break;
            case 1:
                note("inside: start", feed.unit, AudioOutputUnitStart(feed.unit));
                break;
            case 2:
                note("inside: uninitialize", feed.unit, AudioUnitUninitialize(feed.unit));
                break;
            case 3:
                note("inside: graph stop", net.graph, AUGraphStop(net.graph));
                break;
            default:
                note("inside: graph update", net.graph, AUGraphUpdate(net.graph, nullptr));
                break;
        }
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
        for (std::size_t i = 0; i < kMostUnits; ++i) {
            if (object == units_[i].unit) {
                return i;
            }
        }
        for (std::size_t i = 0; i < kMostGraphs; ++i) {
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
                disconnect(net);
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

    void disconnect(Net& net) {
        switch (isAboutGraphs_ ? draw(3) : 2) {
            case 0:
                note("graph clear", net.graph, AUGraphClearConnections(net.graph));
                break;
            case 1:
                note("graph disconnect mixer", net.graph,
                     AUGraphDisconnectNodeInput(net.graph, net.mixer, 0));
                break;
            default:
                note("graph disconnect", net.graph,
                     AUGraphDisconnectNodeInput(net.graph, net.output, 0));
                break;
        }
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
    const bool isAboutGraphs_;
    bool isCallBackDue_ = false;
    std::vector<std::unique_ptr<CallingTone>> callingTones_;
    std::vector<std::unique_ptr<Tone>> tones_;
    std::array<Feed, kMostUnits> units_{};
    std::array<Net, kMostGraphs> graphs_{};
    std::uint32_t answers_ = 0;
    bool isTraced_ = std::getenv("TQ_TEST_TRACE") != nullptr;
    int step_ = 0;
};

}  // namespace

void runHost(HostDevice& device) {
    const char* const seed = std::getenv("TQ_TEST_SEED");
    const char* const about = std::getenv("TQ_TEST_WALK");
    Walk walk(device, seed == nullptr ? 1 : static_cast<std::uint32_t>(std::atoi(seed)),
              about != nullptr && std::string_view(about) == "graphs");
    walk.run();
}
