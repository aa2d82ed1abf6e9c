#include "RZReplayAudioRecorder.h"

#include <atomic>

#include "AtomicProperty.h"
#include "RZStreamMixManager.h"

struct RZReplayAudioRecorder::State {
    /// Stored for setIsRecording(); isRecording() asks the manager instead.
    std::atomic<bool> isRecording{false};
    AtomicProperty<std::weak_ptr<RZReplayAudioRecorderInternalDelegate>> delegate;
    std::shared_ptr<RZStreamMixManager> manager;
    dispatch_queue_t queue;
    dispatch_queue_t preparing;
};

std::shared_ptr<RZReplayAudioRecorder> RZReplayAudioRecorder::create() {
    std::shared_ptr<RZReplayAudioRecorder> recorder(new RZReplayAudioRecorder);
    recorder->state_->manager = RZStreamMixManager::sharedManager();
    recorder->state_->manager->setCallback(recorder);
    recorder->state_->queue = dispatch_queue_create("RZReplayAudioRecorder", nullptr);
    recorder->state_->preparing = dispatch_queue_create("TQPreparing", nullptr);
    return recorder;
}

RZReplayAudioRecorder::RZReplayAudioRecorder() : state_(std::make_unique<State>()) {
}
RZReplayAudioRecorder::~RZReplayAudioRecorder() = default;

BOOL RZReplayAudioRecorder::isRecording() const {
    return manager()->isCapturing();
}

void RZReplayAudioRecorder::setIsRecording(BOOL isRecording) {
    state_->isRecording = isRecording;
}

std::shared_ptr<RZReplayAudioRecorderInternalDelegate> RZReplayAudioRecorder::delegate() const {
    return state_->delegate.with([](const auto& weak) { return weak.lock(); });
}

void RZReplayAudioRecorder::setDelegate(
    const std::shared_ptr<RZReplayAudioRecorderInternalDelegate>& delegate) {
    state_->delegate.store(delegate);
}

const std::shared_ptr<RZStreamMixManager>& RZReplayAudioRecorder::manager() const {
    return state_->manager;
}

const dispatch_queue_t& RZReplayAudioRecorder::queue() const {
    return state_->queue;
}

void RZReplayAudioRecorder::startRecord() {
    // The block owns the recorder too, so a start runs even when everyone else lets go of it first.
    dispatch_async(queue(), [self = shared_from_this()] { self->manager()->startCapture(); });
    // They take longer than the start itself, and a program may be waiting for that.
    dispatch_async(state_->preparing, [] { RZStreamMixManager::prepareConversions(); });
}

void RZReplayAudioRecorder::stopRecord() {
    dispatch_async(queue(), [self = shared_from_this()] { self->manager()->stopCapture(); });
}

std::shared_ptr<RZReplayAudioRecorderInternalDelegate> RZReplayAudioRecorder::responder(
    Method method) const {
    auto receiver = delegate();
    if (receiver && !receiver->respondsTo(method)) {
        receiver.reset();
    }
    return receiver;
}

void RZReplayAudioRecorder::onAudioReceivePrePCM(AudioBufferList* pcm,
                                                 const RZReplayASBDInfo& info) {
    if (const auto receiver = responder(Method::onAudioReceivePrePCM)) {
        receiver->onAudioReceivePrePCM(pcm, info);
    }
}

void RZReplayAudioRecorder::onAudioReceivePostPCM(AudioBufferList* pcm,
                                                  const RZReplayASBDInfo& info) {
    if (const auto receiver = responder(Method::onAudioReceivePostPCM)) {
        receiver->onAudioReceivePostPCM(pcm, info);
    }
}

void RZReplayAudioRecorder::onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                                               const std::string& message) {
    if (const auto receiver = responder(Method::onAudioRecordEvent)) {
        receiver->onAudioRecordEvent(category, code, message);
    }
}

std::int32_t RZReplayAudioRecorder::getPCMDataType() {
    const auto receiver = responder(Method::getPCMDataType);
    return receiver ? receiver->getPCMDataType() : std::int32_t{RZPCMDataTypePre};
}
