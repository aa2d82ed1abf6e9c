#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

#include "volume_controller.h"

namespace korva_audio_utils {
namespace {

constexpr std::int32_t kNoHold = 1073741824;

/// Processes blocks on a render thread until it goes out of scope.
class Renderer {
  public:
    explicit Renderer(
        VolumeController& controller, std::function<void()> before = [] {})
        : thread_([this, &controller, before] {
              std::vector<float> block(256);
              while (!done_.load()) {
                  before();
                  block.assign(block.size(), 1.0F);
                  auto* const bytes = reinterpret_cast<char*>(block.data());
                  controller.Process(bytes, bytes, 2, block.size() * sizeof(float),
                                     VolumeControllerFormat::kFloat32);
                  for (const float sample : block) {
                      outside_ += sample >= 0.0F && sample <= 1.0F ? 0 : 1;
                  }
                  ++blocks_;
              }
          }) {}
    ~Renderer() { Stop(); }
    Renderer(const Renderer&) = delete;
    Renderer& operator=(const Renderer&) = delete;

    void Stop() {
        done_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    int Blocks() const { return blocks_; }
    int Outside() const { return outside_; }
    void WaitForBlocks(int more) const {
        for (const int until = blocks_ + more; blocks_ < until;) {
            std::this_thread::yield();
        }
    }

  private:
    std::atomic<bool> done_{false};
    std::atomic<int> blocks_{0};
    std::atomic<int> outside_{0};
    std::thread thread_;
};

TEST(VolumeControllerThreadsTest, EverythingMayChangeWhileBlocksAreProcessed) {
    VolumeController controller(48000);
    Renderer renderer(controller);
    renderer.WaitForBlocks(1);
    for (int round = 0; round < 300 || renderer.Blocks() < 300; ++round) {
        controller.SetDuckingParams({.enable = round % 3 != 0, .targetGain = -6.0F});
        controller.SetCompressorParams({.enable = round % 2 == 0});
        controller.init_params();
        controller.SetDuckingVolume(round % 5 == 0 ? -60.0F : 0.0F, true);
        controller.SetCompressorVolume(0.5F, false);
        if (round % 3 == 0) {
            controller.ResetDuckingState();
        }
        if (round % 2 != 0) {
            controller.ResetCompressorState();
        }
        controller.UpdateFS(round % 4 < 2 ? 44100 : 48000);
    }
    renderer.Stop();
    EXPECT_EQ(renderer.Outside(), 0);
}

TEST(VolumeControllerThreadsTest, AResetDuringABlockIsNeverLost) {
    VolumeController controller(48000);
    controller.SetDuckingParams({.enable = true, .attackTime = 0.001F});
    controller.SetCompressorParams({.enable = true, .attackTime = 0.001F});
    controller.init_params();
    for (int round = 0; round < 200; ++round) {
        controller.SetDuckingVolume(0.0F, true);
        Renderer renderer(controller);
        renderer.WaitForBlocks(1);
        // Somewhere inside a block, with nothing else to end the duck by itself.
        controller.SetCompressorParams({.enable = false});
        controller.SetDuckingParams({.enable = false});
        controller.ResetCompressorState();
        controller.ResetDuckingState();
        renderer.Stop();
        ASSERT_EQ(controller.DuckingCurrent(), 1.0F);
        ASSERT_EQ(controller.DuckingTarget(), 1.0F);
        ASSERT_EQ(controller.HoldCounter(), kNoHold);
        ASSERT_EQ(controller.CompressorCurrent(), 1.0F);
        ASSERT_EQ(controller.CompressorTarget(), 1.0F);
        ASSERT_EQ(controller.SampleCounter(), 0U);
        controller.SetDuckingParams({.enable = true, .attackTime = 0.001F});
        controller.SetCompressorParams({.enable = true, .attackTime = 0.001F});
    }
}

TEST(VolumeControllerThreadsTest, RateAndRecordChangesOnTwoThreadsEndWithTheLatestOfBoth) {
    for (int round = 0; round < 300; ++round) {
        VolumeController controller(16000);
        std::atomic<int> ready{0};
        const auto meet = [&ready] {
            ++ready;
            while (ready.load() < 2) {
            }
        };
        std::thread render([&] {
            meet();
            controller.UpdateFS(44100);
            controller.UpdateFS(48000);
        });
        meet();
        controller.SetDuckingParams({.holdTime = 0.5F});
        controller.init_params();
        controller.SetDuckingParams({.holdTime = 2.0F});
        controller.init_params();
        render.join();
        ASSERT_EQ(controller.HoldSamples(), 96000.0F);
        ASSERT_EQ(controller.UpdateInterval(), 48);
    }
}

}  // namespace
}  // namespace korva_audio_utils
