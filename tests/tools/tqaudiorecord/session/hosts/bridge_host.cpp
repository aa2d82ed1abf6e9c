// A program that does what a bridge does: its unit stands for a stream that has a name.
//
//     bridge_host play SECONDS NAME        plays a tone as that stream
//     bridge_host report FATE WRITTEN NAME says what became of a stream

#include <AudioToolbox/AudioToolbox.h>
#include <TQAudioRecord/tq_source.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numbers>
#include <string>
#include <thread>

namespace {

constexpr double kRate = 48000;

OSStatus render(void* frame, AudioUnitRenderActionFlags* /*flags*/, const AudioTimeStamp* /*time*/,
                UInt32 /*bus*/, UInt32 frames, AudioBufferList* data) {
    long& at = *static_cast<long*>(frame);
    auto* const out = static_cast<SInt16*>(data->mBuffers[0].mData);
    for (UInt32 i = 0; i < frames; ++i, ++at) {
        const double value = std::sin(2 * std::numbers::pi * 700 * static_cast<double>(at) / kRate);
        out[2 * i] = out[2 * i + 1] = static_cast<SInt16>(std::lround(value * 16000));
    }
    return 0;
}

void keepBlock(void* /*context*/, void* /*samples*/, std::uint32_t /*frames*/) {
}

int play(double seconds, const char* name) {
    const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    AudioUnit unit = nullptr;
    AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit);
    AudioStreamBasicDescription format{};
    format.mSampleRate = kRate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = kAudioFormatFlagIsPacked | kAudioFormatFlagIsSignedInteger;
    format.mChannelsPerFrame = 2;
    format.mBitsPerChannel = 16;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = format.mBytesPerPacket = 4;
    long frame = 0;
    const AURenderCallbackStruct callback{render, &frame};
    tq_source* source = nullptr;
    const tq_source_description description{sizeof description, unit, name, nullptr, keepBlock};
    bool isGood = AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                       0, &format, sizeof format) == 0 &&
                  AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback,
                                       kAudioUnitScope_Input, 0, &callback, sizeof callback) == 0 &&
                  AudioUnitInitialize(unit) == 0;
    isGood =
        isGood && tq_source_open(&description, &source) == TQ_OK && AudioOutputUnitStart(unit) == 0;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    AudioOutputUnitStop(unit);
    tq_source_close(source);
    AudioUnitUninitialize(unit);
    AudioComponentInstanceDispose(unit);
    return isGood ? 0 : 3;
}

int report(int fate, std::uint64_t written, const char* name) {
    tq_stream stream{};
    stream.size = sizeof stream;
    stream.stream = 1;
    stream.name = name;
    stream.fate = static_cast<tq_stream_fate>(fate);
    stream.channels = 2;
    stream.sample_rate = kRate;
    stream.written = written;
    stream.played = written / 2;
    stream.dropped = written / 4;
    stream.lost = 3;
    for (const std::uint32_t isClosed : {0U, 1U}) {
        stream.is_closed = isClosed;
        if (tq_stream_report(&stream) != TQ_OK) {
            return 3;
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "play" && argc == 4) {
        return play(std::strtod(argv[2], nullptr), argv[3]);
    }
    if (what == "report" && argc == 5) {
        return report(std::atoi(argv[2]), std::strtoull(argv[3], nullptr, 10), argv[4]);
    }
    return 2;
}
