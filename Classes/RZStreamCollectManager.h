#pragma once

#include <AudioToolbox/AudioToolbox.h>
#include <CoreMedia/CoreMedia.h>
#include <Foundation/Foundation.h>

#include <memory>
#include <vector>

#include "RZReplayAudioRecorderDelegate.h"
#include "TQAudioRecordExport.h"

class RZReplayAudioRecorder;

/// What a host's recording code talks to: recording is on while there is at least one listener.
///
/// The listener lock is held during every delivery, on render threads too: a slow listener
/// holds up the sound. Adding and removing listeners from inside a delivery ends that delivery and
/// is logged as an error.
///
/// What carries no tag is [host thread].
class TQ_RECORD_EXPORT RZStreamCollectManager
    : public RZReplayAudioRecorderInternalListener<RZStreamCollectManager> {
  public:
    using Listener = std::shared_ptr<RZReplayAudioRecorderDelegate>;

    /// The one instance, made on first use, never destroyed.
    static RZStreamCollectManager& sharedManager();
    /// Finds out whether the interception of the graph functions works; run by its installer.
    static void testAUGraphHook();
    /// Told of every graph that the process creates.
    static void notifyNewAUGraph(AUGraph graph);

    /// [any thread] Real-time safe. The self-test has seen its graph: capture can start.
    [[nodiscard]] BOOL isHookSuccess() const;
    /// [any thread] Real-time safe. The hooks of units and graphs have been installed in this run.
    [[nodiscard]] BOOL isHookStarted() const;

    /// Adds a listener, held until it is removed; the first one starts recording (asynchronously;
    /// failures arrive as events). YES also when it was there already; NO for null or one without
    /// onAudioReceivePCM.
    BOOL startAudioStreamCollect(const Listener& listener);
    /// Removes a listener; the last one stops recording. NO when it was not there.
    BOOL stopAudioStreamCollect(const Listener& listener);

    /// [any thread] Allocates. A sample buffer with a copy of the block's PCM, to be released by
    /// the caller; null when the platform refuses. Every buffer is labelled with the format of the
    /// first call of the process.
    [[nodiscard]] CMSampleBufferRef createSampleBufferFromAudioBufferList(
        const AudioBufferList* list, const RZReplayASBDInfo& description,
        CMTime presentationTimeStamp);
    /// [any thread] Real-time safe. YES when the block opens with a full-scale sample, as garbage
    /// does; NO for null or empty.
    [[nodiscard]] BOOL checkAudioRealTimeError(const AudioBufferList* list) const;

    /// A copy, in the order of registration.
    [[nodiscard]] std::vector<Listener> arrAudioListener() const;
    /// Replaces the list and nothing else: recording is neither started nor stopped. Nulls are
    /// left out.
    void setArrAudioListener(std::vector<Listener> listeners);
    /// The listener whose removal last emptied the list; null once it is gone.
    [[nodiscard]] Listener lastStopAudioListener() const;
    void setLastStopAudioListener(const Listener& listener);
    [[nodiscard]] const std::shared_ptr<RZReplayAudioRecorder>& audioRecorder() const;
    /// The lock of every delivery; holding it keeps blocks and events back.
    [[nodiscard]] const std::shared_ptr<NSRecursiveLock>& lock() const;

    /// [render thread] Take the listener lock for the delivery.
    void onAudioReceivePrePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override;
    void onAudioReceivePostPCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override;
    /// [any thread] Takes the listener lock for the delivery.
    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                            const std::string& message) override;
    /// [any thread] Takes the listener lock. All listeners' masks together, 0 without any.
    [[nodiscard]] std::int32_t getPCMDataType() override;

  private:
    RZStreamCollectManager();
    ~RZStreamCollectManager() override;
    template <class Deliver>
    void deliver(Method method, const class RZLogSite& site, Deliver&& deliverTo);

    struct State;
    const std::unique_ptr<State> state_;
};
