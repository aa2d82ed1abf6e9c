// A host that knows nothing of recording. Its first argument says what it does:
//   tone SECONDS        a tone through one unit: 48000 Hz, float, stereo, not interleaved
//   short SECONDS       the same as 16-bit integers, interleaved
//   swapped SECONDS     the same with the highest byte first
//   eight SECONDS       the same as signed 8-bit integers
//   fixed SECONDS       the same as 8.24 fixed point, not interleaved
//   loud SECONDS        the same, three times as loud: beyond full scale
//   double SECONDS      the same as 64-bit floats, interleaved
//   graph SECONDS       the same through a graph
//   updating SECONDS    the same while another thread updates the graph all the time
//   disposing COUNT     plays that many short tones, each through a unit that it stops and
//                       disposes of without uninitialising it
//   remaking COUNT      plays music and ambience, and that many short voice lines with a unit
//                       made anew for each
//   many COUNT          plays through that many units at once
//   stubborn SECONDS FILE   writes a "T" into a file on every SIGTERM, and plays on
//   closing SECONDS     closes all descriptors first
//   loading SECONDS     works for so long, then plays the tone for a second
//   idle                makes a unit and never starts it
//   microphone SECONDS  plays through a unit with its microphone on
//   restarted SECONDS   the same, started, stopped, initialised again and started again
//   silent SECONDS      plays zeros
//   beside SECONDS      plays zeros, and a tone through another unit whose microphone is on
//   scribble SECONDS    fills all memory that it shares with the recorder with nonsense
//   die                 kills itself inside its own callback
//   exec PROGRAM ARG... becomes another program
//   then SECONDS PROGRAM ARG...   plays the tone, then becomes another program
//   run PROGRAM ARG... [-- PROGRAM ARG...]   starts programs, all at once, and waits for them
//   fork SECONDS        a child, without exec, plays
//   exit CODE
// The exit code is 0 when everything worked and the whole tone was played.

#include <AudioToolbox/AudioToolbox.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <numbers>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr double kRate = 48000;
// No divisor of the rate: the compressor looks at one sample in a while, and must not always meet a
// crossing of zero.
constexpr double kFrequency = 700;
constexpr double kAmplitude = 0.5;
constexpr int kPatienceSeconds = 60;

enum class Samples { float32, int16, swapped16, int8, fixed824, float64 };

struct Tone {
    Samples samples = Samples::float32;
    double amplitude = kAmplitude;
    bool isSilent = false;
    int deadlyCall = 0;
    int spoilingCall = 0;
    int calls = 0;
    long frame = 0;
    std::atomic<long> framesLeft{0};
    std::mutex mutex;
    std::condition_variable over;
};

/// Overwrites the memory that the process shares with the recorder, found through /proc. Written
/// through a file, because it may be unmapped meanwhile.
void scribble() {
    std::ifstream maps("/proc/self/maps");
    std::ofstream memory("/proc/self/mem", std::ios::binary | std::ios::in | std::ios::out);
    std::vector<std::uint32_t> words(1024);
    for (std::string line; std::getline(maps, line);) {
        if (line.find("memfd:tqaudiorecord") == std::string::npos) {
            continue;
        }
        std::size_t end = 0;
        const std::uint64_t first = std::stoull(line, &end, 16);
        const std::uint64_t last = std::stoull(line.substr(end + 1), nullptr, 16);
        std::uint32_t value = 1;
        for (std::uint64_t place = first; place < last; place += 4096) {
            for (std::uint32_t& word : words) {
                word = value = value * 1664525 + 1013904223;
            }
            memory.seekp(static_cast<std::streamoff>(place));
            memory.write(reinterpret_cast<const char*>(words.data()), 4096).flush();
        }
    }
}

/// One frame: the same sample in every channel.
template <class Sample>
void put(const AudioBufferList& data, UInt32 frame, Sample sample) {
    for (UInt32 i = 0; i < data.mNumberBuffers; ++i) {
        const AudioBuffer& buffer = data.mBuffers[i];
        std::fill_n(
            static_cast<Sample*>(buffer.mData) + std::size_t{frame} * buffer.mNumberChannels,
            buffer.mNumberChannels, sample);
    }
}

OSStatus render(void* refCon, AudioUnitRenderActionFlags* /*flags*/, const AudioTimeStamp* /*ts*/,
                UInt32 /*bus*/, UInt32 frames, AudioBufferList* data) {
    Tone& tone = *static_cast<Tone*>(refCon);
    if (++tone.calls == tone.deadlyCall) {
        std::raise(SIGKILL);
    }
    if (tone.calls == tone.spoilingCall) {
        scribble();
    }
    for (UInt32 i = 0; i < frames; ++i, ++tone.frame) {
        const double phase = 2 * std::numbers::pi * kFrequency * static_cast<double>(tone.frame);
        const double value = tone.isSilent ? 0 : tone.amplitude * std::sin(phase / kRate);
        const auto sixteen = static_cast<UInt16>(std::lround(value * 32767));
        switch (tone.samples) {
            case Samples::float32:
                put(*data, i, static_cast<float>(value));
                break;
            case Samples::int16:
                put(*data, i, sixteen);
                break;
            case Samples::swapped16:
                put(*data, i, static_cast<UInt16>(sixteen << 8U | sixteen >> 8U));
                break;
            case Samples::int8:
                put(*data, i, static_cast<SInt8>(std::lround(value * 127)));
                break;
            case Samples::fixed824:
                put(*data, i, static_cast<SInt32>(std::lround(value * 0x1000000)));
                break;
            case Samples::float64:
                put(*data, i, value);
                break;
        }
    }
    if (tone.framesLeft.fetch_sub(static_cast<long>(frames)) <= static_cast<long>(frames)) {
        const std::lock_guard lock(tone.mutex);
        tone.over.notify_all();
    }
    return 0;
}

AudioStreamBasicDescription formatOf(const Tone& tone) {
    AudioStreamBasicDescription format{};
    const auto is = [&tone](Samples one) { return tone.samples == one; };
    const bool isFloat = is(Samples::float32) || is(Samples::float64);
    const bool isPlanar = is(Samples::float32) || is(Samples::fixed824);
    const UInt32 bytes = is(Samples::float64) ? 8 : isPlanar ? 4 : is(Samples::int8) ? 1 : 2;
    format.mSampleRate = kRate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags =
        kAudioFormatFlagIsPacked |
        (isFloat ? kAudioFormatFlagIsFloat : kAudioFormatFlagIsSignedInteger) |
        (isPlanar ? kAudioFormatFlagIsNonInterleaved : 0U) |
        (is(Samples::swapped16) ? kAudioFormatFlagIsBigEndian : 0U) |
        (is(Samples::fixed824) ? 24U << kLinearPCMFormatFlagsSampleFractionShift : 0U);
    format.mChannelsPerFrame = 2;
    format.mBitsPerChannel = bytes * 8;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = isPlanar ? bytes : 2 * bytes;
    format.mBytesPerPacket = format.mBytesPerFrame;
    return format;
}

constexpr AudioComponentDescription kRemoteIO{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                              kAudioUnitManufacturer_Apple, 0, 0};

AudioUnit makeUnit() {
    AudioUnit unit = nullptr;
    AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &kRemoteIO), &unit);
    return unit;
}

bool waitForEnd(Tone& tone) {
    std::unique_lock lock(tone.mutex);
    return tone.over.wait_for(lock, std::chrono::seconds(kPatienceSeconds),
                              [&tone] { return tone.framesLeft.load() <= 0; });
}

/// Starts the unit three times more, between which it is stopped, and twice uninitialised.
bool playAgain(AudioUnit unit, Tone& tone, double seconds) {
    bool isGood = AudioOutputUnitStop(unit) == 0 && AudioOutputUnitStart(unit) == 0;
    for (int i = 0; i < 2 && isGood; ++i) {
        tone.framesLeft = static_cast<long>(seconds * kRate);
        isGood = waitForEnd(tone) && AudioOutputUnitStop(unit) == 0 &&
                 AudioUnitUninitialize(unit) == 0 && AudioUnitInitialize(unit) == 0 &&
                 AudioOutputUnitStart(unit) == 0;
    }
    return isGood;
}

int play(Tone& tone, double seconds, bool microphone, bool isRestarted = false) {
    tone.framesLeft = static_cast<long>(seconds * kRate);
    const AudioUnit unit = makeUnit();
    const AudioStreamBasicDescription format = formatOf(tone);
    const AURenderCallbackStruct callback{render, &tone};
    const UInt32 on = 1;
    bool isGood =
        (!microphone || AudioUnitSetProperty(unit, kAudioOutputUnitProperty_EnableIO,
                                             kAudioUnitScope_Input, 1, &on, sizeof on) == 0) &&
        AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                             &format, sizeof format) == 0 &&
        AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                             &callback, sizeof callback) == 0 &&
        AudioUnitInitialize(unit) == 0 && AudioOutputUnitStart(unit) == 0;
    isGood = isGood && waitForEnd(tone) && (!isRestarted || playAgain(unit, tone, seconds));
    AudioOutputUnitStop(unit);
    AudioUnitUninitialize(unit);
    AudioComponentInstanceDispose(unit);
    return isGood ? 0 : 3;
}

/// As an audio back end does that keeps a unit of its own running while the sound comes through
/// another one.
int playBesideSilence(Tone& tone, double seconds) {
    Tone silence;
    silence.isSilent = true;
    int result = 0;
    std::thread backEnd([&] { result = play(silence, seconds, false); });
    const int tones = play(tone, seconds, true);
    backEnd.join();
    return result == 0 ? tones : result;
}

/// `isUpdated`: as programs do that update their graph with every picture, only more often.
int playGraph(Tone& tone, double seconds, bool isUpdated) {
    tone.framesLeft = static_cast<long>(seconds * kRate);
    AUGraph graph = nullptr;
    AUNode node = 0;
    AudioUnit unit = nullptr;
    const AudioStreamBasicDescription format = formatOf(tone);
    const AURenderCallbackStruct callback{render, &tone};
    bool isGood = NewAUGraph(&graph) == 0 && AUGraphAddNode(graph, &kRemoteIO, &node) == 0 &&
                  AUGraphOpen(graph) == 0 && AUGraphNodeInfo(graph, node, nullptr, &unit) == 0 &&
                  AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                       0, &format, sizeof format) == 0 &&
                  AUGraphSetNodeInputCallback(graph, node, 0, &callback) == 0 &&
                  AUGraphInitialize(graph) == 0 && AUGraphStart(graph) == 0;
    std::atomic<bool> isOver{!isUpdated};
    std::thread updates([&] {
        while (!isOver) {
            AUGraphUpdate(graph, nullptr);
        }
    });
    isGood = isGood && waitForEnd(tone);
    isOver = true;
    updates.join();
    AUGraphStop(graph);
    DisposeAUGraph(graph);
    return isGood ? 0 : 3;
}

/// Makes a unit that plays a tone of 16-bit integers and starts it; null when that fails.
AudioUnit startTone(Tone& tone, double seconds) {
    tone.samples = Samples::int16;
    tone.framesLeft = static_cast<long>(seconds * kRate);
    const AudioUnit unit = makeUnit();
    const AudioStreamBasicDescription format = formatOf(tone);
    const AURenderCallbackStruct callback{render, &tone};
    const bool isGood =
        AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                             &format, sizeof format) == 0 &&
        AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                             &callback, sizeof callback) == 0 &&
        AudioUnitInitialize(unit) == 0 && AudioOutputUnitStart(unit) == 0;
    return isGood ? unit : nullptr;
}

constexpr double kShortTone = 0.06;

int playAndDispose(int count) {
    for (int i = 0; i < count; ++i) {
        Tone tone;
        const AudioUnit unit = startTone(tone, kShortTone);
        if (unit == nullptr || !waitForEnd(tone) || AudioOutputUnitStop(unit) != 0 ||
            AudioComponentInstanceDispose(unit) != 0) {
            return 3;
        }
    }
    return 0;
}

int playVoiceLines(int count) {
    Tone music;
    Tone ambience;
    const std::array<AudioUnit, 2> lasting{startTone(music, 0), startTone(ambience, 0)};
    int result = lasting[0] != nullptr && lasting[1] != nullptr ? 0 : 3;
    for (int i = 0; i < count; ++i) {
        Tone line;
        const AudioUnit unit = startTone(line, kShortTone);
        result = unit != nullptr && waitForEnd(line) ? result : 3;
        AudioOutputUnitStop(unit);
        AudioUnitUninitialize(unit);
        AudioComponentInstanceDispose(unit);
    }
    for (const AudioUnit unit : lasting) {
        AudioOutputUnitStop(unit);
        AudioUnitUninitialize(unit);
        AudioComponentInstanceDispose(unit);
    }
    return result;
}

int playTogether(int count) {
    std::deque<Tone> tones;
    std::vector<AudioUnit> units;
    for (int i = 0; i < count; ++i) {
        units.push_back(startTone(tones.emplace_back(), 10 * kShortTone));
    }
    int result = 0;
    for (std::size_t i = 0; i < units.size(); ++i) {
        result = units[i] != nullptr && waitForEnd(tones[i]) ? result : 3;
        AudioOutputUnitStop(units[i]);
        AudioUnitUninitialize(units[i]);
        AudioComponentInstanceDispose(units[i]);
    }
    return result;
}

int statusOf(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int terms = -1;  // where SIGTERM is noted

int runAll(char** arguments) {
    std::vector<pid_t> children;
    while (*arguments != nullptr) {
        std::vector<char*> command;
        for (; *arguments != nullptr && std::string(*arguments) != "--"; ++arguments) {
            command.push_back(*arguments);
        }
        arguments += *arguments != nullptr ? 1 : 0;
        command.push_back(nullptr);
        pid_t child = 0;
        if (posix_spawn(&child, command[0], nullptr, nullptr, command.data(), environ) != 0) {
            return 4;
        }
        children.push_back(child);
    }
    int result = 0;
    for (const pid_t child : children) {
        const int status = statusOf(child);
        result = result == 0 ? status : result;
    }
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    const double seconds = argc > 2 ? std::strtod(argv[2], nullptr) : 0;
    Tone tone;
    if (what == "exec" && argc > 2) {
        execv(argv[2], argv + 2);
        return 4;
    }
    if (what == "run") {
        return runAll(argv + 2);
    }
    if (what == "exit") {
        return static_cast<int>(seconds);
    }
    if (what == "fork") {
        const pid_t child = fork();
        return child == 0 ? play(tone, seconds, false) : statusOf(child);
    }
    if (what == "idle") {
        return AudioUnitInitialize(makeUnit()) == 0 ? 0 : 3;
    }
    if (what == "stubborn" && argc > 3) {
        terms = open(argv[3], O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        signal(SIGTERM, [](int) { (void)!write(terms, "T", 1); });
    }
    if (what == "loading") {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (std::chrono::steady_clock::now() < end) {
        }
        return play(tone, 1, false);
    }
    if (what == "closing") {
        closefrom(3);
    }
    if (what == "disposing") {
        return playAndDispose(static_cast<int>(seconds));
    }
    if (what == "remaking") {
        return playVoiceLines(static_cast<int>(seconds));
    }
    if (what == "many") {
        return playTogether(static_cast<int>(seconds));
    }
    if (what == "restarted") {
        return play(tone, seconds, true, true);
    }
    if (what == "beside") {
        return playBesideSilence(tone, seconds);
    }
    if (what == "graph" || what == "updating") {
        return playGraph(tone, seconds, what == "updating");
    }
    const std::map<std::string, Samples> kinds{
        {"short", Samples::int16},   {"swapped", Samples::swapped16},
        {"eight", Samples::int8},    {"fixed", Samples::fixed824},
        {"loud", Samples::fixed824}, {"double", Samples::float64}};
    if (const auto kind = kinds.find(what); kind != kinds.end()) {
        tone.samples = kind->second;
    }
    tone.isSilent = what == "silent";
    tone.amplitude = what == "loud" ? 3 * kAmplitude : kAmplitude;
    tone.spoilingCall = what == "scribble" ? 20 : 0;
    tone.deadlyCall = what == "die" ? 10 : 0;
    if (what == "then" && argc > 3 && play(tone, seconds, false) == 0) {
        execv(argv[3], argv + 3);
        return 4;
    }
    return play(tone, what == "die" ? kPatienceSeconds : seconds, what == "microphone");
}
