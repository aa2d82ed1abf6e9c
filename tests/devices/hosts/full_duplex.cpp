// Plays and listens at the same time, and says how often what is heard was disturbed.
//   full_duplex SECONDS MICROPHONE [DURATION]    on the device of TQ_AUDIO_DEVICE; it hears the
//                                     speakers; DURATION is the preferred I/O duration in seconds
//   full_duplex --count               counts in floats, two channels, from standard input
// What is played counts up and down from frame to frame, so that a frame that is lost or repeated
// shows; a little more or less is a clock that is followed. It has no jump of its own: between two
// frames one would ring for longer than what is let pass.

#include <AudioToolbox/AudioToolbox.h>
#include <TQPlatform/Devices.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "support/OutputUnit.h"

namespace {

constexpr double kRate = 48000;
constexpr unsigned kMost = 1U << 16U;
constexpr float kStep = 1.0F / (2 * kMost);
constexpr float kTurn = 64 * kStep;  ///< so near to where the count turns it may be smeared
constexpr long kRinging = 64;  ///< frames for which one disturbance is heard where clocks differ
constexpr unsigned kLargestSlice = 8192;

/// Reads what was played, counts where it does not go on, and how much of it was lost there.
class Counter {
  public:
    void add(float sample) {
        const bool goesOn = std::abs(std::abs(sample - last_) / kStep - 1) <= 0.5F;
        if (frames_ > 0 && !goesOn && (sample == 0 || !(isTurn(sample) && isTurn(last_)))) {
            if (going_ >= kRinging) {
                disturbances_.push_back({.before = sure_, .first = frames_});
            }
            going_ = 0;
            if (!disturbances_.empty()) {
                disturbances_.back().last = frames_;
                disturbances_.back().silent += sample == 0 ? 1 : 0;
            }
        } else if (++going_ % kRinging == 0) {
            // The last frames before a disturbance may be smeared already.
            sure_ = std::exchange(next_, {frames_, countOf(last_, sample)});
            if (going_ == kRinging && !disturbances_.empty()) {
                disturbances_.back().settle(next_);
            }
        }
        frames_ += sample != 0 || frames_ > 0 ? 1 : 0;
        last_ = sample;
    }
    void say() const {
        for (const Disturbance& one : disturbances_) {
            std::printf("at %.2f s: %ld frames later, %ld lost\n",
                        static_cast<double>(one.first) / kRate, one.later, one.lost);
        }
        std::printf("frames=%ld\ndisturbances=%zu\n", frames_, disturbances_.size());
    }

  private:
    static constexpr long kWhole = 2L * kMost;
    struct Place {
        long frame = 0;
        long count = 0;
    };
    struct Disturbance {
        Place before;
        long first = 0;  ///< frame that does not go on
        long last = 0;
        long silent = 0;  ///< frames from the first to the last that are nothing else
        long later = 0;   ///< frames by which what is behind it comes later
        long lost = 0;    ///< frames; what was repeated is less than none

        void settle(const Place& behind) {
            const long played = behind.count - before.count;
            later = behind.frame - before.frame - played;
            later = ((later + kMost) % kWhole + kWhole) % kWhole - kMost;
            // A kernel smears the edges of a hole, as far outside as inside.
            const long hole = silent == 0 ? 0 : (last - first + silent + 1) / 2;
            lost = hole - later;
        }
    };

    static bool isTurn(float sample) {
        return std::abs(sample) < kTurn || std::abs(sample - kMost * kStep) < kTurn;
    }
    static long countOf(float before, float sample) {
        const long value = std::lround(sample / kStep);
        return sample >= before ? value : kWhole - value;
    }

    float last_ = 0;
    long frames_ = 0;  ///< from the first that is not silent
    long going_ = 0;   ///< frames since it did not go on
    Place sure_;
    Place next_;
    std::vector<Disturbance> disturbances_;
};

struct Duplex {
    AudioUnit unit = nullptr;
    unsigned played = 1;
    std::vector<float> heard = std::vector<float>(2 * kLargestSlice);
    Counter counter;
    std::atomic<bool> counts{false};
};

OSStatus play(void* self, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32 frames,
              AudioBufferList* list) {
    auto& duplex = *static_cast<Duplex*>(self);
    auto* const out = static_cast<float*>(list->mBuffers[0].mData);
    for (UInt32 i = 0; i < frames; ++i) {
        const unsigned count = duplex.played++ % (2 * kMost);
        const unsigned value = count < kMost ? count : 2 * kMost - count;
        out[2 * i] = out[2 * i + 1] = static_cast<float>(value) * kStep;
    }
    return 0;
}

OSStatus hear(void* self, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
              UInt32 frames, AudioBufferList*) {
    auto& duplex = *static_cast<Duplex*>(self);
    const OSStatus status =
        tqtest::fetchHeard(duplex.unit, flags, time, bus, frames, 2, duplex.heard.data());
    for (UInt32 i = 0; duplex.counts.load(std::memory_order_relaxed) && i < frames; ++i) {
        duplex.counter.add(duplex.heard[2 * i]);
    }
    return status;
}

int countInput() {
    Counter counter;
    for (float frame[2]; std::fread(frame, sizeof frame, 1, stdin) == 1;) {
        counter.add(frame[0]);
    }
    counter.say();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::string_view(argv[1]) == "--count") {
        return countInput();
    }
    const double seconds = argc == 3 || argc == 4 ? std::atof(argv[1]) : 0;
    if (!(seconds > 0)) {
        return 1;
    }
    if (argc == 4) {
        const auto duration = static_cast<Float32>(std::atof(argv[3]));
        AudioSessionInitialize(nullptr, nullptr, nullptr, nullptr);
        AudioSessionSetProperty(kAudioSessionProperty_PreferredHardwareIOBufferDuration,
                                sizeof duration, &duration);
    }
    TQPreferMicrophone(argv[2]);
    Duplex duplex;
    duplex.unit = tqtest::makeOutputUnit(tqtest::floatFormat(kRate, 2),
                                         {.play = &play, .hear = &hear, .refCon = &duplex});
    AudioOutputUnitStart(duplex.unit);
    // What is in hand between microphone and speakers is found in the first seconds.
    std::this_thread::sleep_for(std::chrono::seconds(2));
    duplex.counts.store(true);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    AudioOutputUnitStop(duplex.unit);
    duplex.counter.say();
    AudioComponentInstanceDispose(duplex.unit);
    return 0;
}
