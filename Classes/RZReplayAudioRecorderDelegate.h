#pragma once

#include <AudioToolbox/AudioToolbox.h>
#include <Foundation/NSObjCRuntime.h>

#include <cstdint>
#include <string>

#include "RZListenerTraits.h"
#include "RZReplayASBDInfo.h"
#include "TQAudioRecordExport.h"

/// What getPCMDataType() answers: a sum of these.
enum RZPCMDataType : std::uint32_t {
    RZPCMDataTypePre = 1,   ///< the mix of all tracks as the host rendered them
    RZPCMDataTypePost = 2,  ///< each track's own blocks after ducking and compression
};

/// A listener of recorded sound. Derive from RZReplayAudioRecorderListener, which finds out which
/// of the methods a class has; a method that is not there is never called.
///
/// Methods run with the library's listener lock held, events often with others too: keep them
/// short, neither add nor remove listeners from inside, and call no function of units, graphs or
/// the volume controller there: another thread may hold its lock and wait for this one. Nor may
/// they call fork(), system(), popen() or exec: the child would begin inside the method. What they
/// throw is caught and logged.
class TQ_RECORD_EXPORT RZReplayAudioRecorderDelegate {
  public:
    enum class Method { onAudioReceivePCM, onAudioRecordEvent, getPCMDataType };

    virtual ~RZReplayAudioRecorderDelegate();
    [[nodiscard]] virtual BOOL respondsTo(Method method) const = 0;

    /// [render thread] One block. Must be real-time safe: no allocation, file or lock in here.
    /// `pcm` and `info` are valid during the call only. Pre blocks are the mix (44100 Hz, 16-bit,
    /// stereo, interleaved); post blocks are in the format that `info` states, 16-bit where the
    /// host renders float.
    virtual void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info);
    /// [any thread] Something happened, on the thread where it did. tq_events.h has the table of
    /// what each pair of category and code means: tq_event_text() and tq_event_kind_of().
    virtual void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                                    const std::string& message);
    /// [render thread] Which blocks to deliver, asked on every render cycle; without it pre blocks
    /// only.
    [[nodiscard]] virtual std::uint64_t getPCMDataType();
};

/// The base of a listener: `class Mine : public RZReplayAudioRecorderListener<Mine>` with any of
/// the methods, public. A class that derives from such a listener and adds methods names both:
/// `class More : public RZReplayAudioRecorderListener<More, Mine>`.
template <class Derived, class Parent = RZReplayAudioRecorderDelegate>
class RZReplayAudioRecorderListener : public Parent {
  public:
    using Parent::Parent;
    using typename Parent::Method;

    [[nodiscard]] BOOL respondsTo(Method method) const override {
        using Base = RZReplayAudioRecorderDelegate;
        switch (method) {
            case Method::onAudioReceivePCM:
                return isMethodImplemented<Derived, decltype(&Derived::onAudioReceivePCM),
                                           decltype(&Base::onAudioReceivePCM)>();
            case Method::onAudioRecordEvent:
                return isMethodImplemented<Derived, decltype(&Derived::onAudioRecordEvent),
                                           decltype(&Base::onAudioRecordEvent)>();
            case Method::getPCMDataType:
                return isMethodImplemented<Derived, decltype(&Derived::getPCMDataType),
                                           decltype(&Base::getPCMDataType)>();
        }
        return NO;
    }
};

/// Receives blocks and events inside the library, on their way from the mix manager to the collect
/// manager. The threads are those of the public listener above.
class TQ_RECORD_EXPORT RZReplayAudioRecorderInternalDelegate {
  public:
    enum class Method {
        onAudioReceivePrePCM,
        onAudioReceivePostPCM,
        onAudioRecordEvent,
        getPCMDataType
    };

    virtual ~RZReplayAudioRecorderInternalDelegate();
    [[nodiscard]] virtual BOOL respondsTo(Method method) const = 0;

    virtual void onAudioReceivePrePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info);
    virtual void onAudioReceivePostPCM(AudioBufferList* pcm, const RZReplayASBDInfo& info);
    virtual void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                                    const std::string& message);
    [[nodiscard]] virtual std::int32_t getPCMDataType();
};

template <class Derived, class Parent = RZReplayAudioRecorderInternalDelegate>
class RZReplayAudioRecorderInternalListener : public Parent {
  public:
    using Parent::Parent;
    using typename Parent::Method;

    [[nodiscard]] BOOL respondsTo(Method method) const override {
        using Base = RZReplayAudioRecorderInternalDelegate;
        switch (method) {
            case Method::onAudioReceivePrePCM:
                return isMethodImplemented<Derived, decltype(&Derived::onAudioReceivePrePCM),
                                           decltype(&Base::onAudioReceivePrePCM)>();
            case Method::onAudioReceivePostPCM:
                return isMethodImplemented<Derived, decltype(&Derived::onAudioReceivePostPCM),
                                           decltype(&Base::onAudioReceivePostPCM)>();
            case Method::onAudioRecordEvent:
                return isMethodImplemented<Derived, decltype(&Derived::onAudioRecordEvent),
                                           decltype(&Base::onAudioRecordEvent)>();
            case Method::getPCMDataType:
                return isMethodImplemented<Derived, decltype(&Derived::getPCMDataType),
                                           decltype(&Base::getPCMDataType)>();
        }
        return NO;
    }
};
