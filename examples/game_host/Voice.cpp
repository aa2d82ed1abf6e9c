#include "Voice.h"

#include <Foundation/Foundation.h>

#include <vector>

#include "AudioUnits.h"
#include "HostError.h"

namespace game {
namespace {

constexpr std::size_t kLargestSlice = 8192;

}  // namespace

struct Voice::Engine {
    Engine(const Clip<SInt16>& partner, std::atomic<std::size_t>& microphoneFrames)
        : partner_(partner),
          microphoneFrames_(microphoneFrames),
          heard_(kLargestSlice),
          unit_(kAudioUnitSubType_VoiceProcessingIO) {
        unit_.enableMicrophone(shortFormat(kSampleRate, kChannels), &Engine::listen, this);
        unit_.setOutputFormat(shortFormat(kSampleRate, kChannels));
        unit_.setRenderCallback(&Engine::speak, this);
        unit_.initialize();
        unit_.start();
    }

  private:
    /// [render thread] The partner's voice, repeated.
    static OSStatus speak(void* refCon, AudioUnitRenderActionFlags* /*flags*/,
                          const AudioTimeStamp* /*time*/, UInt32 /*bus*/, UInt32 frames,
                          AudioBufferList* data) noexcept {
        Engine& self = *static_cast<Engine*>(refCon);
        auto* out = static_cast<SInt16*>(data->mBuffers[0].mData);
        for (UInt32 frame = 0; frame < frames; ++frame) {
            out[frame] = self.partner_.samples[self.position_];
            self.position_ = (self.position_ + 1) % self.partner_.frames();
        }
        return noErr;
    }

    /// [render thread] Fetches what the microphone heard into memory that was taken beforehand.
    static OSStatus listen(void* refCon, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                           AudioBufferList* /*data*/) noexcept {
        Engine& self = *static_cast<Engine*>(refCon);
        if (frames > kLargestSlice) {
            return kAudioUnitErr_TooManyFramesToProcess;
        }
        AudioBufferList list{};
        list.mNumberBuffers = 1;
        list.mBuffers[0].mNumberChannels = kChannels;
        list.mBuffers[0].mDataByteSize = frames * static_cast<UInt32>(sizeof(SInt16));
        list.mBuffers[0].mData = self.heard_.data();
        const OSStatus status =
            AudioUnitRender(self.unit_.handle(), flags, time, bus, frames, &list);
        if (status == noErr) {
            self.microphoneFrames_.fetch_add(frames, std::memory_order_relaxed);
        }
        return status;
    }

    const Clip<SInt16>& partner_;
    std::atomic<std::size_t>& microphoneFrames_;
    std::size_t position_ = 0;  // [render thread]
    std::vector<SInt16> heard_;
    OutputUnit unit_;
};

Voice::Voice(const Clip<SInt16>& partner) : partner_(partner) {
    thread_ = std::thread([this] { run(); });
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return ready_; });
    if (!problem_.empty()) {
        lock.unlock();
        thread_.join();
        throw HostError(HostError::kAudio, problem_);
    }
}

Voice::~Voice() {
    {
        const std::lock_guard lock(mutex_);
        leaving_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

std::size_t Voice::microphoneFrames() const {
    return microphoneFrames_.load(std::memory_order_relaxed);
}

void Voice::run() {
    NSThread::setCurrentThreadName("MWAudioDeviceThread-1");
    std::unique_lock lock(mutex_, std::defer_lock);
    try {
        const Engine engine(partner_, microphoneFrames_);
        lock.lock();
        ready_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return leaving_; });
        lock.unlock();  // the engine goes away without the lock
    } catch (const std::exception& problem) {
        const std::lock_guard guard(mutex_);
        problem_ = problem.what();
        ready_ = true;
        changed_.notify_all();
    }
}

}  // namespace game
