#pragma once

#include <dispatch/dispatch.h>

#include <memory>

#include "RZReplayAudioRecorderDelegate.h"

class RZStreamMixManager;

/// The link between the mix manager, whose callback it is, and the collect manager, its weak
/// delegate: forwards every call on the calling thread, with no lock held and no copy. Starting and
/// stopping run on a serial queue of its own, in the order asked for. What is forwarded and the
/// plain queries are [any thread], the rest [host thread].
class TQ_RECORD_EXPORT RZReplayAudioRecorder
    : public RZReplayAudioRecorderInternalListener<RZReplayAudioRecorder>,
      public std::enable_shared_from_this<RZReplayAudioRecorder> {
  public:
    /// A new recorder, already the mix manager's callback: a second one takes over from the first.
    [[nodiscard]] static std::shared_ptr<RZReplayAudioRecorder> create();

    /// Whether the mix manager captures, whatever was set.
    [[nodiscard]] BOOL isRecording() const;
    void setIsRecording(BOOL isRecording);
    /// Held weakly.
    [[nodiscard]] std::shared_ptr<RZReplayAudioRecorderInternalDelegate> delegate() const;
    void setDelegate(const std::shared_ptr<RZReplayAudioRecorderInternalDelegate>& delegate);
    [[nodiscard]] const std::shared_ptr<RZStreamMixManager>& manager() const;
    [[nodiscard]] const dispatch_queue_t& queue() const;

    ~RZReplayAudioRecorder() override;
    RZReplayAudioRecorder(const RZReplayAudioRecorder&) = delete;
    RZReplayAudioRecorder& operator=(const RZReplayAudioRecorder&) = delete;

    /// [host thread] Return at once; failures arrive as events.
    void startRecord();
    void stopRecord();

    void onAudioReceivePrePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override;
    void onAudioReceivePostPCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override;
    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                            const std::string& message) override;
    /// The delegate's mask; pre PCM without one.
    [[nodiscard]] std::int32_t getPCMDataType() override;

  private:
    RZReplayAudioRecorder();
    /// The delegate when it is there and has the method.
    [[nodiscard]] std::shared_ptr<RZReplayAudioRecorderInternalDelegate> responder(
        Method method) const;

    struct State;
    const std::unique_ptr<State> state_;
};
