#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "RZReplayAudioUnitObject.h"

class RZStreamMixManager;

/// One pass of the private graph over a bus.
struct RZTrackPass {
    RZStreamMixManager& manager;
    UInt32 bus;
    UInt32 type;  ///< what listeners want, RZPCMDataType...
    UInt32 frames;
    std::uint64_t microseconds;  ///< host time
};

/// A part of a buffer list on the stack: the same memory from a frame on.
class RZBufferListView {
  public:
    static constexpr UInt32 kMostBuffers = 32;

    /// Frames `first` to `first + frames` of a list that holds `all` frames.
    RZBufferListView(const AudioBufferList& list, UInt32 all, UInt32 first, UInt32 frames) noexcept;
    /// `frames` frames of that format at the beginning of the list's memory; fewer where less fits.
    RZBufferListView(const AudioBufferList& list, const AudioStreamBasicDescription& format,
                     UInt32 frames) noexcept;

    [[nodiscard]] AudioBufferList* get() noexcept {
        return reinterpret_cast<AudioBufferList*>(&list_);
    }
    [[nodiscard]] UInt32 frames() const noexcept { return frames_; }

  private:
    struct {
        UInt32 mNumberBuffers;
        AudioBuffer mBuffers[kMostBuffers];
    } list_;
    UInt32 frames_;
};

/// What stopped units have left in their rings. A unit stops between two passes of the private
/// graph, with up to some blocks written and not yet read; its bus goes on until they are read. A
/// unit that takes the bus over meanwhile comes behind them.
///
/// Host threads change the queues with operatorLock and auGraphUpdateLock held, the render thread
/// works through them with auGraphUpdateLock held. So the caller holds auGraphUpdateLock for every
/// function, but for those that say that operatorLock does.
class RZTrackTails {
  public:
    using UnitObject = std::shared_ptr<RZReplayAudioUnitObject>;
    static constexpr std::size_t kBuses = 8;

    /// [host thread] Puts an object that has just stopped behind what its bus has still to read.
    void add(const UnitObject& obj);
    /// [host thread] The object is about to play again: what it has left for the mixer is the
    /// beginning of what comes, and what it has left for listeners is told from that.
    void resume(const UnitObject& obj);
    void forget(const UnitObject& obj);
    /// [host thread] Everything, to be let go behind the lock.
    [[nodiscard]] std::vector<UnitObject> takeAll();
    /// [host thread] What is read to its end, taken out so that it is let go behind the lock.
    [[nodiscard]] std::vector<UnitObject> takeRead();
    /// [host thread] operatorLock does. Also one that is read to its end and not yet taken out.
    [[nodiscard]] bool has(const UnitObject& obj) const;
    /// [host thread] Also those that are read to their end and not yet taken out.
    [[nodiscard]] std::vector<UnitObject> list() const;

    /// [render thread] Real-time safe.
    [[nodiscard]] bool isEmpty(UInt32 bus) const noexcept {
        return bus >= kBuses || queues_[bus].done == queues_[bus].tails.size();
    }
    /// [render thread] All that is left for listeners of tracks, through `scratch`.
    void deliverPost(const RZTrackPass& pass, AudioBufferList& scratch);
    /// [host thread] Around a change of the bus's format; null when the mixer has refused it.
    void beginBusFormat(UInt32 bus);
    void endBusFormat(UInt32 bus, const AudioStreamBasicDescription* format);
    /// [render thread] What is left for the mixer, as much as a pass takes; answers how many frames
    /// of `ioData` it has filled. What has not the format of the bus is lost.
    UInt32 fillPre(const RZTrackPass& pass, AudioBufferList& ioData);

  private:
    struct Tail {
        UnitObject obj;
        /// Of one that plays again: the rest of its rings is not the tail's.
        struct Resumed {
            std::size_t postFrames;
            AudioStreamBasicDescription format;
        };
        std::optional<Resumed> resumed;
    };
    struct Queue {
        std::vector<Tail> tails;  ///< in the order of their stops
        std::size_t done = 0;     ///< so many of them are read; freed by the host's threads
        AudioStreamBasicDescription format{};  ///< of the bus
        bool isFormatChanging = false;

        void loseRest();
    };
    static void deliverPost(const RZTrackPass& pass, Tail& tail, AudioBufferList& scratch);

    std::array<Queue, kBuses> queues_;
};

/// [render thread] Feeds a mixer bus whose unit has stopped: what is left, then silence. `refCon`
/// is the manager. Always 0. Takes the manager's auGraphUpdateLock for the whole call.
OSStatus RZTailNodeProcessCallback(void* refCon, AudioUnitRenderActionFlags* flags,
                                   const AudioTimeStamp* ts, UInt32 bus, UInt32 frames,
                                   AudioBufferList* ioData);
