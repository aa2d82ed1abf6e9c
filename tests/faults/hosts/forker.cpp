// A host that knows nothing of capture: units and graphs play, start, stop, come and go on threads
// of their own, and meanwhile it forks children, some at a time. Each child makes a unit, plays it
// for 100 ms on the null device and ends; of three one first disposes of a unit that plays in its
// parent, and one starts that. Says how many came to a good end and how many to none.

#include <AudioToolbox/AudioToolbox.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

/// Of a child, which is some hundred times what it needs on an idle machine.
constexpr auto kPatience = 20s;
constexpr int kAtOnce = 6;

OSStatus render(void* refCon, AudioUnitRenderActionFlags* /*flags*/, const AudioTimeStamp* /*ts*/,
                UInt32 /*bus*/, UInt32 /*frames*/, AudioBufferList* ioData) {
    for (UInt32 i = 0; i < ioData->mNumberBuffers; ++i) {
        std::memset(ioData->mBuffers[i].mData, 1, ioData->mBuffers[i].mDataByteSize);
    }
    ++*static_cast<std::atomic<int>*>(refCon);
    return 0;
}

constexpr AudioComponentDescription kOutput{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                            kAudioUnitManufacturer_Apple, 0, 0};

AudioUnit makeUnit(std::atomic<int>& calls) {
    AudioUnit unit = nullptr;
    const AURenderCallbackStruct callback{render, &calls};
    const bool isGood =
        AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &kOutput), &unit) == 0 &&
        AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                             &callback, sizeof(callback)) == 0 &&
        AudioUnitInitialize(unit) == 0;
    return isGood ? unit : nullptr;
}

bool isDisposed(AudioUnit unit) {
    return AudioUnitUninitialize(unit) == 0 && AudioComponentInstanceDispose(unit) == 0;
}

/// Waits for a number of callbacks more than there were.
bool areCalled(const std::atomic<int>& calls, int more) {
    const int before = calls;
    const auto limit = std::chrono::steady_clock::now() + kPatience / 2;
    while (calls < before + more) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

bool playsInChild() {
    std::atomic<int> calls{0};
    AudioUnit const unit = makeUnit(calls);
    // Ten periods of the null device are a little more than 100 ms.
    return unit != nullptr && AudioOutputUnitStart(unit) == 0 && areCalled(calls, 10) &&
           AudioOutputUnitStop(unit) == 0 && isDisposed(unit);
}

/// In a child: what it may do to a unit that plays in its parent.
bool usesParents(AudioUnit unit, const std::atomic<int>& calls, int what) {
    switch (what) {
        case 0:
            return AudioOutputUnitStop(unit) == 0 && isDisposed(unit);
        case 1:
            return AudioOutputUnitStart(unit) == 0 && areCalled(calls, 5);
        default:
            return true;
    }
}

/// Starts and stops a unit, and makes it anew now and then.
void changeUnits(const std::atomic<bool>& isOver, std::atomic<int>& calls) {
    while (!isOver) {
        AudioUnit const unit = makeUnit(calls);
        for (int i = 0; i < 5; ++i) {
            AudioOutputUnitStart(unit);
            AudioOutputUnitStop(unit);
        }
        isDisposed(unit);
    }
}

/// The same with graphs.
void changeGraphs(const std::atomic<bool>& isOver, std::atomic<int>& calls) {
    while (!isOver) {
        AUGraph graph = nullptr;
        AUNode node = 0;
        const AURenderCallbackStruct callback{render, &calls};
        NewAUGraph(&graph);
        AUGraphAddNode(graph, &kOutput, &node);
        AUGraphOpen(graph);
        AUGraphSetNodeInputCallback(graph, node, 0, &callback);
        AUGraphInitialize(graph);
        for (int i = 0; i < 5; ++i) {
            AUGraphStart(graph);
            AUGraphUpdate(graph, nullptr);
            AUGraphStop(graph);
        }
        DisposeAUGraph(graph);
    }
}

struct Counts {
    int good = 0;
    int hanging = 0;
};

struct Child {
    pid_t process;
    std::chrono::steady_clock::time_point limit;
};

/// Waits until fewer than `most` children are left.
void wait(std::vector<Child>& children, std::size_t most, Counts& counts) {
    while (children.size() > most) {
        std::erase_if(children, [&](const Child& child) {
            int status = 0;
            if (waitpid(child.process, &status, WNOHANG) != 0) {
                counts.good += status == 0 ? 1 : 0;
                return true;
            }
            if (std::chrono::steady_clock::now() < child.limit) {
                return false;
            }
            ++counts.hanging;
            kill(child.process, SIGKILL);
            waitpid(child.process, &status, 0);
            return true;
        });
        std::this_thread::sleep_for(2ms);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int wanted = argc > 1 ? std::stoi(argv[1]) : 60;
    std::atomic<bool> isOver{false};
    std::atomic<int> calls{0};
    std::atomic<int> callsOfChanging{0};
    AudioUnit const playing = makeUnit(calls);
    if (playing == nullptr || AudioOutputUnitStart(playing) != 0) {
        return 1;
    }
    std::thread units([&] { changeUnits(isOver, callsOfChanging); });
    std::thread graphs([&] { changeGraphs(isOver, callsOfChanging); });
    Counts counts;
    std::vector<Child> children;
    for (int i = 0; i < wanted && counts.hanging < kAtOnce; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(usesParents(playing, calls, i % 3) && playsInChild() ? 0 : 1);
        }
        children.push_back({child, std::chrono::steady_clock::now() + kPatience});
        wait(children, kAtOnce - 1, counts);
    }
    wait(children, 0, counts);
    const bool playsOn = areCalled(calls, 5);
    isOver = true;
    units.join();
    graphs.join();
    AudioOutputUnitStop(playing);
    const bool isGone = isDisposed(playing);
    std::printf("good=%d\nhanging=%d\nplays_on=%d\n", counts.good, counts.hanging,
                playsOn && isGone ? 1 : 0);
    return 0;
}
