// A host that plays long in a short time: `long_host SECONDS FILE` pumps the manual device in the
// smallest blocks that devices have, twenty times as fast as it would play, and waits where the
// recording of it, a file of 16-bit stereo, has fallen far behind.

#include <AudioToolbox/AudioToolbox.h>
#include <TQPlatform/ManualDevice.h>
#include <mach/mach_time.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace {

constexpr UInt32 kFrames = 16;
constexpr UInt32 kRate = 48000;
constexpr double kSpeed = 20;
constexpr double kLead = 30;  ///< seconds of sound, of the hundred that the shared memory holds

/// 441 Hz at half of full scale.
OSStatus render(void* refCon, AudioUnitRenderActionFlags* /*flags*/, const AudioTimeStamp* /*ts*/,
                UInt32 /*bus*/, UInt32 frames, AudioBufferList* data) {
    auto& frame = *static_cast<UInt64*>(refCon);
    for (UInt32 i = 0; i < frames; ++i, ++frame) {
        const double value = 0.5 * std::sin(2 * M_PI * 441 * static_cast<double>(frame) / kRate);
        for (UInt32 channel = 0; channel < data->mNumberBuffers; ++channel) {
            static_cast<float*>(data->mBuffers[channel].mData)[i] = static_cast<float>(value);
        }
    }
    return 0;
}

/// How much sound the file holds.
double secondsIn(const char* file) {
    std::error_code error;
    const auto bytes = std::filesystem::file_size(file, error);
    return error ? 0 : static_cast<double>(bytes) / 4 / 44100;
}

/// The device's frames, at that many times its speed.
bool pump(UInt64 frames, UInt64 hostTime, double speed, const char* file) {
    const auto start = std::chrono::steady_clock::now();
    for (UInt64 done = 0; done < frames; done += kFrames) {
        if (TQManualDevicePump(kFrames, hostTime + done * 1'000'000'000 / kRate) != 0) {
            return false;
        }
        if (done % (kRate / 5) < kFrames) {
            const std::chrono::duration<double> due(static_cast<double>(done) / kRate / speed);
            std::this_thread::sleep_until(
                start + std::chrono::duration_cast<std::chrono::nanoseconds>(due));
            // A recorder that gets no processor must not lose for that: this is no test of speed.
            while (secondsIn(file) + kLead < static_cast<double>(done) / kRate) {
                std::this_thread::sleep_for(std::chrono::milliseconds{5});
            }
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const auto frames = static_cast<UInt64>(std::atof(argv[1])) * kRate;
    const char* const file = argv[2];
    const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    UInt64 frame = 0;
    const AURenderCallbackStruct callback{render, &frame};
    AudioUnit unit = nullptr;
    const bool isMade =
        AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit) == 0 &&
        AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                             &callback, sizeof callback) == 0 &&
        AudioUnitInitialize(unit) == 0 && AudioOutputUnitStart(unit) == 0;
    // The recorder needs a moment to begin.
    const UInt64 begin = mach_absolute_time();
    const bool isPlayed =
        isMade && pump(kRate, begin, 1, file) && pump(frames, begin + 1'000'000'000, kSpeed, file);
    AudioOutputUnitStop(unit);
    AudioComponentInstanceDispose(unit);
    return isPlayed ? 0 : 3;
}
