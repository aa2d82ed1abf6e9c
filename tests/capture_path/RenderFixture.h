#pragma once

#include <memory>
#include <vector>

#include "CapturePathFixture.h"

/// What the device played last.
struct Speaker {
    std::vector<float> last;

    Speaker() { EXPECT_EQ(TQManualDeviceSetOutput(hear, this), 0); }
    ~Speaker() { TQManualDeviceSetOutput(nullptr, nullptr); }
    Speaker(const Speaker&) = delete;
    Speaker& operator=(const Speaker&) = delete;

    static void hear(void* self, const AudioTimeStamp*, UInt32, UInt32 frames,
                     const float* const* planes) {
        static_cast<Speaker*>(self)->last.assign(planes[0], planes[0] + frames);
    }
    [[nodiscard]] float level() const { return last.empty() ? 0.0F : last[last.size() / 2]; }
};

/// Device, host and mix at one rate: one block of the host is one block of the track and the mix.
struct RenderCallbacks : CapturePath {
    static constexpr UInt32 kSlice = 441;
    static constexpr std::size_t kSliceBytes = kSlice * 4;
    HostSound& sound() { return host_->sound; }
    HostUnit& host() { return *host_; }
    RZReplayAudioUnitObject& object() { return *host_->object(); }

    void SetUp() override {
        CapturePath::SetUp();
        ASSERT_EQ(TQManualDeviceSetSampleRate(44100), 0);
        host_ = std::make_unique<HostUnit>();
        host_->sound.format = stream_formats::int16Interleaved(44100, 2);
    }
    void TearDown() override {
        host_.reset();
        CapturePath::TearDown();
        EXPECT_EQ(TQManualDeviceSetSampleRate(48000), 0);
    }
    void capture(std::uint64_t mask, AudioUnitScope scope = kAudioUnitScope_Input) {
        listener = std::make_shared<CaptureListener>(mask);
        host_->play(scope);
        ASSERT_TRUE(startCapture());
    }
    void slices(int count) { pump(count, kSlice); }
    /// Blocks pile up while the private graph stands still.
    void stopPrivateGraph() { ASSERT_EQ(AUGraphStop(manager().mGraph()), 0); }
    void startPrivateGraph() { ASSERT_EQ(AUGraphStart(manager().mGraph()), 0); }

  private:
    std::unique_ptr<HostUnit> host_;
};
