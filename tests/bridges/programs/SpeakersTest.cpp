#include <gtest/gtest.h>

#include <fstream>

#include "bridges/programs/Player.h"
#include "bridges/programs/RecordedRun.h"

// Players with six channels: the mix has each of them where the interface says that it is heard.

namespace programruns {
namespace {

constexpr double kLower = 0.7071;  // by 3 dB
constexpr std::array<double, 2> kLeft{1, 0};
constexpr std::array<double, 2> kRight{0, 1};
constexpr std::array<double, 2> kMiddle{kLower, kLower};
constexpr std::array<double, 2> kLow{0, 0};
constexpr std::array<double, 2> kBackLeft{kLower, 0};
constexpr std::array<double, 2> kBackRight{0, kLower};

/// One that plays six channels, and how loud each is in the mix.
struct SixChannels : Player {
    std::array<std::array<double, 2>, 6> gains;
};

constexpr int kRate = 44100;

/// A device that knows one order, which is not ALSA's usual one.
class MappedAlsa : public FileOutput<tqtest::AlsaFilePcm> {
  public:
    MappedAlsa() {
        std::ofstream(folder().file("asound.conf"))
            << "pcm.cap { type null chmap [ \"FL,FR,FC,LFE,RL,RR\" ] }";
    }
};

void PrintTo(const SixChannels& player, std::ostream* out) {
    *out << player.name;
}

class SpeakersTest : public testing::TestWithParam<SixChannels> {
  protected:
    void SetUp() override { skipUnlessPreloading(); }
    std::unique_ptr<Output> output_ = GetParam().makeOutput();
};

TEST_P(SpeakersTest, EachOfSixChannelsIsInTheMixWhereItIsHeard) {
    const tqtest::Sound sound = oneChannelAfterTheOther(kRate);
    const std::string file = output_->folder().file("six");
    if (GetParam().name == "pwPlay") {
        writeWav(sound, file);
    } else {
        std::ofstream(file, std::ios::binary) << sound.bytes;
    }
    const ProgramRun run = runRecorded(*output_, GetParam().playing(file));
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    expectTrackHolds(run, sound);
    expectFolded(run, GetParam().gains);
}

const std::vector<std::string> kAplay{"aplay", "-q", "-t", "raw",   "-f", "S16_LE",
                                      "-c",    "6",  "-r", "44100", "-D", "cap"};

std::vector<std::string> paplay(const std::string& map) {
    return {"paplay",       "--raw",        "--format=s16le",
            "--rate=44100", "--channels=6", "--channel-map=" + map};
}

INSTANTIATE_TEST_SUITE_P(
    Debian, SpeakersTest,
    testing::Values(
        SixChannels{{"aplay", kAlsa, kAplay},
                    {kLeft, kRight, kBackLeft, kBackRight, kMiddle, kLow}},
        SixChannels{{"aplayWhereTheDeviceSaysIt", make<MappedAlsa>, kAplay},
                    {kLeft, kRight, kMiddle, kLow, kBackLeft, kBackRight}},
        SixChannels{{"paplay", kPulse,
                     paplay("front-left,front-right,front-center,lfe,rear-left,rear-right")},
                    {kLeft, kRight, kMiddle, kLow, kBackLeft, kBackRight}},
        SixChannels{{"paplayOtherOrder", kPulse,
                     paplay("front-left,front-center,front-right,side-left,side-right,lfe")},
                    {kLeft, kMiddle, kRight, kBackLeft, kBackRight, kLow}},
        SixChannels{{"pwPlay", kPipeWire, {"pw-play", "--channel-map=FL,FR,FC,LFE,SL,SR"}},
                    {kLeft, kRight, kMiddle, kLow, kBackLeft, kBackRight}}),
    [](const testing::TestParamInfo<SixChannels>& each) { return each.param.name; });

}  // namespace
}  // namespace programruns
