#pragma once

#include <AudioToolbox/AudioToolbox.h>
#include <TQAudioRecord/tq_source.h>

#include <cstdint>
#include <memory>
#include <string>

#include "bridges/core/NativeFormat.h"

namespace tq::bridges {

/// Where a unit's blocks come from.
class BlockFeeder {
  public:
    BlockFeeder() = default;
    BlockFeeder(const BlockFeeder&) = delete;
    BlockFeeder& operator=(const BlockFeeder&) = delete;
    /// [render thread] Fills the next block as the program wrote it. `hostTime`, in ns, is the
    /// block's.
    virtual void feed(void* samples, std::size_t frames, std::uint64_t hostTime) noexcept = 0;
    /// [render thread] Puts the same block as it is heard in its place.
    virtual void replaceByHeard(void* samples, std::size_t frames) noexcept = 0;

  protected:
    ~BlockFeeder() = default;
};

/// An output unit of the platform that stands for one stream after the other, and never goes: a
/// track number that is released may take a living track's place. [host thread] for every method
/// but source().
class BridgeUnit {
  public:
    /// Null when the platform or the capture library refuses another one.
    [[nodiscard]] static std::unique_ptr<BridgeUnit> make();
    ~BridgeUnit();
    BridgeUnit(const BridgeUnit&) = delete;
    BridgeUnit& operator=(const BridgeUnit&) = delete;

    /// Makes it stand for a stream; not while it runs. False when the unit refuses the format.
    [[nodiscard]] bool take(const NativeFormat& format, const std::string& name,
                            BlockFeeder& feeder);
    void start();
    /// Waits for the block that is being rendered.
    void stop();

    [[nodiscard]] bool isRunning() const { return isRunning_; }
    /// Whether it stands for the stream of that feeder.
    [[nodiscard]] bool standsFor(const BlockFeeder& feeder) const { return feeder_ == &feeder; }
    /// Only in the child of a fork, whose device has no units.
    void forgetAfterFork() { isRunning_ = false; }
    [[nodiscard]] const NativeFormat& format() const { return format_; }
    [[nodiscard]] const std::string& name() const { return name_; }
    /// [any thread] The same for the unit's life, which is the process's. Null before the first
    /// take().
    [[nodiscard]] tq_source* source() const { return source_; }

  private:
    BridgeUnit() = default;
    [[nodiscard]] bool setFormat(const NativeFormat& format);
    static OSStatus render(void* unit, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                           AudioBufferList* ioData);
    static void replace(void* unit, void* samples, std::uint32_t frames);

    AudioUnit unit_ = nullptr;
    tq_source* source_ = nullptr;
    /// Changes only while the unit does not run; its start publishes it.
    BlockFeeder* feeder_ = nullptr;
    NativeFormat format_;
    std::string name_;
    bool isRunning_ = false;
};

}  // namespace tq::bridges
