#pragma once

#include <AudioToolbox/AudioToolbox.h>
#include <Foundation/Foundation.h>
#include <dispatch/dispatch.h>
#include <event_filter.h>
#include <mach/mach_time.h>

#include <array>
#include <atomic>
#include <bitset>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AtomicProperty.h"
#include "RZReplayASBDInfo.h"
#include "RZReplayAudioRecorderDelegate.h"
#include "RZReplayAudioUnitObject.h"
#include "RZReplayVolumeCompressorParam.h"
#include "RZReplayVolumeDuckingParam.h"
#include "RZTrackTails.h"
#include "RZUnitFacts.h"
#include "RZUnitFormatChange.h"
#include "common/ForkLocks.h"

class RZLogSite;
struct RZLogFormat;

/// The centre of the library: the registry of intercepted units and their track numbers, the
/// private graph that mixes them, the capture switch and the reactions to system events.
///
/// What flows in: notices of the interception (a unit was made, started, changed, stopped,
/// disposed of), capture start and stop, notifications. What flows out: mixed blocks and events to
/// `callback`.
///
/// Locks, all recursive: operatorLock serialises everything that starts, stops or changes units and
/// capture; mapLock guards the registry; auGraphUpdateLock keeps graph updates and deliveries
/// apart. Order: operatorLock, then one of the others. Render threads take mapLock for look-ups and
/// auGraphUpdateLock for a delivery, never operatorLock.
///
/// Properties are [any thread], each atomic in itself. Other functions are [host thread] unless
/// they say otherwise.
class RZStreamMixManager : public RZReplayAudioRecorderInternalListener<RZStreamMixManager> {
  public:
    using UnitObject = std::shared_ptr<RZReplayAudioUnitObject>;

    /// The one instance, made on first use, never destroyed.
    static const std::shared_ptr<RZStreamMixManager>& sharedManager();

    // Properties.

    /// The private graph has been built.
    [[nodiscard]] BOOL isResamplerInit() const { return isResamplerInit_; }
    void setIsResamplerInit(BOOL isInit) { isResamplerInit_ = isInit; }
    [[nodiscard]] BOOL isCapturing() const { return isCapturing_; }
    void setIsCapturing(BOOL isCapturing) {
        capturingProcess_ = getpid();
        isCapturing_ = isCapturing;
    }
    /// [any thread] The same of this process: the child of a fork finds its parent's, and nothing
    /// of that runs.
    [[nodiscard]] BOOL isCapturingHere() const {
        return isCapturing_ && capturingProcess_ == getpid();
    }
    /// Capture is to start when the interruption ends.
    [[nodiscard]] BOOL isPendingStartCapturing() const { return isPendingStartCapturing_; }
    void setIsPendingStartCapturing(BOOL pending) { isPendingStartCapturing_ = pending; }
    /// A stop failed: capture never starts again in this process.
    [[nodiscard]] BOOL lastStopError() const { return lastStopError_; }
    void setLastStopError(BOOL failed) { lastStopError_ = failed; }
    [[nodiscard]] BOOL isCurrentInterrupting() const { return isCurrentInterrupting_; }
    void setIsCurrentInterrupting(BOOL interrupting) { isCurrentInterrupting_ = interrupting; }
    /// Bit set of the track numbers that are not given: bit n-1 for number n. A release takes the
    /// number itself as its mask, so that a living unit's bit may be clear and a gone one's set.
    [[nodiscard]] std::int32_t trackId() const { return trackId_; }
    void setTrackId(std::int32_t bits) { trackId_ = bits; }
    /// Off: a release frees the numbers whose bits make up the released number. On: it frees that
    /// number alone, so that no two living units ever share one.
    [[nodiscard]] BOOL releasesOwnNumberOnly() const { return releasesOwnNumberOnly_; }
    void setReleasesOwnNumberOnly(BOOL own) { releasesOwnNumberOnly_ = own; }
    [[nodiscard]] AUNode mixNode() const { return mixNode_; }
    void setMixNode(AUNode node) { mixNode_ = node; }
    [[nodiscard]] AUNode outNode() const { return outNode_; }
    void setOutNode(AUNode node) { outNode_ = node; }
    [[nodiscard]] std::shared_ptr<RZReplayAudioRecorderInternalDelegate> callback() const {
        return callback_.load();
    }
    void setCallback(std::shared_ptr<RZReplayAudioRecorderInternalDelegate> callback) {
        callback_.store(std::move(callback));
    }
    // [host thread] A lock may be replaced only while no other thread uses the manager.
    [[nodiscard]] const std::shared_ptr<NSRecursiveLock>& operatorLock() const {
        return operatorLock_;
    }
    void setOperatorLock(std::shared_ptr<NSRecursiveLock> lock) {
        operationAtFork_.follow(*lock);
        operatorLock_ = std::move(lock);
    }
    [[nodiscard]] const std::shared_ptr<NSRecursiveLock>& mapLock() const { return mapLock_; }
    void setMapLock(std::shared_ptr<NSRecursiveLock> lock) {
        mapAtFork_.follow(*lock);
        mapLock_ = std::move(lock);
    }
    [[nodiscard]] const std::shared_ptr<NSRecursiveLock>& auGraphUpdateLock() const {
        return auGraphUpdateLock_;
    }
    void setAuGraphUpdateLock(std::shared_ptr<NSRecursiveLock> lock) {
        graphUpdateAtFork_.follow(*lock);
        auGraphUpdateLock_ = std::move(lock);
    }
    /// [any thread] Takes mapLock. The registry by key, a copy.
    [[nodiscard]] std::map<std::string, UnitObject> unitMap() const;
    /// [host thread] Takes mapLock. The objects keep their own order: that of their keys.
    void setUnitMap(const std::map<std::string, UnitObject>& units);
    [[nodiscard]] AUGraph mGraph() const { return mGraph_; }
    void setMGraph(AUGraph graph) { mGraph_ = graph; }
    [[nodiscard]] AudioUnit mixUnit() const { return mixUnit_; }
    void setMixUnit(AudioUnit unit) { mixUnit_ = unit; }
    [[nodiscard]] AudioUnit outUnit() const { return outUnit_; }
    void setOutUnit(AudioUnit unit) { outUnit_ = unit; }
    /// Describes each mixed block; null before the private graph was first built.
    [[nodiscard]] std::shared_ptr<RZReplayASBDInfo> outInfo() const { return outInfo_.load(); }
    void setOutInfo(std::shared_ptr<RZReplayASBDInfo> info) { outInfo_.store(std::move(info)); }
    [[nodiscard]] mach_timebase_info_data_t timeBaseInfo() const { return timeBaseInfo_.load(); }
    void setTimeBaseInfo(mach_timebase_info_data_t info) { timeBaseInfo_.store(info); }
    [[nodiscard]] std::shared_ptr<RZReplayVolumeDuckingParam> duckingParam() const {
        return duckingParam_.load();
    }
    void setDuckingParam(std::shared_ptr<RZReplayVolumeDuckingParam> param) {
        duckingParam_.store(std::move(param));
    }
    [[nodiscard]] std::shared_ptr<RZReplayVolumeCompressorParam> compressParam() const {
        return compressParam_.load();
    }
    void setCompressParam(std::shared_ptr<RZReplayVolumeCompressorParam> param) {
        compressParam_.store(std::move(param));
    }
    [[nodiscard]] korva_audio_utils::EventFilter& eventFilter() const { return *eventFilter_; }
    [[nodiscard]] dispatch_queue_t queue() const { return queue_.load(); }
    void setQueue(dispatch_queue_t queue) { queue_.store(std::move(queue)); }
    /// [any thread] Real-time safe. Host time in microseconds, 0 without a time base.
    [[nodiscard]] std::uint64_t microsecondsOfHostTime(std::uint64_t hostTime) const;

    // Registry.

    /// The unit's capture object, made on first sight; null when no track number is free.
    UnitObject newAudioUnitObj(AudioUnit unit);
    /// [any thread] Takes mapLock. By unit; null for an unknown one.
    [[nodiscard]] UnitObject findAudioUnitObj(const void* unit) const;
    /// [any thread] Takes mapLock. The first object of that graph; null for an unknown or null one.
    [[nodiscard]] UnitObject findAudioUnitObjByAUGraph(const void* graph) const;
    [[nodiscard]] UnitObject getAudioUnitObjWithKey(const std::string& key) const;
    void removeAudioUnitObjByKey(const std::string& key);
    /// The registry's objects in the order they came; the registry may change meanwhile.
    [[nodiscard]] std::vector<UnitObject> getUnitObjListWithCopy() const;
    [[nodiscard]] std::vector<UnitObject> filterCanStartUnitObjList() const;
    /// The reason for a NO is logged.
    [[nodiscard]] BOOL isUnitObjCanStartCapture(const UnitObject& obj) const;
    /// "%p" of a handle.
    [[nodiscard]] static std::string getKey(const void* pointer);
    /// Lowest free track number from 1 to 7, now taken; 0 when all are.
    std::int32_t generateNewTrackID();

    // What becomes of the program's units.

    /// Why the object is not captured at this moment. Unlike isUnitObjCanStartCapture() it logs
    /// nothing.
    [[nodiscard]] RZUnitReason whyNotCaptured(const UnitObject& obj) const;
    /// Every unit seen, in the order they came, with the reason as of now.
    [[nodiscard]] std::vector<RZUnitFact> unitFacts() const;

    /// [host thread] Takes mapLock and auGraphUpdateLock. What became of the frames of a track
    /// number, 0 for all of them.
    [[nodiscard]] RZFrameSums frameSums(int track) const;
    /// [any thread] The caller holds auGraphUpdateLock.
    [[nodiscard]] RZTrackTails& trackTails() { return tails_; }

    // Notices of the interception. A null object has track number 0 and no unit.

    void audioUnitStart(const UnitObject& obj);
    void audioUnitUpdate(const UnitObject& obj);
    /// The program has given a started unit another format by setting its property.
    void audioUnitFormatChanged(const UnitObject& obj);
    /// Something else feeds the unit, seen in a call that is recorded or in one that passes
    /// through, of which nothing is told.
    void audioUnitSourceChanged(const UnitObject& obj, BOOL isRecorded);
    void audioUnitStop(const UnitObject& obj);
    void disposeAudioUnitObj(const UnitObject& obj);

    /// [any thread] Passes an event on to `callback`.
    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                            const std::string& message) override;

    // The private graph. The caller holds operatorLock.

    [[nodiscard]] BOOL initResampleUnit();
    [[nodiscard]] BOOL startResampleUnit();
    [[nodiscard]] BOOL stopResampleMix();
    [[nodiscard]] BOOL unInitializeResampleUnit();
    OSStatus updateResampleAudioFormat(const UnitObject& obj, AudioUnit mixUnit);
    /// [host thread] Tells the mixer which loudspeakers the bus's channels are meant for, where the
    /// object's owner has said it: more than two are folded then.
    void giveBusLayout(const RZReplayAudioUnitObject& obj, AudioUnit mixUnit);
    /// Where there is a place for it, a change of the format is opened there before it is known.
    BOOL updateAudioUnitObjStreamFormat(const UnitObject& obj,
                                        std::optional<RZUnitFormatChange>* change = nullptr);
    BOOL updateAudioUnitObjectWithStart(const UnitObject& obj,
                                        std::optional<RZUnitFormatChange>* change = nullptr);
    void updateAudioUnitObjASBD();
    BOOL updateCapturingAudioUnitObjFormatToResampler();
    BOOL updateAUGraph();

    // Capture.

    /// Takes up to tens of milliseconds the first time and no lock: makes ready what the mix needs
    /// for tracks of the usual sample rates, so that a program's start of a unit does not pay it.
    static void prepareConversions();
    BOOL startCapture();
    BOOL stopCapture();
    /// The serial queue of the interruption handling, made on demand.
    dispatch_queue_t getAsyncQueue();

    /// 0, or 103 while the interception is not working (nothing is stored then).
    std::int32_t enableDucking(const RZReplayVolumeDuckingParam* param);
    std::int32_t enableCompressor(const RZReplayVolumeCompressorParam* param);
    /// [any thread] Real-time safe.
    [[nodiscard]] BOOL isDuckingEnable() const;
    [[nodiscard]] BOOL isCompressorEnable() const;
    /// Always 0. Objects that come later do not get the level by themselves.
    std::int32_t updateDuckingVolume(float volume, BOOL isDB);
    std::int32_t updateCompressorVolume(float volume, BOOL isDB);
    /// Gives an object the levels that were set last, before its first block.
    void giveLevels(const UnitObject& obj);
    /// Levels go to this object as well, from now on for as long as it lives: it has no unit, so it
    /// is neither captured nor found by one. Its format is set.
    void addUnitless(const UnitObject& obj);
    /// [host thread] Which loudspeakers the unit's channels are meant for, from its next start on;
    /// none: it is not known.
    void setChannelLabels(const UnitObject& obj, std::vector<AudioChannelLabel> labels);

    // Notifications.

    void onAudioUnitNewRegistered(const NSNotification& notification);
    void onAuGraphNewRegistered(const NSNotification& notification);
    void onAudioSessionRouteChanged(const NSNotification& notification);
    void onAudioInterruption(const NSNotification& notification);
    void onDidEnterBackground();

  private:
    struct Entry {
        std::string key;
        const void* unit;
        UnitObject obj;
    };

    RZStreamMixManager();
    void observeNotifications();
    /// The caller holds the operator's lock.
    [[nodiscard]] std::vector<UnitObject> objsWithLevels();
    UnitObject registerUnit(const RZLogSite& site, const std::string& key, AudioUnit unit,
                            std::int32_t number);
    void recordTrackStatistics(const UnitObject& obj);
    void stopUnitAndKeepTail(const UnitObject& obj, BOOL hadBus);
    void resumeTail(const UnitObject& obj);
    [[nodiscard]] RZUnitReason reasonAtStart(const UnitObject& obj) const;
    [[nodiscard]] BOOL connectUnitObj(const UnitObject& obj);
    void refreshDeviceSide(const UnitObject& obj);
    void inspectAtStart(const UnitObject& obj);
    [[nodiscard]] std::optional<OSStatus> followFormat(const UnitObject& obj);
    void updateUnit(const UnitObject& obj, BOOL tellsSuccess);
    [[nodiscard]] BOOL giveBusFormats(const UnitObject& obj,
                                      const AudioStreamBasicDescription& deviceSide);
    [[nodiscard]] OSStatus setNodeInputCallback(const UnitObject& obj);
    void takeBus(const UnitObject& obj);
    /// Only in the child of a fork: what the parent's units were about to deliver is the parent's,
    /// and none of them plays here until it is started anew.
    void beginAsChild();
    /// Whether it had the bus.
    BOOL leaveBus(const UnitObject& obj);
    [[nodiscard]] BOOL isBusAnothers(const UnitObject& obj) const;
    [[nodiscard]] std::atomic<const void*>& busUnit(const UnitObject& obj);
    /// [any thread] Allocates. Logs a message and raises it as an event.
    template <class... Arguments>
    void report(const RZLogSite& site, int level, std::uint64_t category, std::uint64_t code,
                const RZLogFormat& format, const Arguments&... arguments);

    std::atomic<bool> isResamplerInit_{false};
    std::atomic<bool> isCapturing_{false};
    std::atomic<pid_t> capturingProcess_{0};
    std::atomic<bool> isPendingStartCapturing_{false};
    std::atomic<bool> lastStopError_{false};
    std::atomic<bool> isCurrentInterrupting_{false};
    /// Ends of interruptions so far. Whoever sets isPendingStartCapturing_ reads it before and
    /// after, the notice of an end raises it before it reads isPendingStartCapturing_, all in one
    /// total order: one of the two sees the other, so a start never stays pending.
    std::atomic<std::uint32_t> interruptionEnds_{0};
    std::atomic<std::int32_t> trackId_{0};
    std::atomic<bool> releasesOwnNumberOnly_{false};
    std::atomic<AUNode> mixNode_{0};
    std::atomic<AUNode> outNode_{0};
    AtomicProperty<std::shared_ptr<RZReplayAudioRecorderInternalDelegate>> callback_;
    std::shared_ptr<NSRecursiveLock> operatorLock_;
    std::shared_ptr<NSRecursiveLock> auGraphUpdateLock_;
    std::shared_ptr<NSRecursiveLock> mapLock_;
    tqcommon::ForkLock operationAtFork_{
        tqcommon::ForkOrder::Operation,
        *operatorLock_,
        {[](void* manager) { static_cast<RZStreamMixManager*>(manager)->beginAsChild(); }, this}};
    tqcommon::ForkLock graphUpdateAtFork_{tqcommon::ForkOrder::GraphUpdate, *auGraphUpdateLock_};
    tqcommon::ForkLock mapAtFork_{tqcommon::ForkOrder::UnitMap, *mapLock_};
    /// Guarded by mapLock. Render threads look up by handle, others by key, which is the handle's
    /// text.
    std::vector<Entry> unitMap_;
    /// Guarded by operatorLock.
    std::vector<std::weak_ptr<RZReplayAudioUnitObject>> unitless_;
    /// Guarded by mapLock. Where a unit stood in unitMap_ when it was last found; checked before
    /// use.
    mutable std::array<std::size_t, 32> unitHints_{};
    /// Which unit each bus of the mixer was last connected to, null without one. Written under
    /// operatorLock, read by any thread; each word stands for itself.
    std::array<std::atomic<const void*>, RZUnitFacts::kTracks + 1> busUnits_{};
    std::atomic<AUGraph> mGraph_{nullptr};
    std::atomic<AudioUnit> mixUnit_{nullptr};
    std::atomic<AudioUnit> outUnit_{nullptr};
    AtomicProperty<std::shared_ptr<RZReplayASBDInfo>> outInfo_;
    AtomicProperty<mach_timebase_info_data_t> timeBaseInfo_;
    AtomicProperty<std::shared_ptr<RZReplayVolumeDuckingParam>> duckingParam_;
    AtomicProperty<std::shared_ptr<RZReplayVolumeCompressorParam>> compressParam_;
    struct Level {
        float volume = 0;
        BOOL isDB = NO;
    };
    /// Guarded by operatorLock. What was set last, forgotten when the effect is switched off.
    std::optional<Level> duckingLevel_;
    std::optional<Level> compressorLevel_;
    std::unique_ptr<korva_audio_utils::EventFilter> eventFilter_;
    AtomicProperty<dispatch_queue_t> queue_;
    RZTrackTails tails_;                           ///< guarded by auGraphUpdateLock
    std::bitset<RZTrackTails::kBuses> hasLayout_;  ///< buses; guarded by operatorLock
};
