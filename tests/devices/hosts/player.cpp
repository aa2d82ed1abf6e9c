// A program of the platform that does what its arguments say, one after the other, and says what
// came of it as "name=value" lines:
//   start, stop         the player's unit; it plays marked noise once, from where it stopped
//   start2, stop2       a second unit, which plays a tone
//   start3, stop3       a third one, which plays frames that tell their numbers
//   end                 waits until the noise has been rendered
//   more:FRAMES         waits until so many more of the third one's frames have been rendered
//   sleep:SECONDS       waits
//   await:FILE          waits until there is such a file
//   rate:HZ, duration:SECONDS    what the session prefers
//   say                 the hardware's format, what was played, threads and descriptors
//   cycles:COUNT        starts and stops so often
//   fork                a child plays the tone for a moment; in a callback with fork:callback
//   listen              another unit listens to the microphone; it plays silence meanwhile
//   listen:NAME         the same, to the one of that name
//   alone               before it: it plays nothing
//   heard:FILE          stops listening, says how its time stamps went, and writes what was heard,
//                       interleaved floats

#include <AVFoundation/AVFoundation.h>
#include <AudioToolbox/AudioToolbox.h>
#include <TQPlatform/Devices.h>
#include <mach/mach_time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "support/OutputUnit.h"
#include "support/sound/CountedFrames.h"
#include "support/sound/Sound.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRate = 48000;
constexpr std::size_t kFrames = 96000;

template <class Value>
void say(const char* name, Value value) {
    std::printf("%s=%s\n", name, std::to_string(value).c_str());
    std::fflush(stdout);
}

/// An output unit and what it plays; without samples frames that are counted.
class Player {
  public:
    explicit Player(std::vector<float> samples = {}) : samples_(std::move(samples)) {
        unit_ = tqtest::makeOutputUnit(tqtest::floatFormat(kRate, 2),
                                       {.play = &render, .refCon = this});
    }
    ~Player() { AudioComponentInstanceDispose(unit_); }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    void start() {
        const auto began = Clock::now();
        say("start", AudioOutputUnitStart(unit_));
        say("startSeconds", std::chrono::duration<double>(Clock::now() - began).count());
    }
    void stop() { say("stop", AudioOutputUnitStop(unit_)); }
    [[nodiscard]] AudioUnit unit() const { return unit_; }
    [[nodiscard]] bool hasPlayed() const { return next_.load() >= samples_.size(); }
    void forkInCallback() { forks_.store(true); }
    [[nodiscard]] pid_t child() const { return child_.load(); }
    [[nodiscard]] long blocks() const { return blocks_.load(); }
    [[nodiscard]] std::size_t frames() const { return next_.load() / 2; }

  private:
    [[nodiscard]] float sampleAt(std::size_t sample) const {
        if (samples_.empty()) {
            return tqtest::countedSample(sample);
        }
        return sample < samples_.size() ? samples_[sample] : 0.0F;
    }
    static OSStatus render(void* self, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                           UInt32 frames, AudioBufferList* list) {
        auto& player = *static_cast<Player*>(self);
        auto* const out = static_cast<float*>(list->mBuffers[0].mData);
        std::size_t next = player.next_.load();
        for (UInt32 i = 0; i < 2 * frames; ++i) {
            out[i] = player.sampleAt(next++);
        }
        player.next_.store(next);
        ++player.blocks_;
        if (player.forks_.exchange(false)) {
            player.child_.store(fork());
        }
        return 0;
    }

    const std::vector<float> samples_;
    std::atomic<std::size_t> next_{0};
    std::atomic<long> blocks_{0};
    std::atomic<bool> forks_{false};
    std::atomic<pid_t> child_{0};
    AudioUnit unit_ = nullptr;
};

/// A unit with its microphone on.
class Listener {
  public:
    Listener() {
        samples_.resize(2 * kRate * kLongest);
        unit_ =
            tqtest::makeOutputUnit(tqtest::floatFormat(kRate, 2), {.hear = &take, .refCon = this});
    }
    ~Listener() { AudioComponentInstanceDispose(unit_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /// Before it starts: it does not play beside.
    void beAlone() {
        const UInt32 off = 0;
        AudioUnitUninitialize(unit_);
        AudioUnitSetProperty(unit_, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, 0,
                             &off, sizeof off);
        AudioUnitInitialize(unit_);
    }
    void start(const std::string& microphone) {
        if (!microphone.empty()) {
            TQPreferMicrophone(microphone.c_str());
        }
        say("listen", AudioOutputUnitStart(unit_));
    }
    /// Stops listening, says how the time stamps went, and writes what was heard.
    void write(const std::string& file) {
        AudioOutputUnitStop(unit_);
        say("heardBeforeNow", static_cast<int>(latest_ <= 0));
        say("heardInOrder", static_cast<int>(isInOrder_));
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(samples_.data()),
                   static_cast<std::streamsize>(held_ * sizeof(float)));
    }

  private:
    static constexpr std::size_t kLongest = 700;  ///< seconds

    static OSStatus take(void* self, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time,
                         UInt32 bus, UInt32 frames, AudioBufferList*) {
        auto& listener = *static_cast<Listener*>(self);
        listener.note(time->mHostTime);
        if (listener.held_ + 2 * frames > listener.samples_.size()) {
            return 0;
        }
        const OSStatus status = tqtest::fetchHeard(listener.unit_, flags, time, bus, frames, 2,
                                                   listener.samples_.data() + listener.held_);
        listener.held_ += 2 * frames;
        return status;
    }

    void note(UInt64 hostTime) {
        latest_ = std::max(latest_, static_cast<long>(hostTime - mach_absolute_time()));
        isInOrder_ = isInOrder_ && hostTime >= last_;
        last_ = hostTime;
    }

    AudioUnit unit_ = nullptr;
    std::vector<float> samples_;
    // On the device's thread while it runs.
    std::size_t held_ = 0;                            ///< samples
    long latest_ = std::numeric_limits<long>::min();  ///< time stamp behind the present, in ns
    UInt64 last_ = 0;                                 ///< time stamp
    bool isInOrder_ = true;
};

std::vector<float> samplesOf(const tqtest::Sound& sound) {
    std::vector<float> samples;
    for (std::size_t frame = 0; frame < sound.frames(); ++frame) {
        samples.push_back(static_cast<float>(sound.value(frame, 0)));
        samples.push_back(static_cast<float>(sound.value(frame, 1)));
    }
    return samples;
}

long entriesOf(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

class Script {
  public:
    void run(const std::string& step) {
        const std::size_t colon = step.find(':');
        const std::string verb = step.substr(0, colon);
        const std::string value = colon == std::string::npos ? "" : step.substr(colon + 1);
        if (verb == "start") {
            noise_.start();
        } else if (verb == "stop") {
            noise_.stop();
        } else if (verb == "start2") {
            tone_.start();
        } else if (verb == "stop2") {
            tone_.stop();
        } else if (verb == "start3") {
            count_.start();
        } else if (verb == "stop3") {
            count_.stop();
        } else if (verb == "end") {
            waitUntil([&] { return noise_.hasPlayed(); });
        } else if (verb == "more") {
            const std::size_t enough = count_.frames() + std::stoul(value);
            waitUntil([&] { return count_.frames() >= enough; });
        } else if (verb == "sleep") {
            std::this_thread::sleep_for(std::chrono::duration<double>(std::stod(value)));
        } else if (verb == "await") {
            waitUntil([&] { return std::filesystem::exists(value); });
        } else if (verb == "rate") {
            const Float64 rate = std::stod(value);
            prefer(kAudioSessionProperty_PreferredHardwareSampleRate, &rate, sizeof rate);
        } else if (verb == "duration") {
            const Float32 seconds = std::stof(value);
            prefer(kAudioSessionProperty_PreferredHardwareIOBufferDuration, &seconds,
                   sizeof seconds);
        } else if (verb == "cycles") {
            cycle(std::stoi(value));
        } else if (verb == "fork") {
            forkChild(value == "callback");
        } else if (verb == "alone") {
            listener_.beAlone();
        } else if (verb == "listen") {
            listener_.start(value);
        } else if (verb == "heard") {
            listener_.write(value);
        } else if (verb == "say") {
            sayState();
        }
    }

  private:
    template <class Condition>
    static void waitUntil(const Condition& condition) {
        while (!condition()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    void cycle(int count) const {
        const long closed = entriesOf("/proc/self/fd");
        for (; count > 0; --count) {
            AudioOutputUnitStart(tone_.unit());
            AudioOutputUnitStop(tone_.unit());
            // Until the device is closed: a stop is not waited for.
            for (int step = 0; step < 50 && entriesOf("/proc/self/fd") > closed; ++step) {
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        }
    }
    static void prefer(AudioSessionPropertyID id, const void* value, UInt32 size) {
        AudioSessionInitialize(nullptr, nullptr, nullptr, nullptr);
        say("prefer", AudioSessionSetProperty(id, size, value));
    }
    /// What the child's exit says: 0 when its unit has played.
    void forkChild(bool inCallback) {
        if (inCallback) {
            noise_.forkInCallback();
            waitUntil([&] { return noise_.child() != 0; });
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            const pid_t child = noise_.child();
            say("childIsThere", waitpid(child, nullptr, WNOHANG) == 0);
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
            return;
        }
        const pid_t child = fork();
        if (child == 0) {
            AudioOutputUnitStart(tone_.unit());
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            _exit(tone_.blocks() > 10 ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        say("child", WEXITSTATUS(status));
    }
    static void sayDuration(const char* name, AudioSessionPropertyID id) {
        Float32 seconds = 0;
        UInt32 size = sizeof seconds;
        AudioSessionGetProperty(id, &size, &seconds);
        say(name, seconds);
    }
    void sayState() {
        AudioStreamBasicDescription format{};
        UInt32 size = sizeof format;
        AudioUnitGetProperty(noise_.unit(), kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output,
                             0, &format, &size);
        say("rate", static_cast<long>(format.mSampleRate));
        say("channels", format.mChannelsPerFrame);
        AudioUnitGetProperty(noise_.unit(), kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                             1, &format, &size);
        say("inputChannels", format.mChannelsPerFrame);
        AudioSessionInitialize(nullptr, nullptr, nullptr, nullptr);
        sayDuration("slice", kAudioSessionProperty_CurrentHardwareIOBufferDuration);
        sayDuration("outputLatency", kAudioSessionProperty_CurrentHardwareOutputLatency);
        say("hearing", static_cast<int>(TQIsHearing()));
        say("blocks", noise_.blocks());
        say("counted", count_.frames());
        say("threads", entriesOf("/proc/self/task"));
        say("descriptors", entriesOf("/proc/self/fd"));
    }

    static tqtest::SoundFormat format() { return {kRate, 2, tqtest::Encoding::F32}; }
    Player noise_{samplesOf(tqtest::markedNoise(format(), kFrames))};
    Listener listener_;
    Player tone_{samplesOf(tqtest::tone(format(), kFrames, 440))};
    Player count_;
};

void sayNotices() {
    NSNotificationCenter& center = NSNotificationCenter::defaultCenter();
    static const int kObserver = 0;
    center.addObserver(
        &kObserver,
        [](const NSNotification& notice) {
            say("interruption", notice.integerForKey(AVAudioSessionInterruptionTypeKey, -1));
        },
        AVAudioSessionInterruptionNotification, nullptr);
    center.addObserver(
        &kObserver,
        [](const NSNotification& notice) {
            say("route", notice.integerForKey(AVAudioSessionRouteChangeReasonKey, -1));
        },
        AVAudioSessionRouteChangeNotification, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    sayNotices();
    Script script;
    for (int step = 1; step < argc; ++step) {
        script.run(argv[step]);
    }
    std::printf("done=1\n");
}
