#pragma once

#include <TQPlatform/ManualDevice.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "EventRecorder.h"
#include "LogCapture.h"
#include "PlatformCalls.h"
#include "RZReplayAudioRecorder.h"
#include "RZStreamCollectManager.h"
#include "RZStreamMixManager.h"
#include "StreamFormats.h"
#include "TQAudioUnitRecordResolveManager.h"

/// "%p" as the library prints it.
std::string pointerText(const void* pointer);

/// A listener at the end of the real capture path. Blocks are kept as bytes.
class CaptureListener : public RZReplayAudioRecorderListener<CaptureListener> {
  public:
    struct Block {
        RZReplayASBDInfo info;
        std::vector<std::vector<std::byte>> buffers;

        /// The mix is the only block whose volume is 0: tracks bear 1.
        [[nodiscard]] bool isMix() const { return info.volume() == 0.0; }
        [[nodiscard]] std::vector<std::int16_t> samples(std::size_t buffer = 0) const;
        [[nodiscard]] bool isSilent() const;
    };

    explicit CaptureListener(std::uint64_t mask) : mask_(mask) {}

    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info);
    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code, const std::string& message);
    [[nodiscard]] std::uint64_t getPCMDataType() { return mask_; }

    [[nodiscard]] std::vector<RecordedEvent> events() const;
    [[nodiscard]] std::vector<Block> mixes() const;
    [[nodiscard]] std::vector<Block> posts() const;
    void clear();

  private:
    std::atomic<std::uint64_t> mask_;
    mutable std::mutex mutex_;
    std::vector<RecordedEvent> events_;
    std::vector<Block> blocks_;
};

/// A host's render callback: fills every sample with one value and answers one status.
struct HostSound {
    AudioStreamBasicDescription format = stream_formats::int16Interleaved(48000, 2);
    std::atomic<double> value{0.25};  ///< of full scale
    OSStatus status = 0;
    std::atomic<int> calls{0};
    bool isRising = false;  ///< each call plays one step (1/32767) more than the one before

    /// For AURenderCallbackStruct, with the HostSound as reference.
    static OSStatus render(void* refCon, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* ts, UInt32 bus, UInt32 frames,
                           AudioBufferList* ioData);
    [[nodiscard]] AURenderCallbackStruct callback() { return {render, this}; }
};

/// An output unit as a host drives it, every step through the platform's calls.
class HostUnit {
  public:
    explicit HostUnit(OSType subType = kAudioUnitSubType_RemoteIO);
    ~HostUnit();
    HostUnit(const HostUnit&) = delete;
    HostUnit& operator=(const HostUnit&) = delete;

    OSStatus setFormat(const AudioStreamBasicDescription& format);
    OSStatus setCallback(AudioUnitScope scope = kAudioUnitScope_Input,
                         AudioUnitElement element = 0);
    OSStatus enableMicrophone();
    OSStatus initialize();
    OSStatus start();
    OSStatus stop();
    void uninitialize();
    void dispose();
    /// Format, callback, initialise: ready to start.
    void prepare(AudioUnitScope callbackScope = kAudioUnitScope_Input);
    /// Everything that a simple host does.
    void play(AudioUnitScope callbackScope = kAudioUnitScope_Input);

    [[nodiscard]] AudioUnit unit() const { return unit_; }
    /// The capture object, null when there is none.
    [[nodiscard]] std::shared_ptr<RZReplayAudioUnitObject> object() const;
    HostSound sound;

  private:
    AudioUnit unit_ = nullptr;
};

/// A graph as a host drives it: an output node, with a mixer in front of it if wanted.
class HostGraph {
  public:
    HostGraph();
    ~HostGraph();
    HostGraph(const HostGraph&) = delete;
    HostGraph& operator=(const HostGraph&) = delete;

    AUNode add(OSType type, OSType subType);
    AUNode addOutput();
    AUNode addMixer();
    OSStatus setCallback(AUNode node, UInt32 input = 0);
    [[nodiscard]] AudioUnit unitOf(AUNode node) const;
    /// Format of the output node's program side; the graph must be open.
    void setOutputFormat();
    /// Output node with a callback, opened, initialised, started.
    void play();
    void dispose();

    [[nodiscard]] AUGraph graph() const { return graph_; }
    [[nodiscard]] AUNode output() const { return output_; }
    [[nodiscard]] std::shared_ptr<RZReplayAudioUnitObject> object() const;
    HostSound sound;

  private:
    AUGraph graph_ = nullptr;
    AUNode output_ = 0;
};

/// The whole library inside the test program, hooks installed, on the manual device.
class CapturePath : public testing::Test {
  protected:
    static constexpr UInt32 kFrames = 480;  ///< 10 ms of the device: whole 441 of the mix

    void SetUp() override;
    void TearDown() override;

    static RZStreamMixManager& manager() { return *RZStreamMixManager::sharedManager(); }
    static RZStreamCollectManager& collect() { return RZStreamCollectManager::sharedManager(); }
    static TQAudioUnitRecordResolveManager& resolver() {
        return TQAudioUnitRecordResolveManager::sharedManager();
    }
    /// Adds the listener and waits until the attempt to start is over. Answers isCapturing.
    bool startCapture();
    void stopCapture();
    /// Waits for whatever was asked of the recorder's queue.
    static void drainRecorder();
    /// Renders slices of kFrames each; host time goes on with them.
    void pump(int slices = 1, UInt32 frames = kFrames);

    PlatformCalls& platform = PlatformCalls::shared();
    std::shared_ptr<CaptureListener> listener = std::make_shared<CaptureListener>(3);
    std::unique_ptr<LogCapture> logs;
    std::uint64_t hostTime = 5'000'000'000;
};

/// An event: category, code, message.
inline RecordedEvent event(std::uint64_t category, std::uint64_t code, const std::string& message) {
    return {category, code, message};
}

inline constexpr const char* kManagerFile = "Classes/MixManager/RZStreamMixManager";
inline constexpr const char* kUnitHookFile = "Classes/AudioUnitCapturer/RZReplayAudioUnitCapturer";
inline constexpr const char* kGraphHookFile =
    "Classes/AUGraphCapturer/RZReplayAudioUnitGraphCapturer";
