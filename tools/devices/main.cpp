// tqplatform-devices: lists what programs of the platform may play on and hear, and plays a tone
// there.

#include <AudioToolbox/AudioToolbox.h>
#include <TQPlatform/Devices.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <string>
#include <thread>

namespace {

constexpr char kUsage[] =
    "usage: tqplatform-devices [--tone]\n"
    "Lists the speakers and microphones of the sound server or driver that TQ_AUDIO_DEVICE names, "
    "or\n"
    "of the first that answers: kind, server, name, and in brackets what people call it. "
    "tqaudiorecord\n"
    "--mic=NAME records the microphone of that name. --tone plays two seconds of 440 Hz as "
    "programs of the platform "
    "would.\n";
constexpr int kUsageError = 1;
constexpr int kNoDevice = 2;

constexpr double kToneRate = 48000;
constexpr double kHertz = 440;
constexpr double kSeconds = 2;
constexpr std::chrono::seconds kPatience{6};
constexpr Float32 kSliceSeconds = 0.08F;
constexpr double kFadeSeconds = 0.02;
constexpr double kLevel = 0.25;

void showDevice(void* /*refCon*/, const TQDeviceDescription* device) {
    std::printf("%s %-10s %s: %s (%s, %.0f Hz, %u channels)\n", device->isDefault ? "*" : " ",
                device->hears ? "microphone" : "speakers", device->server, device->name,
                device->title, device->sampleRate, unsigned{device->channels});
}

/// Frames of the tone that were asked for; on the device's thread.
std::atomic<UInt64> played{0};

OSStatus renderTone(void* /*refCon*/, AudioUnitRenderActionFlags* /*flags*/,
                    const AudioTimeStamp* /*time*/, UInt32 /*bus*/, UInt32 frames,
                    AudioBufferList* list) {
    auto* const samples = static_cast<float*>(list->mBuffers[0].mData);
    UInt64 frame = played.load(std::memory_order_relaxed);
    for (UInt32 i = 0; i < frames; ++i, ++frame) {
        const double second = static_cast<double>(frame) / kToneRate;
        // Without a fade its ends are heard as clicks.
        const double edge = std::fmin(second, kSeconds - second) / kFadeSeconds;
        const double level = kLevel * std::fmax(0, std::fmin(1, edge));
        samples[i] = static_cast<float>(level * std::sin(2 * std::numbers::pi * kHertz * second));
    }
    played.store(frame, std::memory_order_relaxed);
    return noErr;
}

/// Whether this process's device is one of those; else it is a clock, by choice or since none was
/// reached in time.
bool playsOnDevices() {
    return TQPreferMicrophone(nullptr) == noErr;
}

OSStatus playTone() {
    // A tone need not be early, but it is to be whole.
    AudioSessionInitialize(nullptr, nullptr, nullptr, nullptr);
    AudioSessionSetProperty(kAudioSessionProperty_PreferredHardwareIOBufferDuration,
                            sizeof kSliceSeconds, &kSliceSeconds);
    const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    AudioUnit unit = nullptr;
    OSStatus status = AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit);
    AudioStreamBasicDescription format{};
    format.mSampleRate = kToneRate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = static_cast<AudioFormatFlags>(kAudioFormatFlagIsFloat) |
                          static_cast<AudioFormatFlags>(kAudioFormatFlagIsPacked);
    format.mFramesPerPacket = 1;
    format.mChannelsPerFrame = 1;
    format.mBitsPerChannel = 32;
    format.mBytesPerFrame = format.mBytesPerPacket = 4;
    const AURenderCallbackStruct callback{&renderTone, nullptr};
    if (status == noErr) {
        status = AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                      0, &format, sizeof format);
    }
    if (status == noErr) {
        status = AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback,
                                      kAudioUnitScope_Input, 0, &callback, sizeof callback);
    }
    if (status == noErr) {
        status = AudioUnitInitialize(unit);
    }
    if (status == noErr) {
        status = AudioOutputUnitStart(unit);
    }
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (status == noErr && static_cast<double>(played.load()) < kSeconds * kToneRate) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (std::chrono::steady_clock::now() > end) {
            status = kAudioUnitErr_FailedInitialization;
        }
    }
    AudioOutputUnitStop(unit);
    AudioComponentInstanceDispose(unit);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string option = argc == 2 ? argv[1] : "";
    if (option == "--help" || option == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (argc > 2 || (argc == 2 && option != "--tone")) {
        std::fputs(kUsage, stderr);
        return kUsageError;
    }
    if (TQListDevices(&showDevice, nullptr) != noErr) {
        std::fputs(
            "tqplatform-devices: no sound server or card answers; programs play on the null "
            "device\n",
            stderr);
        return kNoDevice;
    }
    if (!playsOnDevices()) {
        std::fprintf(stderr,
                     "tqplatform-devices: TQ_AUDIO_DEVICE=%s chooses a clock that nobody hears; "
                     "programs play on none of these\n",
                     std::getenv("TQ_AUDIO_DEVICE"));
        return option.empty() ? 0 : kNoDevice;
    }
    if (!option.empty() && (playTone() != noErr || !playsOnDevices())) {
        std::fputs("tqplatform-devices: the tone could not be played\n", stderr);
        return kNoDevice;
    }
    return 0;
}
