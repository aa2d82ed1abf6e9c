#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "common/ForkLocks.h"
#include "common/Published.h"
#include "component/HandleTable.h"
#include "format/PCMFormat.h"
#include "unit/BusMemory.h"
#include "unit/ChannelLayout.h"
#include "unit/InputSource.h"
#include "unit/ParameterRamp.h"
#include "unit/ParameterValue.h"
#include "unit/PropertyTable.h"

namespace tqplatform {

struct Component;

/// What render threads know of a unit: made by host threads, replaced as a whole. Kinds of
/// units derive theirs from it. What a render changes (converters with their past, memory) is
/// behind shared pointers, which plans that follow each other hand on as long as it still fits.
struct RenderPlan {
    struct Output {
        PCMFormat format;
        bool allocate;
        std::shared_ptr<BusMemory> memory;
    };
    RenderPlan() = default;
    RenderPlan(const RenderPlan&) = delete;
    RenderPlan& operator=(const RenderPlan&) = delete;
    virtual ~RenderPlan() = default;

    UInt32 maximumFrames = 0;
    std::vector<Output> outputs;
};

/// One render of an output bus, arguments checked, every buffer with data.
struct RenderCall {
    AudioUnitRenderActionFlags& flags;
    const AudioTimeStamp& time;
    UInt32 bus;
    UInt32 frames;
    AudioBufferList& list;
};

/// What all units are: states, buses with formats and sources, properties, parameters, listeners,
/// render notifies and the render call.
///
/// Property, initialise and uninitialise calls exclude each other by a recursive lock. Rendering
/// takes no lock: it reads the published plan.
class Unit {
  public:
    explicit Unit(const Component& component) : component_(component) {}
    virtual ~Unit() = default;
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    /// For the handle table: before another thread can know the unit.
    void setHandle(void* handle) noexcept { handle_ = static_cast<AudioUnit>(handle); }
    /// For the handle table: the handle is stale, end what the unit does by itself.
    virtual void close() {}
    /// For the handle table, in the child of a fork: only the forking thread may be inside.
    virtual void forgetAfterFork(bool isInside) noexcept;

    [[nodiscard]] AudioUnit handle() const noexcept { return handle_; }
    [[nodiscard]] const Component& component() const noexcept { return component_; }

    // Control calls, named like the C functions they stand behind.
    OSStatus initialize();
    OSStatus uninitialize();
    OSStatus getPropertyInfo(PropertyKey key, UInt32* size, Boolean* writable);
    OSStatus getProperty(PropertyKey key, void* data, UInt32* size);
    OSStatus setProperty(PropertyKey key, const void* data, UInt32 size);
    OSStatus addPropertyListener(AudioUnitPropertyID id, AudioUnitPropertyListenerProc proc,
                                 void* refCon);
    OSStatus removePropertyListener(AudioUnitPropertyID id, AudioUnitPropertyListenerProc proc,
                                    void* refCon);
    /// `owner` is part of a notify's identity: what a graph adds and what a program adds to the
    /// unit itself never stand in each other's way.
    OSStatus addRenderNotify(AURenderCallback proc, void* refCon, const void* owner = nullptr);
    OSStatus removeRenderNotify(AURenderCallback proc, void* refCon, const void* owner = nullptr);
    OSStatus getParameter(AudioUnitParameterID id, AudioUnitScope scope, AudioUnitElement element,
                          AudioUnitParameterValue* value) noexcept;
    OSStatus setParameter(AudioUnitParameterID id, AudioUnitScope scope, AudioUnitElement element,
                          AudioUnitParameterValue value) noexcept;
    OSStatus scheduleParameters(std::span<const AudioUnitParameterEvent> events) noexcept;
    OSStatus reset(AudioUnitScope scope, AudioUnitElement element);
    virtual OSStatus hush() { return kAudioUnitErr_InvalidProperty; }
    virtual OSStatus start() { return kAudio_UnimplementedError; }
    virtual OSStatus stop() { return kAudio_UnimplementedError; }
    [[nodiscard]] virtual bool isRunning() const noexcept { return false; }

    /// [any thread] [real-time safe] AudioUnitRender().
    OSStatus render(AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
                    UInt32 frames, AudioBufferList* list) noexcept;

    /// While one lives on a thread, property listeners that its calls cause are kept back and told
    /// at the end of the outermost: for callers that hold a lock which a listener's own may meet.
    class ListenerDelay {
      public:
        ListenerDelay() noexcept;
        ~ListenerDelay();
        ListenerDelay(const ListenerDelay&) = delete;
        ListenerDelay& operator=(const ListenerDelay&) = delete;

      private:
        friend class Unit;
        ListenerDelay* outer_;
        std::vector<std::pair<AudioUnit, PropertyKey>> told_;
    };

    // What a graph wants to know of its output unit.

    /// Odd while a slice is being rendered; grows with each begin and end.
    [[nodiscard]] std::uint64_t sliceCount() const noexcept {
        return sliceCount_.load(std::memory_order_seq_cst);
    }
    /// Whether the calling thread is the one that renders the slice of the moment.
    [[nodiscard]] bool isRenderThread() const noexcept;
    /// Whether the calling thread is inside a slice of any unit.
    [[nodiscard]] static bool isInsideAnySlice() noexcept;
    /// Whether the calling thread may wait for other calls to end: they may be waiting for the
    /// slice that it is inside of.
    [[nodiscard]] static bool mayWait() noexcept { return !isInsideAnySlice(); }
    [[nodiscard]] bool isInitialized();
    [[nodiscard]] Float32 cpuLoad() const noexcept { return cpuLoad_.load(); }
    [[nodiscard]] Float32 takeMaximumCpuLoad() noexcept { return maximumCpuLoad_.exchange(0); }

    // Between connected units.

    /// Format of an output bus, for the input that connects to it.
    OSStatus outputFormat(UInt32 bus, AudioStreamBasicDescription& format);
    /// Tells a connected input that its source has another format now.
    void sourceFormatChanged(AudioUnit source, UInt32 outputBus, UInt32 inputBus,
                             const AudioStreamBasicDescription& format);

  protected:
    struct Bus {
        AudioStreamBasicDescription format{};
        InputSource source;  ///< input buses only
        bool allocate = true;
        std::optional<ChannelLayout> layout;  ///< counts while it has the format's channels
    };
    struct Notify {
        AURenderCallback proc;
        void* refCon;
        const void* owner;
        bool operator==(const Notify&) const = default;
    };
    using Notifies = tqcommon::Published<std::vector<Notify>>;

    /// A parameter's place in memory, its legal range, and what changes it within a slice.
    struct Parameter {
        ParameterValue* value = nullptr;  ///< null where there is only a reading
        Float32 minimum = 0;
        Float32 maximum = 1;
        ParameterRamp* ramp = nullptr;  ///< null where changes count from the next slice on
        Float32 reading = 0;            ///< of a meter, at the time of the call
    };

    /// Marks the render of one slice, with its cost.
    class SliceScope {
      public:
        SliceScope(Unit& unit, UInt32 frames, Float64 rate) noexcept;
        ~SliceScope();
        SliceScope(const SliceScope&) = delete;
        SliceScope& operator=(const SliceScope&) = delete;

      private:
        Unit& unit_;
        Float64 duration_;
        std::uint64_t began_;
    };

    /// At most one thread renders an output bus; a second one, or a loop of connections, is
    /// turned away.
    class BusyScope {
      public:
        explicit BusyScope(std::atomic_flag& flag) noexcept
            : flag_(flag), entered_(!flag.test_and_set(std::memory_order_acquire)) {}
        ~BusyScope() {
            if (entered_) {
                flag_.clear(std::memory_order_release);
            }
        }
        BusyScope(const BusyScope&) = delete;
        BusyScope& operator=(const BusyScope&) = delete;
        explicit operator bool() const noexcept { return entered_; }

      private:
        std::atomic_flag& flag_;
        bool entered_;
    };

    // What kinds of units say about themselves. Called under the lock, except where noted.

    [[nodiscard]] virtual std::unique_ptr<RenderPlan> makePlan(const RenderPlan* old) = 0;
    /// [any thread] Without the lock: whether AudioUnitRender() may be called for that bus, here
    /// and now.
    [[nodiscard]] virtual bool isPulledHere(UInt32 /*bus*/) const noexcept { return true; }
    /// [render thread] Without the lock: renders one output bus of the unit's own kind.
    virtual OSStatus renderBus(const RenderPlan& plan, const RenderCall& call) noexcept = 0;
    /// The kind's own properties and, behind them, what its base has.
    [[nodiscard]] virtual const PropertyTable& properties() const;
    [[nodiscard]] static const PropertyTable& commonProperties();
    /// [any thread] Without the lock. kAudioUnitErr_InvalidParameter by default.
    virtual OSStatus findParameter(AudioUnitParameterID id, AudioUnitScope scope,
                                   AudioUnitElement element, Parameter& parameter) noexcept;
    [[nodiscard]] virtual AudioStreamBasicDescription busFormat(AudioUnitScope scope,
                                                                UInt32 element);
    [[nodiscard]] virtual bool isFormatWritable(AudioUnitScope scope, UInt32 element);
    [[nodiscard]] virtual bool acceptsFormat(AudioUnitScope scope, const PCMFormat& format);
    [[nodiscard]] virtual bool isInputCountWritable() const { return false; }
    virtual OSStatus setInputCount(UInt32 count);
    /// How many of the input buses take a callback or a connection.
    [[nodiscard]] virtual UInt32 feedableInputs() const {
        return static_cast<UInt32>(inputs_.size());
    }
    /// Without the lock, before and after the plan is taken away.
    virtual void stopOnUninitialize() {}
    /// Render threads start anew with their next render.
    virtual void forgetPast() { restart_.store(true); }

    /// Makes and publishes a plan when the unit is initialised; kAudioUnitErr_FormatNotSupported
    /// while a bus has no sample rate.
    OSStatus republish();
    /// What was said of the channels that a bus has, else the usual.
    [[nodiscard]] ChannelLayout busLayout(AudioUnitScope scope, UInt32 element);
    void tellListeners(PropertyKey key);
    [[nodiscard]] static PCMFormat parsed(const AudioStreamBasicDescription& format);
    /// Memory that an output bus lends to a caller that renders it without buffers. It stays as
    /// long as the unit, since the borrower may still read when the plan has been replaced; there
    /// are only as many as the bus has had shapes.
    [[nodiscard]] std::shared_ptr<BusMemory> memoryFor(UInt32 output, const PCMFormat& format,
                                                       UInt32 frames);
    /// [render thread] [real-time safe] As far as the notifies are.
    static void callNotifies(const std::vector<Notify>* notifies, AudioUnitRenderActionFlags flags,
                             const AudioTimeStamp& time, UInt32 bus, UInt32 frames,
                             AudioBufferList& list) noexcept;
    /// [render thread] [real-time safe] Keeps the first error until it is read.
    void keepRenderError(OSStatus status) noexcept;
    /// [render thread] [real-time safe] Whether the past was to be forgotten; asked once per
    /// render.
    [[nodiscard]] bool takeRestart() noexcept {
        return restart_.load(std::memory_order_relaxed) && restart_.exchange(false);
    }

    std::recursive_mutex lock_;
    bool initialized_ = false;
    UInt32 maximumFrames_ = 1024;
    std::vector<Bus> inputs_;
    std::vector<Bus> outputs_;
    tqcommon::Published<RenderPlan> plan_;
    Notifies notifies_;
    std::array<std::atomic_flag, 2> busy_{};  ///< output bus 0, and all the others
    std::atomic<Float64> lastSampleTime_{0};

  private:
    struct Listener {
        AudioUnitPropertyID id;
        AudioUnitPropertyListenerProc proc;
        void* refCon;
        bool operator==(const Listener&) const = default;
    };
    struct LentMemory {
        UInt32 output;
        UInt32 frames;
        std::shared_ptr<BusMemory> memory;
    };
    struct Dependent {
        AudioUnit unit;
        UInt32 outputBus;
        UInt32 inputBus;
        bool operator==(const Dependent&) const = default;
    };

    // Values of properties, under the lock.
    struct Properties;
    AudioStreamBasicDescription format(PropertyKey key);
    OSStatus writeFormat(PropertyKey key, const void* data, UInt32 size);
    Float64 sampleRate(PropertyKey key);
    OSStatus writeSampleRate(PropertyKey key, Float64 rate);
    UInt32 elementCount(PropertyKey key);
    OSStatus writeElementCount(PropertyKey key, UInt32 count);
    OSStatus writeCallback(PropertyKey key, AURenderCallbackStruct callback);
    OSStatus removeSource(PropertyKey key);
    UInt32 allocates(PropertyKey key);
    OSStatus writeAllocates(PropertyKey key, UInt32 value);
    UInt32 maximumFrames(PropertyKey key);
    OSStatus writeMaximumFrames(PropertyKey key, UInt32 frames);
    OSStatus takeRenderError(PropertyKey key);
    Float32 load(PropertyKey key);
    Float64 noTime(PropertyKey key);
    Float64 lastSampleTime(PropertyKey key);
    AUChannelInfo channelCounts(PropertyKey key);
    ChannelLayout layout(PropertyKey key) { return busLayout(key.scope, key.element); }
    OSStatus writeLayout(PropertyKey key, const void* data, UInt32 size);
    OSStatus removeLayout(PropertyKey key);

    /// The row of a property that the unit has there; else null and why not.
    const PropertyRow* describe(PropertyKey key, PropertyInfo& info, OSStatus& status);
    OSStatus setUnderLock(PropertyKey key, const void* data, UInt32 size);
    /// [any thread] Waits until a slice that began before the call has ended, for a time that is
    /// bounded, and not at all inside of one.
    void waitForSlice() const;
    /// Takes the lock by itself; the key's element becomes the input that is connected.
    OSStatus setConnection(PropertyKey& key, const void* data, UInt32 size);

    [[nodiscard]] Bus* findBus(AudioUnitScope scope, UInt32 element, OSStatus& status);
    OSStatus checkRender(const RenderPlan* plan, UInt32 bus, UInt32 frames,
                         AudioBufferList& list) const noexcept;
    OSStatus setFormat(AudioUnitScope scope, UInt32 element,
                       const AudioStreamBasicDescription& format);
    [[nodiscard]] bool isFormatWritableAt(PropertyKey key);
    OSStatus makeConnection(const AudioUnitConnection& connection);
    OSStatus disconnect(UInt32 element);
    /// Gives an input bus a format and a source, or leaves it as it is when that cannot work.
    OSStatus feed(UInt32 element, const AudioStreamBasicDescription& format,
                  const InputSource& source);
    void addDependent(const Dependent& dependent);
    void tellDependents(UInt32 outputBus);

    const Component& component_;
    AudioUnit handle_ = nullptr;
    std::vector<LentMemory> lentMemories_;
    std::mutex notifyLock_;
    std::mutex listenerLock_;
    std::vector<Listener> listeners_;
    std::mutex dependentLock_;
    std::vector<Dependent> dependents_;
    std::atomic<OSStatus> lastRenderError_{noErr};
    std::atomic<bool> restart_{false};
    std::atomic<std::uint64_t> sliceCount_{0};
    std::atomic<std::thread::id> renderThread_{};
    std::atomic<Float32> cpuLoad_{0};
    std::atomic<Float32> maximumCpuLoad_{0};
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::Unit, lock_};
    tqcommon::ForkLock notifiesAtFork_{tqcommon::ForkOrder::UnitLists, notifyLock_};
    tqcommon::ForkLock listenersAtFork_{tqcommon::ForkOrder::UnitLists, listenerLock_};
    tqcommon::ForkLock dependentsAtFork_{tqcommon::ForkOrder::UnitLists, dependentLock_};
};

using UnitTable = HandleTable<Unit>;

/// [any thread] All units of the process. Real-time safe once it was called.
[[nodiscard]] UnitTable& units();

}  // namespace tqplatform
