#pragma once

#include "device/Device.h"
#include "format/ChannelMap.h"
#include "unit/ConvertedInput.h"
#include "unit/MicrophonePath.h"
#include "unit/Unit.h"

namespace tqplatform {

/// RemoteIO, and VoiceProcessingIO, which here does the same.
///
/// Element 0 plays: its input scope has the program's format, its output scope the device's.
/// Element 1 is the microphone: its input scope has the device's format, its output scope the
/// program's. The device calls the unit once per slice on its own thread.
class IOUnit final : public Unit, private DeviceClient {
  public:
    explicit IOUnit(const Component& component);
    /// A start that was under way when the unit was disposed of may have come through since.
    ~IOUnit() override { device_.removeClient(*this); }

    void close() override;
    void forgetAfterFork(bool isInside) noexcept override;
    OSStatus start() override;
    OSStatus stop() override;
    [[nodiscard]] bool isRunning() const noexcept override { return running_.load(); }
    /// [host thread] Before it is initialised: the unit follows the device's clock and is neither
    /// heard nor a reason to open a device.
    OSStatus hush() override;

  protected:
    std::unique_ptr<RenderPlan> makePlan(const RenderPlan* old) override;
    [[nodiscard]] bool isPulledHere(UInt32 bus) const noexcept override;
    OSStatus renderBus(const RenderPlan& plan, const RenderCall& call) noexcept override;
    [[nodiscard]] const PropertyTable& properties() const override;
    OSStatus findParameter(AudioUnitParameterID id, AudioUnitScope scope, AudioUnitElement element,
                           Parameter& parameter) noexcept override;
    [[nodiscard]] AudioStreamBasicDescription busFormat(AudioUnitScope scope,
                                                        UInt32 element) override;
    [[nodiscard]] bool isFormatWritable(AudioUnitScope scope, UInt32 element) override;
    [[nodiscard]] UInt32 feedableInputs() const override { return 1; }
    void stopOnUninitialize() override { static_cast<void>(stop()); }

  private:
    struct Plan;
    struct Properties;
    /// What the device is like.
    struct Hardware {
        Float64 rate = 0;  ///< Hz
        UInt32 outputs = 0;
        UInt32 inputs = 0;

        bool operator==(const Hardware&) const = default;
    };
    static constexpr UInt32 kBestQuality = 127;
    static constexpr UInt32 kMicrophone = 1;  ///< its element

    // [render thread] Inside a slice of the device.
    void render(const DeviceSlice& slice) noexcept override;
    [[nodiscard]] ClientWants wants() const noexcept override;
    void renderSlice(const DeviceSlice& slice) noexcept;
    void hearInput(const Plan& plan, const AudioTimeStamp& time, const DeviceSlice& slice) noexcept;
    void play(const Plan& plan, const AudioTimeStamp& time, const DeviceSlice& slice) noexcept;
    OSStatus fill(const Plan* now, AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time,
                  const DeviceSlice& slice) noexcept;
    void followDevice() noexcept;
    void tellHardware(const Hardware& now);
    [[nodiscard]] Hardware hardware() const noexcept;

    // Values of properties, under the lock.
    UInt32 enabled(PropertyKey key);
    OSStatus writeEnabled(PropertyKey key, UInt32 value);
    UInt32 hasIO(PropertyKey key);
    UInt32 running(PropertyKey key);
    /// Channels that give and channels that get, of an element's way through the unit.
    [[nodiscard]] std::pair<UInt32, UInt32> mappedChannels(UInt32 element);
    OSStatus writeChannelMap(PropertyKey key, const void* data, UInt32 size);
    OSStatus removeChannelMap(PropertyKey key);
    OSStatus changeChannelMap(UInt32 element, ChannelMap map);
    OSStatus writeInputCallback(PropertyKey key, AURenderCallbackStruct callback);
    OSStatus removeInputCallback(PropertyKey key);

    OSStatus changeInputCallback(AURenderCallbackStruct callback);
    void tellRunning();

    /// The device, once it is known what it is like. A hushed unit does not ask.
    [[nodiscard]] Device& knownDevice();

    Device& device_;
    std::atomic<bool> hushed_{false};
    bool outputEnabled_ = true;
    bool inputEnabled_ = false;
    AURenderCallbackStruct inputCallback_{};
    std::array<ChannelMap, 2> channelMaps_;  ///< by element
    std::atomic<UInt32> startsAtZero_{1};
    std::atomic<UInt32> bypassesVoice_{0};
    std::atomic<UInt32> controlsGain_{1};
    std::atomic<UInt32> quality_{kBestQuality};
    std::atomic<UInt32> mutes_{0};
    ParameterValue volume_{1};

    /// Held while a thread other than the device's adds the unit to the device or removes it.
    std::mutex transition_;
    tqcommon::ForkLock transitionAtFork_{tqcommon::ForkOrder::Transition, transition_};
    std::atomic<bool> running_{false};
    std::atomic<bool> beginning_{false};  ///< the next slice is the first after a start
    Hardware toldHardware_;               ///< in slices only; that programs know of
    Float64 sampleTime_ = 0;              ///< in slices only; in frames of countedRate_
    Float64 countedRate_ = 0;             ///< in slices only
    /// Frames that element 1 has heard since the start, in the program's rate; in slices only. Kept
    /// here since another device has another path.
    Float64 heardFrames_ = 0;
};

}  // namespace tqplatform
