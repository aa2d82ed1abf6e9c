// A program on the user's device under the recorder: it is heard as before, and is one track.

#include <gtest/gtest.h>

#include "DeviceRun.h"
#include "bridges/programs/RecordedRun.h"
#include "support/sound/Comparison.h"

namespace {

using namespace tqtest;
using programruns::ProgramRun;

/// Samples at the monitor are the device's.
struct FloatPulseServer : PulseServer {
    FloatPulseServer() : PulseServer(devicePlayerFormat()) {}
};

class RecordedDevice : public programruns::RecordedRun {
  protected:
    ProgramRun record(const std::vector<std::string>& options) {
        const ProgramSetup player =
            devicePlayer({}, "cubeb", {"duration:0.08", "start", "end", "stop", "sleep:0.3"});
        std::vector<std::string> command{"env", "TQ_AUDIO_DEVICE=cubeb"};
        command.insert(command.end(), player.arguments.begin(), player.arguments.end());
        return runRecorded(output_, command, options);
    }

    programruns::ServerOutput<FloatPulseServer> output_;
};

TEST_F(RecordedDevice, IsHeardAsItWasRenderedAndIsOneTrack) {
    const ProgramRun run = record({});
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    EXPECT_EQ(differences(devicePlayerNoise(), run.heard), std::vector<std::string>{});
    ASSERT_EQ(run.tracks.size(), 1U) << "the device's own stream is none: " << run.end.text();
    EXPECT_EQ(differences(devicePlayerNoise(), run.tracks.begin()->second.trimmed()),
              std::vector<std::string>{});
}

TEST_F(RecordedDevice, IsHeardDucked) {
    const ProgramRun run = record({"--duck=-20", "--attack", "0.001"});
    ASSERT_EQ(run.heard.frames(), devicePlayerNoise().frames()) << run.end.text();
    for (std::size_t frame = 48000; frame < 90000; frame += 1000) {
        EXPECT_NEAR(run.heard.value(frame, 0), devicePlayerNoise().value(frame, 0) / 10, 0.02)
            << frame;
    }
}

}  // namespace
