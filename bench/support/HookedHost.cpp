#include "HookedHost.h"

#include <dispatch/dispatch.h>

#include <algorithm>
#include <stdexcept>

#include "RZReplayAudioRecorder.h"
#include "RZReplayAudioUnitCapturer.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "RZStreamCollectManager.h"
#include "RZStreamMixManager.h"
#include "TQAudioCaptureBase.h"

namespace {

class IdleListener : public RZReplayAudioRecorderListener<IdleListener> {
  public:
    explicit IdleListener(std::uint64_t wanted) : wanted_(wanted) {}
    void onAudioReceivePCM(AudioBufferList* /*pcm*/, const RZReplayASBDInfo& /*info*/) {}
    [[nodiscard]] std::uint64_t getPCMDataType() { return wanted_; }

  private:
    const std::uint64_t wanted_;
};

void check(OSStatus status, const char* what) {
    if (status != 0) {
        throw std::runtime_error(what);
    }
}

}  // namespace

AudioUnit startStereoUnit(AURenderCallbackStruct callback) {
    const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    AudioUnit unit = nullptr;
    check(AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit), "new unit");
    AudioStreamBasicDescription format{};
    format.mSampleRate = 48000;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
    format.mBytesPerPacket = format.mBytesPerFrame = 8;
    format.mFramesPerPacket = 1;
    format.mChannelsPerFrame = 2;
    format.mBitsPerChannel = 32;
    check(AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                               &format, sizeof format),
          "format");
    check(AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                               &callback, sizeof callback),
          "callback");
    check(AudioUnitInitialize(unit), "initialize");
    check(AudioOutputUnitStart(unit), "start");
    return unit;
}

HookedHost::HookedHost(int units, AURenderCallback callback) {
    RZReplayAudioUnitCapturer::startHook();
    RZReplayAudioUnitGraphCapturer::startHook();
    for (int i = 0; i < units; ++i) {
        units_.push_back(startStereoUnit({callback, nullptr}));
    }
    last_ = RZStreamMixManager::sharedManager()->findAudioUnitObj(units_.back());
    if (!last_) {
        throw std::runtime_error("the unit was not intercepted");
    }
}

HookedHost::~HookedHost() {
    stopCapture();
    for (AudioUnit const unit : units_) {
        AudioOutputUnitStop(unit);
        AudioUnitUninitialize(unit);
        AudioComponentInstanceDispose(unit);
    }
    RZStreamMixManager::sharedManager()->setTrackId(0);
}

OSStatus HookedHost::render(void* /*refCon*/, AudioUnitRenderActionFlags* /*flags*/,
                            const AudioTimeStamp* /*ts*/, UInt32 /*bus*/, UInt32 /*frames*/,
                            AudioBufferList* /*ioData*/) {
    return 0;
}

OSStatus HookedHost::callIntercepted(UInt32 frames, AudioBufferList* ioData) {
    AudioUnitRenderActionFlags flags = 0;
    AudioTimeStamp ts{};
    return RZReplayAudioUnitCapture_InputProcessCallback(units_.back(), &flags, &ts, 0, frames,
                                                         ioData);
}

bool HookedHost::startCapture(std::uint64_t wanted) {
    listener_ = std::make_shared<IdleListener>(wanted);
    RZStreamCollectManager::sharedManager().startAudioStreamCollect(listener_);
    dispatch_sync(RZStreamCollectManager::sharedManager().audioRecorder()->queue(), [] {});
    return last_->isCapturing();
}

void HookedHost::stopCapture() {
    if (listener_) {
        RZStreamCollectManager::sharedManager().stopAudioStreamCollect(listener_);
        dispatch_sync(RZStreamCollectManager::sharedManager().audioRecorder()->queue(), [] {});
        listener_.reset();
    }
}

void HookedHost::emptyRings() {
    for (const auto& buffer : last_->bufferList()) {
        for (const BOOL isProcessed : {NO, YES}) {
            while (const std::size_t held = buffer->getRingBufferSize(isProcessed)) {
                const auto size = static_cast<UInt32>(std::min(held, drain_.size()));
                buffer->readAudioBuffer({2, size, drain_.data()}, size, isProcessed);
            }
        }
    }
}
