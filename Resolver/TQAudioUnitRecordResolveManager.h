#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <mutex>
#include <set>

#include "TQAudioRecordResolver.h"
#include "common/ForkLocks.h"

/// Posted when a unit has been taken over and must not be captured; for units of both kinds.
inline constexpr const char* TQAudioNewRegisterAudioUnitNotification =
    "TQAudioNewRegisterAudioUnitNotification";
/// Posted when a graph has been taken over and must not be captured.
inline constexpr const char* TQAudioNewRegisterAuGraphNotification =
    "TQAudioNewRegisterAuGraphNotification";
/// The key in both notifications' user info: the "%p" text of the unit or graph.
inline constexpr const char* TQAudioNewRegisteredObject = "TQAudioNewRegisteredObject";

/// Knows the units and graphs that are not the game's own sound: those of real-time communication
/// engines, and those that a library keeps for itself.
///
/// The sets have a lock, held for a look-up or one insertion alone. Handles are identities here:
/// they are neither used nor checked, and null is ignored (and never known). A registration that is
/// new is announced on the notification centre, on the registering thread with no lock held; to
/// repeat one is silent.
class TQ_RESOLVER_EXPORT TQAudioUnitRecordResolveManager {
  public:
    /// [any thread] The one instance, made on first use, never destroyed.
    static TQAudioUnitRecordResolveManager& sharedManager();

    TQAudioUnitRecordResolveManager(const TQAudioUnitRecordResolveManager&) = delete;
    TQAudioUnitRecordResolveManager& operator=(const TQAudioUnitRecordResolveManager&) = delete;

    /// [any thread] Whether the unit is registered, as one of either kind.
    [[nodiscard]] bool existAudioUnit(AudioUnit unit) const;
    /// [any thread]
    [[nodiscard]] bool existAuGraph(AUGraph graph) const;

    // [host thread] all of these: they allocate or free, and announcing runs the observers.
    void registerRTCUsedAudioUnit(AudioUnit unit);
    void unregisterRTCUsedAudioUnit(AudioUnit unit);
    void registerNonGameUsedAuGraph(AUGraph graph);
    void unregisterNonGameUsedAuGraph(AUGraph graph);
    void registerNonGameUsedAudioUnit(AudioUnit unit);
    void unregisterNonGameUsedAudioUnit(AudioUnit unit);

  private:
    TQAudioUnitRecordResolveManager() = default;
    ~TQAudioUnitRecordResolveManager() = default;

    template <class Handle>
    void enter(std::set<Handle>& handles, Handle handle, const char* notification);
    template <class Handle>
    void leave(std::set<Handle>& handles, Handle handle);

    mutable std::mutex mutex_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::Handles, mutex_};
    std::set<AudioUnit> rtcUnits_;
    std::set<AudioUnit> nonGameUnits_;
    std::set<AUGraph> nonGameGraphs_;
};
