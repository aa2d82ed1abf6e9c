#pragma once

#include <Foundation/Foundation.h>

#include <cstdint>
#include <memory>

#include "RZListenerTraits.h"
#include "RZReplayVolumeCompressorParam.h"
#include "RZReplayVolumeDuckingParam.h"
#include "TQAudioRecordExport.h"

/// [host thread] Hears of changes of the process-wide ducking and compressor states, on the thread
/// that made them. Derive from RZReplayVolumeControllerListener; both methods are optional.
class TQ_RECORD_EXPORT RZReplayVolumeControllerDelegate {
  public:
    enum class Method { onDuckingGlobalStateChanged, onCompressorGlobalStateChanged };

    virtual ~RZReplayVolumeControllerDelegate();
    [[nodiscard]] virtual BOOL respondsTo(Method method) const = 0;
    virtual void onDuckingGlobalStateChanged(BOOL enabled);
    virtual void onCompressorGlobalStateChanged(BOOL enabled);
};

template <class Derived, class Parent = RZReplayVolumeControllerDelegate>
class RZReplayVolumeControllerListener : public Parent {
  public:
    using Parent::Parent;
    using typename Parent::Method;

    [[nodiscard]] BOOL respondsTo(Method method) const override {
        using Base = RZReplayVolumeControllerDelegate;
        switch (method) {
            case Method::onDuckingGlobalStateChanged:
                return isMethodImplemented<Derived, decltype(&Derived::onDuckingGlobalStateChanged),
                                           decltype(&Base::onDuckingGlobalStateChanged)>();
            case Method::onCompressorGlobalStateChanged:
                return isMethodImplemented<Derived,
                                           decltype(&Derived::onCompressorGlobalStateChanged),
                                           decltype(&Base::onCompressorGlobalStateChanged)>();
        }
        return NO;
    }
};

/// Switches ducking and compression of the host's own output and sets their strength. Both states
/// are process-wide: only the controller that switched one on may change it or switch it off. A
/// controller that is destroyed while it owns a state leaves it on for good.
///
/// Every function is [host thread].
class TQ_RECORD_EXPORT RZReplayVolumeController {
  public:
    RZReplayVolumeController();
    ~RZReplayVolumeController();
    RZReplayVolumeController(const RZReplayVolumeController&) = delete;
    RZReplayVolumeController& operator=(const RZReplayVolumeController&) = delete;

    /// Held weakly.
    [[nodiscard]] std::shared_ptr<RZReplayVolumeControllerDelegate> delegate() const;
    void setDelegate(const std::shared_ptr<RZReplayVolumeControllerDelegate>& delegate);
    /// Whether this controller has the feature switched on.
    [[nodiscard]] BOOL duckingEnable() const;
    void setDuckingEnable(BOOL enable);
    [[nodiscard]] BOOL compressorEnable() const;
    void setCompressorEnable(BOOL enable);
    /// Serialises this controller's operations.
    [[nodiscard]] std::shared_ptr<NSRecursiveLock> opLock() const;
    void setOpLock(std::shared_ptr<NSRecursiveLock> lock);

    /// Applies the record, which is copied; null counts as one that is switched off. 0 done or
    /// nothing to do, 13 another controller owns the state, 103 the interception is not working.
    std::int32_t enableDucking(const RZReplayVolumeDuckingParam* param);
    std::int32_t enableCompressor(const RZReplayVolumeCompressorParam* param);
    /// The outside level, in decibels or linear. 0 done, 11 this controller has not switched the
    /// feature on.
    std::int32_t updateDuckingVolume(float volume, BOOL isDB);
    std::int32_t updateCompressorVolume(float volume, BOOL isDB);

    /// Tells every delegate of every controller of the new process-wide state, on this thread and
    /// with no lock held.
    void notifyDuckingStateChanged(BOOL enabled);
    void notifyCompressorStateChanged(BOOL enabled);

    using DelegateList = NSPointerArray<RZReplayVolumeControllerDelegate>;
    /// The delegates of all controllers, itself; gone ones read as null.
    [[nodiscard]] static DelegateList& getGlobalDelegateList();
    /// Adds to the list above, once; null is ignored.
    static void addDelegate(const std::shared_ptr<RZReplayVolumeControllerDelegate>& delegate);
    /// Takes out of it, with every entry whose object is gone; null is ignored.
    static void removeDelegate(const std::shared_ptr<RZReplayVolumeControllerDelegate>& delegate);

  private:
    struct Feature;
    struct State;
    static const Feature& ducking();
    static const Feature& compressor();
    template <class Param>
    std::int32_t enable(const Feature& feature, const Param* param,
                        std::int32_t (*apply)(const Param*));

    const std::unique_ptr<State> state_;
};
