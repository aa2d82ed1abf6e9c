#pragma once

#include <AudioToolbox/AudioToolbox.h>
#include <Foundation/Foundation.h>
#include <event_filter.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "AtomicProperty.h"
#include "RZFrameAccount.h"
#include "RZLentMemory.h"
#include "RZReplayASBDInfo.h"
#include "RZReplayAudioRecorderDelegate.h"
#include "RZReplayAudioUnitBuffer.h"
#include "RZReplayVolumeCompressorParam.h"
#include "RZReplayVolumeDuckingParam.h"
#include "common/ForkLocks.h"
#include "common/RealTime.h"

/// The capture object of one intercepted audio unit: its formats, the host's callback that was
/// taken over, and one RZReplayAudioUnitBuffer per buffer of its buffer lists.
///
/// Threads: the writer is the host's render thread (it also processes), the reader the private
/// graph's render thread. Properties are [any thread], each atomic in itself; what carries no tag
/// is [host thread]. bufferLock guards the buffer list and the parameters; the reader holds it for
/// one buffer at a time, the writer only while it looks a buffer up.
class RZReplayAudioUnitObject {
  public:
    RZReplayAudioUnitObject();
    RZReplayAudioUnitObject(AudioUnit unit, int trackId);
    /// What its rings still hold counts as lost.
    ~RZReplayAudioUnitObject();
    RZReplayAudioUnitObject(const RZReplayAudioUnitObject&) = delete;
    RZReplayAudioUnitObject& operator=(const RZReplayAudioUnitObject&) = delete;

    [[nodiscard]] BOOL isStarted() const { return isStarted_; }
    void setIsStarted(BOOL isStarted) { isStarted_ = isStarted; }
    [[nodiscard]] BOOL isCapturing() const { return isCapturing_; }
    void setIsCapturing(BOOL isCapturing) { isCapturing_ = isCapturing; }
    /// The unit's microphone element is on.
    [[nodiscard]] BOOL input_enableIO() const { return input_enableIO_; }
    void setInput_enableIO(BOOL enabled) { input_enableIO_ = enabled; }
    /// The mixer wants 16-bit integer while the unit renders 32-bit float.
    [[nodiscard]] BOOL needFormatToS16() const { return needFormatToS16_; }
    void setNeedFormatToS16(BOOL need) { needFormatToS16_ = need; }
    /// Off: blocks of tracks of 32-bit float are read as 16-bit integers, as the mix is. On: as the
    /// unit renders them. One for all objects.
    [[nodiscard]] static BOOL keepsFloatTracks() { return keepsFloatTracks_; }
    static void setKeepsFloatTracks(BOOL keeps) { keepsFloatTracks_ = keeps; }
    /// [any thread] Real-time safe. The format in which that side is read.
    [[nodiscard]] AudioStreamBasicDescription formatRead(BOOL isProcessed) const {
        return isReadAsS16(isProcessed) ? s16FormatStreamDesc() : streamDesc();
    }
    /// The post rings are to be emptied at the next post read.
    [[nodiscard]] BOOL pendingCleanPostRingBuffer() const { return pendingCleanPostRingBuffer_; }
    void setPendingCleanPostRingBuffer(BOOL pending) { pendingCleanPostRingBuffer_ = pending; }
    /// The callback has dealt with the block that is being rendered: a notify that is still there
    /// has nothing left to do. Both run in one render, so the order of stores is theirs.
    [[nodiscard]] BOOL takenByCallback() const {
        return takenByCallback_.load(std::memory_order_relaxed);
    }
    void setTakenByCallback(BOOL taken) {
        takenByCallback_.store(taken, std::memory_order_relaxed);
    }
    [[nodiscard]] int trackId() const { return trackId_; }
    void setTrackId(int trackId) { trackId_ = trackId; }
    /// Node of the host's graph, -1 when the unit is none.
    [[nodiscard]] AUNode inNode() const { return inNode_; }
    void setInNode(AUNode node) { inNode_ = node; }
    /// Not retained: the host may have disposed of it.
    [[nodiscard]] AudioUnit inUnit() const { return inUnit_; }
    void setInUnit(AudioUnit unit) { inUnit_ = unit; }
    [[nodiscard]] AUGraph auGraph() const { return auGraph_; }
    void setAuGraph(AUGraph graph) { auGraph_ = graph; }
    /// Receives events; weak.
    [[nodiscard]] std::shared_ptr<RZReplayAudioRecorderInternalDelegate> callback() const {
        return callback_.load().lock();
    }
    void setCallback(const std::shared_ptr<RZReplayAudioRecorderInternalDelegate>& callback) {
        callback_.store(callback);
    }
    /// The host's own render callback and its reference value: one value, so that a render cycle
    /// never pairs the old procedure with the new reference.
    [[nodiscard]] AURenderCallbackStruct originCallback() const { return origin_.load(); }
    /// Stands before it on the unit itself.
    void setOriginCallback(AURenderCallbackStruct callback) {
        unitsCallback_.store(callback);
        origin_.store(callback);
    }
    /// Stands before it at the unit's node.
    void setNodesOriginCallback(AURenderCallbackStruct callback) {
        nodesCallback_.store(callback);
        origin_.store(callback);
    }
    [[nodiscard]] AURenderCallback origin_inputProc() const { return origin_.load().inputProc; }
    /// [host thread] One half of originCallback() each; the other half stays.
    void setOrigin_inputProc(AURenderCallback proc) {
        setOriginCallback({proc, origin_inputProcRefCon()});
    }
    void setOrigin_inputProcRefCon(void* refCon) {
        setOriginCallback({origin_inputProc(), refCon});
    }
    [[nodiscard]] void* origin_inputProcRefCon() const { return origin_.load().inputProcRefCon; }
    /// Of a graph's unit: what ours stands before on the unit itself, and what at its node. Both
    /// may be there, and which of them the unit has is seen when ours is called.
    [[nodiscard]] AURenderCallbackStruct unitsCallback() const { return unitsCallback_.load(); }
    void setUnitsCallback(AURenderCallbackStruct callback) { unitsCallback_.store(callback); }
    [[nodiscard]] AURenderCallbackStruct nodesCallback() const { return nodesCallback_.load(); }
    void setNodesCallback(AURenderCallbackStruct callback) { nodesCallback_.store(callback); }
    /// By what the facts name the unit (RZUnitFacts::TrackUnit); 0 before its first start.
    [[nodiscard]] std::uint32_t unitWord() const { return unitWord_; }
    void setUnitWord(std::uint32_t word) { unitWord_ = word; }
    /// Whoever records does not want it, as of its last start: it is never captured.
    [[nodiscard]] bool isExcluded() const { return isExcluded_; }
    void setExcluded(bool isExcluded) { isExcluded_ = isExcluded; }
    /// Describes the PCM that is read from this object.
    [[nodiscard]] std::shared_ptr<RZReplayASBDInfo> asbdInfo() const { return asbdInfo_.load(); }
    void setAsbdInfo(std::shared_ptr<RZReplayASBDInfo> info) { asbdInfo_.store(std::move(info)); }
    /// Free for the caller's use; the library neither sets nor reads it.
    [[nodiscard]] std::string key() const { return key_.load(); }
    void setKey(std::string key) { key_.store(std::move(key)); }
    [[nodiscard]] const std::vector<std::shared_ptr<RZReplayAudioUnitBuffer>>& bufferList() const {
        return bufferList_;
    }
    /// [host thread] Takes bufferLock. Only while no render thread uses the object.
    void setBufferList(std::vector<std::shared_ptr<RZReplayAudioUnitBuffer>> list) {
        const std::scoped_lock guard(*bufferLock_);
        bufferList_ = std::move(list);
    }
    [[nodiscard]] const std::shared_ptr<NSRecursiveLock>& bufferLock() const { return bufferLock_; }
    /// [host thread] Only while no other thread uses the object. Not null.
    void setBufferLock(std::shared_ptr<NSRecursiveLock> lock) {
        bufferAtFork_.follow(*lock);
        bufferLock_ = std::move(lock);
    }
    [[nodiscard]] korva_audio_utils::EventFilter& eventFilter() const { return *eventFilter_; }
    [[nodiscard]] AudioComponentDescription compDesc() const { return compDesc_.load(); }
    void setCompDesc(const AudioComponentDescription& desc) { compDesc_.store(desc); }
    /// The format in which the unit's PCM passes the callback.
    [[nodiscard]] AudioStreamBasicDescription streamDesc() const { return streamDesc_.load(); }
    void setStreamDesc(const AudioStreamBasicDescription& desc) { streamDesc_.store(desc); }
    [[nodiscard]] AudioStreamBasicDescription s16FormatStreamDesc() const {
        return s16FormatStreamDesc_.load();
    }
    void setS16FormatStreamDesc(const AudioStreamBasicDescription& desc) {
        s16FormatStreamDesc_.store(desc);
    }

    /// The stream description is usable and there is a unit.
    [[nodiscard]] BOOL isAvailable() const;
    void startAudioUnit();
    void stopAudioUnit();
    /// Also asks for the stale post PCM to be thrown away. A second start changes nothing.
    void startCapture();
    /// What the rings hold stays in them.
    void stopCapture();
    /// [any thread] Takes bufferLock. The buffer at `index`. An index beyond the end appends one
    /// buffer and returns that, whatever the index: callers count up from 0. Never null; lives as
    /// long as the object.
    RZReplayAudioUnitBuffer* getOrCreateBufferAt(int index);
    /// [any thread] Takes bufferLock and the ring's mutex. Readable bytes of the first buffer's pre
    /// or post side.
    [[nodiscard]] std::size_t getRingBufferSize(BOOL isProcessed) const;
    /// [any thread] Takes bufferLock and the ring's mutex. The same in frames.
    [[nodiscard]] std::size_t waitingFrames(BOOL isProcessed) const;
    /// [any thread] Takes bufferLock and the rings' mutexes. Drops what that side's rings hold and
    /// counts it as lost for `reason`.
    void discardWaiting(BOOL isProcessed, RZFrameLoss reason);
    /// [render thread] Real-time safe. Frames that were rendered while nobody captured. Kept here:
    /// one instruction for a program that nobody records.
    void countIdle(UInt32 frames) { idleFrames_.fetch_add(frames, std::memory_order_relaxed); }
    [[nodiscard]] std::uint64_t idleFrames() const {
        return idleFrames_.load(std::memory_order_relaxed);
    }
    /// [any thread] Real-time safe. Of its track number.
    [[nodiscard]] RZFrameAccount& account() const { return RZFrameAccount::ofTrack(trackId()); }
    /// [host thread] Opens a change of the unit's format: until it is closed no block is stored,
    /// processed or read, because nobody can say which of the two formats it has. Changes of
    /// several threads may be open at a time.
    void beginFormatChange();
    /// [host thread] Waits for a write that is under way, as long as copying a block takes. What
    /// the rings hold in another format than `format` is dropped and counted as lost; what comes
    /// next has this one. Only while a change is open or nothing is captured.
    void keepOnlyBlocksOf(const AudioStreamBasicDescription& format,
                          RZFrameLoss reason = RZFrameLoss::FormatChanged);
    void endFormatChange();
    /// [host thread] Nothing has changed after all: ends a change as if it had not been opened, so
    /// that the block that is rendered meanwhile is kept.
    void takeBackFormatChange();
    /// [any thread] Real-time safe. No change of the format is open.
    [[nodiscard]] bool isFormatSettled() const { return isSettled(format_.load()); }
    /// [render thread] Writer only. Real-time safe. Goes before the unit renders a block: what is
    /// rendered across a change of the format is neither stored nor processed.
    void noteRenderBegins() noexcept TQ_NONBLOCKING { blockFormat_ = format_.load(); }
    /// [render thread] Writer only. Real-time safe. Goes before the unit renders a block into
    /// `list` that is to be processed: memory that the host puts in is not written to.
    void noteGivenMemory(const AudioBufferList* list) noexcept TQ_NONBLOCKING { given_.note(list); }

    /// [any thread] Passes an event on to `callback`.
    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code, const std::string& message);
    /// [render thread] Reader only. Real-time safe. Refreshes asbdInfo from the format that is
    /// being read.
    void updateAsbdInfo();

    /// [any thread] Takes bufferLock. A null record is stored as none and changes no buffer.
    void setDuckingParam(const RZReplayVolumeDuckingParam* param);
    void setCompressorParam(const RZReplayVolumeCompressorParam* param);
    void updateDuckingVolume(float volume, BOOL isDB);
    void updateCompressorVolume(float volume, BOOL isDB);

    /// [render thread] Writer only. Allocates only for a first or larger block. Queues one rendered
    /// block; what fails is dropped and raised as an event. Always YES.
    BOOL tryWriteBuffersFrom(const AudioBufferList* list, UInt32 frames, BOOL isProcessed);
    /// [render thread] Writer only. Allocates only for a first or larger block. Queues a block of
    /// silence.
    void tryWriteSilence(UInt32 frames, BOOL isProcessed);
    /// [render thread] Reader only. Allocates only for a first or larger block. Fills the list with
    /// the next `frames`, each buffer whole or silent. YES when at least one buffer got sound.
    BOOL tryReadBuffersTo(AudioBufferList* list, UInt32 frames, BOOL isProcessed);
    /// [any thread] Real-time safe. Truncates toward zero, symmetric: -32767 to 32767. NaN gives 0.
    static void convertF32ToS16(const float* src, SInt16* dst,
                                UInt32 samples) noexcept TQ_NONBLOCKING;
    /// [render thread] Writer only. Allocates only for a first or larger block. Ducking and
    /// compression in place; of buffers that the host has put in, a copy takes their place.
    void processBuffer(AudioBufferList* list, UInt32 frames);
    /// [any thread] One at a time, and never while processBuffer() may run: for the owner of
    /// `blockOwner`. Allocates only for the first block. Ducking and compression in place, of
    /// interleaved samples in the unit's format.
    void processSamples(void* samples, UInt32 frames);
    /// [any thread] As processSamples(): other sound begins with its next block.
    void beginSamples();

    /// What stands in for processBuffer() where somebody else has processed the sound already:
    /// called for each rendered block, before the post side is written.
    struct BlockOwner {
        void (*replace)(void* context, AudioBufferList* list, UInt32 frames) = nullptr;
        void* context = nullptr;
    };
    /// [host thread] `owner` must outlive the object; null for none. Best before the unit starts.
    void setBlockOwner(const BlockOwner* owner) {
        blockOwner_.store(owner, std::memory_order_release);
    }
    [[nodiscard]] const BlockOwner* blockOwner() const {
        return blockOwner_.load(std::memory_order_acquire);
    }

    /// [host thread] Which loudspeakers the channels are meant for; under the mix manager's
    /// operatorLock.
    void setChannelLabels(std::vector<AudioChannelLabel> labels) {
        channelLabels_ = std::move(labels);
    }
    [[nodiscard]] const std::vector<AudioChannelLabel>& channelLabels() const {
        return channelLabels_;
    }

  private:
    /// What one read needs to know of the formats, the same for every buffer of the list.
    struct ReadSizes {
        UInt32 record;  ///< bytes taken from the ring
        UInt32 target;  ///< bytes that the reader's buffer must hold
        BOOL mismatch;
        BOOL toS16;
        BOOL bigEndian;
    };
    [[nodiscard]] BOOL isReadAsS16(BOOL isProcessed) const {
        return needFormatToS16() && !(isProcessed && keepsFloatTracks());
    }
    [[nodiscard]] ReadSizes readSizes(UInt32 frames, BOOL isProcessed) const;
    void countWritten(RZReplayAudioUnitBuffer& buffer, UInt32 frames, UInt32 size,
                      UInt32 bytesPerFrame, BOOL isProcessed);
    [[nodiscard]] bool ownBuffers(AudioBufferList& list, UInt32 frames,
                                  const AudioStreamBasicDescription& desc);
    BOOL readBufferAt(UInt32 index, AudioBufferList& list, UInt32 frames, BOOL isProcessed,
                      BOOL clean, const ReadSizes& sizes);
    /// [any thread] Allocates. Logs a message and raises it as an event; for what passed the event
    /// filter.
    template <class... Arguments>
    void raise(const class RZLogSite& site, int category, int code, struct RZLogFormat format,
               const Arguments&... arguments);

    class WriteScope;
    /// Whether the block that is rendered now has the format known here.
    [[nodiscard]] bool isBlockKnown() const noexcept {
        const std::uint64_t now = format_.load();
        return now == blockFormat_ && isSettled(now);
    }
    static constexpr std::uint64_t kOneChange = std::uint64_t{1} << 32U;
    static constexpr bool isSettled(std::uint64_t format) { return format % kOneChange == 0; }

    /// Changes of the format so far in the upper half, open ones in the lower.
    ///
    /// Invariant: a block is stored only when this word was the same, with nothing open, before the
    /// block was rendered and when its write began. Writers of the word: host threads. The render
    /// thread sets isWriting_ before it looks at the word, a host thread opens the change before it
    /// looks at isWriting_, both in one total order: either the write is given up, or the host
    /// thread waits for it before it empties the rings.
    std::atomic<std::uint64_t> format_{0};
    std::atomic<bool> isWriting_{false};
    AudioStreamBasicDescription storedFormat_{};  ///< of what the rings hold; under bufferLock
    std::uint64_t blockFormat_ = 0;               ///< render thread only
    RZGivenMemory given_;                         ///< render thread only

    std::shared_ptr<const RZReplayVolumeDuckingParam> duckingParam_;
    std::shared_ptr<const RZReplayVolumeCompressorParam> compressorParam_;
    std::atomic<const BlockOwner*> blockOwner_{nullptr};
    std::vector<AudioChannelLabel> channelLabels_;
    std::atomic<bool> isStarted_{false};
    std::atomic<bool> isCapturing_{false};
    std::atomic<bool> input_enableIO_{false};
    std::atomic<bool> needFormatToS16_{false};
    static inline std::atomic<bool> keepsFloatTracks_{false};
    std::atomic<bool> pendingCleanPostRingBuffer_{false};
    std::atomic<std::uint64_t> idleFrames_{0};
    std::atomic<bool> takenByCallback_{false};
    std::atomic<int> trackId_{0};
    std::atomic<std::uint32_t> unitWord_{0};
    std::atomic<bool> isExcluded_{false};
    std::atomic<AUNode> inNode_{-1};
    std::atomic<AudioUnit> inUnit_{nullptr};
    std::atomic<AUGraph> auGraph_{nullptr};
    AtomicProperty<std::weak_ptr<RZReplayAudioRecorderInternalDelegate>> callback_;
    AtomicProperty<AURenderCallbackStruct> origin_;
    AtomicProperty<AURenderCallbackStruct> unitsCallback_;
    AtomicProperty<AURenderCallbackStruct> nodesCallback_;
    AtomicProperty<std::shared_ptr<RZReplayASBDInfo>> asbdInfo_;
    AtomicProperty<std::string> key_;
    std::vector<std::shared_ptr<RZReplayAudioUnitBuffer>> bufferList_;
    std::shared_ptr<NSRecursiveLock> bufferLock_;
    tqcommon::ForkLock bufferAtFork_{tqcommon::ForkOrder::BufferList, *bufferLock_};
    std::unique_ptr<korva_audio_utils::EventFilter> eventFilter_;
    AtomicProperty<AudioComponentDescription> compDesc_;
    AtomicProperty<AudioStreamBasicDescription> streamDesc_;
    AtomicProperty<AudioStreamBasicDescription> s16FormatStreamDesc_;
};
